#pragma once
// The main window: the three mode pages, the drive-selection page (CDrivePage), the partition
// choice and the results explorer (CResultsPage), with the Tools and Language menus. Saving and
// recovery sessions live in CMainWindowSave.cpp. Scans and saves run on the driver's worker
// behind the progress window; this thread only shows.
#include <QDateTime>
#include <QMainWindow>
#include <memory>
#include <vector>

#include "carve/SignatureRecord.h"
#include "session/Source.h"
#include "fs/CNode.h"
#include "output/Saver.h"
#include "ui/CResultsState.h"
#include "ui/Desktop.h"

class QAction;
class QLabel;
class QPushButton;
class QStackedWidget;
class QTabWidget;
class QTreeView;
class QTreeWidget;

namespace kestrin::ui {

class CDrivePage;
class CFileListModel;
class CResultsPage;

class CMainWindow final : public QMainWindow {
    Q_OBJECT
public:
    enum Page { kModePage, kDrivePage, kPartitionPage, kResultsPage };
    // Where the window goes when the running operation ends, set as it starts: the partition
    // list after a partition search or image creation, the results after a scan or save, and
    // the results of the whole-drive search that follows an empty partition search.
    enum class WindowState : uint32_t { Idle = 0, PartitionList = 1009, WholeDriveSearch = 1011, Results = 32777 };

    explicit CMainWindow(IDesktop& desktop, QWidget* parent = nullptr);
    ~CMainWindow() override;

    // The steps a user takes with the mouse, callable on their own (tests, screenshots).
    void ChooseMode(RecoveryMode mode);
    // Opens a disk, volume or image file read-only and goes on: a volume is scanned at once, a
    // disk shows its partitions. False (with a message) when it cannot be opened.
    // `partition` >= 0: scan that entry of the source's partition list straight away.
    bool OpenAndContinue(const QString& path, int partition = -1);
    // Scans listed partition `index` (-1: the whole source) and shows the results.
    bool ScanPartition(int index);
    // Saves the ticked items into `folder` after the destination checks; a name ending in ".zip"
    // is a zip archive to write them into.
    // Every output is checked against the source first; an existing archive is replaced only
    // after the user agreed.
    bool SaveTo(const QString& folder, uint8_t collisionMode);
    // Saves the ticked items onto a disc in a recorder the user picks.
    void BurnTicked();
    // The result box of a save into `destination`: what was saved, and everything that was not
    // saved as found (unreadable parts, write errors, skipped, logged, cancelled).
    static QString SaveSummary(const SaveResult& r, const QString& destination, bool cancelled);
    void SetLanguage(int index);
    // Lists an image file on the drive page as "Add Image File..." does, without the dialog.
    void AddImageItem(const QString& path);
    void ShowModeTab(int tab);
    // Recovery sessions: the tree and the source description, to browse and save again later.
    // Never over the source; an existing file is replaced only after the user agreed.
    bool SaveSession(const QString& path);
    // `fromOutside`: named on the command line rather than opened from the Tools menu while a
    // recovery mode is in use; only then may the session come from another mode.
    bool OpenSession(const QString& path, bool fromOutside);
    // Tools > Open Recovery Session without the file dialog: from the mode pages any session
    // opens, while a recovery mode is in use only one of that mode.
    bool OpenSessionFromMenu(const QString& path);
    // A session file another start of the program handed over: the window comes to the front,
    // offers to keep the current results, then opens it as one named on the command line.
    void OpenHandedSession(const QString& path);
    // File > Open without the dialog: a recovery session opens as from the Tools menu; any
    // other file is an image, listed on the current mode's drive page.
    void OpenFile(const QString& path);
    // The proposed file name of a session of the current source at local time `now`.
    QString DefaultSessionName(const QDateTime& now) const;
    // Next found item after the selected one whose name matches `pattern` ("*" and "?",
    // any case), shown selected; null when none.
    CNode* FindNext(const QString& pattern);
    // Every field of a found item, its location as sector and byte offset.
    QString PropertiesText(const CNode* n) const;

