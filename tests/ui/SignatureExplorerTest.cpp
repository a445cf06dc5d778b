// The signature explorer and its add and edit dialogs, driven through their fields and buttons
// on a copy of the shipped signature file in a program folder of the test's own.
#include <QApplication>
#include <QComboBox>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTimer>
#include <QTreeWidget>
#include <QtTest>
#include <algorithm>
#include <functional>

#include "app/Language.h"
#include "ProgramFolder.h"
#include "RecordingDesktop.h"
#include "carve/SignatureFile.h"
#include "carve/SignatureList.h"
#include "job/ScanOperation.h"
#include "ui/CMainWindow.h"
#include "ui/CSignatureAddDlg.h"
#include "ui/CSignatureExplorer.h"
#include "ui/CSignaturesDlg.h"
#include "ui/UiText.h"

using namespace kestrin;
using namespace kestrin::ui;

namespace {

// Runs `fill` on the modal dialog of type T once it is shown (by a command that runs exec()).
// A dialog still open afterwards (a failed check inside `fill`) is cancelled, not left waiting.
template <typename T>
void WhenShown(std::function<void(T*)> fill) {
    QTimer::singleShot(10, [fill] {
        auto* dlg = qobject_cast<T*>(QApplication::activeModalWidget());
        if (!dlg) return WhenShown<T>(fill);
        fill(dlg);
        if (dlg->isVisible()) dlg->reject();
    });
}

void Type(QWidget* dlg, const char* field, const QString& text) {
    auto* e = dlg->findChild<QLineEdit*>(field);
    QVERIFY2(e, field);
    e->setText(text);
}

void Click(QWidget* root, const char* name) {
    auto* b = root->findChild<QPushButton*>(name);
    QVERIFY2(b, name);
    QTest::mouseClick(b, Qt::LeftButton);
}

QByteArray FileBytes(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace

class SignatureExplorerTest : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_program;
    QStringList m_messages;
    test::RecordingDesktop m_desktop{&m_messages};

    std::string Folder() const { return m_program.path().toStdString(); }
    QString SltPath() const { return m_program.filePath(kSignatureFileName); }
    // The temporary an earlier program's crash can leave behind.
    QString StalePath() const { return m_program.filePath("~slt.dat"); }
    // Files in the program folder other than the language folder.
    QStringList ProgramFiles() const { return QDir(m_program.path()).entryList(QDir::Files | QDir::Hidden); }

private slots:
    void initTestCase() {
        QVERIFY(m_program.isValid());
        QVERIFY(test::MakeProgramFolder(m_program));
        app::InitLanguage(Folder());
        app::UseLanguageByName("English");
    }

    void init() {
        QDir(SltPath()).removeRecursively();
        QFile::remove(SltPath());
        QFile::remove(StalePath());
        QVERIFY(QFile::copy(QString(KESTRIN_BINARY_DIR) + "/" + kSignatureFileName, SltPath()));
        QFile::setPermissions(SltPath(), QFile::ReadOwner | QFile::WriteOwner);
        m_messages.clear();
    }

    // Add, edit and delete in a photo mode, whose rows are not the file's records one to one.
    void addEditDeleteUserType() {
        const QByteArray shipped = FileBytes(SltPath());
        const size_t fileCount = LoadSignatureFile(Folder()).records.size();
        CSignatureExplorer ex(RecoveryMode::DeletedPhotos, Folder(), {}, {}, m_desktop);
        const size_t rowCount = ex.Rows().size();
        QVERIFY(rowCount > 0 && rowCount < fileCount);
        ex.List()->topLevelItem(0)->setCheckState(0, Qt::Unchecked);

        // One empty field: OK names it, stores nothing and the dialog stays open. A leftover
        // temporary from an earlier crash does not keep the new type from being saved.
        QFile stale(StalePath());
        QVERIFY(stale.open(QIODevice::WriteOnly));
        stale.write(shipped.left(64));
        stale.close();
        bool stayedOpen = false;
        WhenShown<CSignatureAddDlg>([&](CSignatureAddDlg* dlg) {
            QCOMPARE(dlg->windowTitle(), Tx("IDS_ADD_FILE_TYPE"));
            Type(dlg, "size", "5");
            Type(dlg, "header", "ffd8");
            Type(dlg, "extension", "jpg");
            Type(dlg, "offset", "0");
            Click(dlg, "ok");
            stayedOpen = dlg->isVisible();
            QCOMPARE(m_messages, QStringList{Tx("IDS_FE") + ": " + Tx("IDS_SIG_BAD_EMPTY")});
            QCOMPARE(FileBytes(SltPath()), shipped);
            m_messages.clear();
            Type(dlg, "description", "My camera");
            auto* type = dlg->findChild<QComboBox*>("type");
            type->setCurrentIndex(type->findData(1)); // picture
            Click(dlg, "ok");
        });
        ex.AddFileType();
        QVERIFY(stayedOpen);
        QCOMPARE(m_messages, QStringList{Tx("IDS_SIG_SAVED")});

        SignatureLoad load = LoadSignatureFile(Folder());
        QCOMPARE(load.status, SignatureLoadStatus::kOk);
        QCOMPARE(load.records.size(), fileCount + 1);
        const SignatureRecord& added = load.records.back();
        QCOMPARE(added.header, (std::vector<uint8_t>{0xFF, 0xD8}));
        QCOMPARE(added.extension, std::string(".jpg"));
        QCOMPARE(added.fixedSize, uint64_t(5120));
        QCOMPARE(added.secondValue, 1u);
        QCOMPARE(added.description, std::string("My camera"));
        QCOMPARE(added.userDefined, 1u);
        QCOMPARE(added.typeId, uint32_t(fileCount + kFirstUserTypeId));
        QCOMPARE(ProgramFiles(), (QStringList{"slt.dat", "~slt.dat"}));

        // Listed by the mode, selected, ticked; the row unticked before stays unticked.
        QCOMPARE(ex.Rows().size(), rowCount + 1);
        const int userRow = int(rowCount);
        QCOMPARE(ex.CurrentRow(), userRow);
        QCOMPARE(ex.List()->topLevelItem(userRow)->text(0), QString(".jpg"));
        std::vector<bool> ticks = ex.Ticked();
        QVERIFY(!ticks[0] && ticks[size_t(userRow)]);
        // Skipping keeps the ticks of when the explorer opened: none given, so all ticked.
        QCOMPARE(ex.EntryTicks(), std::vector<bool>(rowCount + 1, true));

        // Edit: the size is shown and taken in bytes; the other fields come from the record.
        m_messages.clear();
        ex.SelectRow(userRow);
        WhenShown<CSignaturesDlg>([&](CSignaturesDlg* dlg) {
            QCOMPARE(dlg->windowTitle(), Tx("IDS_EDIT_FILE_TYPe"));
            QCOMPARE(dlg->findChild<QLineEdit*>("size")->text(), QString("5120"));
            QCOMPARE(dlg->findChild<QLineEdit*>("header")->text(), QString("FFD8"));
            QCOMPARE(dlg->findChild<QComboBox*>("unit")->currentText(), Tx("IDS_BYTE"));
            Type(dlg, "size", "777");
            Click(dlg, "ok");
        });
        ex.EditFileType();
        QCOMPARE(m_messages, QStringList{Tx("IDS_SIG_SAVED")});
        load = LoadSignatureFile(Folder());
        QCOMPARE(load.records.size(), fileCount + 1);
        QCOMPARE(load.records.back().fixedSize, uint64_t(777));
        QCOMPARE(load.records.back().header, (std::vector<uint8_t>{0xFF, 0xD8}));
        QCOMPARE(ex.Rows().size(), rowCount + 1);
        QVERIFY(!ex.Ticked()[0] && ex.Ticked()[size_t(userRow)]);

        // A shipped type cannot be deleted: the file stays as it is.
        m_messages.clear();
        const QByteArray withUser = FileBytes(SltPath());
        ex.SelectRow(0);
        ex.DeleteFileType();
        QCOMPARE(m_messages, QStringList{Tx("IDS_SELECT_USER_DEF")});
        QCOMPARE(FileBytes(SltPath()), withUser);
        QCOMPARE(ex.Rows().size(), rowCount + 1);

        // Deleting the user's type writes the shipped file back as it was.
        m_messages.clear();
        ex.SelectRow(userRow);
        ex.DeleteFileType();
        QCOMPARE(m_messages, QStringList{Tx("IDS_DEL_SUCCESSFUL")});
        QCOMPARE(FileBytes(SltPath()), shipped);
        QCOMPARE(ex.Rows().size(), rowCount);
        QVERIFY(!ex.Ticked()[0]);
    }

    // Junk in any field is named in a message box in either dialog; nothing is written and the
    // dialog stays open for correcting.
    void junkFieldsAreRefused() {
        const QByteArray before = FileBytes(SltPath());
        const QString header = Tx("IDS_FSINHEX"), offset = Tx("IDS_UI_SIG_OFFSET"), size = Tx("IDS_UI_SIZE"),
                      extension = Tx("IDS_UI_EXTENSION");
        struct Junk {
            const char* field;
            QString text;
            QString message;
        };
        const Junk junk[] = {
            {"header", "ZZ", header + ": " + Tx("IDS_SIG_BAD_NOT_HEX")},
            {"header", "FFD", header + ": " + Tx("IDS_SIG_BAD_ODD_HEX")},
            {"offset", "-1", offset + ": " + Tx("IDS_SIG_BAD_NEGATIVE")},
            {"offset", "511", offset + ": " + Tx("IDS_SIG_BAD_NO_ROOM")}, // a two-byte header
            {"size", "0", size + ": " + Tx("IDS_SIG_BAD_ZERO")},
            {"size", "4097", size + ": " + Tx("IDS_SIG_BAD_TOO_LARGE")}, // megabytes
            {"extension", ".", extension + ": " + Tx("IDS_SIG_BAD_NO_EXT")},
        };
        auto fillValid = [](QWidget* dlg) {
            Type(dlg, "size", "2");
            Type(dlg, "header", "ffd8");
            Type(dlg, "extension", "jpg");
            Type(dlg, "offset", "0");
            Type(dlg, "description", "Mine");
        };
        std::vector<bool> open;
        WhenShown<CSignatureAddDlg>([&](CSignatureAddDlg* dlg) {
            dlg->findChild<QComboBox*>("unit")->setCurrentIndex(1); // megabytes
            for (const Junk& j : junk) {
                fillValid(dlg);
                Type(dlg, j.field, j.text);
                Click(dlg, "ok");
                open.push_back(dlg->isVisible());
            }
        });
        std::vector<SignatureRecord> records = LoadSignatureFile(Folder()).records;
        CSignatureAddDlg add(records, Folder(), m_desktop);
        add.exec();
        QCOMPARE(open, std::vector<bool>(std::size(junk), true));
        QStringList expected;
        for (const Junk& j : junk) expected << j.message;
        QCOMPARE(m_messages, expected);
        QCOMPARE(FileBytes(SltPath()), before);

        // The edit dialog checks the same way (its size is in bytes).
        const size_t user = records.size();
        QVERIFY(AddUserSignature(records, {"1", 0, "AA", "usr", "0", 0, "Mine"}) == SignatureEditResult::kDone);
        m_messages.clear();
        CSignaturesDlg edit(records, user, Folder(), m_desktop);
        bool editOpen = false;
        WhenShown<CSignaturesDlg>([&](CSignaturesDlg* dlg) {
            Type(dlg, "size", "4294967297");
            Click(dlg, "ok");
            editOpen = dlg->isVisible();
        });
        edit.exec();
        QVERIFY(editOpen);
        QCOMPARE(m_messages, QStringList{size + ": " + Tx("IDS_SIG_BAD_TOO_LARGE")});
        QCOMPARE(records[user].fixedSize, uint64_t(1024));
        QCOMPARE(FileBytes(SltPath()), before);
    }

    // A new type is ticked where the explorer opened with every row unticked, and skipping keeps
    // that; a save whose new file cannot take the old one's place is reported by list and dialog,
    // and what is in that place stays.
    void newRowTickedAndSaveFailures() {
        std::vector<SignatureRecord> rows = SignaturesForMode(RecoveryMode::LostFiles, Folder());
        CSignatureExplorer ex(RecoveryMode::LostFiles, Folder(), rows, std::vector<bool>(rows.size(), false), m_desktop);
        ex.SelectRow(0);
        QVERIFY(!ex.findChild<QPushButton*>("edit")->isEnabled());
        auto fill = [](CSignatureAddDlg* dlg) {
            for (const char* field : {"size", "header", "extension", "offset", "description"}) Type(dlg, field, "22");
            dlg->findChild<QComboBox*>("unit")->setCurrentIndex(1); // megabytes
            Click(dlg, "ok");
        };
        WhenShown<CSignatureAddDlg>(fill);
        ex.AddFileType();
        QCOMPARE(LoadSignatureFile(Folder()).records.back().fixedSize, uint64_t(22) << 20);
        QVERIFY(ex.findChild<QPushButton*>("edit")->isEnabled());
        std::vector<bool> expected(rows.size(), false);
        expected.push_back(true);
        QCOMPARE(ex.Ticked(), expected);
        QCOMPARE(ex.EntryTicks(), expected);

        // A folder with content in the file's place, which no rename can replace.
        m_messages.clear();
        QVERIFY(QFile::remove(SltPath()));
        QVERIFY(QDir().mkpath(SltPath() + "/keep"));
        ex.DeleteFileType();
        QCOMPARE(m_messages, QStringList{Tx("IDS_FAILED_TO_SAVE")});
        m_messages.clear();
        WhenShown<CSignatureAddDlg>(fill);
        ex.AddFileType();
        QCOMPARE(m_messages, QStringList{Tx("IDS_UNABLE_TO_SAVE")});
        QVERIFY(QDir(SltPath() + "/keep").exists());
        QCOMPARE(ProgramFiles(), QStringList{});
    }

    // The main window hands the explorer the rows and ticks of the last time: OK keeps the
    // choice, Skip keeps the one before, and an added type stays listed either way.
    void mainWindowKeepsChoice() {
        CMainWindow w(m_desktop);
        w.show();
        w.ChooseMode(RecoveryMode::LostFiles);
        auto* open = w.findChild<QPushButton*>("fileTypes");
        QVERIFY(open && open->isEnabled());
        std::vector<bool> seen;
        // Chosen: row 1 only. Skipped: every row ticked and a type added.
        auto choose = [&](bool skip) {
            WhenShown<CSignatureExplorer>([&, skip](CSignatureExplorer* ex) {
                seen = ex->Ticked();
                Click(ex, skip ? "markAll" : "unmarkAll");
                ex->List()->topLevelItem(1)->setCheckState(0, Qt::Checked);
                if (skip) {
                    WhenShown<CSignatureAddDlg>([](CSignatureAddDlg* dlg) {
                        for (const char* field : {"size", "header", "extension", "offset", "description"})
                            Type(dlg, field, "33");
                        Click(dlg, "ok");
                    });
                    ex->AddFileType();
                }
                Click(ex, skip ? "skip" : "ok");
            });
            open->click();
        };
        choose(false);
        const size_t n = seen.size();
        QCOMPARE(seen, std::vector<bool>(n, true));
        choose(true);
        std::vector<bool> expected(n + 1, false);
        expected[1] = expected[n] = true; // the added row is ticked as new
        choose(false);
        QCOMPARE(seen, expected);
    }

    void markAllAndFind() {
        CSignatureExplorer ex(RecoveryMode::LostFiles, Folder(), {}, {}, m_desktop);
        const int n = ex.List()->topLevelItemCount();
        QVERIFY(n > 2);
        Click(&ex, "unmarkAll");
        QCOMPARE(ex.Ticked(), std::vector<bool>(size_t(n), false));
        Click(&ex, "markAll");
        QCOMPARE(ex.Ticked(), std::vector<bool>(size_t(n), true));

        auto* field = ex.findChild<QLineEdit*>("findText");
        QCOMPARE(field->placeholderText(), Tx("IDS_ENTER_FILE_TYPE") + " e.g. jpg");
        // Each Find goes on after the selected row.
        field->setText(".PDF");
        Click(&ex, "find");
        const int first = ex.CurrentRow();
        QVERIFY(first >= 0);
        QCOMPARE(ex.List()->topLevelItem(first)->text(0), QString(".pdf"));
        QVERIFY(ex.FindNext("jpg"));
        QVERIFY(ex.List()->topLevelItem(ex.CurrentRow())->text(0).contains("jpg", Qt::CaseInsensitive));
        const int jpg = ex.CurrentRow();
        QVERIFY(ex.FindNext("jpg"));
        QVERIFY(ex.CurrentRow() != jpg);
        field->setText("no-such-type");
        Click(&ex, "find");
        QCOMPARE(m_messages.size(), 1);
    }
};

QTEST_MAIN(SignatureExplorerTest)
#include "SignatureExplorerTest.moc"
