#pragma once
// The folder view's row of a found folder, through the filter the view shows it with.
#include <QTreeView>

#include "ui/CFolderTreeModel.h"
#include "ui/CNodeFilterProxy.h"

namespace kestrin::test {

inline QModelIndex FolderIndexOf(QTreeView* view, CNode* folder) {
    auto* shown = static_cast<ui::CNodeFilterProxy*>(view->model());
    return shown->mapFromSource(static_cast<ui::CFolderTreeModel*>(shown->sourceModel())->IndexOf(folder));
}

} // namespace kestrin::test