    Page CurrentPage() const;
    WindowState State() const { return m_state; }
    // Set while a scan runs (file-system scan, smart scan, whole-drive search): the pages and
    // menus take no input and the window does not close.
    bool Busy() const { return m_busy; }
    RecoveryMode Mode() const { return m_mode; }
    CResultsState& Results() { return m_results; }
    CNode* Tree() const { return m_tree.get(); }
    const SaveResult& LastSave() const { return m_lastSave; }
    CFileListModel* ListModel() const;
    QTreeView* FolderView() const;
    QTreeView* TypesView() const;

private:
    IDesktop& m_desktop;

    void BuildModePages();
    void BuildPartitionPage();
    void BuildMenus();
    void BuildToolsMenu();
    void BuildHelpMenu();
    void OnOpen();
    // Title and the actions that need the results page follow the page and the open source.
    void UpdateTitleAndActions();
    void Retranslate();
    void FillPartitionList();
    void ChooseFileTypes();
    void ShowResults();
    bool RunOperation(std::optional<OperationKind> forcedKind);
    // The state and busy flag of an operation of `kind` that starts; EndOperation clears the flag.
    void BeginOperation(OperationKind kind);
    void EndOperation();
    // The results page's status line and remark for the tree shown.
    void ShowScanSummary();
    void SetPage(Page p);
    // Saving and sessions (CMainWindowSave.cpp).
    void OnSave();
    void OnSaveSession();
    void OnOpenSession();
    // On leaving the results: offers to save the session; false when the user cancels.
    bool OfferSession();
    // File > Export List: every found item as DFXML, a body file or CSV.
    void OnExportList();
    void closeEvent(QCloseEvent* e) override;

    RecoveryMode m_mode = RecoveryMode::DeletedFiles;
    OpenedSource m_src;
    bool m_haveSource = false;
    std::vector<SignatureRecord> m_signatures;   // the ticked rows, searched by the signature scan
    std::vector<SignatureRecord> m_modeSignatures; // every row the mode lists
    std::vector<bool> m_signatureTicks;
    std::unique_ptr<CNode> m_tree;
    CResultsState m_results;
    SaveResult m_lastSave;
    bool m_sessionSaved = false;
    WindowState m_state = WindowState::Idle;
    bool m_busy = false;
    // How the last scan ended, for the summary under the results.
    struct LastScan {
        bool ran = false, cancelled = false, skipped = false;
        uint64_t readFailures = 0;
        double seconds = 0;
    } m_lastScan;

    QStackedWidget* m_pages = nullptr;
    QTabWidget* m_modeTabs = nullptr;
    struct ModeButton {
        RecoveryMode mode;
        const char* labelId;
        const char* textId;
        QPushButton* button;
        QLabel* text;
    };
    std::vector<ModeButton> m_modeButtons;
    CDrivePage* m_drivePage = nullptr;
    QLabel* m_partTitle = nullptr;
    QTreeWidget* m_partitions = nullptr;
    QPushButton* m_partBack = nullptr;
    QPushButton* m_partScan = nullptr;
    QPushButton* m_partSearch = nullptr;
    CResultsPage* m_resultsPage = nullptr;
    QString m_titleSubject; // the open source's or session's file name; empty for none
    QMenu* m_fileMenu = nullptr;
    QAction* m_openAction = nullptr;
    QAction* m_saveAction = nullptr;
    QAction* m_exportAction = nullptr;
    QAction* m_quitAction = nullptr;
    QMenu* m_editMenu = nullptr;
    QAction* m_findAction = nullptr;
    QMenu* m_helpMenu = nullptr;
    QAction* m_docsAction = nullptr;
    QAction* m_aboutAction = nullptr;
    QMenu* m_toolsMenu = nullptr;
    QMenu* m_viewMenu = nullptr; // the results page's view choices
    QAction* m_saveSessionAction = nullptr;
    QAction* m_openSessionAction = nullptr;
    QMenu* m_languageMenu = nullptr;
    QList<QAction*> m_languageActions;
};

} // namespace kestrin::ui
