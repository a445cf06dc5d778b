// Takes the pictures of docs/screenshots: every page of the desktop program on the sample
// image, in English or, with KESTRIN_SHOT_LANG=French (and so on), in that language with the
// language's name after each file name. Run under a real X server for real fonts:
//   xvfb-run -s "-screen 0 1280x900x24" build/tests/ui_screenshots OUTPUT_DIR
#include <QApplication>
#include <QFile>
#include <QFileInfo>
#include <QMessageBox>
#include <QPushButton>
#include <QTreeWidget>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <functional>
#include <QScreen>
#include <QTabWidget>
#include <QTimer>
#include <QTreeView>
#include <chrono>
#include <cstdio>
#include <thread>

#include "TestImages.h"
#include "RecordingDesktop.h"
#include "app/Language.h"
#include "carve/SignatureFile.h"
#include "scan/CScanDriver.h"
#include "job/ScanContext.h"
#include "ui/CFolderTreeModel.h"
#include "ui/CMainWindow.h"
#include "ui/CScanMan.h"
#include "ui/CResultsPage.h"
#include "ui/Desktop.h"
#include "ui/QtCatalogues.h"
#include "output/Saver.h"
#include "ui/CSignatureAddDlg.h"
#include "ui/CSignatureExplorer.h"

using namespace kestrin;
using namespace kestrin::ui;

namespace {
void Grab(QWidget* w, const QString& file) {
    QApplication::processEvents();
    for (int i = 0; i < 20; ++i) {
        QApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    w->grab().save(file);
    std::printf("%s\n", qPrintable(file));
}

// The signature explorer of a photo mode and its add dialog filled in (never confirmed, so the
// signature file stays as built).
void GrabSignatureDialogs(ui::IDesktop& desktop, QWidget* parent, const std::function<QString(const char*)>& shot) {
    const std::string folder = app::CurrentPaths().configFolder;
    CSignatureExplorer explorer(RecoveryMode::DeletedPhotos, folder, {}, {}, desktop, parent);
    explorer.show();
    explorer.FindNext("png");
    Grab(&explorer, shot("signature-explorer"));
    std::vector<SignatureRecord> records = LoadSignatureFile(folder).records;
    CSignatureAddDlg add(records, folder, desktop, parent);
    const std::pair<const char*, const char*> fields[] = {
        {"size", "512"}, {"header", "4B53544E"}, {"extension", "ksn"}, {"offset", "0"},
        {"description", "Field recorder take"}};
    for (const auto& [name, text] : fields)
        if (auto* e = add.findChild<QLineEdit*>(name)) e->setText(text);
    if (auto* type = add.findChild<QComboBox*>("type")) type->setCurrentIndex(type->findData(3));
    add.show();
    Grab(&add, shot("signature-add"));
}


// Grabs the next message box once it is shown, then answers it with `button`.
void GrabNextBox(const QString& file, QMessageBox::StandardButton button) {
    auto* poll = new QTimer;
    QObject::connect(poll, &QTimer::timeout, poll, [=] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box) return;
        poll->stop();
        poll->deleteLater();
        Grab(box, file);
        box->button(button)->click();
    });
    poll->start(50);
}
// Lets the event loop run for `ms` (background work such as thumbnails comes in).
void Settle(int ms) {
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < ms) {
        QApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}
} // namespace

