// The desktop program: command-line answers (--help, --version), start-up (language, single
// instance, hand-off of a session file to the running window), then the main window.
#include <QApplication>
#include <QFileInfo>
#include <QIcon>
#include <QMessageBox>
#include <cstdio>
#include <cstring>

#include "app/Language.h"
#include "app/Startup.h"
#include "platform/Platform.h"
#include "ui/CAboutDialog.h"
#include "ui/CMainWindow.h"
#include "ui/CSingleInstance.h"
#include "ui/Desktop.h"
#include "ui/QtCatalogues.h"
#include "ui/UiText.h"

namespace {

// The session file named on the command line (a double-click on it), or empty.
QString SessionArgument(const QStringList& args) {
    for (qsizetype i = 1; i < args.size(); ++i)
        if (args[i].endsWith(".tks4", Qt::CaseInsensitive)) return args[i];
    return {};
}

// --help and --version are answered before any window system is touched, so they work without
// a display. Returns the exit code, or -1 to start the program.
int AnswerInformationOptions(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--") == 0) break;
        if (std::strcmp(argv[i], "--version") == 0 || std::strcmp(argv[i], "-v") == 0) {
            std::printf("kestrin-gui %s\n", KESTRIN_VERSION);
            for (const QString& l : kestrin::ui::LibraryVersions()) std::printf("  %s\n", qPrintable(l));
            return 0;
        }
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            using kestrin::ui::Tx;
            std::printf("%s: kestrin-gui [%s]\n\n%s\n\n  -h, --help     %s\n  -v, --version  %s\n",
                        qPrintable(Tx("IDS_UI_USAGE", "Usage")), qPrintable(Tx("IDS_UI_USAGE_SESSION", "SESSION.tks4")),
                        qPrintable(Tx("IDS_UI_USAGE_TEXT",
                                      "Starts the desktop program; a recovery session file named here opens at "
                                      "once, in the window already running if there is one.")),
                        qPrintable(Tx("IDS_UI_USAGE_HELP", "Shows this help and ends")),
                        qPrintable(Tx("IDS_UI_USAGE_VERSION", "Shows the version and the libraries and ends")));
            return 0;
        }
    }
    return -1;
}

} // namespace

int main(int argc, char** argv) {
    using namespace kestrin;
    app::InitLanguage();
    if (int rc = AnswerInformationOptions(argc, argv); rc >= 0) return rc;

    QApplication qapp(argc, argv);
    Q_INIT_RESOURCE(kestrin);
    QApplication::setApplicationName("kestrin");
    QApplication::setApplicationVersion(KESTRIN_VERSION);
    QApplication::setDesktopFileName(KESTRIN_APP_ID);
    QApplication::setWindowIcon(QIcon(":/kestrin/kestrin.png"));
    ui::UseQtCatalogue(app::CurrentPaths().languageIndex);

    const QString session = SessionArgument(qapp.arguments());
    const QString address = ui::InstanceAddress();
    platform::InstanceLock lock;
    app::StartupRefusal refusal = app::StartupCheck(lock);
    if (refusal.refused) {
        // Another copy runs: a session file goes to its window instead, unless that window is in
        // the middle of something; then this start says so and ends, and nothing waits in a queue.
        QString message = QString::fromStdString(refusal.message);
        if (refusal.otherInstance && !session.isEmpty()) {
            switch (ui::CSingleInstance::HandOver(address, session)) {
            case ui::CSingleInstance::HandOff::Taken:
                return 0;
            case ui::CSingleInstance::HandOff::Busy:
                message = ui::Tx("IDS_UI_RUNNING_BUSY",
                                 "Kestrin is already running and is busy with a scan, a save or an open dialog box. "
                                 "Finish or close it in that window, then open the session again.") +
                          "\n" + QFileInfo(session).absoluteFilePath();
                break;
            case ui::CSingleInstance::HandOff::NoAnswer:
                break;
            }
        }
        QMessageBox::critical(nullptr, QString::fromStdString(refusal.caption), message);
        return 1;
    }
    ui::CDesktop desktop;
    ui::CMainWindow window(desktop);
    ui::CSingleInstance mailbox(address);
    mailbox.SetBusyCheck([] { return QApplication::activeModalWidget() != nullptr; });
    QObject::connect(&mailbox, &ui::CSingleInstance::FileReceived, &window,
                     [&window](const QString& path) { window.OpenHandedSession(path); });
    // Without the mailbox a second start with a session is refused as any second start is.
    mailbox.Listen();
    window.show();
    if (!session.isEmpty()) window.OpenSession(session, true);
    return qapp.exec();
}
