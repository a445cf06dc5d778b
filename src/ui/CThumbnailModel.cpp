#include "ui/CThumbnailModel.h"

#include <QApplication>
#include <QPainter>
#include <QPixmap>
#include <QPixmapCache>
#include <algorithm>
#include <QStyle>

#include "ui/CNodeFilterProxy.h"
#include "ui/CThumbnailLoader.h"
#include "ui/NodeDisplay.h"

namespace kestrin::ui {

namespace {

// The folder or file icon at thumbnail size, with the red cross of deleted items.
QPixmap LargeIcon(bool folder, bool deleted) {
    static QPixmap cache[2][2];
    QPixmap& pm = cache[folder][deleted];
    if (!pm.isNull()) return pm;
    // Centred on a square of the thumbnails' size, so pictures and icons line up in the grid.
    const int edge = CThumbnailLoader::kEdge, at = (edge - 64) / 2;
    pm = QPixmap(edge, edge);
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    QIcon icon = qApp->style()->standardIcon(folder ? QStyle::SP_DirIcon : QStyle::SP_FileIcon);
    p.drawPixmap(at, at, icon.pixmap(64, 64));
    if (deleted) {
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(QColor(200, 0, 0), 5));
        p.drawLine(at + 30, at + 30, at + 60, at + 60);
        p.drawLine(at + 60, at + 30, at + 30, at + 60);
    }
    return pm;
}

// A deleted item's picture with the red cross on it, drawn once per picture
// and kept in the pixmap cache, so painting the grid makes no new pixmaps.
QPixmap MarkedDeleted(const QPixmap& thumb) {
    const QString key = QStringLiteral("kestrin-deleted-%1").arg(thumb.cacheKey());
    QPixmap marked;
    if (QPixmapCache::find(key, &marked)) return marked;
    marked = thumb;
    QPainter p(&marked);
    p.setRenderHint(QPainter::Antialiasing);
    // In the middle: a thumbnail may be a square with the picture centred on it, so only the
    // middle is surely picture.
    const int edge = std::max(12, std::min(marked.width(), marked.height()) / 5);
    const QRect box((marked.width() - edge) / 2, (marked.height() - edge) / 2, edge, edge);
    p.setPen(QPen(Qt::white, 7, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(box.topLeft(), box.bottomRight());
    p.drawLine(box.topRight(), box.bottomLeft());
    p.setPen(QPen(QColor(200, 0, 0), 4, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(box.topLeft(), box.bottomRight());
    p.drawLine(box.topRight(), box.bottomLeft());
    p.end();
    QPixmapCache::insert(key, marked);
    return marked;
}

} // namespace

CThumbnailModel::CThumbnailModel(CNodeFilterProxy& rows, CThumbnailLoader& loader, QObject* parent)
    : QIdentityProxyModel(parent), m_rows(rows), m_loader(loader) {
    setSourceModel(&rows);
    connect(&loader, &CThumbnailLoader::Ready, this, [this](const CNode* n) {
        QPersistentModelIndex idx = m_asked.take(n);
        if (idx.isValid()) emit dataChanged(idx, idx, {Qt::DecorationRole});
    });
    connect(this, &QAbstractItemModel::modelReset, this, [this] { m_asked.clear(); });
}

CNode* CThumbnailModel::NodeOf(const QModelIndex& index) const {
    return index.isValid() ? m_rows.NodeOf(mapToSource(index)) : nullptr;
}

QVariant CThumbnailModel::data(const QModelIndex& index, int role) const {
    if (role != Qt::DecorationRole || index.column() != 0) return QIdentityProxyModel::data(index, role);
    const CNode* n = NodeOf(index);
    if (!n) return {};
    // Whatever lacks the in-use flag carries the red cross, as in the list: deleted and carved
    // items alike.
    const bool deleted = n->parent && n->IsDeleted();
    if (const QPixmap* thumb = m_loader.Thumbnail(n)) return deleted ? MarkedDeleted(*thumb) : *thumb;
    if (CThumbnailLoader::WantsThumbnail(n) && !m_loader.Failed(n)) m_asked.insert(n, index);
    return LargeIcon(n->IsFolder(), deleted);
}

} // namespace kestrin::ui
