#include "ui/CQtMessages.h"

#include <QApplication>
#include <QThread>

#include "session/Texts.h"

namespace kestrin::ui {

void CQtMessages::Show(const UserMessage& message) {
    QString text = QString::fromStdString(TextOf(message));
    QString caption = QString::fromStdString(CaptionOf(message));
    IDesktop::Sign sign = message.icon == MessageIcon::Error ? IDesktop::Sign::Error : IDesktop::Sign::Information;
    auto show = [this, text, caption, sign] { m_desktop.Tell(m_parent, caption, text, sign); };
    if (QThread::currentThread() == qApp->thread()) show();
    else QMetaObject::invokeMethod(qApp, show, Qt::BlockingQueuedConnection);
}

} // namespace kestrin::ui
