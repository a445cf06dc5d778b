#include "ui/CQtMessages.h"

#include <QApplication>
#include <QMessageBox>
#include <QThread>

#include "ui/UiText.h"
#include "session/Texts.h"

namespace kestrin::ui {

namespace {
std::function<void(const QString&)>& Hook() {
    static std::function<void(const QString&)> hook;
    return hook;
}
bool& HookAnswer() {
    static bool yes = false;
    return yes;
}
} // namespace

void CQtMessages::SetHook(std::function<void(const QString&)> hook) { Hook() = std::move(hook); }
void CQtMessages::SetHookAnswer(bool yes) { HookAnswer() = yes; }

void CQtMessages::Inform(QWidget* parent, const QString& text) {
    if (Hook()) {
        Hook()(text);
        return;
    }
    QMessageBox::information(parent, Caption(), text);
}

void CQtMessages::Warn(QWidget* parent, const QString& text) {
    if (Hook()) {
        Hook()(text);
        return;
    }
    QMessageBox::warning(parent, Caption(), text);
}

bool CQtMessages::Ask(QWidget* parent, const QString& text, bool defaultYes) {
    if (Hook()) {
        Hook()(text);
        return HookAnswer();
    }
    return QMessageBox::question(parent, Caption(), text, QMessageBox::Yes | QMessageBox::No,
                                 defaultYes ? QMessageBox::Yes : QMessageBox::No) == QMessageBox::Yes;
}

void CQtMessages::Show(const UserMessage& message) {
    QString text = QString::fromStdString(TextOf(message));
    QString caption = QString::fromStdString(CaptionOf(message));
    bool error = message.icon == MessageIcon::Error;
    auto show = [this, text, caption, error] {
        if (Hook()) {
            Hook()(text);
            return;
        }
        if (error) QMessageBox::critical(m_parent, caption, text);
        else QMessageBox::information(m_parent, caption, text);
    };
    if (QThread::currentThread() == qApp->thread()) show();
    else QMetaObject::invokeMethod(qApp, show, Qt::BlockingQueuedConnection);
}

} // namespace kestrin::ui
