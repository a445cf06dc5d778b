#pragma once
// The filter bar's view of the folder tree or the file list: rows the CNodeFilter turns away are
// left out without resetting the view, so expanded folders and the selection stay. The list
// sorts names naturally (folders first), sizes and dates by value.
#include <QSortFilterProxyModel>

#include "ui/CNodeFilter.h"

namespace kestrin::ui {

class CNodeFilterProxy final : public QSortFilterProxyModel {
    Q_OBJECT
public:
    enum class Rows { Folders, Files };
    // The source is a CFolderTreeModel (Folders) or a CFileListModel (Files).
    CNodeFilterProxy(Rows rows, QObject* parent = nullptr);

    const CNodeFilter& Filter() const { return m_filter; }
    // Takes a new filter and re-filters the rows in place.
    void SetFilter(const CNodeFilter& filter);
    CNode* NodeOf(const QModelIndex& proxyIndex) const;

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

private:
    CNode* SourceNode(const QModelIndex& sourceIndex) const;
    Rows m_rows;
    CNodeFilter m_filter;
};

} // namespace kestrin::ui
