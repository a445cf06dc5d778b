#pragma once
// The results explorer: the folder tree and the File Types view beside the list of the chosen
// folder or type, a preview of the selected file, find, properties and open-with, and the bar
// with the save choices. Saving itself is the main window's: the page only asks for it.
#include <QWidget>
#include <cstdint>
#include <functional>

#include "ui/CViewerCopies.h"

#include "fs/CNode.h"
#include "ui/Desktop.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QPlainTextEdit;
class QPushButton;
class QSortFilterProxyModel;
class QStackedWidget;
class QTabWidget;
class QTreeView;

namespace kestrin {
class CPhysicalDisk;
}

namespace kestrin::ui {

class CResultsState;
class CFolderTreeModel;
class CFileListModel;
class CFileTypesModel;

class CResultsPage final : public QWidget {
    Q_OBJECT
public:
    // `results` is the window's view state of the found tree; it outlives the page's use of it.
    CResultsPage(CResultsState& results, IDesktop& desktop, QWidget* parent = nullptr);

    // The source the found items are read from (preview, open-with, byte offsets); null while
    // no source is open.
    void SetSource(CPhysicalDisk* media) { m_media = media; }
    // Shows a new result tree from its top: every item, the folder view, nothing previewed.
    void Show(CNode* tree);
    void Retranslate();

    // Next found item after the selected one whose name matches `pattern` ("*" and "?",
    // any case), shown selected; null when none.
    CNode* FindNext(const QString& pattern);
    // Every field of a found item, its location as sector and byte offset.
    QString PropertiesText(const CNode* n) const;

    // The save choices of the bar.
    uint8_t CollisionMode() const;
    bool SaveIntoZip() const;
    QString SaveZipText() const;

    // Opens a private copy of the item with the system's viewer. A copy that could not be made
    // is reported; one with unreadable parts is opened only when the user agrees; a viewer that
    // cannot be started is reported. True when the viewer was started.
    bool OpenWithViewer(const CNode* n);
    // The copies' folder lives as long as the page.
    const CViewerCopies& ViewerCopies() const { return m_viewerCopies; }

    CFileListModel* ListModel() const { return m_listModel; }
    QTreeView* FolderView() const { return m_folderView; }
    QTreeView* TypesView() const { return m_typesView; }

signals:
    void SaveRequested();
    void NewScanRequested();

private:
    void ShowPreview(CNode* n);
    void OnFind();
    void ShowProperties(const CNode* n);
    void SelectNode(CNode* n);
    CNode* SelectedNode() const;

    CResultsState& m_results;
    IDesktop& m_desktop;
    CPhysicalDisk* m_media = nullptr;
    QString m_lastPattern;
    CViewerCopies m_viewerCopies;

    QTreeView* m_folderView = nullptr;
    QTreeView* m_listView = nullptr;
    CFolderTreeModel* m_treeModel = nullptr;
    CFileTypesModel* m_typesModel = nullptr;
    QTreeView* m_typesView = nullptr;
    QTabWidget* m_leftTabs = nullptr;
    CFileListModel* m_listModel = nullptr;
    QSortFilterProxyModel* m_sorter = nullptr;
    QCheckBox* m_deletedOnly = nullptr;
    QPushButton* m_markAll = nullptr;
    QPushButton* m_unmarkAll = nullptr;
    QPushButton* m_save = nullptr;
    QCheckBox* m_saveZip = nullptr;
    QPushButton* m_newScan = nullptr;
    QPushButton* m_find = nullptr;
    QComboBox* m_collision = nullptr;
    QLabel* m_collisionLabel = nullptr;
    QLabel* m_preview = nullptr;
    QPlainTextEdit* m_previewText = nullptr;
    QStackedWidget* m_previewStack = nullptr;
};

} // namespace kestrin::ui
