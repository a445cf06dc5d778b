#pragma once
// Stands in for the message boxes and the system's viewer: every text shown or asked lands in
// `texts`, questions get `answer` (or what `onAsk` says), and the viewer is `viewer` (none by
// default, so nothing outside the test is ever started); folders asked to be shown are listed.
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
    // Records the text and the action offered; chooses the action when `chooseAction` is set.
    bool TellWithAction(QWidget*, const QString&, const QString& text, Sign, const QString& action) override {
        Record(text);
        actionsOffered << action;
        return chooseAction;
    }
    // Records the folder; nothing outside the test is started.
    bool OpenFolder(const QString& folder) override {
        foldersOpened << folder;
        return true;
    }
    using IDesktop::Ask;

    bool answer = false;
    std::function<bool(const QString&)> onAsk;
    std::function<bool(const QString&)> viewer;
    bool chooseAction = false;
    QStringList actionsOffered;
    QStringList foldersOpened;

private:
    void Record(const QString& text) {
        if (m_texts) *m_texts << text;
    }
    QStringList* m_texts;
};

} // namespace kestrin::test
