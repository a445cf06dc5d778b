#include "ui/CMainWindow.h"

#include <QActionGroup>
#include <QDesktopServices>
#include <QUrl>
#include <QCloseEvent>
#include <QRegularExpression>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSortFilterProxyModel>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTabWidget>
#include <QThread>
#include <QTreeView>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "app/Language.h"
#include "cli/CliEngines.h"
#include "output/ContentCopy.h"
#include "output/SessionFile.h"
#include "scan/CScanDriver.h"
#include "scan/OperationRules.h"
#include "ui/CDrivePage.h"
#include "ui/CFileListModel.h"
#include "ui/CFileTypesModel.h"
#include "ui/CFolderTreeModel.h"
#include "ui/CQtMessages.h"
#include "ui/CScanMan.h"
#include "ui/CSignatureExplorer.h"
#include "ui/NodeDisplay.h"
#include "ui/PreviewContent.h"
#include "ui/UiText.h"
#include "util/Text.h"
#ifdef KESTRIN_HAVE_CARVE
#include "carve/SignatureList.h"
#endif

namespace kestrin::ui {

namespace {

struct ModeInfo {
    uint32_t mode;
    const char* labelId;
    const char* textId;
    const char* titleId; // the drive page's heading in this mode
    int tab;
};
constexpr ModeInfo kModes[] = {
    {kModeDeletedFiles, "IDS_RECOVERDELETEDFILES", "IDS_RECOVERDELETEDFILESTEXT", "IDS_RECOVER_DELETED_FILES", 0},
    {kModeLostFiles, "IDS_RECOVERLOSTFILES", "IDS_RECOVERLOSTFILESTEXT", "IDS_RECOVER_LOST_FILES", 0},
    {kModePartition, "IDS_PARTITIONRECOVER", "IDS_PARTITIONRECOVERTEXT", "IDS_PARTITION_RECOVERY", 1},
    {kModeFormatted, "IDS_FORMATTEDRECOVER", "IDS_FORMATTEDRECOVERTEXT", "IDS_FORMATTED_REFORMATTED_RECOVERY", 1},
    {kModeDeletedPhotos, "IDS_RECOVERDELETEDPHOTOS", "IDS_RECOVERDELETEDPHOTOSTEXT", "IDS_RECOVER_DELETED_PHOTOS", 2},
    {kModeLostPhotos, "IDS_RECOVERLOSTPHOTOS", "IDS_RECOVERLOSTPHOTOSTEXT", "IDS_RECOVER_LOST_PHOTOS", 2},
};

const ModeInfo* FindMode(uint32_t mode) {
    for (const auto& m : kModes)
        if (m.mode == mode) return &m;
    return nullptr;
}

// Preview reads stop here: enough for a picture or the start of a document; a camera raw
// file's preview picture may lie behind the first megabytes of sensor data.
constexpr size_t kPreviewLimit = 8u << 20;
constexpr size_t kRawPreviewLimit = 48u << 20;
constexpr int kHexPreviewBytes = 4096;
} // namespace

CMainWindow::CMainWindow(QWidget* parent) : QMainWindow(parent) {
    setObjectName("CMainWindow");
    resize(900, 600);
    m_pages = new QStackedWidget(this);
    setCentralWidget(m_pages);
    BuildModePages();
    m_drivePage = new CDrivePage;
    connect(m_drivePage, &CDrivePage::OpenRequested, this, [this](const QString& path, int partition) {
        OpenAndContinue(path, partition);
    });
    connect(m_drivePage, &CDrivePage::BackRequested, this, [this] { SetPage(kModePage); });
    connect(m_drivePage, &CDrivePage::FileTypesRequested, this, &CMainWindow::ChooseFileTypes);
    m_pages->addWidget(m_drivePage);
    BuildPartitionPage();
    BuildResultsPage();
    BuildMenus();
    Retranslate();
    SetPage(kModePage);
}

CMainWindow::~CMainWindow() {
    // The views refer to the tree: detach them before it goes.
    m_results.SetTop(nullptr);
}

void CMainWindow::ShowModeTab(int tab) {
    SetPage(kModePage);
    m_modeTabs->setCurrentIndex(tab);
}

void CMainWindow::SetPage(Page p) { m_pages->setCurrentIndex(int(p)); }
CMainWindow::Page CMainWindow::CurrentPage() const { return Page(m_pages->currentIndex()); }

void CMainWindow::BuildMenus() {
    BuildToolsMenu();
    m_languageMenu = menuBar()->addMenu(QString());
    auto* group = new QActionGroup(this);
    for (int i = 0; i < app::kLanguageCount; ++i) {
        QAction* a = m_languageMenu->addAction(QString::fromUtf8(app::kLanguageNames[i]));
        a->setObjectName(QString("lang%1").arg(app::kLanguageMenuFirst + i));
        a->setCheckable(true);
        a->setData(app::kLanguageMenuFirst + i); // the command number
        group->addAction(a);
        connect(a, &QAction::triggered, this, [this, i] { SetLanguage(i); });
        m_languageActions << a;
    }
}

void CMainWindow::BuildToolsMenu() {
    m_toolsMenu = menuBar()->addMenu(QString());
    m_openSessionAction = m_toolsMenu->addAction(QString(), this, &CMainWindow::OnOpenSession);
    m_saveSessionAction = m_toolsMenu->addAction(QString(), this, &CMainWindow::OnSaveSession);
    m_saveSessionAction->setEnabled(false);
}

void CMainWindow::SetLanguage(int index) {
    app::ChangeLanguage(index); // rewrites settings.ini when the language changes
    Retranslate();
    if (CurrentPage() == kDrivePage) m_drivePage->Fill(); // its lines carry translated kinds
}

void CMainWindow::BuildModePages() {
    m_modeTabs = new QTabWidget;
    QWidget* tabs[3];
    QVBoxLayout* layouts[3];
    for (int t = 0; t < 3; ++t) {
        tabs[t] = new QWidget;
        layouts[t] = new QVBoxLayout(tabs[t]);
        layouts[t]->setContentsMargins(40, 30, 40, 30);
        layouts[t]->setSpacing(6);
        m_modeTabs->addTab(tabs[t], QString());
    }
    for (const auto& m : kModes) {
        auto* b = new QPushButton;
        b->setObjectName(QString("mode%1").arg(m.mode));
        b->setMinimumHeight(48);
        QFont f = b->font();
        f.setPointSize(f.pointSize() + 3);
        f.setBold(true);
        b->setFont(f);
        auto* text = new QLabel;
        text->setWordWrap(true);
        layouts[m.tab]->addWidget(b);
        layouts[m.tab]->addWidget(text);
        layouts[m.tab]->addSpacing(24);
        connect(b, &QPushButton::clicked, this, [this, mode = m.mode] { ChooseMode(mode); });
        m_modeButtons.push_back({m.mode, m.labelId, m.textId, b, text});
    }
    for (auto* l : layouts) l->addStretch();
    m_pages->addWidget(m_modeTabs);
}

void CMainWindow::ChooseFileTypes() {
    // The explorer reads the signature file again; added, edited and deleted types change the
    // mode's rows even when the choice of rows is skipped.
    CSignatureExplorer dlg(m_mode, app::CurrentPaths().programFolder, m_modeSignatures, m_signatureTicks, this);
    bool chosen = dlg.exec() == QDialog::Accepted;
    m_modeSignatures = dlg.Rows();
    m_signatureTicks = chosen ? dlg.Ticked() : dlg.EntryTicks();
    m_signatures.clear();
    for (size_t i = 0; i < m_modeSignatures.size() && i < m_signatureTicks.size(); ++i)
        if (m_signatureTicks[i]) m_signatures.push_back(m_modeSignatures[i]);
}

void CMainWindow::AddImageItem(const QString& path) { m_drivePage->AddImage(path); }

void CMainWindow::BuildPartitionPage() {
    auto* page = new QWidget;
    auto* v = new QVBoxLayout(page);
    m_partTitle = new QLabel;
    QFont titleFont = m_partTitle->font();
    titleFont.setPointSize(titleFont.pointSize() + 4);
    titleFont.setBold(true);
    m_partTitle->setFont(titleFont);
    m_partitions = new QTreeWidget;
    m_partitions->setObjectName("partitions");
    m_partitions->setColumnCount(6);
    m_partitions->setRootIsDecorated(false);
    connect(m_partitions, &QTreeWidget::itemDoubleClicked, this,
            [this](QTreeWidgetItem* it) { ScanPartition(it->data(0, Qt::UserRole).toInt()); });
    m_partBack = new QPushButton;
    connect(m_partBack, &QPushButton::clicked, this, [this] { SetPage(kDrivePage); });
    m_partSearch = new QPushButton;
    connect(m_partSearch, &QPushButton::clicked, this, [this] { ScanPartition(-1); });
    m_partScan = new QPushButton;
    connect(m_partScan, &QPushButton::clicked, this, [this] {
        QTreeWidgetItem* it = m_partitions->currentItem();
        if (!it) {
            CQtMessages::Inform(this, Tx("IDS_UI_PICK_PARTITION", "Select a partition first."));
            return;
        }
        ScanPartition(it->data(0, Qt::UserRole).toInt());
    });
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_partSearch);
    buttons->addStretch();
    buttons->addWidget(m_partBack);
    buttons->addWidget(m_partScan);
    v->addWidget(m_partTitle);
    v->addWidget(m_partitions, 1);
    v->addLayout(buttons);
    m_pages->addWidget(page);
}

