#pragma once
// The signature explorer: the file types the current recovery mode lists, one row per record of
// the signature file, ticked rows are searched by the signature scan. Adds, edits and deletes
// user-defined types (each change is saved to the signature file at once and the list is read
// again), marks or unmarks every row and finds a row by its extension.
#include <QDialog>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "carve/SignatureRecord.h"
#include "job/ScanOperation.h"
#include "ui/Desktop.h"

class QLineEdit;
class QPushButton;
class QTreeWidget;

namespace kestrin::ui {

class CSignatureExplorer final : public QDialog {
    Q_OBJECT
public:
    // Reads the signature file in `folder` and lists what `mode` shows. `rows` and `ticked` are
    // the rows and ticks of the last time: a row seen before keeps its tick, a new one is ticked.
    CSignatureExplorer(RecoveryMode mode, const std::string& folder, const std::vector<SignatureRecord>& rows,
                       const std::vector<bool>& ticked, IDesktop& desktop, QWidget* parent = nullptr);

    // The mode's rows as listed now, after any change.
    const std::vector<SignatureRecord>& Rows() const { return m_rows; }
    // Whether each row is ticked.
    std::vector<bool> Ticked() const;
    // The ticks the rows had when the explorer opened (what "Skip" keeps); new rows ticked.
    std::vector<bool> EntryTicks() const;

    // The commands of the buttons and the list's context menu.
    void AddFileType();
    void EditFileType();
    void DeleteFileType();
    void MarkAll(bool ticked);
    // Selects the next row after the selected one whose extension or description contains
    // `text` (any case, leading dots ignored); false when there is none.
    bool FindNext(const QString& text);

    QTreeWidget* List() const { return m_list; }
    // The selected row, -1 when none.
    int CurrentRow() const;
    void SelectRow(int row);

private:
    using TickQueues = std::map<std::string, std::deque<bool>>;
    // The ticks of the listed rows by record, in row order, leaving out row `skip`.
    TickQueues CurrentTicks(int skip = -1) const;
    void Load(const TickQueues& ticks);
    void ShowContextMenu(const QPoint& at);
    void UpdateCommands();
    // Reads the find field and looks for the next match.
    void FindFromField();

    RecoveryMode m_mode;
    std::string m_folder;
    IDesktop& m_desktop;
    std::vector<SignatureRecord> m_all;  // every record of the file, in file order
    std::vector<size_t> m_fileIndex;     // row → index into m_all
    std::vector<SignatureRecord> m_rows; // the records the mode lists
    TickQueues m_entryTicks;
    QTreeWidget* m_list = nullptr;
    QLineEdit* m_find = nullptr;
    QPushButton* m_edit = nullptr;
};

} // namespace kestrin::ui
