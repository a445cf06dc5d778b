// The drive page's own list (added image files taken off again), the message boxes' icons and
// captions, missing texts, a session whose image file moved, and copying a source into an image
// file from the drive page.
#include <QAction>
#include <QApplication>
#include <QCryptographicHash>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTimer>
#include <QTreeWidget>
#include <QtTest>
#include <functional>

#include "ProgramFolder.h"
#include "RecordingDesktop.h"
#include "TestImages.h"
#include "app/Language.h"
#include "session/Source.h"
#include "ui/CDrivePage.h"
#include "ui/CImageDialog.h"
#include "ui/CMainWindow.h"
#include "ui/CQtMessages.h"
#include "ui/UiText.h"
#include "util/Text.h"

using namespace kestrin;
using namespace kestrin::ui;
using Kind = test::RecordingDesktop::Kind;

namespace {

QString T(const char* id) { return QString::fromStdString(app::Text(id)); }

QByteArray Sha256(const QString& file, qint64 offset = 0, qint64 length = -1) {
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly) || !f.seek(offset)) return {};
    return QCryptographicHash::hash(length < 0 ? f.readAll() : f.read(length), QCryptographicHash::Sha256).toHex();
}

// Runs `act` on the next modal window of type W once it shows.
template <class W>
void OnNextModal(std::function<void(W*)> act) {
    auto* poll = new QTimer;
    QObject::connect(poll, &QTimer::timeout, poll, [=] {
        auto* w = qobject_cast<W*>(QApplication::activeModalWidget());
        if (!w) return;
        poll->stop();
        poll->deleteLater();
        act(w);
    });
    poll->start(20);
}

} // namespace

