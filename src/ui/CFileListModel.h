#pragma once
// The file list of the results explorer: the visible children of one folder with name, size,
// modified, created and condition columns and tick boxes. Sorting goes through a proxy on Qt::UserRole.
#include <QAbstractTableModel>

#include "ui/CResultsState.h"

namespace kestrin::ui {

// The condition column's text: deleted files only, with the bytes found overwritten for partly
// overwritten ones.
QString NodeCondition(const CNode* n);

class CFileListModel final : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { kName, kSize, kModified, kCreated, kCondition, kColumns };

    explicit CFileListModel(CResultsState& state, QObject* parent = nullptr);
    void SetFolder(CNode* folder);
    // Shows these items instead of a folder's children (a group of the "File Types" view).
    void SetItems(QVector<CNode*> items);
    CNode* Folder() const { return m_folder; }
    CNode* NodeAt(int row) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    // Column titles follow the language.
    void Retranslate() { emit headerDataChanged(Qt::Horizontal, 0, kColumns - 1); }

private:
    CResultsState& m_state;
    const QVector<CNode*>& Rows() const;
    CNode* m_folder = nullptr;
    bool m_useItems = false;
    QVector<CNode*> m_items;
};

} // namespace kestrin::ui
