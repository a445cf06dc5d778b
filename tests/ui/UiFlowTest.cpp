// The desktop program driven as a user would: pick a mode, open an image, scan, show deleted
// items only, mark them, save, and compare what was written with the image's manifest. Also the
// language switch, the tick states of folders and the stop question.
#include <QAction>
#include <QApplication>
#include <QBuffer>
#include <QMessageBox>
#include <QCheckBox>
#include <QComboBox>
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
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "TestImages.h"
#include "FolderIndex.h"
#include "ProgramFolder.h"
#include "RecordingDesktop.h"
#include "app/Language.h"
#include "scan/CScanDriver.h"
#include "job/ScanContext.h"
#include "ui/CFileListModel.h"
#include "ui/CFolderTreeModel.h"
#include "ui/CNodeFilterProxy.h"
#include "ui/CMainWindow.h"
#include "ui/CScanMan.h"
#include "ui/PreviewContent.h"

using namespace kestrin;
using namespace kestrin::ui;

namespace {

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

// Every node below `top` as "path|size|flags|checked|location", sorted: two trees with the same
// lines hold the same items.
QStringList Dump(CNode* top) {
    QStringList out;
    ForEachNode(top, [&](CNode* n) {
        QString path = QString::fromStdU16String(n->name);
        for (CNode* p = n->parent; p; p = p->parent) path.prepend(QString::fromStdU16String(p->name) + "/");
        out << QString("%1|%2|%3|%4|%5").arg(path).arg(n->size).arg(n->flags).arg(n->checked).arg(n->location);
    });
    out.sort();
    return out;
}

QByteArray JpegOf(int width, int height) {
    QImage pic(width, height, QImage::Format_RGB32);
    pic.fill(QColor(200, 40, 40));
    QByteArray bytes;
    QBuffer buf(&bytes);
    buf.open(QIODevice::WriteOnly);
    pic.save(&buf, "JPG");
    return bytes;
}

// Answers the next message box with `button` once it is shown, keeping its text.
void AnswerNextBox(QMessageBox::StandardButton button, QString* text) {
    auto* poll = new QTimer;
    QObject::connect(poll, &QTimer::timeout, poll, [=] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box) return;
        *text = box->text() + "\n" + box->informativeText();
        poll->stop();
        poll->deleteLater();
        box->button(button)->click();
    });
    poll->start(20);
}

QTreeWidgetItem* ChildLabelled(QTreeWidgetItem* it, const QString& label) {
    for (int i = 0; it && i < it->childCount(); ++i)
        if (it->child(i)->text(4) == label) return it->child(i);
    return nullptr;
}

QString T(const char* id) { return QString::fromStdString(app::Text(id)); }

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
    test::RecordingDesktop m_desktop{&m_messages};

