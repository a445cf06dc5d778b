#include "ui/CResultsPage.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QListView>
#include <QSplitter>
#include <QStackedWidget>
#include <QToolButton>
#include <QTabBar>
#include <QTabWidget>
#include <QTreeView>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>

#include "fs/Condition.h"
#include "output/ContentCopy.h"
#include "output/Saver.h"
#include "storage/CPhysicalDisk.h"
#include "ui/CFileListModel.h"
#include "ui/CFileTypesModel.h"
#include "ui/CFilterBar.h"
#include "ui/CNodeFilterProxy.h"
#include "ui/CThumbnailLoader.h"
#include "ui/CThumbnailModel.h"
#include "ui/CFolderTreeModel.h"
#include "ui/CQtMessages.h"
#include "ui/CResultsState.h"
#include "ui/NodeDisplay.h"
#include "ui/PreviewContent.h"
#include "ui/UiText.h"

namespace kestrin::ui {

namespace {
// Preview reads stop here: enough for a picture or the start of a document; a camera raw
// file's preview picture may lie behind the first megabytes of sensor data.
constexpr size_t kPreviewLimit = 8u << 20;
constexpr size_t kRawPreviewLimit = 48u << 20;
constexpr int kHexPreviewBytes = 4096;

// The preview picture, scaled to the pane whenever the pane changes size. It asks for no size of
// its own: a large picture must not widen the pane, nor an empty one shrink it.
class CPictureView final : public QLabel {
public:
    CPictureView() {
        setAlignment(Qt::AlignCenter);
        setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Ignored);
        setMinimumSize(120, 90);
    }
    void SetPicture(const QImage& img) {
        m_picture = QPixmap::fromImage(img);
        Rescale();
    }
    void Clear() {
        m_picture = QPixmap();
        clear();
    }

protected:
    void resizeEvent(QResizeEvent* e) override {
        QLabel::resizeEvent(e);
        Rescale();
    }

private:
    void Rescale() {
        if (m_picture.isNull()) return;
        QSize room = contentsRect().size();
        if (room.isEmpty()) {
            setPixmap(m_picture); // not laid out yet: scaled on the first resize
            return;
        }
        // Never blown up past its own size: a small picture stays sharp.
        setPixmap(m_picture.size().width() <= room.width() && m_picture.size().height() <= room.height()
                      ? m_picture
                      : m_picture.scaled(room, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    }
    QPixmap m_picture;
};

} // namespace

CResultsPage::CResultsPage(CResultsState& results, IDesktop& desktop, QWidget* parent)
    : QWidget(parent), m_results(results), m_desktop(desktop) {
    auto* v = new QVBoxLayout(this);
    auto* bar = new QHBoxLayout;
    m_markAll = new QPushButton;
    m_markAll->setObjectName("markAll");
    connect(m_markAll, &QPushButton::clicked, this, [this] { m_results.MarkAll(true); });
    m_unmarkAll = new QPushButton;
    connect(m_unmarkAll, &QPushButton::clicked, this, [this] { m_results.MarkAll(false); });
    m_collisionLabel = new QLabel;
    m_collision = new QComboBox;
    m_saveZip = new QCheckBox;
    m_saveZip->setObjectName("saveZip");
    m_saveDisc = new QCheckBox;
    m_saveDisc->setObjectName("saveDisc");
    // One destination at a time: a zip archive or a disc.
    connect(m_saveZip, &QCheckBox::toggled, this, [this](bool on) { if (on) m_saveDisc->setChecked(false); });
    connect(m_saveDisc, &QCheckBox::toggled, this, [this](bool on) { if (on) m_saveZip->setChecked(false); });
    m_save = new QPushButton;
    m_save->setObjectName("save");
    connect(m_save, &QPushButton::clicked, this, &CResultsPage::SaveRequested);
    m_newScan = new QPushButton;
    m_newScan->setObjectName("newScan");
    connect(m_newScan, &QPushButton::clicked, this, &CResultsPage::NewScanRequested);
    m_find = new QPushButton;
    m_find->setObjectName("find");
    connect(m_find, &QPushButton::clicked, this, &CResultsPage::OnFind);
    // F3 and Shift+F3 search on with the last pattern, wherever the focus is on this page.
    m_findNextAction = new QAction(this);
    m_findNextAction->setObjectName("findNext");
    m_findNextAction->setShortcut(QKeySequence(Qt::Key_F3));
    m_findNextAction->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    connect(m_findNextAction, &QAction::triggered, this, [this] { FindAgain(true); });
    m_findPreviousAction = new QAction(this);
    m_findPreviousAction->setObjectName("findPrevious");
    m_findPreviousAction->setShortcut(QKeySequence(Qt::SHIFT | Qt::Key_F3));
    m_findPreviousAction->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    connect(m_findPreviousAction, &QAction::triggered, this, [this] { FindAgain(false); });
    addAction(m_findNextAction);
    addAction(m_findPreviousAction);
    m_findPreviousButton = new QToolButton;
    m_findPreviousButton->setDefaultAction(m_findPreviousAction);
    m_findPreviousButton->setArrowType(Qt::UpArrow);
    m_findPreviousButton->setToolButtonStyle(Qt::ToolButtonIconOnly);
    m_findNextButton = new QToolButton;
    m_findNextButton->setDefaultAction(m_findNextAction);
    m_findNextButton->setArrowType(Qt::DownArrow);
    m_findNextButton->setToolButtonStyle(Qt::ToolButtonIconOnly);
    bar->addWidget(m_markAll);
    bar->addWidget(m_unmarkAll);
    bar->addWidget(m_find);
    bar->addWidget(m_findPreviousButton);
    bar->addWidget(m_findNextButton);
    bar->addStretch();
    // The save choices get a row of their own below the panes: one row for everything cuts
    // labels in the longer languages.
    auto* saveBar = new QHBoxLayout;
    saveBar->addWidget(m_collisionLabel);
    saveBar->addWidget(m_collision);
    // The two destinations other than a folder share one column, one above the other.
    auto* destinations = new QVBoxLayout;
    destinations->addWidget(m_saveZip);
    destinations->addWidget(m_saveDisc);
    saveBar->addLayout(destinations);
    saveBar->addStretch();
    saveBar->addWidget(m_newScan);
    saveBar->addWidget(m_save);

    m_filterBar = new CFilterBar;
    m_filterBar->setObjectName("filterBar");
    connect(m_filterBar, &CFilterBar::Changed, this, &CResultsPage::ApplyFilter);
    m_hideSystemAction = new QAction(this);
    m_hideSystemAction->setObjectName("hideSystemFolders");
    m_hideSystemAction->setCheckable(true);
    m_hideSystemAction->setChecked(true);
    connect(m_hideSystemAction, &QAction::toggled, this, [this] { ApplyFilter(); });
    m_thumbnailsAction = new QAction(this);
    m_thumbnailsAction->setObjectName("thumbnails");
    m_thumbnailsAction->setCheckable(true);
    connect(m_thumbnailsAction, &QAction::toggled, this, &CResultsPage::ShowThumbnails);

    m_treeModel = new CFolderTreeModel(m_results, this);
    m_treeFilter = new CNodeFilterProxy(CNodeFilterProxy::Rows::Folders, this);
    m_treeFilter->setSourceModel(m_treeModel);
    m_listModel = new CFileListModel(m_results, this);
    m_sorter = new CNodeFilterProxy(CNodeFilterProxy::Rows::Files, this);
    m_sorter->setSourceModel(m_listModel);
    m_folderView = new QTreeView;
    m_folderView->setObjectName("folders");
    m_folderView->setModel(m_treeFilter);
    m_folderView->setHeaderHidden(true);
    m_listView = new QTreeView;
    m_listView->setObjectName("files");
    m_listView->setModel(m_sorter);
    m_listView->setRootIsDecorated(false);
    m_listView->setUniformRowHeights(true);
    m_listView->setSortingEnabled(true);
    m_listView->sortByColumn(CFileListModel::kName, Qt::AscendingOrder);
    // Size and dates as wide as they need, the name gets the rest.
    m_listView->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_listView->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    connect(m_folderView->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this](const QModelIndex& cur) { m_listModel->SetFolder(m_treeFilter->NodeOf(cur)); });
    connect(m_listView->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this](const QModelIndex& cur) { ShowPreview(m_sorter->NodeOf(cur)); });
    m_listView->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_listView, &QWidget::customContextMenuRequested, this, [this](const QPoint& at) { ItemMenu(m_listView, at); });
    connect(m_listModel, &QAbstractItemModel::modelReset, this, [this] { ShowPreview(nullptr); });
    // Opening a folder in the list opens it in the tree too.
    connect(m_listView, &QTreeView::doubleClicked, this, &CResultsPage::OpenFolder);
    connect(&m_results, &CResultsState::Reset, this, [this] {
        m_expanded.clear();
        if (m_results.Top()) {
            m_folderView->setCurrentIndex(m_treeFilter->index(0, 0));
            m_folderView->expandToDepth(1);
        }
    });

    // The thumbnails: the list's rows, a picture each, loaded as they come into view.
    m_thumbs = new CThumbnailLoader(m_results, this);
    m_thumbModel = new CThumbnailModel(*m_sorter, *m_thumbs, this);
    m_thumbView = new QListView;
    m_thumbView->setObjectName("thumbnailView");
    m_thumbView->setViewMode(QListView::IconMode);
    m_thumbView->setMovement(QListView::Static);
    m_thumbView->setResizeMode(QListView::Adjust);
    m_thumbView->setUniformItemSizes(true);
    m_thumbView->setIconSize(QSize(CThumbnailLoader::kEdge, CThumbnailLoader::kEdge));
    m_thumbView->setGridSize(QSize(CThumbnailLoader::kEdge + 24, CThumbnailLoader::kEdge + 40));
    m_thumbView->setTextElideMode(Qt::ElideMiddle);
    m_thumbView->setWordWrap(false);
    m_thumbView->setModel(m_thumbModel);
    connect(m_thumbView->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this](const QModelIndex& cur) { ShowPreview(m_thumbModel->NodeOf(cur)); });
    m_thumbView->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_thumbView, &QWidget::customContextMenuRequested, this, [this](const QPoint& at) { ItemMenu(m_thumbView, at); });
    connect(m_thumbView, &QListView::doubleClicked, this, &CResultsPage::OpenFolder);
    m_listStack = new QStackedWidget;
    m_listStack->addWidget(m_listView);
    m_listStack->addWidget(m_thumbView);


    // The preview: a picture or the text and hex view, one at a time in the same place, so the
    // panes keep their sizes whatever is selected (or when nothing is).
    auto* picture = new CPictureView;
    picture->setObjectName("preview");
    m_preview = picture;
    m_previewText = new QPlainTextEdit;
    m_previewText->setObjectName("previewText");
    m_previewText->setReadOnly(true);
    m_previewText->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_previewText->setFont(FixedWidthFont());
    m_previewStack = new QStackedWidget;
    m_previewStack->setObjectName("previewPane");
    m_previewStack->addWidget(m_preview);
    m_previewStack->addWidget(m_previewText);
    m_previewStack->setMinimumWidth(160);

    m_typesModel = new CFileTypesModel(m_results, this);
    m_typesView = new QTreeView;
    m_typesView->setObjectName("types");
    m_typesView->setModel(m_typesModel);
    m_typesView->setHeaderHidden(true);
    connect(m_typesView->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this](const QModelIndex& cur) { m_listModel->SetItems(m_typesModel->FilesOf(cur)); });
    connect(&m_results, &CResultsState::Reset, this, [this] { m_typesView->expandAll(); });
    connect(&m_results, &CResultsState::ViewChanged, this, [this] { m_typesView->expandAll(); });
    m_leftTabs = new QTabWidget;
    // Whole tab names: the pane is never narrower than its tabs.
    m_leftTabs->tabBar()->setElideMode(Qt::ElideNone);
    m_leftTabs->tabBar()->setUsesScrollButtons(false);
    m_leftTabs->addTab(m_folderView, QString());
    m_leftTabs->addTab(m_typesView, QString());
    // Switching views shows the list of the view's current item.
    connect(m_leftTabs, &QTabWidget::currentChanged, this, [this](int tab) {
        if (tab == 0) m_listModel->SetFolder(m_treeFilter->NodeOf(m_folderView->currentIndex()));
        else m_listModel->SetItems(m_typesModel->FilesOf(m_typesView->currentIndex()));
    });

    auto* split = new QSplitter;
    split->addWidget(m_leftTabs);
    split->addWidget(m_listStack);
    split->addWidget(m_previewStack);
    split->setChildrenCollapsible(false);
    split->setStretchFactor(0, 1);
    split->setStretchFactor(1, 3);
    split->setStretchFactor(2, 1);
    split->setSizes({190, 490, 220});
    m_findStatus = new QLabel;
    m_findStatus->setObjectName("findStatus");
    // One line kept free, so a message does not move the views.
    m_findStatus->setMinimumHeight(m_findStatus->fontMetrics().height());
    // A remark on the scan (stopped, nothing found) above the views; its summary beneath them,
    // as the page's status line.
    m_notice = new QLabel;
    m_notice->setObjectName("scanNotice");
    m_notice->setWordWrap(true);
    QFont noticeFont = m_notice->font();
    noticeFont.setBold(true);
    m_notice->setFont(noticeFont);
    m_notice->setVisible(false);
    m_summary = new QLabel;
    m_summary->setObjectName("scanSummary");
    m_summary->setFrameShape(QFrame::StyledPanel);
    m_summary->setTextInteractionFlags(Qt::TextSelectableByMouse);
    v->addLayout(bar);
    v->addWidget(m_filterBar);
    v->addWidget(m_notice);
    v->addWidget(split, 1);
    v->addWidget(m_findStatus);
    v->addLayout(saveBar);
    v->addWidget(m_summary);
    ApplyFilter();
}