void CMainWindow::FillPartitionList() {
    m_partitions->clear();
    for (size_t i = 0; i < m_src.partitions.size(); ++i) {
        const PartitionRecord& r = m_src.partitions[i];
        uint64_t sectors = cli::RecordSectorCount(r, m_src.layout);
        auto* it = new QTreeWidgetItem(
            m_partitions, {QString::number(i + 1), QString::number(r.startSector),
                           CDrivePage::HumanSize(sectors * m_src.media->GetSectorSize()),
                           QString::fromUtf8(FsKindName(CDrivePage::ShownFsKind(m_src, i))),
                           CDrivePage::PartitionLabel(m_src, i),
                           r.found ? Tx("IDS_UI_FOUND_BY_SEARCH", "found by the search")
                                   : Tx("IDS_UI_IN_TABLE", "partition table")});
        it->setData(0, Qt::UserRole, int(i));
    }
    if (m_partitions->topLevelItemCount()) m_partitions->setCurrentItem(m_partitions->topLevelItem(0));
}

void CMainWindow::BuildResultsPage() {
    auto* page = new QWidget;
    auto* v = new QVBoxLayout(page);
    auto* bar = new QHBoxLayout;
    m_deletedOnly = new QCheckBox;
    m_deletedOnly->setObjectName("deletedOnly");
    connect(m_deletedOnly, &QCheckBox::toggled, this, [this](bool on) { m_results.SetDeletedOnly(on); });
    m_markAll = new QPushButton;
    m_markAll->setObjectName("markAll");
    connect(m_markAll, &QPushButton::clicked, this, [this] { m_results.MarkAll(true); });
    m_unmarkAll = new QPushButton;
    connect(m_unmarkAll, &QPushButton::clicked, this, [this] { m_results.MarkAll(false); });
    m_collisionLabel = new QLabel;
    m_collision = new QComboBox;
    m_saveZip = new QCheckBox;
    m_saveZip->setObjectName("saveZip");
    m_save = new QPushButton;
    m_save->setObjectName("save");
    connect(m_save, &QPushButton::clicked, this, &CMainWindow::OnSave);
    m_newScan = new QPushButton;
    m_newScan->setObjectName("newScan");
    connect(m_newScan, &QPushButton::clicked, this, [this] {
        if (OfferSession()) SetPage(kModePage);
    });
    m_find = new QPushButton;
    m_find->setObjectName("find");
    connect(m_find, &QPushButton::clicked, this, &CMainWindow::OnFind);
    bar->addWidget(m_deletedOnly);
    bar->addWidget(m_markAll);
    bar->addWidget(m_unmarkAll);
    bar->addWidget(m_find);
    bar->addStretch();
    bar->addWidget(m_collisionLabel);
    bar->addWidget(m_collision);
    bar->addWidget(m_saveZip);
    bar->addWidget(m_save);
    bar->addWidget(m_newScan);

    m_treeModel = new CFolderTreeModel(m_results, this);
    m_listModel = new CFileListModel(m_results, this);
    m_sorter = new QSortFilterProxyModel(this);
    m_sorter->setSourceModel(m_listModel);
    m_sorter->setSortRole(Qt::UserRole);
    m_folderView = new QTreeView;
    m_folderView->setObjectName("folders");
    m_folderView->setModel(m_treeModel);
    m_folderView->setHeaderHidden(true);
    m_listView = new QTreeView;
    m_listView->setObjectName("files");
    m_listView->setModel(m_sorter);
    m_listView->setRootIsDecorated(false);
    m_listView->setSortingEnabled(true);
    m_listView->sortByColumn(CFileListModel::kName, Qt::AscendingOrder);
    m_listView->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    connect(m_folderView->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this](const QModelIndex& cur) { m_listModel->SetFolder(CFolderTreeModel::NodeOf(cur)); });
    connect(m_listView->selectionModel(), &QItemSelectionModel::currentChanged, this, [this](const QModelIndex& cur) {
        ShowPreview(m_listModel->NodeAt(m_sorter->mapToSource(cur).row()));
    });
    m_listView->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_listView, &QWidget::customContextMenuRequested, this, [this](const QPoint& at) {
        CNode* n = m_listModel->NodeAt(m_sorter->mapToSource(m_listView->indexAt(at)).row());
        if (!n) return;
        QMenu menu(this);
        QAction* open = menu.addAction(Tx("IDS_UI_OPEN_WITH", "Open with the default viewer"));
        open->setEnabled(!n->IsFolder());
        QAction* props = menu.addAction(Tx("IDS_UI_PROPERTIES", "Properties"));
        QAction* chosen = menu.exec(m_listView->viewport()->mapToGlobal(at));
        if (chosen == open) OpenWithViewer(n);
        else if (chosen == props) ShowProperties(n);
    });
    connect(m_listModel, &QAbstractItemModel::modelReset, this, [this] { ShowPreview(nullptr); });
    // Opening a folder in the list opens it in the tree too.
    connect(m_listView, &QTreeView::doubleClicked, this, [this](const QModelIndex& idx) {
        CNode* n = m_listModel->NodeAt(m_sorter->mapToSource(idx).row());
        if (!n || !n->IsFolder()) return;
        QModelIndex t = m_treeModel->IndexOf(n);
        if (t.isValid()) m_folderView->setCurrentIndex(t);
    });
    connect(&m_results, &CResultsState::Reset, this, [this] {
        if (m_results.Top()) {
            m_folderView->setCurrentIndex(m_treeModel->index(0, 0));
            m_folderView->expandToDepth(1);
        }
    });

    auto* previewBox = new QWidget;
    auto* pv = new QVBoxLayout(previewBox);
    pv->setContentsMargins(0, 0, 0, 0);
    m_preview = new QLabel;
    m_preview->setObjectName("preview");
    m_preview->setAlignment(Qt::AlignCenter);
    m_preview->setMinimumSize(200, 150);
    m_previewText = new QPlainTextEdit;
    m_previewText->setReadOnly(true);
    m_previewText->setFont(QFont("Monospace"));
    pv->addWidget(m_preview, 1);
    pv->addWidget(m_previewText, 1);

    m_typesModel = new CFileTypesModel(m_results, this);
    m_typesView = new QTreeView;
    m_typesView->setObjectName("types");
    m_typesView->setModel(m_typesModel);
    m_typesView->setHeaderHidden(true);
    connect(m_typesView->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this](const QModelIndex& cur) { m_listModel->SetItems(m_typesModel->FilesOf(cur)); });
    connect(&m_results, &CResultsState::Reset, this, [this] { m_typesView->expandAll(); });
    m_leftTabs = new QTabWidget;
    m_leftTabs->addTab(m_folderView, QString());
    m_leftTabs->addTab(m_typesView, QString());
    // Switching views shows the list of the view's current item.
    connect(m_leftTabs, &QTabWidget::currentChanged, this, [this](int tab) {
        if (tab == 0) m_listModel->SetFolder(CFolderTreeModel::NodeOf(m_folderView->currentIndex()));
        else m_listModel->SetItems(m_typesModel->FilesOf(m_typesView->currentIndex()));
    });

    auto* split = new QSplitter;
    split->addWidget(m_leftTabs);
    split->addWidget(m_listView);
    split->addWidget(previewBox);
    split->setStretchFactor(0, 1);
    split->setStretchFactor(1, 3);
    split->setStretchFactor(2, 1);
    v->addLayout(bar);
    v->addWidget(split, 1);
    m_pages->addWidget(page);
}

