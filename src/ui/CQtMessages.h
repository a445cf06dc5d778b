#pragma once
// The output code's messages as message boxes. Safe to call from the worker thread: the box is
// shown by the window thread while the worker waits for it to be closed.
#include <QString>
#include <QWidget>
#include <functional>

#include "output/UserMessages.h"

namespace kestrin::ui {

class CQtMessages final : public IUserMessages {
public:
    explicit CQtMessages(QWidget* parent) : m_parent(parent) {}
    void Show(const UserMessage& message) override;
    // Replaces the boxes (tests): every message goes here instead.
    static void SetHook(std::function<void(const QString&)> hook);
    // Shows one information box, or hands it to the hook.
    static void Inform(QWidget* parent, const QString& text);
    // The same with a warning sign: something was refused or went wrong.
    static void Warn(QWidget* parent, const QString& text);
    // A Yes/No question; with the hook set it is recorded there and answered as SetHookAnswer
    // says (No until then). `defaultYes` false: Enter answers No (questions that lose data).
    static bool Ask(QWidget* parent, const QString& text, bool defaultYes = true);
    static void SetHookAnswer(bool yes);

private:
    QWidget* m_parent;
};

} // namespace kestrin::ui
