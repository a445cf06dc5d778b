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
#include <QRegularExpression>
#include <QSortFilterProxyModel>
#include <QSplitter>
#include <QStackedWidget>
#include <QTabBar>
#include <QTabWidget>
#include <QTreeView>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>

#include "output/ContentCopy.h"
#include "output/Saver.h"
#include "storage/CPhysicalDisk.h"
#include "ui/CFileListModel.h"
#include "ui/CFileTypesModel.h"
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
    connect(m_save, &QPushButton::clicked, this, &CResultsPage::SaveRequested);
    m_newScan = new QPushButton;
    m_newScan->setObjectName("newScan");
    connect(m_newScan, &QPushButton::clicked, this, &CResultsPage::NewScanRequested);
    m_find = new QPushButton;
    m_find->setObjectName("find");
    connect(m_find, &QPushButton::clicked, this, &CResultsPage::OnFind);
    bar->addWidget(m_deletedOnly);
    bar->addWidget(m_markAll);
    bar->addWidget(m_unmarkAll);
    bar->addWidget(m_find);
    bar->addStretch();
    // The save choices get a row of their own below the panes: one row for everything cuts
    // labels in the longer languages.
    auto* saveBar = new QHBoxLayout;
    saveBar->addWidget(m_collisionLabel);
    saveBar->addWidget(m_collision);
    saveBar->addWidget(m_saveZip);
    saveBar->addStretch();
    saveBar->addWidget(m_newScan);
    saveBar->addWidget(m_save);

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
    // Size and dates as wide as they need, the name gets the rest.
    m_listView->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
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
    m_leftTabs = new QTabWidget;
    // Whole tab names: the pane is never narrower than its tabs.
    m_leftTabs->tabBar()->setElideMode(Qt::ElideNone);
    m_leftTabs->tabBar()->setUsesScrollButtons(false);
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
    split->addWidget(m_previewStack);
    split->setChildrenCollapsible(false);
    split->setStretchFactor(0, 1);
    split->setStretchFactor(1, 3);
    split->setStretchFactor(2, 1);
    split->setSizes({190, 490, 220});
    v->addLayout(bar);
    v->addWidget(split, 1);
    v->addLayout(saveBar);
}

void CResultsPage::Show(CNode* tree) {
    m_deletedOnly->blockSignals(true);
    m_deletedOnly->setChecked(false);
    m_deletedOnly->blockSignals(false);
    m_leftTabs->setCurrentIndex(0);
    m_listModel->SetFolder(tree);
    m_results.SetTop(tree);
    ShowPreview(nullptr);
}

void CResultsPage::Retranslate() {
    m_deletedOnly->setText(Tx("IDS_UI_SHOW_DELETED_ONLY", "Show deleted only"));
    m_markAll->setText(Tx("IDS_MARK_ALL", "Mark All"));
    m_unmarkAll->setText(Tx("IDS_UNMARK_ALL", "Unmark All"));
    m_save->setText(Tx("IDS_UI_SAVE", "Save..."));
    m_saveZip->setText(Tx("IDS_UI_SAVE_ZIP", "Save into a zip archive"));
    m_newScan->setText(Tx("IDS_UI_NEW_SCAN", "New Scan"));
    m_find->setText(Tx("IDS_FIND", "Find"));
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

CNode* CResultsPage::SelectedNode() const {
    QModelIndex cur = m_listView->currentIndex();
    if (cur.isValid()) return m_listModel->NodeAt(m_sorter->mapToSource(cur).row());
    return nullptr;
}

void CResultsPage::SelectNode(CNode* n) {
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

CNode* CResultsPage::FindNext(const QString& pattern) {
    if (!m_results.Top() || pattern.isEmpty()) return nullptr;
    QRegularExpression re(QRegularExpression::wildcardToRegularExpression(pattern, QRegularExpression::UnanchoredWildcardConversion),
                          QRegularExpression::CaseInsensitiveOption);
    // Anchored: the whole name must match the pattern.
    re.setPattern("\\A(?:" + re.pattern() + ")\\z");
    CNode* from = SelectedNode();
    CNode* first = nullptr;
    CNode* found = nullptr;
    bool passed = from == nullptr;
    ForEachNode(m_results.Top(), [&](CNode* n) {
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

void CResultsPage::OnFind() {
    bool ok = false;
    QString pattern = QInputDialog::getText(this, Tx("IDS_FIND", "Find"), Tx("IDS_UI_FIND_PROMPT", "File name (* and ? allowed):"),
                                            QLineEdit::Normal, m_lastPattern, &ok);
    if (!ok || pattern.isEmpty()) return;
    m_lastPattern = pattern;
    if (!FindNext(pattern)) m_desktop.Inform(this, Tx("IDS_UI_NOT_FOUND", "No item with this name was found."));
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
