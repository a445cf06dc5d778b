#include "fs/DirectoryIndex.h"

#include <new>

#include "fs/VolumeTree.h"

namespace kestrin {

namespace {
constexpr size_t kBlockNodes = 1024;
// Deeper folder chains than this are taken for a loop: no real volume nests that far, and the
// ancestor test must stay cheap.
constexpr int kMaxAncestorSteps = 4096;
} // namespace

CDirectoryIndex::CDirectoryIndex(ScanEntry* volumeRoot) : m_root(volumeRoot) {
    if (!m_root) return;
    m_lost = LostFolderOf(m_root);
    FindOrAdd(m_root);
    if (m_lost) FindOrAdd(m_lost);
}

CDirectoryIndex::~CDirectoryIndex() { Clear(); }

void CDirectoryIndex::Clear() {
    for (Node* b : m_blocks) delete[] b;
    m_blocks.clear();
    m_blockUsed = 0;
    m_top = nullptr;
    m_count = 0;
}

CDirectoryIndex::Node* CDirectoryIndex::NewNode(ScanEntry* e) {
    if (m_blocks.empty() || m_blockUsed == kBlockNodes) {
        Node* block = new (std::nothrow) Node[kBlockNodes];
        if (!block) return nullptr;
        m_blocks.push_back(block);
        m_blockUsed = 0;
    }
    Node* n = &m_blocks.back()[m_blockUsed++];
    n->entry = e;
    return n;
}

CDirectoryIndex::Node* CDirectoryIndex::Search(uint32_t key, Node** last) const {
    Node* n = m_top;
    *last = nullptr;
    while (n) {
        uint32_t k = n->entry->recordId;
        if (k == key) return n;
        *last = n;
        n = key <= k ? n->left : n->right;
    }
    return nullptr;
}

ScanEntry* CDirectoryIndex::Find(uint32_t recordId) const {
    Node* last;
    Node* n = Search(recordId, &last);
    return n ? n->entry : nullptr;
}

void CDirectoryIndex::RotateLeft(Node* x) {
    Node* y = x->right;
    x->right = y->left;
    if (y->left) y->left->parent = x;
    y->parent = x->parent;
    if (!x->parent)
        m_top = y;
    else if (x->parent->left == x)
        x->parent->left = y;
    else
        x->parent->right = y;
    y->left = x;
    x->parent = y;
}

void CDirectoryIndex::RotateRight(Node* x) {
    Node* y = x->left;
    x->left = y->right;
    if (y->right) y->right->parent = x;
    y->parent = x->parent;
    if (!x->parent)
        m_top = y;
    else if (x->parent->left == x)
        x->parent->left = y;
    else
        x->parent->right = y;
    y->right = x;
    x->parent = y;
}

// Walks up from a new leaf adjusting balance factors (right height minus left height) and
// performs the single or double rotation at the first node that becomes unbalanced.
void CDirectoryIndex::Rebalance(Node* n) {
    for (Node *c = n, *p = n->parent; p; c = p, p = p->parent) {
        p->balance += (c == p->left) ? -1 : 1;
        if (p->balance == 0) return;
        if (p->balance == -2) {
            Node* l = p->left;
            if (l->balance <= 0) {
                RotateRight(p);
                p->balance = 0;
                l->balance = 0;
            } else {
                Node* lr = l->right;
                RotateLeft(l);
                RotateRight(p);
                l->balance = lr->balance == 1 ? -1 : 0;
                p->balance = lr->balance == -1 ? 1 : 0;
                lr->balance = 0;
            }
            return;
        }
        if (p->balance == 2) {
            Node* r = p->right;
            if (r->balance >= 0) {
                RotateLeft(p);
                p->balance = 0;
                r->balance = 0;
            } else {
                Node* rl = r->left;
                RotateRight(r);
                RotateLeft(p);
                r->balance = rl->balance == -1 ? 1 : 0;
                p->balance = rl->balance == 1 ? -1 : 0;
                rl->balance = 0;
            }
            return;
        }
    }
}

void CDirectoryIndex::Link(Node* n, Node* last) {
    ++m_count;
    n->parent = last;
    if (!last) {
        m_top = n;
        return;
    }
    if (last->entry->recordId >= n->entry->recordId)
        last->left = n;
    else
        last->right = n;
    Rebalance(n);
}

ScanEntry* CDirectoryIndex::FindOrAdd(ScanEntry* dir) {
    Node* last;
    if (Node* found = Search(dir->recordId, &last)) return found->entry;
    Node* n = NewNode(dir);
    if (!n) return dir; // not indexed: it will be placed by its parent or not at all
    Link(n, last);
    return dir;
}

bool CDirectoryIndex::IsAncestorOrSelf(const ScanEntry* candidate, const ScanEntry* of) const {
    int steps = 0;
    for (const ScanEntry* p = of; p; p = p->parent)
        if (p == candidate || ++steps > kMaxAncestorSteps) return true;
    return false;
}

bool CDirectoryIndex::InsertUnderParent(ScanEntry* entry) {
    if (!entry) return true;
    Node* last;
    Node* found = Search(entry->parentRecordId, &last);
    ScanEntry* folder;
    if (found) {
        folder = found->entry;
        // A folder may not end up inside itself (looping parent references of reused or
        // damaged records): such an entry goes straight to "Lost".
        bool loops = false;
        for (ScanEntry* s = entry; s && !loops; s = s->nextSibling)
            loops = (s->flags & kNodeFolder) && IsAncestorOrSelf(s, folder);
        if (loops) {
            if (!m_lost) return true;
            folder = m_lost;
            for (ScanEntry* s = entry; s; s = s->nextSibling) s->parentRecordId = m_lost->recordId;
        }
    } else {
        std::u16string name = RecordName(entry->parentRecordId);
        ScanEntry* holder = NewScanEntry(std::move(name), kNodeFolder, entry->parentRecordId, kUnknownParent);
        Node* n = holder ? NewNode(holder) : nullptr;
        if (!n) {
            delete holder;
            FreeScanEntries(entry);
            return false;
        }
        Link(n, last);
        folder = holder;
    }
    ScanEntry* tail = entry;
    for (ScanEntry* s = entry;; s = s->nextSibling) {
        s->parent = folder;
        if (!s->nextSibling) {
            tail = s;
            break;
        }
    }
    tail->nextSibling = folder->firstChild;
    folder->firstChild = entry;
    return true;
}

void CDirectoryIndex::PlaceOrphans() {
    if (!m_lost) {
        Clear();
        return;
    }
    uint32_t orphanNo = 0;
    // In-order walk without recursion: leftmost first, then successors.
    Node* n = m_top;
    while (n && n->left) n = n->left;
    while (n) {
        ScanEntry* e = n->entry;
        // Only entries that hang nowhere move: an indexed folder that already has a parent must
        // never be linked twice, whatever its parentRecordId says.
        if (e != m_root && e != m_lost && !e->parent) {
            e->reserved = orphanNo++;
            e->parent = m_lost;
            e->nextSibling = m_lost->firstChild;
            m_lost->firstChild = e;
            e->parentRecordId = m_lost->recordId;
        }
        if (n->right) {
            n = n->right;
            while (n->left) n = n->left;
        } else {
            Node* c = n;
            n = n->parent;
            while (n && n->right == c) {
                c = n;
                n = n->parent;
            }
        }
    }
    // "Lost" was the root's first child and every later one went in front of it; it is shown
    // first again.
    if (m_root && m_root->firstChild != m_lost) {
        ScanEntry* prev = m_root->firstChild;
        while (prev && prev->nextSibling != m_lost) prev = prev->nextSibling;
        if (prev) {
            prev->nextSibling = m_lost->nextSibling;
            m_lost->nextSibling = m_root->firstChild;
            m_root->firstChild = m_lost;
        }
    }
    Clear();
}

} // namespace kestrin
