// What the desktop program writes, and where it refuses to: never onto the source under any name,
// an existing file only after the user agreed, the save's result told in full, and copies for the
// viewer in a private folder that goes with the window.
#include <QCheckBox>
#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QtTest>
#include <csignal>
#include <cstring>
#include <memory>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TestImages.h"
#include "ProgramFolder.h"
#include "RecordingDesktop.h"
#include "app/Language.h"
#include "storage/CPhysicalDisk.h"
#include "ui/CMainWindow.h"
#include "ui/CResultsPage.h"
#include "ui/CResultsState.h"

using namespace kestrin;
using namespace kestrin::ui;

namespace {

QByteArray Sha256(const QString& file) {
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly)) return {};
    return QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha256).toHex();
}

QByteArray Bytes(const QString& file) {
    QFile f(file);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool WriteBytes(const QString& file, const QByteArray& bytes) {
    QFile f(file);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

QString T(const char* id) { return QString::fromStdString(app::Text(id)); }

// The files of partition `index` (0: the first) in the bundled sample's manifest.
QJsonArray SampleFiles(int index) {
    QFile f(QString(KESTRIN_SOURCE_DIR) + "/data/sample/sample-disk.json");
    if (!f.open(QIODevice::ReadOnly)) return {};
    return QJsonDocument::fromJson(f.readAll()).object()["partitions"].toArray()[index].toObject()["files"].toArray();
}

QString UnpackSample(const QTemporaryDir& dir) {
    QString image = dir.filePath("sample-disk.img");
    QString cmd = QString("zstd -q -d -f '%1/data/sample/sample-disk.img.zst' -o '%2'").arg(KESTRIN_SOURCE_DIR, image);
    return std::system(qPrintable(cmd)) == 0 ? image : QString();
}

// As a user does it: the image added on the drive page, the volume labelled `label` under it
// picked, Next. True when the results page shows.
bool OpenVolume(CMainWindow& w, const QString& image, const QString& label) {
    w.ChooseMode(RecoveryMode::DeletedFiles);
    w.AddImageItem(image);
    auto* drives = w.findChild<QTreeWidget*>("drives");
    QTreeWidgetItem* disk = drives->currentItem();
    for (int i = 0; disk && i < disk->childCount(); ++i)
        if (disk->child(i)->text(4) == label) drives->setCurrentItem(disk->child(i));
    if (drives->currentItem() == disk) return false;
    QTest::mouseClick(w.findChild<QPushButton*>("driveNext"), Qt::LeftButton);
    return w.CurrentPage() == CMainWindow::kResultsPage;
}

// The log is UTF-16 little-endian without a byte-order mark.
QString LogText(const QString& file) {
    QByteArray b = Bytes(file);
    return QString::fromUtf16(reinterpret_cast<const char16_t*>(b.constData()), b.size() / 2);
}

// Files may grow to `bytes` in this process while it lives: a write past that fails with EFBIG
// (the signal that would end the process is ignored), as a destination with no room would.
class CFileSizeLimit {
public:
    explicit CFileSizeLimit(rlim_t bytes) {
        m_handler = std::signal(SIGXFSZ, SIG_IGN);
        m_saved = ::getrlimit(RLIMIT_FSIZE, &m_old) == 0;
        struct rlimit low = m_old;
        low.rlim_cur = bytes;
        m_ok = m_saved && ::setrlimit(RLIMIT_FSIZE, &low) == 0;
    }
    ~CFileSizeLimit() {
        if (m_saved) ::setrlimit(RLIMIT_FSIZE, &m_old);
        std::signal(SIGXFSZ, m_handler);
    }
    bool Ok() const { return m_ok; }

private:
    struct rlimit m_old {};
    void (*m_handler)(int) = SIG_DFL;
    bool m_saved = false, m_ok = false;
};

} // namespace

class OutputSafetyTest : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_program;
    QStringList m_messages;
    test::RecordingDesktop m_desktop{&m_messages};

private slots:
    void initTestCase() {
        QVERIFY(m_program.isValid());
        QVERIFY(test::MakeProgramFolder(m_program, {.settings = true}));
        app::InitLanguage(m_program.path().toStdString());
        app::ChangeLanguage(0);
    }

    void cleanup() {
        m_desktop.answer = false;
        m_desktop.viewer = nullptr;
    }

    // The bundled sample's camera card, scanned as a user would. Every output pointed at the image
    // (by its own name, a symbolic link, a hard link) is refused before anything is written, even
    // with every question answered Yes; the image stays byte for byte what it was. A save folder
    // reached through a link to the image's own folder is allowed: the image is only read.
    void outputsNeverTouchTheSource() {
        QTemporaryDir dir;
        QString image = UnpackSample(dir);
        QVERIFY(!image.isEmpty());
        const QByteArray before = Sha256(image);
        QVERIFY(!before.isEmpty());
        QVERIFY(QFile::link(image, dir.filePath("link.zip")));
        QVERIFY(QFile::link(image, dir.filePath("link.tks4")));
        QCOMPARE(::link(qPrintable(image), qPrintable(dir.filePath("hard.zip"))), 0);
        QVERIFY(QFile::link(dir.path(), dir.filePath("folder-link")));

        CMainWindow w(m_desktop);
        QVERIFY(OpenVolume(w, image, "PHOTOS"));
        w.Results().MarkAll(true);

        m_desktop.answer = true;
        const QString isSource = T("IDS_OUTPUT_IS_SOURCE");
        struct Attempt {
            const char* what;
            QString path;
            bool session;
        } attempts[] = {{"session over the image", image, true},
                        {"session through a symbolic link", dir.filePath("link.tks4"), true},
                        {"zip through a symbolic link", dir.filePath("link.zip"), false},
                        {"zip over a hard link", dir.filePath("hard.zip"), false},
                        {"save folder that is the image", image, false}};
        for (const Attempt& a : attempts) {
            m_messages.clear();
            bool written = a.session ? w.SaveSession(a.path) : w.SaveTo(a.path, kCollisionRename);
            QVERIFY2(!written, a.what);
            QCOMPARE(m_messages.size(), 1);
            QVERIFY2(m_messages[0].contains(isSource) && m_messages[0].contains(a.path), qPrintable(m_messages[0]));
            QVERIFY2(Sha256(image) == before, a.what);
        }
        m_desktop.answer = false;

        QString beside = dir.filePath("folder-link/saved");
        QVERIFY(QDir().mkpath(beside));
        m_messages.clear();
        QVERIFY2(w.SaveTo(beside, kCollisionRename), qPrintable(m_messages.join(" | ")));
        QVERIFY(w.LastSave().files >= 2);
        QCOMPARE(Sha256(image), before);
    }

    // A zip archive or session file that exists is replaced only after Yes to a question naming
    // it; No leaves its bytes as they were and writes nothing.
    void existingFilesReplacedOnlyWithConsent() {
        QTemporaryDir dir;
        QString image = dir.filePath("card.img");
        QVERIFY(QFile::copy(QString::fromStdString(test::UnpackImage("fat32-features")), image));
        const QByteArray imageBefore = Sha256(image);
        CMainWindow w(m_desktop);
        w.ChooseMode(RecoveryMode::DeletedFiles);
        QVERIFY(w.OpenAndContinue(image));
        w.Results().MarkAll(true);

        const QByteArray old("older content the user keeps");
        for (const char* name : {"old.zip", "old.tks4"}) {
            QString path = dir.filePath(name);
            bool zip = path.endsWith(".zip");
            QVERIFY(WriteBytes(path, old));
            auto write = [&] { return zip ? w.SaveTo(path, kCollisionRename) : w.SaveSession(path); };
            auto files = [&] { return QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot); };
            const QStringList filesBefore = files();

            m_messages.clear();
            QVERIFY2(!write(), name);
            QCOMPARE(m_messages.size(), 1); // the question, nothing after it
            QVERIFY2(m_messages[0].contains(path) && m_messages[0].contains(T("IDS_UI_REPLACE_FILE")),
                     qPrintable(m_messages[0]));
            QVERIFY(!m_messages[0].contains("--overwrite"));
            QCOMPARE(Bytes(path), old);
            QCOMPARE(files(), filesBefore);

            m_desktop.answer = true;
            m_messages.clear();
            QVERIFY2(write(), qPrintable(m_messages.join(" | ")));
            m_desktop.answer = false;
            QByteArray now = Bytes(path);
            QVERIFY(now != old);
            if (zip) QVERIFY(now.startsWith(QByteArray("PK\x03\x04", 4)));
        }
        // The replaced session is a whole one.
        CMainWindow reopened(m_desktop);
        QVERIFY2(reopened.OpenSessionFromMenu(dir.filePath("old.tks4")), qPrintable(m_messages.join(" | ")));
        QVERIFY(test::FindPath(reopened.Tree(), "Photos/IMG_0001.jpg"));
        QCOMPARE(Sha256(image), imageBefore);
    }

    // The sample's camera card saved from the window where no file may grow past 64 KiB. The
    // larger files fail with the system's own reason and leave nothing behind; the result box
    // says so and names the log, which names them; the smaller files come back byte for byte.
    void writeFailuresToldFromTheWindow() {
        constexpr qint64 kLimit = 64 * 1024;
        QTemporaryDir dir;
        QString image = UnpackSample(dir);
        QVERIFY(!image.isEmpty());
        const QByteArray before = Sha256(image);
        CMainWindow w(m_desktop);
        QVERIFY(OpenVolume(w, image, "PHOTOS"));
        w.Results().MarkAll(true);
        QString out = dir.filePath("saved");
        QVERIFY(QDir().mkpath(out));
        m_messages.clear();
        {
            CFileSizeLimit limit(kLimit);
            QVERIFY(limit.Ok());
            QVERIFY2(w.SaveTo(out, kCollisionRename), qPrintable(m_messages.join(" | ")));
        }
        const SaveResult& r = w.LastSave();
        QCOMPARE(m_messages.size(), 1);
        const QString& box = m_messages[0];
        QVERIFY2(box.contains(T("IDS_UI_SAVE_WRITE_ERRORS") + QString(": %1 (File too large)").arg(r.writeErrors)),
                 qPrintable(box));
        QVERIFY(!r.diskFull && !box.contains(T("IDS_UI_DESTINATION_FULL")));
        QString logPath = QString::fromStdString(r.logPath);
        QCOMPARE(logPath, out + "/log.txt");
        QVERIFY2(box.contains(logPath), qPrintable(box));

        // Deleted short names have lost their first character: files are matched by the rest.
        QHash<QString, qint64> saved; // relative path: size
        for (QDirIterator it(out, QDir::Files, QDirIterator::Subdirectories); it.hasNext();) {
            QString f = it.next();
            if (f != logPath) saved.insert(QDir(out).relativeFilePath(f), QFileInfo(f).size());
        }
        QCOMPARE(quint64(saved.size()), r.files);
        QSet<QByteArray> savedHashes;
        for (auto it = saved.begin(); it != saved.end(); ++it) {
            QVERIFY2(it.value() <= kLimit, qPrintable(it.key()));
            savedHashes.insert(Sha256(out + "/" + it.key()));
        }
        const QString logText = LogText(logPath);
        int small = 0, large = 0;
        for (const auto& v : SampleFiles(0)) {
            QJsonObject f = v.toObject();
            if (f["type"].toString() != "file") continue;
            QString path = f["path"].toString();
            QString tail = path.section('/', -1).mid(1);
            if (f["size"].toInteger() <= kLimit) {
                QVERIFY2(savedHashes.contains(f["sha256"].toString().toLatin1()), qPrintable(path));
                ++small;
                continue;
            }
            ++large;
            for (const QString& name : saved.keys()) QVERIFY2(!name.endsWith(tail), qPrintable(name));
            QVERIFY2(logText.contains("could not be written (File too large)") && logText.contains(tail),
                     qPrintable(path + " not in " + logText));
        }
        QVERIFY(small >= 4 && large >= 4);
        QVERIFY(r.writeErrors >= quint64(large));
        QCOMPARE(Sha256(image), before);
    }

    // The sample cut inside its NTFS volume: the files there lie past the end of the image. They
    // are saved for what they are worth, the box says they have unreadable parts and names the
    // log, and the log lists each one.
    void unreadablePartsToldFromTheWindow() {
        QTemporaryDir dir;
        QString whole = UnpackSample(dir);
        QVERIFY(!whole.isEmpty());
        QString image = dir.filePath("cut.img");
        QVERIFY(WriteBytes(image, Bytes(whole).left(90000 * 512)));
        const QByteArray before = Sha256(image);
        CMainWindow w(m_desktop);
        QVERIFY(OpenVolume(w, image, "DOCUMENTS"));
        w.Results().MarkAll(true);
        QString out = dir.filePath("saved");
        QVERIFY(QDir().mkpath(out));
        m_messages.clear();
        QVERIFY2(w.SaveTo(out, kCollisionRename), qPrintable(m_messages.join(" | ")));
        const SaveResult& r = w.LastSave();
        QCOMPARE(m_messages.size(), 1);
        const QString& box = m_messages[0];
        QVERIFY(r.incomplete > 0 && r.unreadableBytes > 0 && r.writeErrors == 0);
        QVERIFY2(box.contains(T("IDS_CLI_SAVE_INCOMPLETE") + QString(": %1").arg(r.incomplete)), qPrintable(box));
        QString logPath = QString::fromStdString(r.logPath);
        QVERIFY2(!logPath.isEmpty() && box.contains(logPath), qPrintable(box));
        const QString logText = LogText(logPath);
        QCOMPARE(quint64(logText.count("Saved with unreadable parts")), r.incomplete);
        int listed = 0;
        for (const auto& v : SampleFiles(1)) {
            QJsonObject f = v.toObject();
            if (f["type"].toString() != "file") continue;
            QString path = f["path"].toString();
            QVERIFY2(logText.contains(out + "/" + path), qPrintable(path + " not in " + logText));
            QVERIFY(QFileInfo(out + "/" + path).size() == f["size"].toInteger());
            ++listed;
        }
        QVERIFY(listed >= 5);
        QCOMPARE(Sha256(image), before);
    }

    // The result box names everything that was not saved as found, and nothing that did not happen.
    void saveSummaryTellsEverything() {
        SaveResult clean;
        clean.started = true;
        clean.files = 7;
        clean.folders = 2;
        clean.bytes = 3 << 20;
        QString text = CMainWindow::SaveSummary(clean, "/out", false);
        QVERIFY(text.startsWith(T("IDS_UI_SAVE_DONE") + " /out"));
        QVERIFY(text.contains(T("IDS_CLI_SUMMARY_FILES") + ": 7"));
        for (const char* id : {"IDS_CLI_SAVE_SKIPPED", "IDS_CLI_SAVE_INCOMPLETE", "IDS_UI_SAVE_WRITE_ERRORS",
                               "IDS_CLI_SAVE_LOGGED", "IDS_UI_CANCELLED", "IDS_UI_DESTINATION_FULL"})
            QVERIFY2(!text.contains(T(id)), id);

        SaveResult bad = clean;
        bad.skipped = 1;
        bad.incomplete = 2;
        bad.unreadableBytes = 4096;
        bad.writeErrors = 3;
        bad.diskFull = true;
        bad.writeErrorText = std::strerror(ENOSPC);
        bad.logged = 4;
        bad.logPath = "/out/log.txt";
        text = CMainWindow::SaveSummary(bad, "/out", true);
        QStringList want = {T("IDS_CLI_SAVE_SKIPPED") + ": 1",
                            T("IDS_CLI_SAVE_INCOMPLETE") + ": 2",
                            T("IDS_UI_SAVE_WRITE_ERRORS") + ": 3 (" + QString(std::strerror(ENOSPC)) + ")",
                            T("IDS_UI_DESTINATION_FULL"),
                            T("IDS_CLI_SAVE_LOGGED") + ": 4 (/out/log.txt)",
                            T("IDS_UI_CANCELLED")};
        for (const QString& line : want) QVERIFY2(text.contains(line), qPrintable(line + " in " + text));

        SaveResult failed = clean;
        failed.archiveFailed = true;
        QVERIFY(!CMainWindow::SaveSummary(failed, "/out/a.zip", false).contains(T("IDS_UI_SAVE_DONE")));
    }

    // Copies for the viewer: in a folder only this user may enter, one per window and never the
    // shared name of old, removed with the window. A copy with unreadable parts opens only after
    // Yes, one with nothing readable not at all, and a viewer that fails to start is reported.
    void viewerCopiesArePrivateAndGoWithTheWindow() {
        std::string imagePath = test::UnpackImage("fat32-features");
        QStringList launched;
        bool launcherWorks = true;
        m_desktop.viewer = [&](const QString& path) {
            launched << path;
            return launcherWorks;
        };
        auto w = std::make_unique<CMainWindow>(m_desktop);
        w->ChooseMode(RecoveryMode::DeletedFiles);
        QVERIFY(w->OpenAndContinue(QString::fromStdString(imagePath)));
        auto* page = w->findChild<CResultsPage*>();
        QVERIFY(page && page->ViewerCopies().Folder().isEmpty());
        CNode* photo = test::FindPath(w->Tree(), "Photos/IMG_0001.jpg");
        QVERIFY(photo);

        m_messages.clear();
        QVERIFY2(page->OpenWithViewer(photo), qPrintable(m_messages.join(" | ")));
        QVERIFY(page->OpenWithViewer(photo));
        QCOMPARE(launched.size(), 2);
        QVERIFY(launched[0] != launched[1]); // the second copy does not overwrite the first
        QString folder = page->ViewerCopies().Folder();
        QVERIFY(!folder.isEmpty() && launched[0].startsWith(folder + "/") && launched[1].startsWith(folder + "/"));
        QVERIFY(folder != QDir::tempPath() + "/kestrin-view");
        struct stat st;
        QCOMPARE(::lstat(qPrintable(folder), &st), 0);
        QVERIFY(S_ISDIR(st.st_mode));
        QCOMPARE(st.st_mode & 07777, mode_t(0700));
        QCOMPARE(st.st_uid, ::geteuid());
        QFile manifest(QString(KESTRIN_SOURCE_DIR) + "/tests/images/fat32-features.json");
        QVERIFY(manifest.open(QIODevice::ReadOnly));
        QByteArray photoSha;
        for (const auto& v : QJsonDocument::fromJson(manifest.readAll()).object()["partitions"].toArray()[0].toObject()["files"].toArray())
            if (v.toObject()["path"].toString() == "Photos/IMG_0001.jpg") photoSha = v.toObject()["sha256"].toString().toLatin1();
        QVERIFY(!photoSha.isEmpty());
        QCOMPARE(Sha256(launched[0]), photoSha);

        // A viewer that does not start is reported with the copy's place.
        launcherWorks = false;
        m_messages.clear();
        QVERIFY(!page->OpenWithViewer(photo));
        QCOMPARE(m_messages.size(), 1);
        QVERIFY(m_messages[0].contains(T("IDS_UI_VIEW_NOT_STARTED")) && m_messages[0].contains(launched.last()));
        launcherWorks = true;

        // Another window has a folder of its own.
        {
            CMainWindow other(m_desktop);
            other.ChooseMode(RecoveryMode::DeletedFiles);
            QVERIFY(other.OpenAndContinue(QString::fromStdString(imagePath)));
            auto* otherPage = other.findChild<CResultsPage*>();
            QVERIFY(otherPage->OpenWithViewer(test::FindPath(other.Tree(), "Photos/IMG_0001.jpg")));
            QVERIFY(otherPage->ViewerCopies().Folder() != folder);
        }

        // Items found by content that reach past the end of the source, on a page of their own.
        CPhysicalDisk media;
        QVERIFY(media.AttachImageFile(imagePath));
        CResultsState state;
        CResultsPage lone(state, m_desktop);
        lone.SetSource(&media);
        CNode top;
        uint64_t last = media.GetSectorCount() - 1;
        CNode* partly = AddCarvedFile(&top, u"partly.jpg", last, 4096, 0);
        CNode* beyond = AddCarvedFile(&top, u"beyond.jpg", last + 100, 4096, 0);
        launched.clear();
        m_messages.clear();
        QVERIFY(!lone.OpenWithViewer(partly)); // the question answered No
        QCOMPARE(m_messages.size(), 1);
        QVERIFY2(m_messages[0].contains(T("IDS_UI_VIEW_INCOMPLETE")), qPrintable(m_messages[0]));
        QVERIFY(launched.isEmpty());
        m_desktop.answer = true;
        QVERIFY(lone.OpenWithViewer(partly));
        QCOMPARE(launched.size(), 1);
        m_messages.clear();
        QVERIFY(!lone.OpenWithViewer(beyond));
        QCOMPARE(launched.size(), 1);
        QCOMPARE(m_messages.size(), 1);
        QVERIFY2(m_messages[0].contains(T("IDS_UI_VIEW_UNREADABLE")), qPrintable(m_messages[0]));

        w.reset();
        QVERIFY(!QFileInfo::exists(folder));
    }
};

QTEST_MAIN(OutputSafetyTest)
#include "OutputSafetyTest.moc"
