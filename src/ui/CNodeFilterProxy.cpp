#include "ui/CNodeFilterProxy.h"

#include "ui/CFileListModel.h"
#include "ui/CFolderTreeModel.h"

namespace kestrin::ui {

CNodeFilterProxy::CNodeFilterProxy(Rows rows, QObject* parent) : QSortFilterProxyModel(parent), m_rows(rows) {
    // Tick changes (Qt::CheckStateRole) never re-sort or re-filter.
    setSortRole(Qt::UserRole);
    setFilterRole(Qt::UserRole);
}

void CNodeFilterProxy::SetFilter(const CNodeFilter& filter) {
    m_filter = filter;
    invalidateFilter();
}

CNode* CNodeFilterProxy::SourceNode(const QModelIndex& sourceIndex) const {
    if (!sourceIndex.isValid()) return nullptr;
    if (m_rows == Rows::Folders) return CFolderTreeModel::NodeOf(sourceIndex);
    return static_cast<const CFileListModel*>(sourceModel())->NodeAt(sourceIndex.row());
}

CNode* CNodeFilterProxy::NodeOf(const QModelIndex& proxyIndex) const {
    if (!proxyIndex.isValid() || proxyIndex.model() != this) return nullptr;
    return SourceNode(mapToSource(proxyIndex));
}

bool CNodeFilterProxy::filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const {
    const CNode* n = SourceNode(sourceModel()->index(sourceRow, 0, sourceParent));
    if (!n) return true;
    return m_rows == Rows::Folders ? m_filter.KeepsFolder(n) : m_filter.Accepts(n);
}

bool CNodeFilterProxy::lessThan(const QModelIndex& left, const QModelIndex& right) const {
    const CNode* a = SourceNode(left);
    const CNode* b = SourceNode(right);
    if (!a || !b) return QSortFilterProxyModel::lessThan(left, right);
    switch (left.column()) {
    case CFileListModel::kSize:
        if (a->IsFolder() != b->IsFolder()) return a->IsFolder();
        if (a->size != b->size) return a->size < b->size;
        break;
    case CFileListModel::kModified:
        if (a->modifiedDate != b->modifiedDate) return a->modifiedDate < b->modifiedDate;
        break;
    case CFileListModel::kCreated:
        if (a->createdDate != b->createdDate) return a->createdDate < b->createdDate;
        break;
    default:
        if (a->IsFolder() != b->IsFolder()) return a->IsFolder();
        break;
    }
    // Equal keys fall back to the name, so the order never depends on the tree's order.
    return NaturalLess(a->name, b->name);
}

} // namespace kestrin::ui
