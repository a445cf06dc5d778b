#include "ui/CFileTypesModel.h"

#include <QApplication>
#include <QStyle>

#include "ui/UiText.h"

namespace kestrin::ui {

// Internal ids: 0 the top, i + 1 the group of extension i.
CFileTypesModel::CFileTypesModel(CResultsState& state, QObject* parent) : QAbstractItemModel(parent), m_state(state) {
    connect(&m_state, &CResultsState::Reset, this, [this] {
        beginResetModel();
        endResetModel();
    });
    // The groups are built again for the new view.
    connect(&m_state, &CResultsState::ViewChanged, this, [this] {
        beginResetModel();
        endResetModel();
    });
    connect(&m_state, &CResultsState::ChecksChanged, this, [this] {
        if (!m_state.Top()) return;
        QModelIndex top = index(0, 0);
        emit dataChanged(top, top, {Qt::CheckStateRole});
        if (int rows = rowCount(top)) emit dataChanged(index(0, 0, top), index(rows - 1, 0, top), {Qt::CheckStateRole});
    });
}

QModelIndex CFileTypesModel::index(int row, int column, const QModelIndex& parent) const {
    if (column != 0 || row < 0 || !m_state.Top()) return {};
    if (!parent.isValid()) return row == 0 ? createIndex(0, 0, quintptr(0)) : QModelIndex();
    if (parent.internalId() != 0 || row >= m_state.Extensions().size()) return {};
    return createIndex(row, 0, quintptr(row + 1));
}

QModelIndex CFileTypesModel::parent(const QModelIndex& child) const {
    if (!child.isValid() || child.internalId() == 0) return {};
    return createIndex(0, 0, quintptr(0));
}

int CFileTypesModel::rowCount(const QModelIndex& parent) const {
    if (!m_state.Top()) return 0;
    if (!parent.isValid()) return 1;
    return parent.internalId() == 0 ? int(m_state.Extensions().size()) : 0;
}

QVector<CNode*> CFileTypesModel::FilesOf(const QModelIndex& index) const {
    if (!index.isValid()) return {};
    if (index.internalId() == 0) {
        QVector<CNode*> all;
        for (const QString& ext : m_state.Extensions()) all += m_state.FilesOfType(ext);
        return all;
    }
    int i = int(index.internalId()) - 1;
    const auto& exts = m_state.Extensions();
    return i < exts.size() ? m_state.FilesOfType(exts[i]) : QVector<CNode*>();
}

QVariant CFileTypesModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid()) return {};
    switch (role) {
    case Qt::DisplayRole: {
        if (index.internalId() == 0) return Tx("IDS_UI_FILE_TYPES", "File Types");
        QString ext = m_state.Extensions().value(int(index.internalId()) - 1);
        QString label = ext.isEmpty() ? Tx("IDS_UI_NO_EXTENSION", "(no extension)") : ext.toUpper();
        return label + QString(" (%1)").arg(m_state.FilesOfType(ext).size());
    }
    case Qt::DecorationRole:
        return qApp->style()->standardIcon(QStyle::SP_DirIcon);
    case Qt::CheckStateRole:
        return m_state.CheckStateOf(FilesOf(index));
    default:
        return {};
    }
}

bool CFileTypesModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid() || role != Qt::CheckStateRole) return false;
    m_state.SetCheckedAll(FilesOf(index), value.toInt() != Qt::Unchecked);
    return true;
}

Qt::ItemFlags CFileTypesModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable;
}

} // namespace kestrin::ui