void CMainWindow::Retranslate() {
    setWindowTitle(Tx("IDS_KESTRIN", "Kestrin"));
    m_languageMenu->setTitle(Tx("IDS_LANGUAGE", "Language"));
    int lang = app::CurrentPaths().languageIndex;
    for (int i = 0; i < m_languageActions.size(); ++i) m_languageActions[i]->setChecked(i == lang);
    m_modeTabs->setTabText(0, Tx("IDS_UI_FILE_RECOVERY", "File Recovery"));
    m_modeTabs->setTabText(1, Tx("IDS_UI_DRIVE_RECOVERY", "Drives and Partitions Recovery"));
    m_modeTabs->setTabText(2, Tx("IDS_UI_MEDIA_RECOVERY", "Photo, Music and Video Recovery"));
    for (auto& b : m_modeButtons) {
        b.button->setText(Tx(b.labelId));
        b.text->setText(Tx(b.textId));
    }
    if (const ModeInfo* m = FindMode(m_mode)) {
        m_drivePage->Retranslate(Tx(m->titleId));
        m_partTitle->setText(Tx(m->titleId) + " - " + Tx("IDS_UI_PICK_PARTITION_TITLE", "choose a partition"));
    }
    m_partitions->setHeaderLabels({"#", Tx("IDS_UI_START_SECTOR", "Start sector"), Tx("IDS_UI_SIZE", "Size"),
                                   Tx("IDS_UI_FILE_SYSTEM", "File system"), Tx("IDS_UI_LABEL", "Label"),
                                   Tx("IDS_UI_ORIGIN", "Origin")});
    m_partBack->setText(Tx("IDS_UI_BACK", "< Back"));
    m_partScan->setText(Tx("IDS_UI_SCAN", "Scan"));
    m_partSearch->setText(Tx("IDS_SEARCHING_LOST_PARTITIONS", "Search for lost partitions"));
    m_deletedOnly->setText(Tx("IDS_UI_SHOW_DELETED_ONLY", "Show deleted only"));
    m_markAll->setText(Tx("IDS_MARK_ALL", "Mark All"));
    m_unmarkAll->setText(Tx("IDS_UNMARK_ALL", "Unmark All"));
    m_save->setText(Tx("IDS_UI_SAVE", "Save..."));
    m_saveZip->setText(Tx("IDS_UI_SAVE_ZIP", "Save into a zip archive"));
    m_newScan->setText(Tx("IDS_UI_NEW_SCAN", "New Scan"));
    m_find->setText(Tx("IDS_FIND", "Find"));
    m_leftTabs->setTabText(0, Tx("IDS_UI_FOLDERS", "Folders"));
    m_leftTabs->setTabText(1, Tx("IDS_UI_FILE_TYPES", "File Types"));
    m_toolsMenu->setTitle(Tx("IDS_UI_TOOLS", "Tools"));
    m_openSessionAction->setText(Tx("IDS_UI_OPEN_SESSION", "Open Recovery Session..."));
    m_saveSessionAction->setText(Tx("IDS_UI_SAVE_SESSION", "Save Recovery Session..."));
    m_collisionLabel->setText(Tx("IDS_UI_ON_COLLISION", "Existing names:"));
    int c = m_collision->currentIndex();
    m_collision->clear();
    m_collision->addItem(Tx("IDS_UI_COLLISION_RENAME", "Rename with a counter"), int(kCollisionRename));
    m_collision->addItem(Tx("IDS_UI_COLLISION_NUMBER", "Rename with the item number"), int(kCollisionRenameByNumber));
    m_collision->addItem(Tx("IDS_UI_COLLISION_ASK", "Ask"), int(kCollisionAsk));
    m_collision->addItem(Tx("IDS_SKIP", "Skip"), int(kCollisionSkip));
    m_collision->setCurrentIndex(c < 0 ? 0 : c);
    m_listModel->Retranslate();
    m_treeModel->dataChanged(m_treeModel->index(0, 0), m_treeModel->index(0, 0)); // "Root"
}