void CResultsPage::SetSummary(const QString& summary, const QString& notice) {
    m_summary->setText(summary);
    m_notice->setText(notice);
    m_notice->setVisible(!notice.isEmpty());
}

void CResultsPage::SetSource(CPhysicalDisk* media) {
    m_media = media;
    m_thumbs->SetSource(media);
}

QList<QAction*> CResultsPage::ViewActions() const { return {m_hideSystemAction, m_thumbnailsAction}; }

void CResultsPage::SetHideSystemFolders(bool hide) { m_hideSystemAction->setChecked(hide); }

void CResultsPage::ShowThumbnails(bool on) {
    if (m_thumbnailsAction->isChecked() != on) {
        m_thumbnailsAction->setChecked(on); // comes back here through toggled
        return;
    }
    // The current item goes along to the other view.
    CNode* current = SelectedNode();
    m_listStack->setCurrentWidget(on ? static_cast<QWidget*>(m_thumbView) : m_listView);
    if (current) SelectNode(current);
}

void CResultsPage::RememberExpanded(const QModelIndex& parent) {
    for (int r = 0, rows = m_treeFilter->rowCount(parent); r < rows; ++r) {
        QModelIndex idx = m_treeFilter->index(r, 0, parent);
        CNode* n = m_treeFilter->NodeOf(idx);
        if (!n) continue;
        if (m_folderView->isExpanded(idx)) {
            m_expanded.insert(n);
            RememberExpanded(idx);
        } else {
            m_expanded.remove(n);
        }
    }
}

