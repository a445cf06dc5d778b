// Takes the pictures of docs/screenshots: every page of the desktop program on the sample
// image. Run under a real X server for real fonts:
//   xvfb-run -s "-screen 0 1280x900x24" build/tests/ui_screenshots OUTPUT_DIR
#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QScreen>
#include <QTabWidget>
#include <QTimer>
#include <QTreeView>
#include <chrono>
#include <cstdio>
#include <thread>

#include "TestImages.h"
#include "app/Language.h"
#include "scan/CScanDriver.h"
#include "scan/ScanContext.h"
#include "ui/CFolderTreeModel.h"
#include "ui/CMainWindow.h"
#include "ui/CQtMessages.h"
#include "ui/CScanMan.h"

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
} // namespace

int main(int argc, char** argv) {
    QApplication qapp(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: ui_screenshots OUTPUT_DIR\n");
        return 1;
    }
    QDir out(argv[1]);
    out.mkpath(".");
    app::InitLanguage(KESTRIN_BINARY_DIR);
    app::UseLanguageByName("English");
    CQtMessages::SetHook([](const QString&) {});
    std::string image = test::UnpackImage("fat32-features");

    CMainWindow w;
    w.resize(1000, 640);
    w.show();
    for (int t = 0; t < 3; ++t) {
        w.ShowModeTab(t);
        Grab(&w, out.filePath(QString("mode-page-%1.png").arg(t + 1)));
    }
    w.ChooseMode(kModeDeletedFiles);
    w.AddImageItem(QString::fromStdString(image));
    Grab(&w, out.filePath("drive-page.png"));

    {
        // The progress window over an operation that runs until it is stopped.
        CPhysicalDisk media;
        media.AttachImageFile(image);
        Engines engines;
        engines.fileSystemScan = [](CPhysicalDisk&, int, ScanContext& ctx) {
            ctx.events.OnStatus("Searching for deleted files and folders");
            for (int64_t i = 0; !ctx.StopRequested(); ++i) {
                ctx.Progress(std::min<int64_t>(i, 420), 1000);
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        };
        CScanMan dlg(&w);
        CScanDriver driver(media, engines, dlg);
        driver.Start(kKindFileSystemScan, kModeDeletedFiles);
        QTimer::singleShot(1500, &dlg, [&] {
            Grab(&dlg, out.filePath("progress-window.png"));
            driver.RequestCancel();
        });
        dlg.Run(driver);
    }

    w.OpenAndContinue(QString::fromStdString(image));
    auto* tree = static_cast<CFolderTreeModel*>(w.FolderView()->model());
    CNode* volume = FindChild(w.Tree(), u".");
    if (CNode* photos = volume ? FindChild(volume, u"Photos") : nullptr) {
        w.Results().SetChecked(photos, true);
        w.FolderView()->setCurrentIndex(tree->IndexOf(photos));
    }
    w.FindNext("Summer holiday*.jpg"); // selected: the preview shows it
    Grab(&w, out.filePath("results.png"));
    {
        // The File Types view with its first group open.
        auto* tabs = w.TypesView()->parentWidget();
        while (tabs && !qobject_cast<QTabWidget*>(tabs)) tabs = tabs->parentWidget();
        if (auto* t = qobject_cast<QTabWidget*>(tabs)) t->setCurrentWidget(w.TypesView());
        QModelIndex top = w.TypesView()->model()->index(0, 0);
        w.TypesView()->setCurrentIndex(w.TypesView()->model()->index(0, 0, top));
        Grab(&w, out.filePath("results-file-types.png"));
    }
    w.findChild<QCheckBox*>("deletedOnly")->click();
    w.FolderView()->expandAll();
    Grab(&w, out.filePath("results-deleted-only.png"));

    w.SetLanguage(2);
    w.ShowModeTab(0);
    Grab(&w, out.filePath("mode-page-german.png"));
    w.SetLanguage(0);
    return 0;
}
