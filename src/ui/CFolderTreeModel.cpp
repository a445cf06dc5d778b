#include "ui/CFolderTreeModel.h"

#include "ui/NodeDisplay.h"

namespace kestrin::ui {

CFolderTreeModel::CFolderTreeModel(CResultsState& state, QObject* parent) : QAbstractItemModel(parent), m_state(state) {
    connect(&m_state, &CResultsState::Reset, this, [this] {
        beginResetModel();
        endResetModel();
    });
    connect(&m_state, &CResultsState::ChecksChanged, this, [this] { RepaintAll({}); });
}

void CFolderTreeModel::RepaintAll(const QModelIndex& parent) {
    int rows = rowCount(parent);
    if (!rows) return;
    emit dataChanged(index(0, 0, parent), index(rows - 1, 0, parent), {Qt::CheckStateRole});
    for (int r = 0; r < rows; ++r) RepaintAll(index(r, 0, parent));
}

QModelIndex CFolderTreeModel::index(int row, int column, const QModelIndex& parent) const {
    if (column != 0 || row < 0 || !m_state.Top()) return {};
    if (!parent.isValid()) return row == 0 ? createIndex(0, 0, m_state.Top()) : QModelIndex();
    const auto& folders = m_state.Folders(NodeOf(parent));
    return row < folders.size() ? createIndex(row, 0, folders[row]) : QModelIndex();
}

QModelIndex CFolderTreeModel::IndexOf(CNode* node) const {
    if (!node || !m_state.Top()) return {};
    if (node == m_state.Top()) return createIndex(0, 0, node);
    if (!node->parent) return {};
    int row = m_state.Folders(node->parent).indexOf(node);
    return row < 0 ? QModelIndex() : createIndex(row, 0, node);
}

QModelIndex CFolderTreeModel::parent(const QModelIndex& child) const {
    if (!child.isValid()) return {};
    CNode* n = NodeOf(child);
    if (n == m_state.Top() || !n->parent) return {};
    return IndexOf(n->parent);
}

int CFolderTreeModel::rowCount(const QModelIndex& parent) const {
    if (!m_state.Top()) return 0;
    if (!parent.isValid()) return 1;
    return int(m_state.Folders(NodeOf(parent)).size());
}

QVariant CFolderTreeModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid()) return {};
    const CNode* n = NodeOf(index);
    switch (role) {
    case Qt::DisplayRole:
        return NodeName(n);
    case Qt::DecorationRole:
        return NodeIcon(n);
    case Qt::CheckStateRole:
        return m_state.CheckState(n);
    default:
        return {};
    }
}

bool CFolderTreeModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid() || role != Qt::CheckStateRole) return false;
    // A click on a partly ticked folder ticks everything below it.
    m_state.SetChecked(NodeOf(index), value.toInt() != Qt::Unchecked);
    return true;
}

Qt::ItemFlags CFolderTreeModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable;
}

} // namespace kestrin::ui
