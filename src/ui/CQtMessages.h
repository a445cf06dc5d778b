#pragma once
// The output code's messages as message boxes. Safe to call from the worker thread: the box is
// shown by the window thread while the worker waits for it to be closed.
#include <QWidget>

#include "output/UserMessages.h"
#include "ui/Desktop.h"

namespace kestrin::ui {

class CQtMessages final : public IUserMessages {
public:
    CQtMessages(QWidget* parent, IDesktop& desktop) : m_parent(parent), m_desktop(desktop) {}
    void Show(const UserMessage& message) override;

private:
    QWidget* m_parent;
    IDesktop& m_desktop;
};

} // namespace kestrin::ui