void CMainWindow::ChooseMode(uint32_t mode) {
    if (!FindMode(mode)) return;
    m_mode = mode;
    m_signatures.clear();
    m_modeSignatures.clear();
#ifdef KESTRIN_HAVE_CARVE
    // Deleted files skip the signature scan; the other modes search the list the mode shows,
    // every row ticked until the user chooses.
    if (mode != kModeDeletedFiles) m_modeSignatures = SignaturesForMode(mode, app::CurrentPaths().programFolder);
#endif
    m_signatures = m_modeSignatures;
    m_signatureTicks.assign(m_modeSignatures.size(), true);
    m_drivePage->SetFileTypesEnabled(!m_modeSignatures.empty());
    Retranslate();
    m_drivePage->Fill();
    SetPage(kDrivePage);
}

bool CMainWindow::OpenAndContinue(const QString& path, int partition) {
    // The views refer to the old tree and the old media: detach them first.
    m_results.SetTop(nullptr);
    m_tree.reset();
    m_haveSource = false;
    m_src = cli::OpenedSource();
    std::string error;
    if (!cli::OpenSource(path.toStdString(), m_src, error)) {
        QString text = Tx("IDS_UI_CANNOT_OPEN", "The source could not be opened:") + "\n" + QString::fromStdString(error);
        if (path.startsWith("/dev/"))
            text += "\n\n" + Tx("IDS_UI_NEED_RIGHTS",
                                "Reading drives needs administrator rights: start Kestrin with sudo, or add your "
                                "user to the \"disk\" group. Image files can always be opened.");
        CQtMessages::Inform(this, text);
        return false;
    }
    m_haveSource = true;
    // A partition the drive page listed under its disk or image: scan it at once.
    if (partition >= 0 && size_t(partition) < m_src.partitions.size()) return ScanPartition(partition);
    bool wholeSearch = m_mode == kModePartition || m_mode == kModeFormatted;
    if (m_src.wholeKind == kSourceVolume || m_src.layout == Layout::Volume)
        return ScanPartition(m_src.partitions.empty() ? -1 : 0);
    if (m_src.partitions.empty() || (wholeSearch && m_mode == kModePartition)) return ScanPartition(-1);
    auto scannable = cli::ScannablePartitions(m_src);
    if (scannable.size() == 1 && !wholeSearch) return ScanPartition(int(scannable[0]));
    FillPartitionList();
    SetPage(kPartitionPage);
    return true;
}

