// The desktop program driven as a user would: pick a mode, open an image, scan, show deleted
// items only, mark them, save, and compare what was written with the image's manifest. Also the
// language switch, the tick states of folders and the stop question.
#include <QAction>
#include <QCheckBox>
#include <QCryptographicHash>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTreeView>
#include <QTreeWidget>
#include <QLabel>
#include <QTimer>
#include <QtTest>
#include <chrono>
#include <thread>

#include "TestImages.h"
#include "app/Language.h"
#include "scan/CScanDriver.h"
#include "scan/ScanContext.h"
#include "ui/CFileListModel.h"
#include "ui/CFolderTreeModel.h"
#include "ui/CMainWindow.h"
#include "ui/CQtMessages.h"
#include "ui/CScanMan.h"

using namespace kestrin;
using namespace kestrin::ui;

namespace {

CNode* FindPath(CNode* top, const QString& path) {
    CNode* n = top ? FindChild(top, u".") : nullptr;
    for (const QString& part : path.split('/')) {
        if (!n) return nullptr;
        n = FindChild(n, part.toStdU16String());
    }
    return n;
}

QByteArray Sha256(const QString& file) {
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly)) return {};
    return QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha256).toHex();
}

// Whether `saved` (relative to the destination) is the file at `path` in the image. A deleted
// short name has lost its first character on disk, so only the rest of the name must match.
bool SavedAs(const QString& saved, const QString& path, bool deleted) {
    if (saved == path || saved.endsWith("/" + path)) return true;
    if (!deleted) return false;
    int slash = int(path.lastIndexOf('/'));
    QString dir = path.left(slash + 1), rest = path.mid(slash + 2);
    int savedSlash = int(saved.lastIndexOf('/'));
    QString savedDir = saved.left(savedSlash + 1), savedName = saved.mid(savedSlash + 1);
    return (savedDir == dir || savedDir.endsWith("/" + dir)) && savedName.size() == rest.size() + 1 &&
           savedName.mid(1) == rest;
}

void Click(QWidget* root, const char* name) {
    auto* b = root->findChild<QPushButton*>(name);
    QVERIFY2(b, name);
    QTest::mouseClick(b, Qt::LeftButton);
}

} // namespace

class UiFlowTest : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_program;
    QStringList m_messages;

