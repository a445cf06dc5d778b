#pragma once
// The results explorer: the folder tree and the File Types view beside the list (or thumbnails)
// of the chosen folder or type, the filter bar, a preview of the selected file, find, properties
// and open-with, and the bar with the save choices. Saving itself is the main window's: the page
// only asks for it.
#include <QSet>
#include <QWidget>
#include <cstdint>
#include <functional>

#include "ui/CViewerCopies.h"

#include "fs/CNode.h"
#include "ui/Desktop.h"

class QAction;
class QCheckBox;
class QComboBox;
class QLabel;
class QListView;
class QModelIndex;
class QPlainTextEdit;
class QPushButton;
class QSortFilterProxyModel;
class QStackedWidget;
class QTabWidget;
class QToolButton;
class QTreeView;

namespace kestrin {
class CPhysicalDisk;
}

namespace kestrin::ui {

class CResultsState;
class CFolderTreeModel;
class CFileListModel;
class CFileTypesModel;
class CFilterBar;
class CNodeFilterProxy;
class CThumbnailLoader;
class CThumbnailModel;

class CResultsPage final : public QWidget {
    Q_OBJECT
public:
    // `results` is the window's view state of the found tree; it outlives the page's use of it.
    CResultsPage(CResultsState& results, IDesktop& desktop, QWidget* parent = nullptr);

    // The source the found items are read from (preview, open-with, byte offsets); null while
    // no source is open.
    void SetSource(CPhysicalDisk* media);
    // Shows a new result tree from its top: every item, the folder view, nothing previewed.
    void Show(CNode* tree);
    // The status line under the views (what the scan found, read errors, time) and a remark
    // above them (a stopped or empty scan); an empty remark hides it.
    void SetSummary(const QString& summary, const QString& notice);
    void Retranslate();

    // Next found item after the selected one whose name matches `pattern` ("*" and "?",
    // any case) and that the filters show, shown selected; null when none. Past the last match
    // the search starts again from the top and says so (FindMessage()).
    CNode* FindNext(const QString& pattern);
    // The same backwards, going round to the bottom.
    CNode* FindPrevious(const QString& pattern);
    // What the last search had to say ("no more matches" when it went round); empty otherwise.
    QString FindMessage() const;
    // Every field of a found item, its location as sector and byte offset.
    QString PropertiesText(const CNode* n) const;

    // The save choices of the bar.
    uint8_t CollisionMode() const;
    bool SaveIntoZip() const;
    QString SaveZipText() const;
    // "Burn to disc" is ticked: the save goes to a recorder (never together with a zip archive).
    bool SaveToDisc() const;

    // Opens a private copy of the item with the system's viewer. A copy that could not be made
    // is reported; one with unreadable parts is opened only when the user agrees; a viewer that
    // cannot be started is reported. True when the viewer was started.
    bool OpenWithViewer(const CNode* n);
    // The copies' folder lives as long as the page.
    const CViewerCopies& ViewerCopies() const { return m_viewerCopies; }

    CFileListModel* ListModel() const { return m_listModel; }
    QTreeView* FolderView() const { return m_folderView; }
    QTreeView* TypesView() const { return m_typesView; }
    QTreeView* ListView() const { return m_listView; }
    QListView* ThumbnailView() const { return m_thumbView; }
    CThumbnailModel* ThumbnailModel() const { return m_thumbModel; }
    CFilterBar* FilterBar() const { return m_filterBar; }
    // The View menu's entries: hide system folders (on by default), thumbnails.
    QList<QAction*> ViewActions() const;
    // The list as thumbnails, or as the detailed list.
    void ShowThumbnails(bool on);
    void SetHideSystemFolders(bool hide);

signals:
    void SaveRequested();
    void NewScanRequested();

private:
    void ShowPreview(CNode* n);
    void OnFind();
    void FindAgain(bool forward);
    CNode* Find(const QString& pattern, bool forward);
    void ShowProperties(const CNode* n);
    void SelectNode(CNode* n);
    CNode* SelectedNode() const;
    CNode* ItemAt(const QModelIndex& index) const; // of the list or the thumbnails
    void OpenFolder(const QModelIndex& index);
    void ItemMenu(QWidget* view, const QPoint& at);
    // Hands the filter bar's choices to the tree and the list, keeping the open folders, the
    // current folder (or its nearest shown ancestor) and the selection.
    void ApplyFilter();
    void RememberExpanded(const QModelIndex& parent);

    CResultsState& m_results;
    IDesktop& m_desktop;
    CPhysicalDisk* m_media = nullptr;
    QString m_lastPattern;
    QSet<CNode*> m_expanded; // open folders, also while a filter hides them
    CViewerCopies m_viewerCopies;

    QTreeView* m_folderView = nullptr;
    QTreeView* m_listView = nullptr;
    CFolderTreeModel* m_treeModel = nullptr;
    CFileTypesModel* m_typesModel = nullptr;
    QTreeView* m_typesView = nullptr;
    QTabWidget* m_leftTabs = nullptr;
    CFileListModel* m_listModel = nullptr;
    CNodeFilterProxy* m_treeFilter = nullptr;
    CNodeFilterProxy* m_sorter = nullptr;
    CFilterBar* m_filterBar = nullptr;
    CThumbnailLoader* m_thumbs = nullptr;
    CThumbnailModel* m_thumbModel = nullptr;
    QListView* m_thumbView = nullptr;
    QStackedWidget* m_listStack = nullptr;
    QAction* m_hideSystemAction = nullptr;
    QAction* m_thumbnailsAction = nullptr;
    QAction* m_findNextAction = nullptr;
    QAction* m_findPreviousAction = nullptr;
    QToolButton* m_findNextButton = nullptr;
    QToolButton* m_findPreviousButton = nullptr;
    QLabel* m_findStatus = nullptr;
    QPushButton* m_markAll = nullptr;
    QPushButton* m_unmarkAll = nullptr;
    QPushButton* m_save = nullptr;
    QCheckBox* m_saveZip = nullptr;
    QCheckBox* m_saveDisc = nullptr;
    QPushButton* m_newScan = nullptr;
    QPushButton* m_find = nullptr;
    QComboBox* m_collision = nullptr;
    QLabel* m_collisionLabel = nullptr;
    QLabel* m_preview = nullptr;
    QLabel* m_notice = nullptr;
    QLabel* m_summary = nullptr;
    QPlainTextEdit* m_previewText = nullptr;
    QStackedWidget* m_previewStack = nullptr;
};

} // namespace kestrin::ui