bool CMainWindow::ScanPartition(int index) {
    if (!m_haveSource) return false;
    m_results.SetTop(nullptr);
    m_tree.reset();
    int forced = -1;
    if (index < 0) {
        cli::SelectWholeSource(m_src);
    } else {
        if (size_t(index) >= m_src.partitions.size() || !cli::SelectListedPartition(m_src, size_t(index))) {
            CQtMessages::Inform(this, Tx("IDS_UI_PARTITION_OUTSIDE", "This partition lies outside the source."));
            return false;
        }
        if (m_mode == kModePartition && m_src.partitions[size_t(index)].partitionFlag == kTableOnly)
            forced = kKindSmartScan; // the boot sector failed its test: read what the range holds
        if (m_mode == kModeFormatted) forced = kKindPartitionSearch;
    }
    if (!RunOperation(forced)) return false;
    // A whole-disk search that listed partitions but found no files itself: choose one.
    if (index < 0 && m_tree && !m_src.partitions.empty()) {
        bool empty = true;
        ForEachNode(m_tree.get(), [&](CNode* n) {
            if (!n->IsFolder()) empty = false;
        });
        if (empty) {
            FillPartitionList();
            SetPage(kPartitionPage);
            return true;
        }
    }
    ShowResults();
    return true;
}

bool CMainWindow::RunOperation(int forcedKind) {
    CPhysicalDisk& media = *m_src.media;
    CScanMan dlg(this);
    CScanDriver driver(media, cli::MakeCliEngines(), dlg);
    driver.SetSignatures(&m_signatures);
    int kind = forcedKind;
    if (kind < 0) kind = driver.StartForSource(m_mode);
    else if (!driver.Start(uint32_t(kind), m_mode)) kind = -1;
    if (kind < 0) {
        CQtMessages::Inform(this, Tx("IDS_UI_NO_SCAN", "No scan is defined for this source in this mode."));
        return false;
    }
    dlg.Run(driver);
    if (kind == kKindPartitionSearch && !driver.CancelConfirmed()) {
        if (driver.NoPartitionFound()) {
            // Declined: nothing was found to show, so the drive page stays.
            if (!CQtMessages::Ask(this, Tx("IDS_NO_PARTITION_FOUND")) || !driver.ContinueAsSignatureScan()) return false;
            dlg.Run(driver);
        }
        // The search's finds join the numbered list.
        m_src.partitions.clear();
        if (media.Partitions().size() > 1)
            m_src.partitions.assign(media.Partitions().begin() + 1, media.Partitions().end());
        m_src.partitions.insert(m_src.partitions.end(), media.SecondPartitions().begin(), media.SecondPartitions().end());
    }
    m_tree = driver.ReleaseTree();
    QStringList notes = dlg.Notices();
    statusBar()->showMessage(notes.join("  "));
    return true;
}

void CMainWindow::ShowResults() {
    m_deletedOnly->blockSignals(true);
    m_deletedOnly->setChecked(false);
    m_deletedOnly->blockSignals(false);
    m_leftTabs->setCurrentIndex(0);
    m_listModel->SetFolder(m_tree.get());
    m_results.SetTop(m_tree.get());
    m_preview->clear();
    m_previewText->clear();
    m_sessionSaved = false;
    m_saveSessionAction->setEnabled(m_tree != nullptr);
    SetPage(kResultsPage);
}

