// What the desktop program writes, and where it refuses to: never onto the source under any name,
// an existing file only after the user agreed, the save's result told in full, and copies for the
// viewer in a private folder that goes with the window.
#include <QCheckBox>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QtTest>
#include <cstring>
#include <memory>

#include <sys/stat.h>
#include <unistd.h>

#include "TestImages.h"
#include "app/Language.h"
#include "storage/CPhysicalDisk.h"
#include "ui/CMainWindow.h"
#include "ui/CQtMessages.h"
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

CNode* FindPath(CNode* top, const QString& path) {
    CNode* n = top ? FindChild(top, u".") : nullptr;
    for (const QString& part : path.split('/')) {
        if (!n) return nullptr;
        n = FindChild(n, part.toStdU16String());
    }
    return n;
}

} // namespace

class OutputSafetyTest : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_program;
    QStringList m_messages;

private slots:
    void initTestCase() {
        QVERIFY(m_program.isValid());
        QDir().mkpath(m_program.filePath("Lang"));
        QDir lang(QString(KESTRIN_SOURCE_DIR) + "/data/Lang");
        for (const QString& f : lang.entryList({"*.ini"}, QDir::Files))
            QVERIFY(QFile::copy(lang.filePath(f), m_program.filePath("Lang/" + f)));
        QVERIFY(QFile::copy(QString(KESTRIN_SOURCE_DIR) + "/data/settings.ini", m_program.filePath("settings.ini")));
        QFile::setPermissions(m_program.filePath("settings.ini"), QFile::ReadOwner | QFile::WriteOwner);
        app::InitLanguage(m_program.path().toStdString());
        app::ChangeLanguage(0);
        CQtMessages::SetHook([this](const QString& text) { m_messages << text; });
    }

    void cleanup() {
        CQtMessages::SetHookAnswer(false);
        CResultsPage::SetViewerLauncher(nullptr);
    }

    // The bundled sample's camera card, scanned as a user would. Every output pointed at the image
    // (by its own name, a symbolic link, a hard link) is refused before anything is written, even
    // with every question answered Yes; the image stays byte for byte what it was. A save folder
    // reached through a link to the image's own folder is allowed: the image is only read.
    void outputsNeverTouchTheSource() {
        QTemporaryDir dir;
        QString image = dir.filePath("sample-disk.img");
        QString cmd = QString("zstd -q -d -f '%1/data/sample/sample-disk.img.zst' -o '%2'").arg(KESTRIN_SOURCE_DIR, image);
        QCOMPARE(std::system(qPrintable(cmd)), 0);
        const QByteArray before = Sha256(image);
        QVERIFY(!before.isEmpty());
        QVERIFY(QFile::link(image, dir.filePath("link.zip")));
        QVERIFY(QFile::link(image, dir.filePath("link.tks4")));
        QCOMPARE(::link(qPrintable(image), qPrintable(dir.filePath("hard.zip"))), 0);
        QVERIFY(QFile::link(dir.path(), dir.filePath("folder-link")));

        CMainWindow w;
        w.ChooseMode(kModeDeletedFiles);
        w.AddImageItem(image);
        auto* drives = w.findChild<QTreeWidget*>("drives");
        QTreeWidgetItem* card = nullptr;
        for (int i = 0; i < drives->currentItem()->childCount(); ++i)
            if (drives->currentItem()->child(i)->text(4) == "PHOTOS") card = drives->currentItem()->child(i);
        QVERIFY(card);
        drives->setCurrentItem(card);
        QTest::mouseClick(w.findChild<QPushButton*>("driveNext"), Qt::LeftButton);
        QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
        w.Results().MarkAll(true);

        CQtMessages::SetHookAnswer(true);
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
        CQtMessages::SetHookAnswer(false);

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
        CMainWindow w;
        w.ChooseMode(kModeDeletedFiles);
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

            CQtMessages::SetHookAnswer(true);
            m_messages.clear();
            QVERIFY2(write(), qPrintable(m_messages.join(" | ")));
            CQtMessages::SetHookAnswer(false);
            QByteArray now = Bytes(path);
            QVERIFY(now != old);
            if (zip) QVERIFY(now.startsWith(QByteArray("PK\x03\x04", 4)));
        }
        // The replaced session is a whole one.
        CMainWindow reopened;
        QVERIFY2(reopened.OpenSessionFromMenu(dir.filePath("old.tks4")), qPrintable(m_messages.join(" | ")));
        QVERIFY(FindPath(reopened.Tree(), "Photos/IMG_0001.jpg"));
        QCOMPARE(Sha256(image), imageBefore);
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
        CResultsPage::SetViewerLauncher([&](const QString& path) {
            launched << path;
            return launcherWorks;
        });
        auto w = std::make_unique<CMainWindow>();
        w->ChooseMode(kModeDeletedFiles);
        QVERIFY(w->OpenAndContinue(QString::fromStdString(imagePath)));
        auto* page = w->findChild<CResultsPage*>();
        QVERIFY(page && page->ViewerCopies().Folder().isEmpty());
        CNode* photo = FindPath(w->Tree(), "Photos/IMG_0001.jpg");
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
            CMainWindow other;
            other.ChooseMode(kModeDeletedFiles);
            QVERIFY(other.OpenAndContinue(QString::fromStdString(imagePath)));
            auto* otherPage = other.findChild<CResultsPage*>();
            QVERIFY(otherPage->OpenWithViewer(FindPath(other.Tree(), "Photos/IMG_0001.jpg")));
            QVERIFY(otherPage->ViewerCopies().Folder() != folder);
        }

        // Items found by content that reach past the end of the source, on a page of their own.
        CPhysicalDisk media;
        QVERIFY(media.AttachImageFile(imagePath));
        CResultsState state;
        CResultsPage lone(state);
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
        CQtMessages::SetHookAnswer(true);
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
