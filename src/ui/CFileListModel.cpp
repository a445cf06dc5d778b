#include "ui/CFileListModel.h"

#include "fs/Condition.h"

#include "ui/NodeDisplay.h"
#include "ui/UiText.h"

namespace kestrin::ui {

QString NodeCondition(const CNode* n) {
    if (!TakesCondition(*n)) return {};
    switch (ConditionOf(*n)) {
    case Condition::Excellent: return Tx("IDS_UI_COND_EXCELLENT", "Excellent");
    case Condition::PartlyOverwritten: {
        // Rounded up: a few overwritten bytes never read as "0 KB".
        const uint64_t bytes = OverwrittenBytes(*n);
        const QString size = QString::fromStdString(FormatSizeKB(bytes ? bytes + 1023 : 0));
        return Tx("IDS_UI_COND_PARTLY", "Partly overwritten (%s)").replace("%s", size);
    }
    case Condition::Overwritten: return Tx("IDS_UI_COND_OVERWRITTEN", "Overwritten");
    case Condition::Unknown: break;
    }
    return Tx("IDS_UI_COND_UNKNOWN", "Unknown");
}

CFileListModel::CFileListModel(CResultsState& state, QObject* parent) : QAbstractTableModel(parent), m_state(state) {
    connect(&m_state, &CResultsState::Reset, this, [this] {
        beginResetModel();
        // The folder may have left the deleted view; the top is always there.
        if (m_folder && !m_state.Visible(m_folder)) m_folder = m_state.Top();
        if (!m_state.Top()) m_folder = nullptr;
        m_useItems = false;
        m_items.clear();
        endResetModel();
    });
    connect(&m_state, &CResultsState::ChecksChanged, this, [this] {
        if (int rows = rowCount()) emit dataChanged(index(0, 0), index(rows - 1, 0), {Qt::CheckStateRole});
    });
}

void CFileListModel::SetFolder(CNode* folder) {
    beginResetModel();
    m_folder = folder;
    m_useItems = false;
    m_items.clear();
    endResetModel();
}

void CFileListModel::SetItems(QVector<CNode*> items) {
    beginResetModel();
    m_folder = nullptr;
    m_useItems = true;
    m_items = std::move(items);
    endResetModel();
}

const QVector<CNode*>& CFileListModel::Rows() const {
    static const QVector<CNode*> none;
    if (m_useItems) return m_items;
    return m_folder ? m_state.Children(m_folder) : none;
}

CNode* CFileListModel::NodeAt(int row) const {
    const auto& rows = Rows();
    return row >= 0 && row < rows.size() ? rows[row] : nullptr;
}

int CFileListModel::rowCount(const QModelIndex& parent) const {
    if (parent.isValid()) return 0;
    return int(Rows().size());
}

int CFileListModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : kColumns; }

QVariant CFileListModel::data(const QModelIndex& index, int role) const {
    const CNode* n = NodeAt(index.row());
    if (!n) return {};
    int col = index.column();
    if (role == Qt::DisplayRole) {
        switch (col) {
        case kName: return NodeName(n);
        case kSize: return NodeSize(n);
        case kModified: return NodeDate(n->modifiedDate);
        case kCreated: return NodeDate(n->createdDate);
        case kCondition: return NodeCondition(n);
        }
    } else if (role == Qt::UserRole) {
        // Sort keys: folders before files within the name column, numbers for the rest.
        switch (col) {
        case kName: return QString(n->IsFolder() ? "0" : "1") + NodeName(n).toLower();
        case kSize: return qulonglong(n->IsFolder() ? 0 : n->size);
        case kModified: return uint(n->modifiedDate);
        case kCreated: return uint(n->createdDate);
        // Live files and folders first, then from best to worst, unknown last.
        case kCondition: {
            if (!TakesCondition(*n)) return 0u;
            const Condition c = ConditionOf(*n);
            return c == Condition::Unknown ? 5u : uint(c);
        }
        }
    } else if (role == Qt::DecorationRole && col == kName) {
        return NodeIcon(n);
    } else if (role == Qt::CheckStateRole && col == kName) {
        return m_state.CheckState(n);
    } else if (role == Qt::ToolTipRole && col == kSize && !n->IsFolder()) {
        // The column rounds down to kilobytes ("0 KB" for small files): the exact count here.
        return Tx("IDS_UI_SIZE_BYTES", "%1 bytes").arg(n->size);
    } else if (role == Qt::TextAlignmentRole && col == kSize) {
        return int(Qt::AlignRight | Qt::AlignVCenter);
    }
    return {};
}

bool CFileListModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    CNode* n = NodeAt(index.row());
    if (!n || role != Qt::CheckStateRole || index.column() != kName) return false;
    m_state.SetChecked(n, value.toInt() != Qt::Unchecked);
    return true;
}

Qt::ItemFlags CFileListModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) return Qt::NoItemFlags;
    Qt::ItemFlags f = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (index.column() == kName) f |= Qt::ItemIsUserCheckable;
    return f;
}

QVariant CFileListModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    switch (section) {
    case kName: return Tx("IDS_UI_NAME", "Name");
    case kSize: return Tx("IDS_UI_SIZE", "Size");
    case kModified: return Tx("IDS_UI_MODIFIED", "Modified");
    case kCreated: return Tx("IDS_UI_CREATED", "Created");
    case kCondition: return Tx("IDS_UI_CONDITION", "Condition");
    }
    return {};
}

} // namespace kestrin::ui
