#pragma once
// The "File Types" view of the results explorer: one group per extension under a "File Types"
// top, with tick boxes that tick the group's files in the tree itself.
#include <QAbstractItemModel>

#include "ui/CResultsState.h"

namespace kestrin::ui {

class CFileTypesModel final : public QAbstractItemModel {
    Q_OBJECT
public:
    explicit CFileTypesModel(CResultsState& state, QObject* parent = nullptr);

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& = {}) const override { return 1; }
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    // The files an item stands for: the group's, or every file for the top.
    QVector<CNode*> FilesOf(const QModelIndex& index) const;

private:
    CResultsState& m_state;
};

} // namespace kestrin::ui
