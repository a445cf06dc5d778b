#include "ui/CMainWindow.h"

#include <QActionGroup>
#include <QApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenuBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTabWidget>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "app/Language.h"
#include "job/Modes.h"
#include "session/EngineTable.h"
#include "session/ScanPlan.h"
#include "scan/CScanDriver.h"
#include "scan/OperationRules.h"
#include "ui/CAboutDialog.h"
#include "ui/CDrivePage.h"
#include "ui/CImageDialog.h"
#include "ui/CQtMessages.h"
#include "ui/CResultsPage.h"
#include "ui/CScanMan.h"
#include "ui/CSignatureExplorer.h"
#include "ui/QtCatalogues.h"
#include "ui/UiText.h"
#include "scan/ProgressRule.h"
#include "util/Text.h"
#include "carve/SignatureList.h"

namespace kestrin::ui {

CMainWindow::CMainWindow(IDesktop& desktop, QWidget* parent) : QMainWindow(parent), m_desktop(desktop) {
    setObjectName("CMainWindow");
    resize(900, 600);
    m_pages = new QStackedWidget(this);
    setCentralWidget(m_pages);
    BuildModePages();
    m_drivePage = new CDrivePage(m_desktop);
    connect(m_drivePage, &CDrivePage::OpenRequested, this, [this](const QString& path, int partition) {
        OpenAndContinue(path, partition);
    });
    connect(m_drivePage, &CDrivePage::BackRequested, this, [this] { SetPage(kModePage); });
    connect(m_drivePage, &CDrivePage::FileTypesRequested, this, &CMainWindow::ChooseFileTypes);
    connect(m_drivePage, &CDrivePage::ImageRequested, this, [this](const QString& path, int partition) {
        CImageDialog dlg(m_desktop, path, partition, this);
        dlg.exec();
    });
    m_pages->addWidget(m_drivePage);
    BuildPartitionPage();
    m_resultsPage = new CResultsPage(m_results, m_desktop);
    connect(m_resultsPage, &CResultsPage::SaveRequested, this, &CMainWindow::OnSave);
    connect(m_resultsPage, &CResultsPage::NewScanRequested, this, [this] {
        if (OfferSession()) SetPage(kModePage);
    });
    m_pages->addWidget(m_resultsPage);
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

void CMainWindow::SetPage(Page p) {
    m_pages->setCurrentIndex(int(p));
    if (p == kModePage) m_titleSubject.clear();
    UpdateTitleAndActions();
}

void CMainWindow::UpdateTitleAndActions() {
    const QString name = Tx("IDS_KESTRIN", "Kestrin");
    setWindowTitle(m_titleSubject.isEmpty() ? name : m_titleSubject + " - " + name);
    const bool results = CurrentPage() == kResultsPage && m_tree;
    if (m_saveAction) m_saveAction->setEnabled(results);
    if (m_exportAction) m_exportAction->setEnabled(results);
    if (m_findAction) m_findAction->setEnabled(results);
}
CMainWindow::Page CMainWindow::CurrentPage() const { return Page(m_pages->currentIndex()); }

void CMainWindow::BuildMenus() {
    m_fileMenu = menuBar()->addMenu(QString());
    m_fileMenu->setObjectName("menuFile");
    m_openAction = m_fileMenu->addAction(QString(), this, &CMainWindow::OnOpen);
    m_openAction->setObjectName("actionOpen");
    m_openAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_O));
    m_saveAction = m_fileMenu->addAction(QString(), this, [this] {
        if (CurrentPage() == kResultsPage && m_tree) OnSave();
    });
    m_saveAction->setObjectName("actionSave");
    m_saveAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_S));
    m_exportAction = m_fileMenu->addAction(QString(), this, [this] {
        if (CurrentPage() == kResultsPage && m_tree) OnExportList();
    });
    m_exportAction->setObjectName("actionExportList");
    m_fileMenu->addSeparator();
    m_quitAction = m_fileMenu->addAction(QString(), this, &QWidget::close);
    m_quitAction->setObjectName("actionQuit");
    m_quitAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    m_quitAction->setMenuRole(QAction::QuitRole);

    m_editMenu = menuBar()->addMenu(QString());
    m_editMenu->setObjectName("menuEdit");
    m_findAction = m_editMenu->addAction(QString(), this, [this] {
        // The results page's own Find button: one way in, whichever is used.
        if (auto* find = m_resultsPage->findChild<QPushButton*>("find"); find && CurrentPage() == kResultsPage)
            find->click();
    });
    m_findAction->setObjectName("actionFind");
    m_findAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_F));

    BuildToolsMenu();
    m_viewMenu = menuBar()->addMenu(QString());
    m_viewMenu->addActions(m_resultsPage->ViewActions());
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
    BuildHelpMenu();
}