void CMainWindow::ShowPreview(CNode* n) {
    m_preview->clear();
    m_previewText->clear();
    m_preview->setVisible(true);
    m_previewText->setVisible(false);
    if (!n || n->IsFolder() || !m_haveSource) return;
    QByteArray bytes;
    bool raw = IsCameraRawName(QString::fromStdU16String(n->name));
    size_t want = size_t(std::min<uint64_t>(n->size, raw ? kRawPreviewLimit : kPreviewLimit));
    bytes.reserve(qsizetype(want));
    WriteNodeContent(*m_src.media, *n, [&](const uint8_t* p, size_t len) {
        size_t take = std::min(len, want - size_t(bytes.size()));
        bytes.append(reinterpret_cast<const char*>(p), qsizetype(take));
        return size_t(bytes.size()) < want; // stop reading once the preview has enough
    });
    QImage img = DecodePreviewImage(bytes, raw);
    if (!img.isNull()) {
        m_previewText->setVisible(false);
        m_preview->setPixmap(QPixmap::fromImage(img).scaled(m_preview->parentWidget()->size(), Qt::KeepAspectRatio,
                                                            Qt::SmoothTransformation));
        return;
    }
    m_preview->setVisible(false);
    m_previewText->setVisible(true);
    m_previewText->setPlainText(PreviewText(bytes, kHexPreviewBytes));
}

void CMainWindow::OnSave() {
    if (!m_tree) return;
    SaveCount count = CountForSave(m_tree.get(), m_results.DeletedOnly());
    if (!count.files && !count.folders) {
        CQtMessages::Inform(this, Tx("IDS_UI_NOTHING_MARKED", "Tick the files and folders to save first."));
        return;
    }
    QString destination;
    if (m_saveZip->isChecked()) {
        destination = QFileDialog::getSaveFileName(this, m_saveZip->text(), QString(),
                                                   Tx("IDS_UI_ZIP_FILTER", "Zip archives") + " (*.zip)");
        // The saver tells an archive from a folder by this ending.
        if (!destination.isEmpty() && !destination.endsWith(".zip", Qt::CaseInsensitive)) destination += ".zip";
    } else {
        destination = QFileDialog::getExistingDirectory(this, Tx("IDS_UI_SAVE_TO", "Choose the folder to save into"));
    }
    if (destination.isEmpty()) return;
    SaveTo(destination, uint8_t(m_collision->currentData().toInt()));
}

bool CMainWindow::SaveTo(const QString& folder, uint8_t collisionMode) {
    if (!m_tree || !m_haveSource) return false;
    CQtMessages messages(this);
    SaveRequest req;
    req.destination = folder.toStdString();
    req.collisionMode = collisionMode;
    req.deletedOnly = m_results.DeletedOnly();
    req.start = m_tree.get();
    req.messages = &messages;
    if (collisionMode == kCollisionAsk) {
        // Asked by the window thread while the worker waits for the answer.
        req.askRename = [this](std::u16string& name, uint32_t code, uint8_t& mode) {
            bool keep = false;
            auto ask = [&] {
                bool ok = false;
                QString answer = QInputDialog::getText(
                    this, Caption(),
                    Tx("IDS_CLI_RENAME_QUESTION", "Cannot create") + QString(" \"%1\" (%2)").arg(QString::fromStdU16String(name)).arg(code),
                    QLineEdit::Normal, QString::fromStdU16String(name), &ok);
                if (!ok || answer.isEmpty()) {
                    mode = kCollisionSkipOnce;
                    return;
                }
                name = answer.toStdU16String();
                keep = true;
            };
            if (QThread::currentThread() == qApp->thread()) ask();
            else QMetaObject::invokeMethod(qApp, ask, Qt::BlockingQueuedConnection);
            return keep;
        };
    }
    {
        // An image file is never written by a save, so its own file system may take the result;
        // for disks and volumes the same-drive refusal stands.
        struct Captured final : IUserMessages {
            std::vector<UserMessage> shown;
            void Show(const UserMessage& m) override { shown.push_back(m); }
        } captured;
        if (!CheckDestination(*m_src.media, m_tree.get(), req, captured)) {
            bool imageOnSameDrive = m_src.media->GetDeviceKind() == kNotByName && captured.shown.size() == 1 &&
                                    captured.shown[0].id == "IDS_TRYING_TO_SAVE_DATA_ON_SAME";
            if (!imageOnSameDrive) {
                for (const auto& m : captured.shown) messages.Show(m);
                return false;
            }
        }
    }
    SaveResult result;
    Engines engines = cli::MakeCliEngines();
    engines.saveToFolder = [&](CPhysicalDisk& m, ScanContext& ctx) { result = SaveMarked(m, ctx, req); };
    CScanMan dlg(this);
    CScanDriver driver(*m_src.media, engines, dlg);
    driver.SetSaveDestination(req.destination, 0);
    if (!driver.Start(kKindSave, m_mode)) return false;
    dlg.Run(driver);
    m_lastSave = result;
    QString summary = Tx("IDS_UI_SAVE_DONE", "Saved to") + " " + folder + "\n" +
                      Tx("IDS_CLI_SUMMARY_FOLDERS", "Folders") + ": " + QString::number(result.folders) + "\n" +
                      Tx("IDS_CLI_SUMMARY_FILES", "Files") + ": " + QString::number(result.files) + " (" +
                      QString::fromStdString(FormatSizeKB(result.bytes)) + ")";
    if (result.skipped) summary += "\n" + Tx("IDS_CLI_SAVE_SKIPPED", "Skipped") + ": " + QString::number(result.skipped);
    if (result.incomplete)
        summary += "\n" + Tx("IDS_CLI_SAVE_INCOMPLETE", "Saved with unreadable parts") + ": " +
                   QString::number(result.incomplete);
    if (result.logged)
        summary += "\n" + Tx("IDS_CLI_SAVE_LOGGED", "Not saved, listed in the log") + ": " +
                   QString::number(result.logged) + " (" + QString::fromStdString(result.logPath) + ")";
    if (driver.CancelConfirmed() || result.cancelled) summary += "\n" + Tx("IDS_UI_CANCELLED", "Cancelled.");
    CQtMessages::Inform(this, summary);
    return !driver.CancelConfirmed();
}