int main(int argc, char** argv) {
    QApplication qapp(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: ui_screenshots OUTPUT_DIR [IMAGE]\n");
        return 1;
    }
    QDir out(argv[1]);
    out.mkpath(".");
    app::InitLanguage(KESTRIN_BINARY_DIR);
    const QString language = qEnvironmentVariable("KESTRIN_SHOT_LANG", "English");
    if (!app::UseLanguageByName(language.toStdString())) {
        std::fprintf(stderr, "unknown language %s\n", qPrintable(language));
        return 1;
    }
    UseQtCatalogue(app::CurrentPaths().languageIndex);
    const QString suffix = app::CurrentPaths().languageIndex == 0 ? QString() : "-" + language.toLower();
    const std::function<QString(const char*)> shot = [&](const char* name) {
        return out.filePath(QString(name) + suffix + ".png");
    };
    test::RecordingDesktop desktop;
    // The bundled sample under a short path of its own, so that no build path shows.
    QString image = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QString("/tmp/Images/sample-disk.img");
    if (!QFile::exists(image)) {
        QDir().mkpath(QFileInfo(image).path());
        QString cmd = QString("zstd -q -d -f '%1/data/sample/sample-disk.img.zst' -o '%2'").arg(KESTRIN_SOURCE_DIR, image);
        if (std::system(qPrintable(cmd)) != 0) return 1;
    }

    CMainWindow w(desktop);
    // KESTRIN_SHOT_DEFAULT_SIZE=1: the size the window opens with instead of the documentation's.
    if (!qEnvironmentVariableIsSet("KESTRIN_SHOT_DEFAULT_SIZE")) w.resize(1100, 660);
    w.show();
    for (int t = 0; t < 3; ++t) {
        w.ShowModeTab(t);
        Grab(&w, out.filePath(QString("mode-page-%1%2.png").arg(t + 1).arg(suffix)));
    }
    w.ChooseMode(RecoveryMode::DeletedPhotos);
    w.AddImageItem(image);
    if (auto* drives = w.findChild<QTreeWidget*>("drives"); drives && drives->currentItem() && drives->currentItem()->childCount())
        drives->setCurrentItem(drives->currentItem()->child(0));
    Grab(&w, shot("drive-page"));

    {
        // The progress window mid-scan: an operation that finds files until it is stopped.
        CPhysicalDisk media;
        media.AttachImageFile(image.toStdString());
        Engines engines;
        engines.fileSystemScan = [](CPhysicalDisk&, int, ScanContext& ctx) {
            ctx.events.OnStatus(UserText{"IDS_SEARCHING_DELETED_FILES_FOLDERS"});
            for (int64_t i = 0; !ctx.StopRequested(); ++i) {
                ctx.Progress(std::min<int64_t>(i, 420), 1000);
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
            return Outcome::Stopped;
        };
        CScanMan dlg(desktop, &w);
        CScanDriver driver(media, engines, dlg);
        driver.Start(OperationKind::FileSystemScan, RecoveryMode::DeletedFiles);
        QTimer::singleShot(1500, &dlg, [&] {
            Grab(&dlg, shot("progress-window"));
            driver.RequestCancel();
        });
        dlg.Run(driver);
    }

    // Partition recovery: the whole-disk search lists what it found.
    w.ChooseMode(RecoveryMode::Partition);
    w.OpenAndContinue(image);
    Grab(&w, shot("partition-page"));

    // Deleted photos of the camera card's partition; the status bar sums the scan up.
    w.ChooseMode(RecoveryMode::DeletedPhotos);
    w.OpenAndContinue(image, 0);
    if (CNode* photo = w.FindNext("?MG_4304.JPG")) w.Results().SetChecked(photo->parent, true);
    w.FindNext("?MG_4304.JPG"); // selected: the preview shows it
    Grab(&w, shot("results"));
    {
        // The File Types view with its first group open.
        auto* tabs = w.TypesView()->parentWidget();
        while (tabs && !qobject_cast<QTabWidget*>(tabs)) tabs = tabs->parentWidget();
        if (auto* t = qobject_cast<QTabWidget*>(tabs)) t->setCurrentWidget(w.TypesView());
        QModelIndex top = w.TypesView()->model()->index(0, 0);
        w.TypesView()->setCurrentIndex(w.TypesView()->model()->index(0, 0, top));
        Grab(&w, shot("results-file-types"));
        if (auto* t = qobject_cast<QTabWidget*>(tabs)) t->setCurrentIndex(0);
    }
    w.findChild<QCheckBox*>("deletedOnly")->click();
    w.FolderView()->expandAll();
    w.FindNext("Day 2*.png");
    Grab(&w, shot("results-deleted-only"));
    w.findChild<QCheckBox*>("deletedOnly")->click();

    // The filter bar in use: pictures named *MG_43*, in the folder of the camera's photos.
    w.FolderView()->collapseAll();
    w.FindNext("?MG_4304.JPG");
    if (auto* kind = w.findChild<QComboBox*>("filterKind")) kind->setCurrentIndex(1);
    if (auto* text = w.findChild<QLineEdit*>("filterText")) text->setText("*MG_43*");
    Grab(&w, shot("results-filter"));
    // The same folder as thumbnails, once the background decoding has filled them in.
    if (auto* page = w.findChild<CResultsPage*>()) {
        page->ShowThumbnails(true);
        Settle(2500);
        Grab(&w, shot("results-thumbnails"));
        page->ShowThumbnails(false);
    }
    if (auto* clear = w.findChild<QPushButton*>("clearFilters")) clear->click();

    {
        // The end of a save: its summary, as the program's message box shows it.
        QTemporaryDir target;
        if (target.isValid() && w.SaveTo(target.path(), kCollisionRename) && !desktop.boxes.isEmpty()) {
            const auto box = desktop.boxes.back();
            CDesktop real;
            GrabNextBox(shot("save-summary"), QMessageBox::Ok);
            real.TellWithAction(&w, box.caption, box.text,
                                box.kind == test::RecordingDesktop::Kind::Information ? IDesktop::Sign::Information
                                                                                       : IDesktop::Sign::Warning,
                                desktop.actionsOffered.value(desktop.actionsOffered.size() - 1));
        }
    }
    // Leaving the results: the offer to save the session, answered Cancel.
    GrabNextBox(shot("session-offer"), QMessageBox::Cancel);
    if (auto* b = w.findChild<QPushButton*>("newScan")) b->click();
    GrabSignatureDialogs(desktop, &w, shot);
    return 0;
}