void CMainWindow::BuildHelpMenu() {
    m_helpMenu = menuBar()->addMenu(QString());
    m_helpMenu->setObjectName("menuHelp");
    m_docsAction = m_helpMenu->addAction(QString(), this, [this] {
        const QString docs = DocumentationPath();
        if (docs.isEmpty() || !m_desktop.OpenInViewer(docs))
            m_desktop.Inform(this, Tx("IDS_UI_NO_DOCUMENTATION", "The documentation could not be opened."));
    });
    m_docsAction->setObjectName("actionDocumentation");
    m_docsAction->setShortcut(QKeySequence(Qt::Key_F1));
    m_helpMenu->addSeparator();
    m_aboutAction = m_helpMenu->addAction(QString(), this, [this] {
        CAboutDialog about(this);
        about.exec();
    });
    m_aboutAction->setObjectName("actionAbout");
    m_aboutAction->setMenuRole(QAction::AboutRole);
}

void CMainWindow::OnOpen() {
    if (CurrentPage() == kResultsPage && !OfferSession()) return;
    QString path = QFileDialog::getOpenFileName(
        this, Tx("IDS_UI_OPEN_TITLE", "Open a recovery session or a disk image"), QString(),
        Tx("IDS_UI_OPEN_FILTER_SESSION", "Recovery Session File") + " (*.tks4);;" +
            Tx("IDS_UI_OPEN_FILTER_IMAGE", "Disk image") +
            " (*.img *.dd *.raw *.bin *.iso *.001 *.E01 *.e01 *.vhd *.vhdx *.vmdk *.qcow2 *.qcow);;" +
            Tx("IDS_UI_OPEN_FILTER_ALL", "All files") + " (*)");
    if (!path.isEmpty()) OpenFile(path);
}

void CMainWindow::OpenFile(const QString& path) {
    if (path.endsWith(".tks4", Qt::CaseInsensitive)) {
        OpenSessionFromMenu(path);
        return;
    }
    // An image is a source like any other: it joins the drive page of the mode in use, where
    // the user sees its partitions and starts the scan.
    if (CurrentPage() != kDrivePage) ChooseMode(m_mode);
    AddImageItem(path);
}

void CMainWindow::OpenHandedSession(const QString& path) {
    if (isMinimized()) showNormal();
    raise();
    activateWindow();
    if (CurrentPage() == kResultsPage && !OfferSession()) return;
    OpenSession(path, true);
}

void CMainWindow::BuildToolsMenu() {
    m_toolsMenu = menuBar()->addMenu(QString());
    m_openSessionAction = m_toolsMenu->addAction(QString(), this, &CMainWindow::OnOpenSession);
    m_saveSessionAction = m_toolsMenu->addAction(QString(), this, &CMainWindow::OnSaveSession);
    m_saveSessionAction->setEnabled(false);
}