QString CMainWindow::DefaultSessionName(const QDateTime& now) const {
    QString source = m_haveSource ? QFileInfo(QString::fromStdString(m_src.path)).fileName() : QString();
    QDate d = now.date();
    QTime t = now.time();
    // " # %s, %02d-%s-%u[%u %u %u]": source, day, month name, year, hour, minute, second.
    static const char* kMonths[] = {"January", "February", "March",     "April",   "May",      "June",
                                    "July",    "August",   "September", "October", "November", "December"};
    QString name = QString::asprintf(" # %s, %02d-%s-%u[%u %u %u]", qPrintable(source), d.day(), kMonths[d.month() - 1],
                                     unsigned(d.year()), unsigned(t.hour()), unsigned(t.minute()), unsigned(t.second()));
    // The source name may hold characters a file name cannot.
    name.replace('/', '_');
    return name + ".tks4";
}

bool CMainWindow::SaveSession(const QString& path) {
    if (!m_tree || !m_haveSource) return false;
    CQtMessages messages(this);
    if (!WriteScanSession(path.toStdString(), m_mode, *m_src.media, m_tree.get(), messages)) return false;
    m_sessionSaved = true;
    return true;
}

bool CMainWindow::OpenSession(const QString& path, bool fromOutside) {
    CQtMessages messages(this);
    ReadSessionOptions options;
    options.requestedFromOutside = fromOutside;
    options.currentMode = m_mode;
    SessionData session;
    if (!ReadSession(path.toStdString(), options, session, messages)) return false;
    m_results.SetTop(nullptr);
    m_tree = std::move(session.top);
    m_src = cli::OpenedSource();
    m_src.path = ToUtf8(session.sourcePath);
    m_src.media = std::move(session.media);
    m_haveSource = m_src.media != nullptr;
    if (IsKnownMode(session.mode)) m_mode = session.mode;
    Retranslate();
    ShowResults();
    m_sessionSaved = true; // it is already on disk
    return true;
}

void CMainWindow::OnSaveSession() {
    if (!m_tree) return;
    QString path = QFileDialog::getSaveFileName(this, m_saveSessionAction->text(), DefaultSessionName(QDateTime::currentDateTime()),
                                                "Recovery Session File (*.tks4);;All Files (*.*)");
    if (!path.isEmpty()) SaveSession(path);
}

void CMainWindow::OnOpenSession() {
    if (CurrentPage() == kResultsPage && !OfferSession()) return;
    QString path = QFileDialog::getOpenFileName(this, m_openSessionAction->text(), QString(),
                                                "Recovery Session File (*.tks4)");
    if (!path.isEmpty()) OpenSessionFromMenu(path);
}

bool CMainWindow::OpenSessionFromMenu(const QString& path) {
    // From the mode pages no recovery mode is in use yet: the session brings its own.
    return OpenSession(path, CurrentPage() == kModePage);
}

bool CMainWindow::OfferSession() {
    if (CurrentPage() != kResultsPage || !m_tree || m_sessionSaved || !m_haveSource) return true;
    QMessageBox box(QMessageBox::Question, Tx("IDS_CONFIRM", "Confirm"),
                    Tx("IDS_ADVISABLE_SESSION") + "\n\n" + Tx("IDS_SAVE_RECOVERY_SESSION"),
                    QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel, this);
    box.setInformativeText(Tx("IDS_IMPORTANT_TIP") + ": " + Tx("IDS_SAVE_SCANNING_TIME"));
    int answer = box.exec();
    if (answer == QMessageBox::Cancel) return false;
    if (answer == QMessageBox::Yes) {
        OnSaveSession();
        return m_sessionSaved;
    }
    return true;
}

void CMainWindow::closeEvent(QCloseEvent* e) {
    if (OfferSession()) e->accept();
    else e->ignore();
}

CNode* CMainWindow::SelectedNode() const {
    QModelIndex cur = m_listView->currentIndex();
    if (cur.isValid()) return m_listModel->NodeAt(m_sorter->mapToSource(cur).row());
    return nullptr;
}

