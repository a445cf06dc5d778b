// The desktop program's basics: the hand-off of a session file to the running window, --help and
// --version without a display, Qt's own texts in the chosen language, and the window title.
#include <QAction>
#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QMenuBar>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>
#include <atomic>
#include <thread>

#include "ProgramFolder.h"
#include "RecordingDesktop.h"
#include "TestImages.h"
#include "app/Language.h"
#include "ui/CMainWindow.h"
#include "ui/CSingleInstance.h"
#include "ui/QtCatalogues.h"

using namespace kestrin;
using namespace kestrin::ui;

namespace {

const QString kGui = QString(KESTRIN_BINARY_DIR) + "/bin/kestrin-gui";

// The text of a standard button as a message box shows it now.
QString ButtonText(QMessageBox::StandardButton which) {
    QMessageBox box(QMessageBox::Question, "t", "q", QMessageBox::Yes | QMessageBox::No);
    return box.button(which)->text();
}

} // namespace

class DesktopBasicsTest : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_program;
    QStringList m_messages;
    test::RecordingDesktop m_desktop{&m_messages};

private slots:
    void initTestCase() {
        QVERIFY(m_program.isValid());
        QVERIFY(test::MakeProgramFolder(m_program));
        app::InitLanguage(m_program.path().toStdString());
    }

    void handOverReachesTheRunningInstance() {
        QTemporaryDir runtime;
        const QString address = runtime.filePath("mailbox.socket");
        CSingleInstance running(address);
        QVERIFY(running.Listen());
        QSignalSpy received(&running, &CSingleInstance::FileReceived);
        // The second start blocks on its socket, so it runs beside this thread's event loop.
        auto handOver = [&](const QString& file) {
            std::atomic<bool> done{false};
            auto answer = CSingleInstance::HandOff::NoAnswer;
            std::thread second([&] {
                answer = CSingleInstance::HandOver(address, file, 5000);
                done = true;
            });
            QElapsedTimer clock;
            clock.start();
            while (!done && clock.elapsed() < 10000) QTest::qWait(5);
            second.join();
            return answer;
        };
        using HandOff = CSingleInstance::HandOff;
        QCOMPARE(handOver(runtime.filePath("a.tks4")), HandOff::Taken);
        QTRY_COMPARE(received.count(), 1);
        QCOMPARE(received[0][0].toString(), runtime.filePath("a.tks4"));

        // A relative name is made absolute by the sender, whose folder the receiver does not know.
        QCOMPARE(handOver("rel.tks4"), HandOff::Taken);
        QTRY_COMPARE(received.count(), 2);
        QCOMPARE(received[1][0].toString(), QDir::current().absoluteFilePath("rel.tks4"));

        // While the window is busy (a scan, a dialog) the hand-off is refused, not queued, and the
        // second start learns why.
        running.SetBusyCheck([] { return true; });
        QCOMPARE(handOver(runtime.filePath("b.tks4")), HandOff::Busy);
        QTest::qWait(50);
        QCOMPARE(received.count(), 2);

        // Nobody listening: the second start learns it at once.
        QCOMPARE(CSingleInstance::HandOver(runtime.filePath("nobody.socket"), "x.tks4", 500),
                 HandOff::NoAnswer);
    }

    void secondStartHandsItsSessionToTheFirst() {
        QTemporaryDir runtime, config;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("QT_QPA_PLATFORM", "offscreen");
        env.insert("XDG_RUNTIME_DIR", runtime.path());
        env.insert("XDG_CONFIG_HOME", config.path());
        QProcess first;
        first.setProcessEnvironment(env);
        first.start(kGui, {});
        QVERIFY(first.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(runtime.filePath("Kestrin[Windows4.0].socket")), 15000);
        QProcess second;
        second.setProcessEnvironment(env);
        second.start(kGui, {runtime.filePath("handed.tks4")});
        QVERIFY(second.waitForFinished(15000));
        QCOMPARE(second.exitStatus(), QProcess::NormalExit);
        QCOMPARE(second.exitCode(), 0); // the running window took the file
        QCOMPARE(first.state(), QProcess::Running);
        first.kill();
        first.waitForFinished();
    }

    void helpAndVersionNeedNoDisplay() {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) env.remove(name);
        for (const QString& option : {QString("--version"), QString("--help")}) {
            QProcess p;
            p.setProcessEnvironment(env);
            p.start(kGui, {option});
            QVERIFY(p.waitForFinished(15000));
            QCOMPARE(p.exitStatus(), QProcess::NormalExit);
            QCOMPARE(p.exitCode(), 0);
            const QString out = QString::fromUtf8(p.readAllStandardOutput());
            if (option == "--version") {
                QVERIFY2(out.startsWith(QString("kestrin-gui ") + KESTRIN_VERSION), qPrintable(out));
                QVERIFY2(out.contains("Qt " + QString(qVersion())), qPrintable(out));
            } else {
                QVERIFY2(out.contains("--version") && out.contains(".tks4"), qPrintable(out));
            }
        }
    }

    void qtTextsFollowTheLanguage() {
        if (!QFile::exists(QtCatalogueFolder() + "/qt_fr.qm")) QSKIP("Qt's French catalogue is not installed");
        CMainWindow w(m_desktop);
        w.findChild<QAction*>("lang40044")->trigger(); // French
        QCOMPARE(ButtonText(QMessageBox::Yes).remove('&'), QString("Oui"));
        QCOMPARE(ButtonText(QMessageBox::No).remove('&'), QString("Non"));
        QCOMPARE(w.findChild<QMenu*>("menuFile")->title(), QString("&Fichier"));
        w.findChild<QAction*>("lang40045")->trigger(); // German: the French catalogue goes
        QCOMPARE(ButtonText(QMessageBox::No).remove('&'), QString("Nein"));
        w.findChild<QAction*>("lang40043")->trigger();
        QCOMPARE(ButtonText(QMessageBox::Yes).remove('&'), QString("Yes"));
    }

    void titleNamesTheOpenSource() {
        std::string image = test::UnpackImage("fat32-features");
        QVERIFY(!image.empty());
        CMainWindow w(m_desktop);
        w.show();
        QCOMPARE(w.windowTitle(), QString("Kestrin"));
        QVERIFY(!w.findChild<QAction*>("actionSave")->isEnabled());
        w.ChooseMode(RecoveryMode::DeletedFiles);
        QVERIFY(w.OpenAndContinue(QString::fromStdString(image)));
        QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
        QCOMPARE(w.windowTitle(), QFileInfo(QString::fromStdString(image)).fileName() + " - Kestrin");
        QVERIFY(w.findChild<QAction*>("actionSave")->isEnabled());
        QVERIFY(w.findChild<QAction*>("actionFind")->isEnabled());
        w.ShowModeTab(0);
        QCOMPARE(w.windowTitle(), QString("Kestrin"));
    }
};

QTEST_MAIN(DesktopBasicsTest)
#include "DesktopBasicsTest.moc"
