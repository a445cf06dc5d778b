#pragma once
// Stands in for the message boxes and the system's viewer: every text shown or asked lands in
// `texts`, questions get `answer` (or what `onAsk` says), and the viewer is `viewer` (none by
// default, so nothing outside the test is ever started).
#include <QStringList>
#include <functional>

#include "ui/Desktop.h"

namespace kestrin::test {

class RecordingDesktop final : public ui::IDesktop {
public:
    explicit RecordingDesktop(QStringList* texts = nullptr) : m_texts(texts) {}

    void Tell(QWidget*, const QString&, const QString& text, Sign) override { Record(text); }
    bool Ask(QWidget*, const QString&, const QString& text, bool) override {
        Record(text);
        return onAsk ? onAsk(text) : answer;
    }
    bool OpenInViewer(const QString& path) override { return viewer ? viewer(path) : false; }
    using IDesktop::Ask;

    bool answer = false;
    std::function<bool(const QString&)> onAsk;
    std::function<bool(const QString&)> viewer;

private:
    void Record(const QString& text) {
        if (m_texts) *m_texts << text;
    }
    QStringList* m_texts;
};

} // namespace kestrin::test
