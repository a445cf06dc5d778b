#include "ui/CResultsState.h"

#include "fs/SystemFolders.h"

namespace kestrin::ui {

void CResultsState::Invalidate() {
    m_children.clear();
    m_folders.clear();
    m_states.clear();
    m_typesBuilt = false;
    m_extensions.clear();
    m_types.clear();
}

void CResultsState::SetTop(CNode* top) {
    m_top = top;
    m_deletedOnly = false;
    Invalidate();
    emit Reset();
}

void CResultsState::SetDeletedOnly(bool on) {
    if (!m_top || on == m_deletedOnly) return;
    m_deletedOnly = on;
    if (on) MarkDeletedView(m_top);
    else ClearDeletedView(m_top);
    m_states.clear();
    m_typesBuilt = false;
    emit ViewChanged();
    emit ChecksChanged(); // folder states count only what the deleted view keeps
}

void CResultsState::SetHideSystem(bool on) {
    if (on == m_hideSystem) return;
    m_hideSystem = on;
    m_typesBuilt = false;
    emit ViewChanged();
}

const QVector<CNode*>& CResultsState::Children(const CNode* folder) {
    auto it = m_children.find(folder);
    if (it != m_children.end()) return *it;
    QVector<CNode*> v;
    for (CNode* c = folder ? folder->firstChild : nullptr; c; c = c->nextSibling) v.push_back(c);
    return *m_children.insert(folder, std::move(v));
}

const QVector<CNode*>& CResultsState::Folders(const CNode* folder) {
    auto it = m_folders.find(folder);
    if (it != m_folders.end()) return *it;
    QVector<CNode*> v;
    for (CNode* c : Children(folder))
        if (c->IsFolder()) v.push_back(c);
    return *m_folders.insert(folder, std::move(v));
}

Qt::CheckState CResultsState::CheckState(const CNode* n) {
    if (!n->IsFolder() || !n->firstChild) return n->checked ? Qt::Checked : Qt::Unchecked;
    auto it = m_states.find(n);
    if (it != m_states.end()) return *it;
    bool any = false, all = true, sawFile = false;
    ForEachNode(const_cast<CNode*>(n), [&](CNode* c) {
        if (c->IsFolder() || !Visible(c)) return;
        sawFile = true;
        if (c->checked) any = true;
        else all = false;
    });
    Qt::CheckState s;
    if (!sawFile) s = n->checked ? Qt::Checked : Qt::Unchecked;
    else s = all ? Qt::Checked : any ? Qt::PartiallyChecked : Qt::Unchecked;
    m_states.insert(n, s);
    return s;
}

void CResultsState::SetChecked(CNode* n, bool on) {
    n->checked = on ? 1 : 0;
    // The whole subtree, hidden items included: the saver's deleted-only filter decides those.
    ForEachNode(n, [&](CNode* c) { c->checked = on ? 1 : 0; });
    m_states.clear();
    emit ChecksChanged();
}

void CResultsState::MarkAll(bool on) {
    if (m_top) SetChecked(m_top, on);
}

void CResultsState::BuildTypes() {
    if (m_typesBuilt) return;
    m_typesBuilt = true;
    m_types.clear();
    // Depth first without recursion; hidden system folders are not entered.
    for (CNode* n = m_top ? m_top->firstChild : nullptr; n;) {
        bool enter = n->IsFolder() && n->firstChild && !(m_hideSystem && IsExtendFolder(n));
        if (!n->IsFolder() && Visible(n)) {
            QString name = QString::fromStdU16String(n->name);
            qsizetype dot = name.lastIndexOf('.');
            m_types[dot <= 0 ? QString() : name.mid(dot + 1).toLower()].push_back(n);
        }
        if (enter) {
            n = n->firstChild;
            continue;
        }
        while (n && n != m_top && !n->nextSibling) n = n->parent;
        if (!n || n == m_top) break;
        n = n->nextSibling;
    }
    m_extensions = m_types.keys().toVector();
    std::sort(m_extensions.begin(), m_extensions.end());
}

const QVector<QString>& CResultsState::Extensions() {
    BuildTypes();
    return m_extensions;
}

QVector<CNode*> CResultsState::FilesOfType(const QString& extension) {
    BuildTypes();
    return m_types.value(extension);
}

Qt::CheckState CResultsState::CheckStateOf(const QVector<CNode*>& files) const {
    bool any = false, all = !files.isEmpty();
    for (const CNode* n : files) {
        if (n->checked) any = true;
        else all = false;
    }
    return all ? Qt::Checked : any ? Qt::PartiallyChecked : Qt::Unchecked;
}

void CResultsState::SetCheckedAll(const QVector<CNode*>& files, bool on) {
    for (CNode* n : files) n->checked = on ? 1 : 0;
    m_states.clear();
    emit ChecksChanged();
}

} // namespace kestrin::ui
