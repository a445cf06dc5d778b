// The desktop program: start-up (language, single instance), then the main window.
#include <QApplication>
#include <QMessageBox>

#include "app/Language.h"
#include "app/Startup.h"
#include "platform/Platform.h"
#include "ui/CMainWindow.h"
#include "ui/Desktop.h"

int main(int argc, char** argv) {
    QApplication qapp(argc, argv);
    kestrin::app::InitLanguage();
    kestrin::platform::InstanceLock lock;
    kestrin::app::StartupRefusal refusal = kestrin::app::StartupCheck(lock);
    if (!refusal.caption.empty()) {
        QMessageBox::critical(nullptr, QString::fromStdString(refusal.caption), QString::fromStdString(refusal.message));
        return 1;
    }
    kestrin::ui::CDesktop desktop;
    kestrin::ui::CMainWindow window(desktop);
    window.show();
    // A recovery session file named on the command line (a double-click on it) opens directly.
    QStringList args = qapp.arguments();
    if (args.size() > 1 && args[1].endsWith(".tks4", Qt::CaseInsensitive)) window.OpenSession(args[1], true);
    return qapp.exec();
}
