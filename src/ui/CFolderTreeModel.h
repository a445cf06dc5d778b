#pragma once
// The folder tree of the results explorer: "Root" on top, folders only, with tick boxes.
#include <QAbstractItemModel>

#include "ui/CResultsState.h"

namespace kestrin::ui {

class CFolderTreeModel final : public QAbstractItemModel {
    Q_OBJECT
public:
    explicit CFolderTreeModel(CResultsState& state, QObject* parent = nullptr);

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& = {}) const override { return 1; }
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    static CNode* NodeOf(const QModelIndex& index) { return static_cast<CNode*>(index.internalPointer()); }
    QModelIndex IndexOf(CNode* node) const;

private:
    void RepaintAll(const QModelIndex& parent);
    CResultsState& m_state;
};

} // namespace kestrin::ui