void CMainWindow::SelectNode(CNode* n) {
    if (!n || !n->parent) return;
    QModelIndex folder = m_treeModel->IndexOf(n->parent);
    if (!folder.isValid()) return;
    m_leftTabs->setCurrentIndex(0);
    m_folderView->setCurrentIndex(folder);
    int row = m_results.Children(n->parent).indexOf(n);
    if (row < 0) return;
    QModelIndex idx = m_sorter->mapFromSource(m_listModel->index(row, 0));
    m_listView->setCurrentIndex(idx);
    m_listView->scrollTo(idx);
}

CNode* CMainWindow::FindNext(const QString& pattern) {
    if (!m_tree || pattern.isEmpty()) return nullptr;
    QRegularExpression re(QRegularExpression::wildcardToRegularExpression(pattern, QRegularExpression::UnanchoredWildcardConversion),
                          QRegularExpression::CaseInsensitiveOption);
    // Anchored: the whole name must match the pattern.
    re.setPattern("\\A(?:" + re.pattern() + ")\\z");
    CNode* from = SelectedNode();
    CNode* first = nullptr;
    CNode* found = nullptr;
    bool passed = from == nullptr;
    ForEachNode(m_tree.get(), [&](CNode* n) {
        if (found || !m_results.Visible(n)) return;
        if (n == from) {
            passed = true;
            return;
        }
        if (!re.match(QString::fromStdU16String(n->name)).hasMatch()) return;
        if (passed) found = n;
        else if (!first) first = n;
    });
    if (!found) found = first; // wrap round to the start
    if (found) SelectNode(found);
    return found;
}

void CMainWindow::OnFind() {
    bool ok = false;
    QString pattern = QInputDialog::getText(this, Tx("IDS_FIND", "Find"), Tx("IDS_UI_FIND_PROMPT", "File name (* and ? allowed):"),
                                            QLineEdit::Normal, m_lastPattern, &ok);
    if (!ok || pattern.isEmpty()) return;
    m_lastPattern = pattern;
    if (!FindNext(pattern)) CQtMessages::Inform(this, Tx("IDS_UI_NOT_FOUND", "No item with this name was found."));
}

QString CMainWindow::PropertiesText(const CNode* n) const {
    uint32_t sectorSize = m_haveSource ? m_src.media->GetSectorSize() : 512;
    QStringList lines;
    lines << Tx("IDS_UI_NAME", "Name") + ": " + NodeName(n);
    QString path;
    for (const CNode* p = n->parent; p && p->parent; p = p->parent) path.prepend(QString::fromStdU16String(p->name) + "/");
    lines << Tx("IDS_UI_FOLDER", "Folder") + ": " + path;
    lines << Tx("IDS_UI_KIND", "Kind") + ": " +
                 (n->IsFolder() ? Tx("IDS_UI_KIND_FOLDER", "Folder") : Tx("IDS_UI_KIND_FILE", "File")) +
                 (n->IsDeleted() && !n->carved ? ", " + Tx("IDS_UI_DELETED", "deleted") : QString()) +
                 (n->carved ? ", " + Tx("IDS_UI_CARVED", "found by its content") : QString());
    lines << Tx("IDS_UI_SIZE", "Size") + ": " + QString::number(n->size) + " (" + NodeSize(n) + ")";
    lines << Tx("IDS_UI_MODIFIED", "Modified") + ": " + NodeDate(n->modifiedDate);
    lines << Tx("IDS_UI_CREATED", "Created") + ": " + NodeDate(n->createdDate);
    // Where the item is found again: an MFT record's first sector, a carved file's first byte.
    lines << Tx("IDS_UI_SECTOR", "Sector") + ": " + QString::number(n->location);
    // A carved file keeps its byte within the first sector there; a file-system item found by the
    // record search keeps its distance to its volume's start instead, which is no byte offset.
    lines << Tx("IDS_UI_BYTE_OFFSET", "Byte offset") + ": " +
                 QString::number(n->location * sectorSize + (n->carved ? n->startOffset : 0));
    lines << Tx("IDS_UI_RECORD", "Record") + ": " + QString::number(n->recordId) + " (" +
                 Tx("IDS_UI_PARENT_RECORD", "parent") + " " + QString::number(n->parentRecordId) + ")";
    lines << QString("Flags: 0x%1").arg(n->flags, 0, 16);
    return lines.join("\n");
}

void CMainWindow::ShowProperties(const CNode* n) {
    QMessageBox box(QMessageBox::Information, Tx("IDS_UI_PROPERTIES", "Properties"), PropertiesText(n), QMessageBox::Ok, this);
    box.exec();
}

void CMainWindow::OpenWithViewer(const CNode* n) {
    if (!m_haveSource || n->IsFolder()) return;
    // A private temporary copy: the viewer never sees the source, and nothing is saved beside it.
    QString folder = QDir::tempPath() + "/kestrin-view";
    QDir().mkpath(folder);
    QString name = QString::fromStdU16String(n->name);
    name.replace('/', '_');
    if (name.isEmpty() || name == "." || name == "..") name = "item";
    QFile file(folder + "/" + name);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) return;
    WriteNodeContent(*m_src.media, *n, [&](const uint8_t* p, size_t len) {
        return file.write(reinterpret_cast<const char*>(p), qint64(len)) == qint64(len);
    });
    file.close();
    QDesktopServices::openUrl(QUrl::fromLocalFile(file.fileName()));
}

} // namespace kestrin::ui