private slots:
    void initTestCase() {
        // A program folder of our own: the language switch rewrites its settings.ini.
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

    void recoversDeletedFilesFromImage() {
        std::string image = test::UnpackImage("fat32-features");
        QVERIFY(!image.empty());
        QFile manifestFile(QString(KESTRIN_SOURCE_DIR) + "/tests/images/fat32-features.json");
        QVERIFY(manifestFile.open(QIODevice::ReadOnly));
        QJsonArray files =
            QJsonDocument::fromJson(manifestFile.readAll()).object()["partitions"].toArray()[0].toObject()["files"].toArray();

        CMainWindow w;
        w.show();
        Click(&w, "mode1019");
        QCOMPARE(w.CurrentPage(), CMainWindow::kDrivePage);
        QVERIFY(w.OpenAndContinue(QString::fromStdString(image)));
        QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
        QVERIFY(w.Tree());
        QCOMPARE(w.FolderView()->model()->index(0, 0).data().toString(), QString("Root"));

        // Tick states: one file ticked makes its folder and the top partly ticked.
        CResultsState& st = w.Results();
        CNode* photo = FindPath(w.Tree(), "Photos/IMG_0001.jpg");
        QVERIFY(photo);
        st.SetChecked(photo, true);
        QCOMPARE(st.CheckState(photo->parent), Qt::PartiallyChecked);
        QCOMPARE(st.CheckState(w.Tree()), Qt::PartiallyChecked);
        st.MarkAll(false);
        QCOMPARE(st.CheckState(w.Tree()), Qt::Unchecked);

        // The File Types view ticks the tree's own files, and the other way round.
        QAbstractItemModel* types = w.TypesView()->model();
        QModelIndex typesTop = types->index(0, 0);
        QModelIndex jpg;
        for (int r = 0; r < types->rowCount(typesTop); ++r)
            if (types->index(r, 0, typesTop).data().toString().startsWith("JPG ")) jpg = types->index(r, 0, typesTop);
        QVERIFY(jpg.isValid());
        QVERIFY(types->setData(jpg, Qt::Checked, Qt::CheckStateRole));
        QVERIFY(photo->checked);
        QCOMPARE(st.CheckState(photo->parent), Qt::PartiallyChecked); // the .png beside it stays unticked
        QCOMPARE(jpg.data(Qt::CheckStateRole).toInt(), int(Qt::Checked));
        w.FolderView()->setCurrentIndex(static_cast<CFolderTreeModel*>(w.FolderView()->model())->IndexOf(photo->parent));
        CFileListModel* list = w.ListModel();
        int row = -1;
        for (int r = 0; r < list->rowCount(); ++r)
            if (list->NodeAt(r) == photo) row = r;
        QVERIFY(row >= 0);
        QVERIFY(list->setData(list->index(row, 0), Qt::Unchecked, Qt::CheckStateRole));
        QCOMPARE(jpg.data(Qt::CheckStateRole).toInt(), int(Qt::PartiallyChecked));
        QCOMPARE(typesTop.data(Qt::CheckStateRole).toInt(), int(Qt::PartiallyChecked));
        st.MarkAll(false);

        // Show deleted only, mark all, save.
        w.findChild<QCheckBox*>("deletedOnly")->click();
        QVERIFY(st.DeletedOnly());
        QVERIFY(st.Children(w.Tree()).size() >= 1);
        CNode* oldFolder = FindPath(w.Tree(), "Old folder");
        QVERIFY(oldFolder && oldFolder->inDeletedView);
        QVERIFY(!FindPath(w.Tree(), "Photos")->inDeletedView);
        st.MarkAll(true);
        QCOMPARE(st.CheckState(oldFolder), Qt::Checked);

        QTemporaryDir out;
        m_messages.clear();
        QVERIFY2(w.SaveTo(out.path(), kCollisionRename), qPrintable(m_messages.join(" | ")));
        QVERIFY(w.LastSave().files >= 5);
        QCOMPARE(m_messages.size(), 1); // the summary

        // Every deleted file whose content the manifest calls intact came back byte for byte,
        // and nothing that is not deleted was written.
        QHash<QString, QString> saved;
        for (QDirIterator it(out.path(), QDir::Files, QDirIterator::Subdirectories); it.hasNext();) {
            QString f = it.next();
            saved.insert(QDir(out.path()).relativeFilePath(f), f);
        }
        int checked = 0;
        for (const auto& v : files) {
            QJsonObject f = v.toObject();
            QString path = f["path"].toString();
            if (f["type"].toString() != "file") continue;
            QString hit;
            for (auto it = saved.begin(); it != saved.end(); ++it)
                if (SavedAs(it.key(), path, f["deleted"].toBool())) hit = it.value();
            if (!f["deleted"].toBool()) {
                QVERIFY2(hit.isEmpty(), qPrintable(path));
                continue;
            }
            if (!f["content_intact"].toBool()) continue;
            QVERIFY2(!hit.isEmpty(), qPrintable(path + " not in " + QStringList(saved.keys()).join(", ")));
            QCOMPARE(Sha256(hit), f["sha256"].toString().toLatin1());
            ++checked;
        }
        QVERIFY(checked >= 5);

        // Find with wildcards selects the item in the list.
        CNode* gif = w.FindNext("inside*.GIF");
        QVERIFY(gif);
        QCOMPARE(QString::fromStdU16String(gif->name), QString("Inside the deleted folder.gif"));
        QCOMPARE(w.ListModel()->Folder(), gif->parent);
        QVERIFY(!w.FindNext("no such *.name"));

        // A saved session opens again without scanning, with the same items.
        QTemporaryDir sessions;
        QString session = sessions.filePath("scan.tks4");
        QVERIFY(w.SaveSession(session));
        CMainWindow reopened;
        QVERIFY2(reopened.OpenSession(session), qPrintable(m_messages.join(" | ")));
        QCOMPARE(reopened.CurrentPage(), CMainWindow::kResultsPage);
        QCOMPARE(reopened.Mode(), uint32_t(kModeDeletedFiles));
        CNode* again = FindPath(reopened.Tree(), "Old folder/Sub/deep file.txt");
        QVERIFY(again);
        QVERIFY(again->IsDeleted());
        QVERIFY(reopened.DefaultSessionName(QDateTime(QDate(2024, 3, 5), QTime(7, 8, 9)))
                    .startsWith(" # fat32-features.img, 05-March-2024[7 8 9]"));
    }

    // A disk image with several file systems lists its partitions; choosing one scans it, and
    // the preview reads a found file's content.
    void diskImageOffersPartitions() {
        std::string image = test::UnpackImage("disk-mbr");
        QVERIFY(!image.empty());
        CMainWindow w;
        w.ChooseMode(kModeDeletedFiles);
        QVERIFY(w.OpenAndContinue(QString::fromStdString(image)));
        QCOMPARE(w.CurrentPage(), CMainWindow::kPartitionPage);
        auto* parts = w.findChild<QTreeWidget*>("partitions");
        QVERIFY(parts && parts->topLevelItemCount() >= 3);
        // A device that cannot be opened is refused with the way to get the rights.
        m_messages.clear();
        CMainWindow other;
        other.ChooseMode(kModeDeletedFiles);
        QVERIFY(!other.OpenAndContinue("/dev/kestrin-no-such-disk"));
        QCOMPARE(m_messages.size(), 1);
        QVERIFY(m_messages[0].contains("sudo"));
        QCOMPARE(other.CurrentPage(), CMainWindow::kDrivePage);
        int ntfs = -1;
        for (int i = 0; i < parts->topLevelItemCount(); ++i)
            if (parts->topLevelItem(i)->text(3) == "NTFS") ntfs = parts->topLevelItem(i)->data(0, Qt::UserRole).toInt();
        QVERIFY(ntfs >= 0);
        QVERIFY(w.ScanPartition(ntfs));
        QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
        CNode* jpg = FindPath(w.Tree(), "Data/holiday.jpg");
        QVERIFY(jpg);
        QVERIFY(w.FindNext("holiday.jpg") == jpg);
        QString props = w.PropertiesText(jpg);
        QVERIFY(props.contains("Name: holiday.jpg"));
        QVERIFY(props.contains("Sector: " + QString::number(jpg->location)));
        QVERIFY(props.contains("Byte offset: " + QString::number(jpg->location * 512)));
        auto* preview = w.findChild<QLabel*>("preview");
        QVERIFY(preview && !preview->pixmap().isNull());
    }

    // Partition recovery searches the whole disk first, then lists what it found to choose from.
    void partitionModeSearchesWholeDisk() {
        std::string image = test::UnpackImage("disk-mbr");
        CMainWindow w;
        Click(&w, "mode1021");
        m_messages.clear();
        QVERIFY(w.OpenAndContinue(QString::fromStdString(image)));
        QVERIFY2(m_messages.isEmpty(), qPrintable(m_messages.join(" | ")));
        QCOMPARE(w.CurrentPage(), CMainWindow::kPartitionPage);
        auto* parts = w.findChild<QTreeWidget*>("partitions");
        QVERIFY(parts->topLevelItemCount() >= 3);
        QVERIFY(w.ScanPartition(parts->topLevelItem(0)->data(0, Qt::UserRole).toInt()));
        QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
        QVERIFY(FindPath(w.Tree(), "Data"));
    }

    // The bundled sample: deleted photos of the camera card come back in photo mode.
    void recoversDeletedPhotosFromSample() {
        QTemporaryDir dir;
        QString image = dir.filePath("sample-disk.img");
        QString cmd = QString("zstd -q -d -f '%1/data/sample/sample-disk.img.zst' -o '%2'").arg(KESTRIN_SOURCE_DIR, image);
        QCOMPARE(std::system(qPrintable(cmd)), 0);
        CMainWindow w;
        Click(&w, "mode1037");
        QVERIFY(w.OpenAndContinue(image));
        QCOMPARE(w.CurrentPage(), CMainWindow::kPartitionPage);
        QVERIFY(w.ScanPartition(0)); // the FAT32 camera card
        QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
        // A deleted short name has lost its first character.
        CNode* photo = w.FindNext("?MG_4302.JPG");
        QVERIFY(photo && photo->parent && photo->parent->name == u"100CANON");
        QVERIFY(photo->IsDeleted());
        w.findChild<QCheckBox*>("deletedOnly")->click();
        w.Results().MarkAll(true);
        QTemporaryDir out;
        QVERIFY(w.SaveTo(out.path(), kCollisionRename));
        QVERIFY(w.LastSave().files >= 2);
    }

    // Cancel asks the stop question while the worker is held at the gate; Yes ends the
    // operation within a second.
    void cancelQuestionHoldsWorker() {
        std::string image = test::UnpackImage("fat32-features");
        CPhysicalDisk media;
        QVERIFY(media.AttachImageFile(image));
        Engines engines;
        // An engine that runs until it is stopped, reporting progress as it goes.
        engines.fileSystemScan = [](CPhysicalDisk&, int, ScanContext& ctx) {
            for (int64_t i = 0; !ctx.StopRequested(); ++i) {
                ctx.Progress(i, 1000000);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        };
        CScanMan dlg;
        CScanDriver driver(media, engines, dlg);
        bool asked = false, held = false, frozen = false;
        CScanMan::SetQuestionHook([&](CScanDriver& d) {
            asked = true;
            held = d.Gate().WaitForWorkerHeld(2000);
            int64_t before = d.Operation().done.load();
            QTest::qWait(150);
            frozen = d.Operation().done.load() == before;
            return true;
        });
        QVERIFY(driver.Start(kKindFileSystemScan, kModeDeletedFiles));
        QElapsedTimer clock;
        QTimer::singleShot(200, &dlg, [&] {
            clock.start();
            dlg.findChild<QPushButton*>("cancel")->click();
        });
        QVERIFY(!dlg.Run(driver));
        CScanMan::SetQuestionHook(nullptr);
        QVERIFY(asked);
        QVERIFY(held);
        QVERIFY(frozen);
        QVERIFY(driver.CancelConfirmed());
        QVERIFY(clock.elapsed() < 1000 + 150);
    }

    void languageSwitchRewritesSettingsAndTexts() {
        CMainWindow w;
        auto* german = w.findChild<QAction*>("lang40045");
        QVERIFY(german);
        german->trigger();
        QCOMPARE(app::CurrentPaths().languageIndex, 2);
        QCOMPARE(w.findChild<QPushButton*>("mode1019")->text(), QString::fromStdString(app::Text("IDS_RECOVERDELETEDFILES")));
        QFile ini(m_program.filePath("settings.ini"));
        QVERIFY(ini.open(QIODevice::ReadOnly));
        QVERIFY(ini.readAll().contains("=2"));
        w.findChild<QAction*>("lang40043")->trigger();
        QCOMPARE(w.findChild<QPushButton*>("mode1019")->text(), QString("Recover Deleted Files"));
        QCOMPARE(w.windowTitle(), QString("Kestrin"));
    }
};

QTEST_MAIN(UiFlowTest)
#include "UiFlowTest.moc"
