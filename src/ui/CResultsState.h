#pragma once
// What the folder tree and the file list share: the found-item tree, the "deleted only" switch
// (which decides what a save takes), the children of each folder and the tick states of folders.
// Hiding rows is the filter proxies' work: the children lists hold every child.
#include <QHash>
#include <QObject>
#include <QString>
#include <QVector>

#include "fs/CNode.h"

namespace kestrin::ui {

class CResultsState : public QObject {
    Q_OBJECT
public:
    explicit CResultsState(QObject* parent = nullptr) : QObject(parent) {}

    // The tree's top ("_R"), kept by the caller; null clears the views.
    void SetTop(CNode* top);
    CNode* Top() const { return m_top; }
    // Deleted items and the folders leading to them only (the deleted-view marking). The tree
    // stays: ViewChanged, not Reset, follows.
    void SetDeletedOnly(bool on);
    bool DeletedOnly() const { return m_deletedOnly; }
    // System folders ("$Extend", an empty "Lost") left out of the "File Types" groups.
    void SetHideSystem(bool on);
    bool HideSystem() const { return m_hideSystem; }

    // Every child of `folder`, in the tree's order.
    const QVector<CNode*>& Children(const CNode* folder);
    // Every folder child (the folder tree).
    const QVector<CNode*>& Folders(const CNode* folder);
    // Whether the deleted view keeps `n` (what tick states count and a save takes).
    bool Visible(const CNode* n) const { return !m_deletedOnly || n->inDeletedView; }

    // A file's tick; a folder is checked when every file below it is, partly when some are.
    Qt::CheckState CheckState(const CNode* n);
    // Ticks or unticks `n` and everything below it.
    void SetChecked(CNode* n, bool on);
    void MarkAll(bool on);

    // The "File Types" view: visible files grouped by extension (lower case, without the dot;
    // empty for names without one), in extension order. The groups hold the tree's own nodes,
    // so a tick in either view is the same tick.
    const QVector<QString>& Extensions();
    QVector<CNode*> FilesOfType(const QString& extension);
    Qt::CheckState CheckStateOf(const QVector<CNode*>& files) const;
    void SetCheckedAll(const QVector<CNode*>& files, bool on);

signals:
    void ChecksChanged();
    void Reset();
    // The deleted-only switch or the hiding of system folders changed; the tree is the same.
    void ViewChanged();

private:
    void Invalidate();

    CNode* m_top = nullptr;
    bool m_deletedOnly = false;
    bool m_hideSystem = true;
    QHash<const CNode*, QVector<CNode*>> m_children, m_folders;
    QHash<const CNode*, Qt::CheckState> m_states;
    void BuildTypes();
    bool m_typesBuilt = false;
    QVector<QString> m_extensions;
    QHash<QString, QVector<CNode*>> m_types;
};

} // namespace kestrin::ui
