// What the desktop program shows while it works and when it is done: the progress window's rows
// fed by the engines' counters, the elapsed time without the stop question, the Skip button of
// the whole-drive search, the states that choose the page, the remarks on a stopped or empty
// scan, and the save's summary with its Open folder button.
#include <QApplication>
#include <QBuffer>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QPushButton>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>
#include <chrono>
#include <thread>

#include "ProgramFolder.h"
#include "RecordingDesktop.h"
#include "TestImages.h"
#include "app/Language.h"
#include "fs/CNode.h"
#include "job/ScanContext.h"
#include "output/Saver.h"
#include "scan/CScanDriver.h"
#include "ui/CMainWindow.h"
#include "ui/CResultsState.h"
#include "ui/CScanMan.h"

using namespace kestrin;
using namespace kestrin::ui;

namespace {

QString T(const char* id) { return QString::fromStdString(app::Text(id)); }

QByteArray JpegOf(int width, int height) {
    QImage pic(width, height, QImage::Format_RGB32);
    pic.fill(QColor(30, 90, 200));
    QByteArray bytes;
    QBuffer buf(&bytes);
    buf.open(QIODevice::WriteOnly);
    pic.save(&buf, "JPG");
    return bytes;
}

bool WriteImage(const QString& path, const QByteArray& bytes) {
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

// Clicks `button` of the progress window as soon as it is the open modal window.
void ClickInProgressWindow(const char* button) {
    auto* poll = new QTimer;
    QObject::connect(poll, &QTimer::timeout, poll, [=] {
        auto* dlg = qobject_cast<CScanMan*>(QApplication::activeModalWidget());
        if (!dlg) return;
        poll->stop();
        poll->deleteLater();
        dlg->findChild<QPushButton*>(button)->click();
    });
    poll->start(5);
}

QString Text(QWidget* root, const char* label) {
    auto* l = root->findChild<QLabel*>(label);
    return l ? l->text() : QString("<no %1>").arg(label);
}

} // namespace

class ProgressFeedbackTest : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_program;
    QTemporaryDir m_work;
    QStringList m_messages;
    test::RecordingDesktop m_desktop{&m_messages};

private slots:
    void initTestCase() {
        QVERIFY(m_program.isValid() && m_work.isValid());
        QVERIFY(test::MakeProgramFolder(m_program, {.settings = true, .signatures = true}));
        app::InitLanguage(m_program.path().toStdString());
        app::ChangeLanguage(0);
    }

    void init() {
        m_messages.clear();
        m_desktop.answer = false;
        m_desktop.onAsk = nullptr;
        m_desktop.chooseAction = false;
        m_desktop.actionsOffered.clear();
        m_desktop.foldersOpened.clear();
    }