private slots:
    void initTestCase() {
        // A program folder of our own: the language switch rewrites its settings.ini.
        QVERIFY(m_program.isValid());
        // The built signature file: the photo and partition modes search by content too.
        QVERIFY(test::MakeProgramFolder(m_program, {.settings = true, .signatures = true}));
        app::InitLanguage(m_program.path().toStdString());
        app::ChangeLanguage(0);
    }

    void recoversDeletedFilesFromImage() {
        std::string image = test::UnpackImage("fat32-features");
        QVERIFY(!image.empty());
        QFile manifestFile(QString(KESTRIN_SOURCE_DIR) + "/tests/images/fat32-features.json");
        QVERIFY(manifestFile.open(QIODevice::ReadOnly));
        QJsonArray files =
            QJsonDocument::fromJson(manifestFile.readAll()).object()["partitions"].toArray()[0].toObject()["files"].toArray();

        CMainWindow w(m_desktop);
        w.show();
        Click(&w, "mode1019");
        QCOMPARE(w.CurrentPage(), CMainWindow::kDrivePage);
        QVERIFY(w.OpenAndContinue(QString::fromStdString(image)));
        QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
        QVERIFY(w.Tree());
        QCOMPARE(w.FolderView()->model()->index(0, 0).data().toString(), QString("Root"));

        // Tick states: one file ticked makes its folder and the top partly ticked.
        CResultsState& st = w.Results();
        CNode* photo = test::FindPath(w.Tree(), "Photos/IMG_0001.jpg");
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
        w.FolderView()->setCurrentIndex(test::FolderIndexOf(w.FolderView(), photo->parent));
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
        CNode* oldFolder = test::FindPath(w.Tree(), "Old folder");
        QVERIFY(oldFolder && oldFolder->inDeletedView);
        QVERIFY(!test::FindPath(w.Tree(), "Photos")->inDeletedView);
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
        // The same items into a zip archive.
        SaveResult folderSave = w.LastSave();
        QVERIFY(w.SaveTo(out.filePath("deleted.zip"), kCollisionRename));
        QCOMPARE(w.LastSave().files, folderSave.files);
        QCOMPARE(w.LastSave().bytes, folderSave.bytes);
        QFile zip(out.filePath("deleted.zip"));
        QVERIFY(zip.open(QIODevice::ReadOnly));
        QVERIFY(zip.read(4) == QByteArray("PK\x03\x04", 4));
        QVERIFY(zip.size() > qint64(folderSave.bytes) / 4);

        // Find with wildcards selects the item in the list.
        CNode* gif = w.FindNext("inside*.GIF");
        QVERIFY(gif);
        QCOMPARE(QString::fromStdU16String(gif->name), QString("Inside the deleted folder.gif"));
        QCOMPARE(w.ListModel()->Folder(), gif->parent);
        QVERIFY(!w.FindNext("no such *.name"));
    }

    // A disk image with several file systems lists its partitions; choosing one scans it, and
    // the preview reads a found file's content.
    void diskImageOffersPartitions() {
        std::string image = test::UnpackImage("disk-mbr");
        QVERIFY(!image.empty());
        CMainWindow w(m_desktop);
        w.ChooseMode(RecoveryMode::DeletedFiles);
        QVERIFY(w.OpenAndContinue(QString::fromStdString(image)));
        QCOMPARE(w.CurrentPage(), CMainWindow::kPartitionPage);
        auto* parts = w.findChild<QTreeWidget*>("partitions");
        QVERIFY(parts && parts->topLevelItemCount() >= 3);
        // A device that is not there is refused with the system's reason; more rights would not
        // help, so the way to get them is not offered.
        m_messages.clear();
        CMainWindow other(m_desktop);
        other.ChooseMode(RecoveryMode::DeletedFiles);
        QVERIFY(!other.OpenAndContinue("/dev/kestrin-no-such-disk"));
        QCOMPARE(m_messages.size(), 1);
        QVERIFY2(m_messages[0].contains(QString::fromLocal8Bit(std::strerror(ENOENT))), qPrintable(m_messages[0]));
        QVERIFY(!m_messages[0].contains(T("IDS_UI_NEED_RIGHTS")));
        QCOMPARE(other.CurrentPage(), CMainWindow::kDrivePage);
        int ntfs = -1;
        for (int i = 0; i < parts->topLevelItemCount(); ++i)
            if (parts->topLevelItem(i)->text(3) == "NTFS") ntfs = parts->topLevelItem(i)->data(0, Qt::UserRole).toInt();
        QVERIFY(ntfs >= 0);
        QVERIFY(w.ScanPartition(ntfs));
        QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
        CNode* jpg = test::FindPath(w.Tree(), "Data/holiday.jpg");
        QVERIFY(jpg);
        QVERIFY(w.FindNext("holiday.jpg") == jpg);
        QString props = w.PropertiesText(jpg);
        QVERIFY(props.contains("Name: holiday.jpg"));
        QVERIFY(props.contains("Sector: " + QString::number(jpg->location)));
        QVERIFY(props.contains("Byte offset: " + QString::number(jpg->location * 512)));
        // A folder shows what it holds, not the "0 KB" of the list's column.
        QString folderProps = w.PropertiesText(jpg->parent);
        QVERIFY2(folderProps.contains("Contains: ") && !folderProps.contains("(0 KB)") && jpg->size >= 1024,
                 qPrintable(folderProps));
        auto* preview = w.findChild<QLabel*>("preview");
        QVERIFY(preview && !preview->pixmap().isNull());
    }

    // Partition recovery searches the whole disk first, then lists what it found to choose from.
    void partitionModeSearchesWholeDisk() {
        std::string image = test::UnpackImage("disk-mbr");
        CMainWindow w(m_desktop);
        Click(&w, "mode1021");
        m_messages.clear();
        QVERIFY(w.OpenAndContinue(QString::fromStdString(image)));
        QVERIFY2(m_messages.isEmpty(), qPrintable(m_messages.join(" | ")));
        QCOMPARE(w.CurrentPage(), CMainWindow::kPartitionPage);
        auto* parts = w.findChild<QTreeWidget*>("partitions");
        QVERIFY(parts->topLevelItemCount() >= 3);
        QVERIFY(w.ScanPartition(parts->topLevelItem(0)->data(0, Qt::UserRole).toInt()));
        QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
        QVERIFY(test::FindPath(w.Tree(), "Data"));
    }

    // The bundled sample, in each language, by the steps a user clicks: photo mode, the camera
    // card's partition on the drive page, deleted items only, mark all, save. The deleted photos
    // come back byte for byte.
    void recoversDeletedPhotosFromSampleInEveryLanguage() {
        QTemporaryDir dir;
        QString image = dir.filePath("sample-disk.img");
        QString cmd = QString("zstd -q -d -f '%1/data/sample/sample-disk.img.zst' -o '%2'").arg(KESTRIN_SOURCE_DIR, image);
        QCOMPARE(std::system(qPrintable(cmd)), 0);
        const QByteArray deletedPhotos[] = {"a9b9693c95eaa5ab98cdfd7887fae613e70d85f05dea39457719050defa26ea0",
                                            "3bfad322358e86ace9da303df6e32df16ebf663bd7555ab407e60c378e3fe1b4"};
        for (int lang = 0; lang < app::kLanguageCount; ++lang) {
            CMainWindow w(m_desktop);
            w.findChild<QAction*>(QString("lang%1").arg(app::kLanguageMenuFirst + lang))->trigger();
            auto* photoMode = w.findChild<QPushButton*>("mode1037");
            QCOMPARE(photoMode->text(), T("IDS_RECOVERDELETEDPHOTOS"));
            Click(&w, "mode1037");
            w.AddImageItem(image);
            auto* drives = w.findChild<QTreeWidget*>("drives");
            QTreeWidgetItem* card = ChildLabelled(drives->currentItem(), "PHOTOS");
            QVERIFY(card);
            QCOMPARE(card->text(3), QString("FAT32"));
            drives->setCurrentItem(card);
            Click(&w, "driveNext");
            QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
            // A deleted short name has lost its first character.
            CNode* photo = w.FindNext("?MG_4302.JPG");
            QVERIFY(photo && photo->parent && photo->parent->name == u"100CANON");
            QVERIFY(photo->IsDeleted());
            w.findChild<QCheckBox*>("deletedOnly")->click();
            Click(&w, "markAll");
            QTemporaryDir out;
            m_messages.clear();
            QVERIFY(w.SaveTo(out.path(), kCollisionRename));
            QCOMPARE(m_messages.size(), 1);
            QVERIFY2(m_messages[0].startsWith(T("IDS_UI_SAVE_DONE")), qPrintable(m_messages[0]));
            QSet<QByteArray> hashes;
            for (QDirIterator it(out.path(), QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
                hashes.insert(Sha256(it.next()));
            for (const QByteArray& h : deletedPhotos) QVERIFY2(hashes.contains(h), qPrintable(QString::number(lang)));
        }
        app::ChangeLanguage(0);
    }

    // Opening each kind of source shows what it holds: the table's partitions with their file
    // systems and labels, or one volume's own; a partition chosen there is scanned at once.
    void drivePageShowsFileSystemsAndLabels() {
        CMainWindow w(m_desktop);
        w.ChooseMode(RecoveryMode::DeletedFiles);
        auto* drives = w.findChild<QTreeWidget*>("drives");
        struct Disk {
            const char* image;
            QStringList labels, fileSystems;
        } disks[] = {{"disk-mbr", {"SYSTEM", "DATA", "OLDDATA"}, {"FAT32", "NTFS", "FAT16"}},
                     // The exFAT entry no boot-sector test accepts comes after the table's own.
                     {"disk-gpt", {"NTFS", "FAT32", "EXFAT"}, {"NTFS", "FAT32", "exFAT"}}};
        for (const Disk& d : disks) {
            w.AddImageItem(QString::fromStdString(test::UnpackImage(d.image)));
            QTreeWidgetItem* it = drives->currentItem();
            QCOMPARE(it->childCount(), d.labels.size());
            for (int i = 0; i < it->childCount(); ++i) {
                QCOMPARE(it->child(i)->text(4), d.labels[i]);
                QCOMPARE(it->child(i)->text(3), d.fileSystems[i]);
            }
        }
        struct Volume {
            const char* image;
            QString label, fileSystem;
        } volumes[] = {{"fat16-features", "FAT16", "FAT16"}, {"exfat-features", "EXFEAT", "exFAT"}, {"ntfs-4k", "FOURK", "NTFS"}};
        for (const Volume& v : volumes) {
            w.AddImageItem(QString::fromStdString(test::UnpackImage(v.image)));
            QCOMPARE(drives->currentItem()->childCount(), 0);
            QCOMPARE(drives->currentItem()->text(4), v.label);
            QCOMPARE(drives->currentItem()->text(3), v.fileSystem);
        }
        drives->setCurrentItem(ChildLabelled(drives->topLevelItem(drives->topLevelItemCount() - 5), "DATA"));
        Click(&w, "driveNext");
        QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
        QVERIFY(test::FindPath(w.Tree(), "Data/holiday.jpg"));
    }

    // A saved session opens again without scanning, with the same items and ticks; from inside
    // another mode it is refused with the mode that made it; a vanished image is named.
    void savedSessionReopensSameTree() {
        QTemporaryDir dir;
        QString image = dir.filePath("card.img");
        QVERIFY(QFile::copy(QString::fromStdString(test::UnpackImage("fat32-features")), image));
        CMainWindow w(m_desktop);
        w.ChooseMode(RecoveryMode::DeletedFiles);
        QVERIFY(w.OpenAndContinue(image));
        w.Results().SetChecked(test::FindPath(w.Tree(), "Photos/IMG_0001.jpg"), true);
        QString session = dir.filePath("scan.tks4");
        QVERIFY(w.SaveSession(session));
        QVERIFY(w.DefaultSessionName(QDateTime(QDate(2024, 3, 5), QTime(7, 8, 9)))
                    .startsWith(" # card.img, 05-March-2024[7 8 9]"));

        CMainWindow reopened(m_desktop);
        m_messages.clear();
        QVERIFY2(reopened.OpenSessionFromMenu(session), qPrintable(m_messages.join(" | ")));
        QCOMPARE(reopened.CurrentPage(), CMainWindow::kResultsPage);
        QCOMPARE(reopened.Mode(), RecoveryMode::DeletedFiles);
        QCOMPARE(Dump(reopened.Tree()), Dump(w.Tree()));
        QCOMPARE(reopened.FolderView()->model()->index(0, 0).data().toString(), QString("Root"));
        // Its items can be saved from the re-opened source.
        QTemporaryDir out;
        QVERIFY(reopened.SaveTo(out.path(), kCollisionRename));
        QCOMPARE(reopened.LastSave().files, 1u);

        CMainWindow photos(m_desktop);
        photos.ChooseMode(RecoveryMode::DeletedPhotos);
        m_messages.clear();
        QVERIFY(!photos.OpenSessionFromMenu(session));
        QCOMPARE(m_messages.size(), 1);
        QVERIFY(m_messages[0].contains(T("IDS_THIS_REC_SES_CREATED_USING")));
        QVERIFY(m_messages[0].contains(T("IDS_RECOVER_DELETED_FILES")));
        QCOMPARE(photos.CurrentPage(), CMainWindow::kDrivePage);

        QVERIFY(QFile::remove(image));
        CMainWindow gone(m_desktop);
        m_messages.clear();
        QVERIFY(!gone.OpenSessionFromMenu(session));
        QCOMPARE(m_messages.size(), 2); // the offer to look for it, declined, then the refusal
        QVERIFY2(m_messages[1].contains(T("IDS_SOURCE_IMAGE_NOT_FOUND")), qPrintable(m_messages[1]));
    }

    // Leaving unsaved results asks whether to save the session: Cancel stays, No leaves; once
    // saved, New Scan leaves without asking.
    void leavingResultsOffersSession() {
        CMainWindow w(m_desktop);
        w.show();
        w.ChooseMode(RecoveryMode::DeletedFiles);
        QVERIFY(w.OpenAndContinue(QString::fromStdString(test::UnpackImage("fat16-features"))));
        QString text;
        AnswerNextBox(QMessageBox::Cancel, &text);
        Click(&w, "newScan");
        QVERIFY(text.contains(T("IDS_ADVISABLE_SESSION")));
        QVERIFY(text.contains(T("IDS_SAVE_SCANNING_TIME")));
        QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
        AnswerNextBox(QMessageBox::No, &text);
        Click(&w, "newScan");
        QCOMPARE(w.CurrentPage(), CMainWindow::kModePage);

        QTemporaryDir dir;
        w.ChooseMode(RecoveryMode::DeletedFiles);
        QVERIFY(w.OpenAndContinue(QString::fromStdString(test::UnpackImage("fat16-features"))));
        QVERIFY(w.SaveSession(dir.filePath("s.tks4")));
        Click(&w, "newScan");
        QCOMPARE(w.CurrentPage(), CMainWindow::kModePage);
    }

    // The file list tells how much of each deleted file is still there.
    void fileListShowsConditions() {
        CMainWindow w(m_desktop);
        w.show();
        w.ChooseMode(RecoveryMode::DeletedFiles);
        QVERIFY(w.OpenAndContinue(QString::fromStdString(test::UnpackImage("condition-ntfs"))));
        CNode* old = test::FindPath(w.Tree(), "old");
        QVERIFY(old);
        w.FolderView()->setCurrentIndex(test::FolderIndexOf(w.FolderView(), old));
        CFileListModel* list = w.ListModel();
        QHash<QString, QString> shown;
        for (int r = 0; r < list->rowCount(); ++r)
            shown[list->index(r, CFileListModel::kName).data().toString()] =
                list->index(r, CFileListModel::kCondition).data().toString();
        QCOMPARE(shown["intact.bin"], QString("Excellent"));
        QCOMPARE(shown["gone.bin"], QString("Overwritten"));
        QCOMPARE(shown["partly.bin"], QString("Partly overwritten (28 KB)")); // 28,572 bytes
        QCOMPARE(shown["keep.txt"], QString()); // live files have none
        QCOMPARE(list->headerData(CFileListModel::kCondition, Qt::Horizontal, Qt::DisplayRole).toString(),
                 QString("Condition"));
        // The filter bar's condition choice narrows the list to the files in that condition.
        auto* condition = w.findChild<QComboBox*>("filterCondition");
        QVERIFY(condition && condition->count() == 5);
        auto* files = w.findChild<QTreeView*>("files");
        auto shownNames = [&] {
            QStringList names;
            for (int r = 0; r < files->model()->rowCount(); ++r) names << files->model()->index(r, CFileListModel::kName).data().toString();
            names.sort();
            return names;
        };
        condition->setCurrentIndex(2); // partly overwritten
        QCOMPARE(shownNames(), QStringList({"partly.bin"}));
        condition->setCurrentIndex(3); // overwritten
        QCOMPARE(shownNames(), QStringList({"gone.bin", "head.bin"})); // head.bin: its first cluster is taken
        condition->setCurrentIndex(0);
        QVERIFY(shownNames().contains("keep.txt"));
    }

    // A blank disk with one picture on it: the partition search finds nothing and offers the
    // search by content. Declined, the drive page stays; accepted, the picture is found.
    void noPartitionFoundOffersContentSearch() {
        QTemporaryDir dir;
        QByteArray disk(8 << 20, '\0');
        QByteArray jpeg = JpegOf(200, 150);
        disk.replace(1 << 20, jpeg.size(), jpeg);
        QString path = dir.filePath("blank.img");
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly) && f.write(disk) == disk.size());
        f.close();

        CMainWindow w(m_desktop);
        Click(&w, "mode1021");
        m_messages.clear();
        QVERIFY(!w.OpenAndContinue(path));
        QCOMPARE(m_messages, QStringList{T("IDS_NO_PARTITION_FOUND")});
        QCOMPARE(w.CurrentPage(), CMainWindow::kDrivePage);

        m_desktop.answer = true;
        bool opened = w.OpenAndContinue(path);
        m_desktop.answer = false;
        QVERIFY(opened);
        QCOMPARE(w.CurrentPage(), CMainWindow::kResultsPage);
        CNode* carved = nullptr;
        ForEachNode(w.Tree(), [&](CNode* n) {
            if (n->carved && n->location * 512 + n->startOffset == uint64_t(1 << 20)) carved = n;
        });
        QVERIFY(carved);
        QVERIFY(carved->size >= uint64_t(jpeg.size()));
    }

    // The preview's choice: a picture (a raw file's largest embedded JPEG, not its lossless
    // sensor frame nor its thumbnail), text, or hex.
    void previewShowsPicturesTextAndHex() {
        QByteArray raw("II*\0\x08\0\0\0", 8);
        raw += QByteArray(100, '\x11');
        // Sensor data as a lossless frame, larger than any preview: not a picture to show.
        raw += QByteArray::fromHex("ffd8ffc3000b080bb80fa0011100") + QByteArray(64, '\x55');
        raw += JpegOf(40, 30) + QByteArray(77, '\x22');
        raw += JpegOf(320, 240) + QByteArray(500, '\x33');
        QCOMPARE(DecodePreviewImage(raw, true).size(), QSize(320, 240));
        QCOMPARE(DecodePreviewImage(raw, false).size(), QSize(320, 240));
        QVERIFY(DecodePreviewImage(QByteArray(1000, 'x')).isNull());
        QVERIFY(IsCameraRawName("IMG_0001.CR2") && !IsCameraRawName("IMG_0001.JPG"));

        QString text = QString::fromUtf8("h\xc3\xa9llo\r\n\tw\xc3\xb6rld");
        QCOMPARE(PreviewText(text.toUtf8(), 100), text);
        // The limit cuts "é" in two: the half is left out.
        QCOMPARE(PreviewText(QByteArray("a\xc3\xa9z"), 2), QString("a"));
        QString hex = PreviewText(QByteArray("\x00\x01" "ABC", 5), 100);
        QVERIFY2(hex.startsWith("00000000  00 01 41 42 43 ") && hex.trimmed().endsWith("..ABC"), qPrintable(hex));
        QVERIFY(PreviewText(QByteArray("\xff\xfe\x41\x42"), 100).startsWith("00000000  ff fe 41 42"));
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
            return Outcome::Stopped;
        };
        CScanMan dlg(m_desktop);
        CScanDriver driver(media, engines, dlg);
        bool asked = false, held = false, frozen = false;
        m_desktop.onAsk = [&](const QString&) {
            asked = true;
            held = driver.Gate().WaitForWorkerHeld(2000);
            int64_t before = driver.Operation().done.load();
            QTest::qWait(150);
            frozen = driver.Operation().done.load() == before;
            return true;
        };
        QVERIFY(driver.Start(OperationKind::FileSystemScan, RecoveryMode::DeletedFiles));
        QElapsedTimer clock;
        QTimer::singleShot(200, &dlg, [&] {
            clock.start();
            dlg.findChild<QPushButton*>("cancel")->click();
        });
        QVERIFY(!dlg.Run(driver));
        m_desktop.onAsk = nullptr;
        QVERIFY(asked);
        QVERIFY(held);
        QVERIFY(frozen);
        QVERIFY(driver.CancelConfirmed());
        QVERIFY(clock.elapsed() < 1000 + 150);
    }

    void languageSwitchRewritesSettingsAndTexts() {
        CMainWindow w(m_desktop);
        auto* german = w.findChild<QAction*>("lang40045");
        QVERIFY(german);
        german->trigger();
        QCOMPARE(app::CurrentPaths().languageIndex, 2);
        QCOMPARE(w.findChild<QPushButton*>("mode1019")->text(), QString::fromStdString(app::Text("IDS_RECOVERDELETEDFILES")));
        QFile ini(m_program.filePath("settings.ini"));
        QVERIFY(ini.open(QIODevice::ReadOnly));
        QVERIFY(ini.readAll().contains("=2"));
        // The drive page's lines follow too, and keep their selection.
        w.ChooseMode(RecoveryMode::DeletedFiles);
        w.AddImageItem(QString::fromStdString(test::UnpackImage("disk-mbr")));
        auto* drives = w.findChild<QTreeWidget*>("drives");
        drives->setCurrentItem(ChildLabelled(drives->currentItem(), "DATA"));
        w.findChild<QAction*>("lang40043")->trigger();
        QVERIFY(drives->currentItem() && drives->currentItem()->text(4) == "DATA");
        QCOMPARE(drives->currentItem()->parent()->text(1), QString("Image file"));
        QCOMPARE(w.findChild<QPushButton*>("mode1019")->text(), QString("Recover Deleted Files"));
        QCOMPARE(w.windowTitle(), QString("Kestrin"));
    }
};

QTEST_MAIN(UiFlowTest)
#include "UiFlowTest.moc"