void CResultsPage::ApplyFilter() {
    CNodeFilter filter = m_filterBar->Filter(m_hideSystemAction->isChecked());
    RememberExpanded({});
    // The deleted view's marks first: the filter reads them.
    m_results.SetDeletedOnly(filter.DeletedOnly());
    m_results.SetHideSystem(filter.HideSystem());
    // A current folder the filter hides gives way to its nearest shown ancestor.
    CNode* current = m_treeFilter->NodeOf(m_folderView->currentIndex());
    CNode* keep = current;
    for (CNode* p = current; p; p = p->parent)
        if (!filter.KeepsFolder(p)) keep = p->parent;
    if (keep != current && m_leftTabs->currentIndex() == 0)
        m_folderView->setCurrentIndex(m_treeFilter->mapFromSource(m_treeModel->IndexOf(keep)));
    m_treeFilter->SetFilter(filter);
    m_sorter->SetFilter(filter);
    // Folders a filter hid come back as they were left.
    for (CNode* n : std::as_const(m_expanded)) {
        QModelIndex idx = m_treeFilter->mapFromSource(m_treeModel->IndexOf(n));
        if (idx.isValid() && !m_folderView->isExpanded(idx)) m_folderView->setExpanded(idx, true);
    }
    QModelIndex cur = m_listStack->currentWidget() == m_thumbView ? m_thumbView->currentIndex() : m_listView->currentIndex();
    if (cur.isValid()) (m_listStack->currentWidget() == m_thumbView ? static_cast<QAbstractItemView*>(m_thumbView) : m_listView)->scrollTo(cur);
}