    // A record walk and then a sector search, each running a little over a second: the rows show
    // records/s, then MB/s, the found counts and each stage's own line; the status bar gets the
    // short percentage form.
    void progressRowsFollowTheEngines() {
        CPhysicalDisk media;
        QVERIFY(media.AttachImageFile(test::UnpackImage("fat32-features")));
        auto runFor = [](ScanContext& ctx, uint32_t unit, bool carved) {
            auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(1600);
            for (int64_t i = 0; std::chrono::steady_clock::now() < until && !ctx.StopRequested(); ++i) {
                ctx.Progress(i * 50, 1000000, unit);
                if (carved) ctx.op.found.NoteCarved();
                else ctx.op.found.NoteFile(i % 4 == 0);
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
            return Outcome::Ok;
        };
        Engines engines;
        engines.fileSystemScan = [&](CPhysicalDisk&, int, ScanContext& ctx) { return runFor(ctx, 0, false); };
        engines.signatureScan = [&](CPhysicalDisk&, uint32_t, uint64_t, uint64_t, ScanContext& ctx) {
            return runFor(ctx, 512, true);
        };
        CScanMan dlg(m_desktop);
        QStringList statusBar, amounts, founds, lines;
        dlg.SetStatusBarSink([&](const QString& t) { statusBar << t; });
        CScanDriver driver(media, engines, dlg);
        QTimer sample;
        QObject::connect(&sample, &QTimer::timeout, &dlg, [&] {
            amounts << Text(&dlg, "amount");
            founds << Text(&dlg, "found");
            lines << Text(&dlg, "status");
        });
        sample.start(100);
        QVERIFY(driver.Start(OperationKind::FileSystemScan, RecoveryMode::LostFiles));
        QVERIFY(dlg.Run(driver));
        sample.stop();

        QVERIFY2(amounts.filter(QRegularExpression("^Scanned: [0-9,]+ of 1,000,000 records  \\([0-9,]+ records/s\\)$")).size() > 0,
                 qPrintable(amounts.join("\n")));
        QVERIFY2(amounts.filter(QRegularExpression("^Scanned: [0-9.]+ [KM]B of 488.3 MB  \\([0-9.]+ MB/s\\)$")).size() > 0,
                 qPrintable(amounts.join("\n")));
        QVERIFY(amounts.filter("krecords").isEmpty());
        QVERIFY2(founds.filter(QRegularExpression("^Found so far: [0-9,]+ files \\([0-9,]+ deleted, 0 carved\\)$")).size() > 0,
                 qPrintable(founds.join("\n")));
        QVERIFY2(founds.last().contains(QRegularExpression("[1-9][0-9,]* carved\\)$")), qPrintable(founds.last()));
        QVERIFY(lines.contains(T("IDS_SEARCHING_DELETED_FILES_FOLDERS")));
        QVERIFY(lines.contains(T("IDS_SEARCHING_BY_CONTENT")));
        // Emptied at the start, then "Total completed: 00%" and onward, two digits each.
        QVERIFY(!statusBar.isEmpty() && statusBar.first().isEmpty());
        QVERIFY2(statusBar.filter(QRegularExpression("^" + T("IDS_TOTAL_COMPLETED") + ": \\d\\d%$")).size() >= 1,
                 qPrintable(statusBar.join("|")));
    }

    // Two questions: the first is left open for two seconds and answered No, the second Yes.
    // The time the first stood open is not counted.
    void elapsedTimeLeavesOutTheStopQuestion() {
        CPhysicalDisk media;
        QVERIFY(media.AttachImageFile(test::UnpackImage("fat32-features")));
        Engines engines;
        engines.fileSystemScan = [](CPhysicalDisk&, int, ScanContext& ctx) {
            for (int64_t i = 0; !ctx.StopRequested(); ++i) {
                ctx.Progress(i, 1000000);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            return Outcome::Stopped;
        };
        CScanMan dlg(m_desktop);
        CScanDriver driver(media, engines, dlg);
        int asked = 0;
        QString elapsedUnderQuestion;
        m_desktop.onAsk = [&](const QString&) {
            if (++asked > 1) return true;
            QTest::qWait(2000);
            elapsedUnderQuestion = Text(&dlg, "elapsed");
            return false;
        };
        QVERIFY(driver.Start(OperationKind::FileSystemScan, RecoveryMode::DeletedFiles));
        QElapsedTimer wall;
        wall.start();
        QTimer::singleShot(100, &dlg, [&] { dlg.findChild<QPushButton*>("cancel")->click(); });
        QTimer::singleShot(2500, &dlg, [&] { dlg.findChild<QPushButton*>("cancel")->click(); });
        QVERIFY(!dlg.Run(driver));
        QCOMPARE(asked, 2);
        QVERIFY2(wall.elapsed() >= 2000, qPrintable(QString::number(wall.elapsed()))); // the question stood open
        QVERIFY2(dlg.ElapsedSeconds() < 1.2, qPrintable(QString::number(dlg.ElapsedSeconds())));
        QCOMPARE(elapsedUnderQuestion, T("IDS_ELAPSED_TIME") + " : 00:00:00");
    }

    // After an empty partition search the whole drive is searched; Skip ends that search without
    // the stop question and what it found so far stays.
    void skipEndsTheWholeDriveSearchAndKeepsItsFinds() {
        CPhysicalDisk media;
        QVERIFY(media.AttachImageFile(test::UnpackImage("fat32-features")));
        media.SetSourceKind(SourceKind::ImageFile);
        Engines engines;
        engines.preparation = [](CPhysicalDisk&, ScanContext&) { return Outcome::Ok; };
        engines.diskRecordSearch = [](CPhysicalDisk&, uint64_t, uint64_t, ScanContext&) { return Outcome::Ok; };
        engines.signatureScan = [](CPhysicalDisk&, uint32_t, uint64_t, uint64_t, ScanContext& ctx) {
            CNode* types = AddFolder(ctx.top, u"File Types");
            AddCarvedFile(AddFolder(types, u"jpg"), u"file#1.jpg", 10, 4096, 0);
            ctx.op.found.NoteCarved();
            for (int64_t i = 0; !ctx.StopRequested(); ++i) {
                ctx.Progress(i, 1000000, 512);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            return Outcome::Stopped;
        };
        CScanMan dlg(m_desktop);
        CScanDriver driver(media, engines, dlg);
        QVERIFY(driver.Start(OperationKind::PartitionSearch, RecoveryMode::LostFiles));
        QVERIFY(dlg.Run(driver));
        QVERIFY(driver.NoPartitionFound());
        dlg.OfferSkip(true);
        QVERIFY(driver.ContinueAsSignatureScan());
        bool shown = false;
        QTimer::singleShot(300, &dlg, [&] {
            auto* skip = dlg.findChild<QPushButton*>("skip");
            shown = skip->isVisible() && skip->isEnabled() && skip->text() == T("IDS_SKIP");
            skip->click();
        });
        QElapsedTimer clock;
        clock.start();
        QVERIFY(dlg.Run(driver)); // not a cancel
        QVERIFY(shown);
        QVERIFY(clock.elapsed() < 3000);
        QVERIFY(dlg.Skipped());
        QVERIFY(!driver.CancelConfirmed());
        QVERIFY(m_messages.isEmpty()); // no stop question
        QCOMPARE(driver.Kind(), OperationKind::SignatureScan);
        std::unique_ptr<CNode> tree = driver.ReleaseTree();
        CNode* types = FindChild(tree.get(), u"File Types");
        QVERIFY(types && FindChild(FindChild(types, u"jpg"), u"file#1.jpg"));
    }

    // An image without partitions in the lost-files mode: the partition search finds nothing,
    // Yes goes on over the whole image (the state tells the page), and the results show the
    // photo it held with the scan's summary.
    void wholeDriveSearchAfterAnEmptyPartitionSearch() {
        QByteArray image(4 << 20, '\0');
        QByteArray jpeg = JpegOf(64, 48);
        image.replace(1 << 20, jpeg.size(), jpeg);
        QString path = m_work.filePath("no-partitions.img");
        QVERIFY(WriteImage(path, image));

        CMainWindow w(m_desktop);
        w.show();
        w.ChooseMode(RecoveryMode::LostFiles);
        QList<CMainWindow::WindowState> statesAsked;
        m_desktop.onAsk = [&](const QString& text) {
            statesAsked << w.State();
            return text == T("IDS_NO_PARTITION_FOUND");
        };
        QStringList bar;
        bool busySeen = false;
        QObject::connect(w.statusBar(), &QStatusBar::messageChanged, &w, [&](const QString& t) {
            bar << t;
            if (w.Busy() && w.State() == CMainWindow::WindowState::WholeDriveSearch) busySeen = true;
        });
        QVERIFY(w.OpenAndContinue(path));
        QCOMPARE(statesAsked, QList<CMainWindow::WindowState>{CMainWindow::WindowState::PartitionList});
        QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
        QCOMPARE(w.State(), CMainWindow::WindowState::WholeDriveSearch);
        QVERIFY(busySeen);
        QVERIFY(!w.Busy());
        QVERIFY2(bar.filter(QRegularExpression("^" + T("IDS_TOTAL_COMPLETED") + ": \\d\\d%$")).size() > 0 ||
                     bar.contains(T("IDS_WAIT_PROCESSING")),
                 qPrintable(bar.join("|")));
        int carved = 0;
        ForEachNode(w.Tree(), [&](CNode* n) { carved += !n->IsFolder() && n->carved; });
        QCOMPARE(carved, 1);
        QString summary = Text(&w, "scanSummary");
        QVERIFY2(summary.startsWith(T("IDS_UI_SUMMARY_FOUND") + ": 1 files (0 deleted, 1 carved)"), qPrintable(summary));
        QVERIFY2(summary.contains(T("IDS_UI_SUMMARY_READ_ERRORS") + ": 0"), qPrintable(summary));
        QVERIFY(!w.findChild<QLabel*>("scanNotice")->isVisible());
    }

    // A scan that finds nothing says so and leaves without offering to keep an empty session; a
    // stopped one says it was stopped.
    void emptyAndStoppedScansSaySo() {
        QString empty = m_work.filePath("zeros.img");
        QVERIFY(WriteImage(empty, QByteArray(1 << 20, '\0')));
        {
            CMainWindow w(m_desktop);
            w.show();
            w.ChooseMode(RecoveryMode::LostPhotos);
            QVERIFY(w.OpenAndContinue(empty));
            QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
            auto* notice = w.findChild<QLabel*>("scanNotice");
            QVERIFY(notice->isVisible());
            QCOMPARE(notice->text(), T("IDS_UI_SCAN_EMPTY"));
            w.findChild<QPushButton*>("newScan")->click();
            QCOMPARE(w.CurrentPage(), CMainWindow::kModePage);
            QVERIFY2(m_messages.filter(T("IDS_ADVISABLE_SESSION")).isEmpty(), qPrintable(m_messages.join("|")));
        }
        QByteArray noise(32 << 20, '\0');
        QRandomGenerator rng(7);
        rng.fillRange(reinterpret_cast<quint32*>(noise.data()), noise.size() / 4);
        QString noisy = m_work.filePath("noise.img");
        QVERIFY(WriteImage(noisy, noise));
        CMainWindow w(m_desktop);
        w.show();
        w.ChooseMode(RecoveryMode::LostPhotos);
        m_desktop.answer = true; // Yes, stop
        ClickInProgressWindow("cancel");
        QVERIFY(w.OpenAndContinue(noisy));
        QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
        QVERIFY(m_messages.contains(T("IDS_STOP_THIS_PROCESS")));
        QVERIFY2(Text(&w, "scanNotice").startsWith(T("IDS_UI_SCAN_CANCELLED")), qPrintable(Text(&w, "scanNotice")));
    }

    // The save ends with its summary; "Open folder" shows the destination through the desktop.
    void saveSummaryOffersTheFolder() {
        CMainWindow w(m_desktop);
        w.show();
        w.ChooseMode(RecoveryMode::DeletedFiles);
        QVERIFY(w.OpenAndContinue(QString::fromStdString(test::UnpackImage("fat32-features"))));
        w.Results().MarkAll(true);
        QString to = m_work.filePath("saved");
        QVERIFY(QDir().mkpath(to));
        m_desktop.chooseAction = true;
        QVERIFY(w.SaveTo(to, kCollisionRename));
        QCOMPARE(m_desktop.actionsOffered, QStringList{T("IDS_UI_OPEN_FOLDER")});
        QCOMPARE(m_desktop.foldersOpened, QStringList{to});
        QVERIFY2(m_messages.last().startsWith(T("IDS_UI_SAVE_DONE") + " " + to), qPrintable(m_messages.last()));
        QVERIFY(m_messages.last().contains(T("IDS_CLI_SUMMARY_FILES") + ": " + QString::number(w.LastSave().files)));
        QVERIFY(w.LastSave().files > 0);

        // Closing the box with OK opens nothing; into a zip archive, the archive's folder is shown.
        m_desktop.chooseAction = false;
        QString again = m_work.filePath("again");
        QVERIFY(QDir().mkpath(again));
        QVERIFY(w.SaveTo(again, kCollisionRename));
        QCOMPARE(m_desktop.foldersOpened, QStringList{to});
        m_desktop.chooseAction = true;
        QString zipped = m_work.filePath("zipped");
        QVERIFY(QDir().mkpath(zipped));
        QVERIFY(w.SaveTo(zipped + "/out.zip", kCollisionRename));
        QCOMPARE(m_desktop.foldersOpened, (QStringList{to, zipped}));
    }
};

QTEST_MAIN(ProgressFeedbackTest)
#include "ProgressFeedbackTest.moc"
