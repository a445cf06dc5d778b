#pragma once
// Stands in for the message boxes and the system's viewer: every text shown or asked lands in
// `texts` (with its caption and kind in `boxes`), questions get `answer` (or what `onAsk` says),
// a file to locate is `located` (none by default), and the viewer is `viewer` (none by default,
// so nothing outside the test is ever started); folders asked to be shown are listed.
#include <QStringList>
#include <functional>

#include "ui/Desktop.h"

namespace kestrin::test {

class RecordingDesktop final : public ui::IDesktop {
public:
    explicit RecordingDesktop(QStringList* texts = nullptr) : m_texts(texts) {}

    enum class Kind { Information, Warning, Error, Question };
    struct Box {
        Kind kind;
        QString caption, text;
    };

    void Tell(QWidget*, const QString& caption, const QString& text, Sign sign) override {
        Record(sign == Sign::Error ? Kind::Error : sign == Sign::Warning ? Kind::Warning : Kind::Information, caption, text);
    }
    bool Ask(QWidget*, const QString& caption, const QString& text, bool) override {
        Record(Kind::Question, caption, text);
        return onAsk ? onAsk(text) : answer;
    }
    QString Locate(QWidget*, const QString& question, const QString& missing) override {
        Record(Kind::Question, {}, question);
        return located ? located(missing) : QString();
    }
    bool OpenInViewer(const QString& path) override { return viewer ? viewer(path) : false; }
    // Records the text and the action offered; chooses the action when `chooseAction` is set.
    bool TellWithAction(QWidget*, const QString& caption, const QString& text, Sign sign, const QString& action) override {
        Record(sign == Sign::Error ? Kind::Error : sign == Sign::Warning ? Kind::Warning : Kind::Information, caption, text);
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
    std::function<QString(const QString&)> located;
    QList<Box> boxes;

private:
    void Record(Kind kind, const QString& caption, const QString& text) {
        boxes.push_back({kind, caption, text});
        if (m_texts) *m_texts << text;
    }
    QStringList* m_texts;
};

} // namespace kestrin::test