void CMainWindow::SetLanguage(int index) {
    app::ChangeLanguage(index); // rewrites settings.ini when the language changes
    UseQtCatalogue(app::CurrentPaths().languageIndex);
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
    for (const ModeInfo& m : kModeTable) {
        auto* b = new QPushButton;
        b->setObjectName(QString("mode%1").arg(static_cast<uint32_t>(m.mode)));
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
    CSignatureExplorer dlg(m_mode, app::CurrentPaths().configFolder, m_modeSignatures, m_signatureTicks, m_desktop, this);
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
    // Every column as wide as its header or its widest line, in every language.
    m_partitions->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
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
            m_desktop.Inform(this, Tx("IDS_UI_PICK_PARTITION", "Select a partition first."));
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
        uint64_t sectors = RecordSectorCount(r, m_src.layout);
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


void CMainWindow::Retranslate() {
    UpdateTitleAndActions();
    m_fileMenu->setTitle(Tx("IDS_UI_MENU_FILE", "&File"));
    m_openAction->setText(Tx("IDS_UI_MENU_OPEN", "&Open..."));
    m_saveAction->setText(Tx("IDS_UI_MENU_SAVE", "&Save Marked Files..."));
    m_exportAction->setText(Tx("IDS_UI_MENU_EXPORT_LIST", "&Export List..."));
    m_quitAction->setText(Tx("IDS_UI_MENU_QUIT", "&Quit"));
    m_editMenu->setTitle(Tx("IDS_UI_MENU_EDIT", "&Edit"));
    m_findAction->setText(Tx("IDS_UI_MENU_FIND", "&Find..."));
    m_helpMenu->setTitle(Tx("IDS_UI_MENU_HELP", "&Help"));
    m_docsAction->setText(Tx("IDS_UI_DOCUMENTATION", "&Documentation"));
    m_aboutAction->setText(Tx("IDS_UI_MENU_ABOUT", "&About Kestrin"));
    m_languageMenu->setTitle(Tx("IDS_UI_MENU_LANGUAGE", "&Language"));
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
    m_resultsPage->Retranslate();
    m_toolsMenu->setTitle(Tx("IDS_UI_MENU_TOOLS", "&Tools"));
    m_viewMenu->setTitle(Tx("IDS_UI_VIEW", "&View"));
    m_openSessionAction->setText(Tx("IDS_UI_OPEN_SESSION", "Open Recovery Session..."));
    m_saveSessionAction->setText(Tx("IDS_UI_SAVE_SESSION", "Save Recovery Session..."));
}

void CMainWindow::ChooseMode(RecoveryMode mode) {
    if (!FindMode(mode)) return;
    m_mode = mode;
    m_signatures.clear();
    m_modeSignatures.clear();
    // Deleted files skip the signature scan; the other modes search the list the mode shows,
    // every row ticked until the user chooses.
    if (mode != RecoveryMode::DeletedFiles) m_modeSignatures = SignaturesForMode(mode, app::CurrentPaths().configFolder);
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
    m_resultsPage->SetSource(nullptr);
    m_src = OpenedSource();
    std::string error;
    if (!OpenSource(path.toStdString(), m_src, error)) {
        QString text = Tx("IDS_UI_CANNOT_OPEN", "The source could not be opened:") + "\n" + QString::fromStdString(error);
        // The error carries the system's reason; the way to more rights only where they would help.
        if (path.startsWith("/dev/") && CDrivePage::MoreRightsWouldHelp(path))
            text += "\n\n" + Tx("IDS_UI_NEED_RIGHTS",
                                "Reading drives needs administrator rights: start Kestrin with sudo, or add your "
                                "user to the \"disk\" group. Image files can always be opened.");
        m_desktop.Fail(this, text);
        return false;
    }
    m_haveSource = true;
    m_resultsPage->SetSource(m_src.media.get());
    // Devices by their path, files by their name.
    m_titleSubject = path.startsWith("/dev/") ? path : QFileInfo(path).fileName();
    // A partition the drive page listed under its disk or image: scan it at once.
    if (partition >= 0 && size_t(partition) < m_src.partitions.size()) return ScanPartition(partition);
    bool wholeSearch = m_mode == RecoveryMode::Partition || m_mode == RecoveryMode::Formatted;
    if (m_src.wholeKind == SourceKind::Volume || m_src.layout == Layout::Volume)
        return ScanPartition(m_src.partitions.empty() ? -1 : 0);
    if (m_src.partitions.empty() || (wholeSearch && m_mode == RecoveryMode::Partition)) return ScanPartition(-1);
    auto scannable = ScannablePartitions(m_src);
    if (scannable.size() == 1 && !wholeSearch) return ScanPartition(int(scannable[0]));
    FillPartitionList();
    SetPage(kPartitionPage);
    return true;
}

bool CMainWindow::ScanPartition(int index) {
    if (!m_haveSource) return false;
    m_results.SetTop(nullptr);
    m_tree.reset();
    std::optional<OperationKind> forced;
    if (index < 0) {
        SelectWholeSource(m_src);
    } else {
        if (size_t(index) >= m_src.partitions.size() || !SelectListedPartition(m_src, size_t(index))) {
            m_desktop.Inform(this, Tx("IDS_UI_PARTITION_OUTSIDE", "This partition lies outside the source."));
            return false;
        }
        forced = ForcedKindFor(m_mode, m_src.partitions[size_t(index)]);
    }
    if (!RunOperation(forced)) return false;
    if (index >= 0) TakeDetectedFileSystem(m_src, size_t(index), forced);
    // A whole-disk search that listed partitions but found no files itself: choose one.
    if (index < 0 && m_state == WindowState::PartitionList && m_tree && !m_src.partitions.empty()) {
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

void CMainWindow::BeginOperation(OperationKind kind) {
    m_busy = kind == OperationKind::FileSystemScan || kind == OperationKind::SmartScan ||
             kind == OperationKind::SignatureScan;
    m_state = kind == OperationKind::PartitionSearch || kind == OperationKind::CreateImage ? WindowState::PartitionList
                                                                                           : WindowState::Results;
    m_pages->setEnabled(!m_busy);
    menuBar()->setEnabled(!m_busy);
}

void CMainWindow::EndOperation() {
    m_busy = false;
    m_pages->setEnabled(true);
    menuBar()->setEnabled(true);
}

bool CMainWindow::RunOperation(std::optional<OperationKind> forcedKind) {
    CPhysicalDisk& media = *m_src.media;
    CScanMan dlg(m_desktop, this);
    dlg.SetStatusBarSink([this](const QString& text) { statusBar()->showMessage(text); });
    CScanDriver driver(media, MakeEngines(), dlg);
    const uint64_t failuresBefore = media.ReadFailures();
    driver.SetSignatures(&m_signatures);
    std::optional<OperationKind> kind = forcedKind;
    if (!kind) kind = driver.StartForSource(m_mode);
    else if (!driver.Start(*kind, m_mode)) kind.reset();
    if (!kind) {
        m_desktop.Inform(this, Tx("IDS_UI_NO_SCAN", "No scan is defined for this source in this mode."));
        return false;
    }
    BeginOperation(*kind);
    dlg.Run(driver);
    if (kind == OperationKind::PartitionSearch && !driver.CancelConfirmed()) {
        if (driver.NoPartitionFound()) {
            // Declined: nothing was found to show, so the drive page stays.
            if (!m_desktop.Ask(this, Tx("IDS_NO_PARTITION_FOUND"))) {
                EndOperation();
                statusBar()->clearMessage();
                return false;
            }
            // The whole drive is searched by content; Skip ends that early and shows its finds.
            m_state = WindowState::WholeDriveSearch;
            m_busy = true;
            m_pages->setEnabled(false);
            menuBar()->setEnabled(false);
            dlg.OfferSkip(true);
            if (!driver.ContinueAsSignatureScan()) {
                EndOperation();
                return false;
            }
            dlg.Run(driver);
        }
        // The search's finds join the numbered list.
        RefreshPartitionList(m_src);
    }
    m_tree = driver.ReleaseTree();
    m_lastScan = {true, driver.CancelConfirmed(), dlg.Skipped(), media.ReadFailures() - failuresBefore,
                  dlg.ElapsedSeconds()};
    EndOperation();
    QStringList notes = dlg.Notices();
    statusBar()->showMessage(notes.join("  "));
    return true;
}

void CMainWindow::ShowResults() {
    m_resultsPage->Show(m_tree.get());
    ShowScanSummary();
    m_lastScan = LastScan();
    m_sessionSaved = false;
    m_saveSessionAction->setEnabled(m_tree != nullptr);
    SetPage(kResultsPage);
}

void CMainWindow::ShowScanSummary() {
    uint64_t files = 0, deleted = 0, carved = 0, bytes = 0;
    if (m_tree)
        ForEachNode(m_tree.get(), [&](CNode* n) {
            if (n->IsFolder()) return;
            ++files;
            bytes += n->size;
            // Carved files carry no in-use flag; only file-system items can be deleted ones.
            if (n->carved) ++carved;
            else if (n->IsDeleted()) ++deleted;
        });
    QString line = Tx("IDS_UI_SUMMARY_FOUND", "Found") + ": " +
                   QString::fromStdString(FormatFound(files - carved, deleted, carved, CScanMan::Words())) + ", " +
                   Tx("IDS_CLI_SUMMARY_BYTES", "Total size") + ": " + QString::fromStdString(FormatBytesShort(bytes));
    if (m_lastScan.ran) {
        line += "    " + Tx("IDS_UI_SUMMARY_READ_ERRORS", "Read errors") + ": " + QString::number(m_lastScan.readFailures);
        line += "    " + Tx("IDS_CLI_SUMMARY_TIME", "Time") +
                QString::fromStdString(FormatElapsed(uint64_t(m_lastScan.seconds + 0.5)));
    }
    QStringList remarks;
    if (m_lastScan.cancelled)
        remarks << Tx("IDS_UI_SCAN_CANCELLED", "The scan was stopped before its end: only what was found until then is shown.");
    else if (m_lastScan.skipped)
        remarks << Tx("IDS_UI_SCAN_SKIPPED", "The rest of the whole-drive search was skipped: what was found until then is shown.");
    if (!files) remarks << Tx("IDS_UI_SCAN_EMPTY", "No files were found.");
    m_resultsPage->SetSummary(line, remarks.join(" "));
}

CNode* CMainWindow::FindNext(const QString& pattern) { return m_resultsPage->FindNext(pattern); }
QString CMainWindow::PropertiesText(const CNode* n) const { return m_resultsPage->PropertiesText(n); }
CFileListModel* CMainWindow::ListModel() const { return m_resultsPage->ListModel(); }
QTreeView* CMainWindow::FolderView() const { return m_resultsPage->FolderView(); }
QTreeView* CMainWindow::TypesView() const { return m_resultsPage->TypesView(); }

} // namespace kestrin::ui