void CResultsPage::Show(CNode* tree) {
    m_filterBar->Clear();
    m_findStatus->clear();
    m_leftTabs->setCurrentIndex(0);
    m_listModel->SetFolder(tree);
    m_results.SetTop(tree);
    ApplyFilter();
    ShowPreview(nullptr);
}

void CResultsPage::Retranslate() {
    m_filterBar->Retranslate();
    // How recoverable deleted files are: any, or one condition (live files and folders match none).
    static constexpr Condition kChoices[] = {Condition::Unknown, Condition::Excellent, Condition::PartlyOverwritten,
                                             Condition::Overwritten, Condition::Unknown};
    m_filterBar->SetConditionChoices(
        {Tx("IDS_UI_COND_ANY", "Any condition"), Tx("IDS_UI_COND_EXCELLENT", "Excellent"),
         Tx("IDS_UI_COND_PARTLY_ANY", "Partly overwritten"), Tx("IDS_UI_COND_OVERWRITTEN", "Overwritten"),
         Tx("IDS_UI_COND_UNKNOWN", "Unknown")},
        [](const CNode& n, int choice) { return MatchesCondition(n, kChoices[choice]); });
    m_markAll->setText(Tx("IDS_MARK_ALL", "Mark All"));
    m_unmarkAll->setText(Tx("IDS_UNMARK_ALL", "Unmark All"));
    m_save->setText(Tx("IDS_UI_SAVE", "Save..."));
    m_saveZip->setText(Tx("IDS_UI_SAVE_ZIP", "Save into a zip archive"));
    m_saveDisc->setText(Tx("IDS_BURN_TO_DISC", "Burn to disc"));
    m_newScan->setText(Tx("IDS_UI_NEW_SCAN", "New Scan"));
    m_find->setText(Tx("IDS_FIND", "Find"));
    m_findNextAction->setText(Tx("IDS_UI_FIND_NEXT", "Find Next"));
    m_findNextAction->setToolTip(m_findNextAction->text() + " (F3)");
    m_findPreviousAction->setText(Tx("IDS_UI_FIND_PREVIOUS", "Find Previous"));
    m_findPreviousAction->setToolTip(m_findPreviousAction->text() + " (Shift+F3)");
    m_hideSystemAction->setText(Tx("IDS_UI_HIDE_SYSTEM_FOLDERS", "Hide System Folders"));
    m_thumbnailsAction->setText(Tx("IDS_UI_THUMBNAILS", "Thumbnails"));
    m_leftTabs->setTabText(0, Tx("IDS_UI_FOLDERS", "Folders"));
    m_leftTabs->setTabText(1, Tx("IDS_UI_FILE_TYPES", "File Types"));
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

uint8_t CResultsPage::CollisionMode() const { return uint8_t(m_collision->currentData().toInt()); }
bool CResultsPage::SaveIntoZip() const { return m_saveZip->isChecked(); }
QString CResultsPage::SaveZipText() const { return m_saveZip->text(); }
bool CResultsPage::SaveToDisc() const { return m_saveDisc->isChecked(); }

void CResultsPage::ShowPreview(CNode* n) {
    auto* picture = static_cast<CPictureView*>(m_preview);
    picture->Clear();
    m_previewText->clear();
    m_previewStack->setCurrentWidget(picture);
    if (!n || n->IsFolder() || !m_media) return;
    QByteArray bytes;
    bool raw = IsCameraRawName(QString::fromStdU16String(n->name));
    size_t want = size_t(std::min<uint64_t>(n->size, raw ? kRawPreviewLimit : kPreviewLimit));
    bytes.reserve(qsizetype(want));
    WriteNodeContent(*m_media, *n, [&](const uint8_t* p, size_t len) {
        size_t take = std::min(len, want - size_t(bytes.size()));
        bytes.append(reinterpret_cast<const char*>(p), qsizetype(take));
        return size_t(bytes.size()) < want; // stop reading once the preview has enough
    });
    QImage img = DecodePreviewImage(bytes, raw);
    if (!img.isNull()) {
        picture->SetPicture(img);
        return;
    }
    m_previewStack->setCurrentWidget(m_previewText);
    m_previewText->setPlainText(PreviewText(bytes, kHexPreviewBytes));
}

CNode* CResultsPage::ItemAt(const QModelIndex& index) const {
    if (index.model() == m_thumbModel) return m_thumbModel->NodeOf(index);
    return m_sorter->NodeOf(index);
}

CNode* CResultsPage::SelectedNode() const {
    if (m_listStack->currentWidget() == m_thumbView) return m_thumbModel->NodeOf(m_thumbView->currentIndex());
    return m_sorter->NodeOf(m_listView->currentIndex());
}

void CResultsPage::OpenFolder(const QModelIndex& index) {
    CNode* n = ItemAt(index);
    if (!n || !n->IsFolder()) return;
    QModelIndex t = m_treeFilter->mapFromSource(m_treeModel->IndexOf(n));
    if (t.isValid()) m_folderView->setCurrentIndex(t);
}

void CResultsPage::ItemMenu(QWidget* view, const QPoint& at) {
    auto* items = static_cast<QAbstractItemView*>(view);
    CNode* n = ItemAt(items->indexAt(at));
    if (!n) return;
    QMenu menu(this);
    QAction* open = menu.addAction(Tx("IDS_UI_OPEN_WITH", "Open with the default viewer"));
    open->setEnabled(!n->IsFolder());
    QAction* props = menu.addAction(Tx("IDS_UI_PROPERTIES", "Properties"));
    QAction* chosen = menu.exec(items->viewport()->mapToGlobal(at));
    if (chosen == open) OpenWithViewer(n);
    else if (chosen == props) ShowProperties(n);
}

void CResultsPage::SelectNode(CNode* n) {
    if (!n || !n->parent) return;
    QModelIndex folder = m_treeFilter->mapFromSource(m_treeModel->IndexOf(n->parent));
    if (!folder.isValid()) return;
    m_leftTabs->setCurrentIndex(0);
    m_folderView->setCurrentIndex(folder);
    int row = m_results.Children(n->parent).indexOf(n);
    if (row < 0) return;
    QModelIndex idx = m_sorter->mapFromSource(m_listModel->index(row, 0));
    if (!idx.isValid()) return;
    m_listView->setCurrentIndex(idx);
    m_listView->scrollTo(idx);
    QModelIndex thumb = m_thumbModel->mapFromSource(idx);
    m_thumbView->setCurrentIndex(thumb);
    m_thumbView->scrollTo(thumb);
}

CNode* CResultsPage::Find(const QString& pattern, bool forward) {
    m_findStatus->clear();
    if (!m_results.Top() || pattern.isEmpty()) return nullptr;
    const CNamePattern match(pattern, true);
    const CNodeFilter& filter = m_sorter->Filter();
    // Only what the filters let the tree and the list show can be selected.
    auto shown = [&](const CNode* n) {
        if (!filter.Accepts(n)) return false;
        for (const CNode* p = n->parent; p; p = p->parent)
            if (!filter.KeepsFolder(p)) return false;
        return true;
    };
    CNode* from = SelectedNode();
    bool passed = from == nullptr;
    CNode *first = nullptr, *last = nullptr, *before = nullptr, *after = nullptr;
    ForEachNode(m_results.Top(), [&](CNode* n) {
        bool isFrom = n == from;
        if (isFrom) passed = true;
        if (!match.Matches(n->name) || !shown(n)) return;
        if (!first) first = n;
        last = n;
        if (isFrom) return;
        if (!passed) before = n;
        else if (!after) after = n;
    });
    CNode* found = forward ? after : before;
    if (!found && first) {
        // Round to the other end; from no selection that is just the first (or last) match.
        found = forward ? first : last;
        if (from)
            m_findStatus->setText(forward ? Tx("IDS_UI_FIND_WRAPPED_TOP", "No more matches below: continued from the top.")
                                          : Tx("IDS_UI_FIND_WRAPPED_BOTTOM", "No more matches above: continued from the bottom."));
    }
    if (found) SelectNode(found);
    return found;
}

// The pattern is kept for F3 and Shift+F3.
CNode* CResultsPage::FindNext(const QString& pattern) {
    m_lastPattern = pattern;
    return Find(pattern, true);
}
CNode* CResultsPage::FindPrevious(const QString& pattern) {
    m_lastPattern = pattern;
    return Find(pattern, false);
}
QString CResultsPage::FindMessage() const { return m_findStatus->text(); }

void CResultsPage::OnFind() {
    bool ok = false;
    QString pattern = QInputDialog::getText(this, Tx("IDS_FIND", "Find"), Tx("IDS_UI_FIND_PROMPT", "File name (* and ? allowed):"),
                                            QLineEdit::Normal, m_lastPattern, &ok);
    if (!ok || pattern.isEmpty()) return;
    if (!FindNext(pattern)) m_desktop.Inform(this, Tx("IDS_UI_NOT_FOUND", "No item with this name was found."));
}

void CResultsPage::FindAgain(bool forward) {
    if (m_lastPattern.isEmpty()) {
        OnFind();
        return;
    }
    if (!Find(m_lastPattern, forward)) m_desktop.Inform(this, Tx("IDS_UI_NOT_FOUND", "No item with this name was found."));
}

QString CResultsPage::PropertiesText(const CNode* n) const {
    uint32_t sectorSize = m_media ? m_media->GetSectorSize() : 512;
    QStringList lines;
    lines << Tx("IDS_UI_NAME", "Name") + ": " + NodeName(n);
    QString path;
    for (const CNode* p = n->parent; p && p->parent; p = p->parent) path.prepend(QString::fromStdU16String(p->name) + "/");
    lines << Tx("IDS_UI_FOLDER", "Folder") + ": " + path;
    lines << Tx("IDS_UI_KIND", "Kind") + ": " +
                 (n->IsFolder() ? Tx("IDS_UI_KIND_FOLDER", "Folder") : Tx("IDS_UI_KIND_FILE", "File")) +
                 (n->IsDeleted() && !n->carved ? ", " + Tx("IDS_UI_DELETED", "deleted") : QString()) +
                 (n->carved ? ", " + Tx("IDS_UI_CARVED", "found by its content") : QString());
    // The exact byte count: the list rounds down to whole kilobytes. A folder has no size of its
    // own: it shows what is below it, its files' sizes summed.
    if (n->IsFolder()) {
        uint64_t files = 0, folders = 0, bytes = 0;
        ForEachNode(const_cast<CNode*>(n), [&](const CNode* c) {
            if (c->IsFolder()) ++folders;
            else ++files, bytes += c->size;
        });
        lines << Tx("IDS_UI_SIZE", "Size") + ": " + Tx("IDS_UI_SIZE_BYTES", "%1 bytes").arg(bytes) + " (" +
                     QString::fromStdString(FormatSizeKB(bytes)) + ")";
        lines << Tx("IDS_UI_FOLDER_CONTENT", "Contains: %1 files, %2 folders").arg(files).arg(folders);
    } else {
        lines << Tx("IDS_UI_SIZE", "Size") + ": " + Tx("IDS_UI_SIZE_BYTES", "%1 bytes").arg(n->size) + " (" + NodeSize(n) + ")";
    }
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
    lines << Tx("IDS_UI_FLAGS", "Flags") + QString(": 0x%1").arg(n->flags, 0, 16);
    return lines.join("\n");
}

void CResultsPage::ShowProperties(const CNode* n) {
    QMessageBox box(QMessageBox::Information, Tx("IDS_UI_PROPERTIES", "Properties"), PropertiesText(n), QMessageBox::Ok, this);
    box.exec();
}

bool CResultsPage::OpenWithViewer(const CNode* n) {
    if (!m_media || !n || n->IsFolder()) return false;
    // The viewer gets a copy: it never sees the source, and nothing is written beside it.
    CViewerCopies::Copy copy = m_viewerCopies.Make(*m_media, *n);
    if (copy.path.isEmpty()) {
        m_desktop.Warn(this, copy.error);
        return false;
    }
    if (copy.incomplete) {
        QString question = NodeName(n);
        if (copy.unreadable)
            question += " (" + QString::fromStdString(FormatSizeKB(copy.unreadable)) + " " +
                        Tx("IDS_UI_NOT_READ", "could not be read") + ")";
        question += "\n\n" + Tx("IDS_UI_VIEW_INCOMPLETE", "Parts of this file could not be read; the copy holds "
                                                          "zeros in their place or ends early. Open it anyway?");
        if (!m_desktop.Ask(this, question, false)) return false;
    }
    bool started = m_desktop.OpenInViewer(copy.path);
    if (!started)
        m_desktop.Warn(this, Tx("IDS_UI_VIEW_NOT_STARTED", "No program could be started to show this file. The copy is kept until Kestrin closes:") +
                                    "\n" + copy.path);
    return started;
}

} // namespace kestrin::ui