class DialogsTest : public QObject {
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
        app::ChangeLanguage(0);
    }

    void init() {
        m_messages.clear();
        m_desktop.boxes.clear();
        m_desktop.answer = false;
        m_desktop.located = nullptr;
    }

    // Delete and the context menu take an added image (with its partitions) off the list; it
    // stays off when the list is made again, and the disks are never offered for removal.
    void addedImagesCanBeRemoved() {
        CMainWindow w(m_desktop);
        w.ChooseMode(RecoveryMode::DeletedFiles);
        auto* page = w.findChild<CDrivePage*>();
        auto* drives = w.findChild<QTreeWidget*>("drives");
        const QString mbr = QString::fromStdString(test::UnpackImage("disk-mbr"));
        const QString fat = QString::fromStdString(test::UnpackImage("fat16-features"));
        const QString gpt = QString::fromStdString(test::UnpackImage("disk-gpt"));
        for (const QString& p : {mbr, fat, gpt}) w.AddImageItem(p);
        w.AddImageItem(fat); // listed once
        QCOMPARE(page->ImagePaths(), QStringList({mbr, fat, gpt}));
        const int lines = drives->topLevelItemCount();

        // Delete on a partition takes its image file off.
        drives->setCurrentItem(page->ItemOf(mbr, 1));
        QTest::keyClick(drives, Qt::Key_Delete);
        QCOMPARE(page->ImagePaths(), QStringList({fat, gpt}));
        QVERIFY(!page->ItemOf(mbr) && !page->ItemOf(mbr, 1));
        QCOMPARE(drives->topLevelItemCount(), lines - 1);

        // The context menu offers removal for an image file only.
        QTreeWidgetItem* gptLine = page->ItemOf(gpt);
        QStringList offered;
        auto menuOf = [&](QTreeWidgetItem* it, bool removeIt) {
            offered.clear();
            auto* poll = new QTimer;
            QObject::connect(poll, &QTimer::timeout, poll, [&, poll, removeIt] {
                auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
                if (!menu) return;
                poll->stop();
                poll->deleteLater();
                QAction* remove = nullptr;
                for (QAction* a : menu->actions()) {
                    offered << a->text();
                    if (a->text() == T("IDS_UI_REMOVE_IMAGE")) remove = a;
                }
                if (remove && removeIt) {
                    // Chosen as the user would, so that the menu reports it.
                    menu->setActiveAction(remove);
                    QTest::keyClick(menu, Qt::Key_Return);
                } else {
                    menu->close();
                }
            });
            poll->start(20);
            emit drives->customContextMenuRequested(drives->visualItemRect(it).center());
        };
        drives->scrollToItem(gptLine);
        menuOf(gptLine, true);
        QVERIFY(offered.contains(T("IDS_UI_REMOVE_IMAGE")));
        QCOMPARE(page->ImagePaths(), QStringList({fat}));
        if (drives->topLevelItemCount() > 1) {
            QTreeWidgetItem* disk = drives->topLevelItem(0);
            QVERIFY(!page->ImagePaths().contains(disk->text(0)));
            menuOf(disk, false);
            QVERIFY(!offered.contains(T("IDS_UI_REMOVE_IMAGE")));
            drives->setCurrentItem(disk);
            QTest::keyClick(drives, Qt::Key_Delete);
            QVERIFY(page->ItemOf(disk->text(0)));
        }
        page->Fill();
        QCOMPARE(page->ImagePaths(), QStringList({fat}));
        QVERIFY(!page->ItemOf(gpt) && page->ItemOf(fat));
    }

    // Errors carry the error icon, questions the question icon under "IDS_CONFIRM"; the real
    // boxes show them so.
    void messageBoxesUseTheirIconsAndCaptions() {
        CMainWindow w(m_desktop);
        w.ChooseMode(RecoveryMode::DeletedFiles);
        QVERIFY(!w.OpenAndContinue("/dev/kestrin-no-such-disk"));
        QCOMPARE(m_desktop.boxes.size(), 1);
        QCOMPARE(m_desktop.boxes[0].kind, Kind::Error);
        QCOMPARE(m_desktop.boxes[0].caption, T("IDS_KESTRIN"));
        CQtMessages messages(&w, m_desktop);
        messages.Show({"", {Words("disk full")}, {"IDS_INFORMATION"}, MessageIcon::Error});
        QCOMPARE(m_desktop.boxes[1].kind, Kind::Error);
        QCOMPARE(m_desktop.boxes[1].caption, T("IDS_INFORMATION"));
        m_desktop.Ask(&w, "Go on?");
        QCOMPARE(m_desktop.boxes[2].kind, Kind::Question);
        QCOMPARE(m_desktop.boxes[2].caption, T("IDS_CONFIRM"));

        // The boxes themselves, in French.
        app::ChangeLanguage(1);
        CDesktop real;
        struct Seen {
            QMessageBox::Icon icon = QMessageBox::NoIcon;
            QString title;
            QStringList buttons;
        } seen;
        auto answer = [&](QMessageBox::StandardButton button) {
            OnNextModal<QMessageBox>([&, button](QMessageBox* box) {
                seen = {box->icon(), box->windowTitle(), {}};
                for (QAbstractButton* b : box->buttons()) seen.buttons << b->text();
                box->button(button)->click();
            });
        };
        answer(QMessageBox::Ok);
        real.Fail(&w, "x");
        QCOMPARE(seen.icon, QMessageBox::Critical);
        QCOMPARE(seen.title, T("IDS_KESTRIN"));
        answer(QMessageBox::No);
        QVERIFY(!real.Ask(&w, "y"));
        QCOMPARE(seen.icon, QMessageBox::Question);
        QCOMPARE(seen.title, QString("Confirmation"));
        answer(QMessageBox::Cancel);
        QVERIFY(real.Locate(&w, "z", "/nowhere/card.img").isEmpty());
        QCOMPARE(seen.icon, QMessageBox::Question);
        QCOMPARE(seen.title, QString("Confirmation"));
        QVERIFY(seen.buttons.contains(T("IDS_UI_BROWSE")));
        app::ChangeLanguage(0);
    }

    // A text the language file lacks is empty, never its identifier; the fallback only serves
    // when there is no language file at all.
    void missingTextIsEmpty() {
        QCOMPARE(Tx("IDS_CONFIRM"), QString("Confirm"));
        QCOMPARE(Tx("IDS_KESTRIN_NO_SUCH_TEXT"), QString());
        QCOMPARE(Tx("IDS_KESTRIN_NO_SUCH_TEXT", "Fallback"), QString());
        QTemporaryDir bare;
        app::InitLanguage(bare.path().toStdString());
        QCOMPARE(Tx("IDS_KESTRIN_NO_SUCH_TEXT"), QString());
        QCOMPARE(Tx("IDS_KESTRIN_NO_SUCH_TEXT", "Fallback"), QString("Fallback"));
        app::InitLanguage(m_program.path().toStdString());
        QCOMPARE(Tx("IDS_CONFIRM"), QString("Confirm"));
    }

    // The image file of a session moved: the user is offered to look for it, and the session
    // opens from the new place, its items saved from there.
    void sessionFindsItsMovedImage() {
        QTemporaryDir dir;
        QString image = dir.filePath("card.img");
        QVERIFY(QFile::copy(QString::fromStdString(test::UnpackImage("fat16-features")), image));
        QString session = dir.filePath("scan.tks4");
        {
            CMainWindow w(m_desktop);
            w.ChooseMode(RecoveryMode::DeletedFiles);
            QVERIFY(w.OpenAndContinue(image));
            w.Results().MarkAll(true);
            QVERIFY(w.SaveSession(session));
        }
        QDir().mkpath(dir.filePath("moved"));
        QString moved = dir.filePath("moved/renamed.img");
        QVERIFY(QFile::rename(image, moved));
        QString askedFor;
        m_desktop.located = [&](const QString& missing) {
            askedFor = missing;
            return moved;
        };
        CMainWindow reopened(m_desktop);
        QVERIFY2(reopened.OpenSessionFromMenu(session), qPrintable(m_messages.join(" | ")));
        QCOMPARE(askedFor, image);
        QCOMPARE(m_desktop.boxes.size(), 1);
        QCOMPARE(m_desktop.boxes[0].kind, Kind::Question);
        QVERIFY(m_desktop.boxes[0].text.contains(image));
        QCOMPARE(reopened.CurrentPage(), CMainWindow::kResultsPage);
        QTemporaryDir out;
        QVERIFY(reopened.SaveTo(out.path(), kCollisionRename));
        QVERIFY(reopened.LastSave().files > 0);
        QCOMPARE(reopened.LastSave().incomplete, 0u);
        // Saved again, the session names the new place: no question the next time.
        QVERIFY(reopened.SaveSession(dir.filePath("again.tks4")));
        init();
        CMainWindow third(m_desktop);
        QVERIFY(third.OpenSessionFromMenu(dir.filePath("again.tks4")));
        QVERIFY(m_desktop.boxes.isEmpty());
    }

    // From the drive page into an image file: the whole source and one partition come out byte
    // for byte, the source is unchanged, and the source itself or an existing file without
    // consent is refused before anything is written.
    void createsImageFromDrivePage() {
        QTemporaryDir dir;
        QString source = dir.filePath("source.img");
        QVERIFY(QFile::copy(QString::fromStdString(test::UnpackImage("disk-mbr")), source));
        const QByteArray before = Sha256(source);
        CMainWindow w(m_desktop);
        w.show();
        w.ChooseMode(RecoveryMode::DeletedFiles);
        w.AddImageItem(source);
        auto* page = w.findChild<CDrivePage*>();
        auto* drives = w.findChild<QTreeWidget*>("drives");

        // Through the button, as a user would.
        QString copy = dir.filePath("copy.img");
        QString result;
        OnNextModal<CImageDialog>([&](CImageDialog* dlg) {
            dlg->findChild<QLineEdit*>("imageTarget")->setText(copy);
            QTest::mouseClick(dlg->findChild<QPushButton*>("imageStart"), Qt::LeftButton);
            result = dlg->findChild<QLabel*>("imageResult")->text();
            dlg->reject();
        });
        drives->setCurrentItem(page->ItemOf(source));
        QTest::mouseClick(w.findChild<QPushButton*>("createImage"), Qt::LeftButton);
        QVERIFY2(m_messages.isEmpty(), qPrintable(m_messages.join(" | ")));
        QCOMPARE(Sha256(copy), before);
        QVERIFY2(result.contains(QString::fromStdString(WithThousands(uint64_t(QFileInfo(source).size())))), qPrintable(result));
        QVERIFY(!QFile::exists(copy + ".map"));

        // One partition: its sectors only.
        QTreeWidgetItem* second = page->ItemOf(source, 1);
        QVERIFY(second);
        CImageDialog part(m_desktop, source, 1, &w);
        part.SetTarget(dir.filePath("part2.img"));
        QVERIFY(part.Create());
        OpenedSource listed;
        std::string error;
        QVERIFY(OpenSource(source.toStdString(), listed, error));
        QVERIFY(listed.partitions.size() > 1);
        qint64 start = qint64(listed.partitions[1].startSector);
        qint64 count = qint64(RecordSectorCount(listed.partitions[1], listed.layout));
        QCOMPARE(QFileInfo(dir.filePath("part2.img")).size(), count * 512);
        QCOMPARE(Sha256(dir.filePath("part2.img")), Sha256(source, start * 512, count * 512));
        QCOMPARE(part.Result().badSectors, 0u);

        // Onto the source: refused with the error icon, nothing written.
        CImageDialog onto(m_desktop, source, -1, &w);
        onto.SetTarget(source);
        QVERIFY(!onto.Create());
        QCOMPARE(m_desktop.boxes.size(), 1);
        QCOMPARE(m_desktop.boxes[0].kind, Kind::Error);
        // An existing file: asked, declined, left alone.
        init();
        QFile::resize(copy, 1000);
        CImageDialog again(m_desktop, source, -1, &w);
        again.SetTarget(copy);
        QVERIFY(!again.Create());
        QCOMPARE(m_desktop.boxes.size(), 1);
        QCOMPARE(m_desktop.boxes[0].kind, Kind::Question);
        QCOMPARE(QFileInfo(copy).size(), 1000);
        // Agreed: replaced.
        m_desktop.answer = true;
        QVERIFY(again.Create());
        QCOMPARE(Sha256(copy), before);
        QCOMPARE(Sha256(source), before);
    }
};

QTEST_MAIN(DialogsTest)
#include "DialogsTest.moc"
