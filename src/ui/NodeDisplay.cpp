#include "ui/NodeDisplay.h"

#include <QApplication>
#include <QPainter>
#include <QPixmap>
#include <QStyle>

#include "ui/UiText.h"
#include "util/DosDate.h"
#include "util/Text.h"

namespace kestrin::ui {

bool IsFileTypesFolder(const CNode* n) {
    return n && n->parent && !n->parent->parent && n->IsFolder() && n->name == u"File Types";
}

QString NodeName(const CNode* n) {
    if (!n->parent) return Tx("IDS_UI_ROOT", "Root");
    // The signature scan's grouping folder is named in the window's language; saved files keep
    // the folder's own name.
    if (IsFileTypesFolder(n)) return Tx("IDS_UI_FILE_TYPES", "File Types");
    return QString::fromStdU16String(n->name);
}

namespace {
QIcon WithCross(const QIcon& base) {
    QPixmap pm = base.pixmap(16, 16);
    if (pm.isNull()) pm = QPixmap(16, 16), pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(QColor(200, 0, 0), 2.2));
    p.drawLine(7, 7, 15, 15);
    p.drawLine(15, 7, 7, 15);
    return QIcon(pm);
}
} // namespace

QIcon NodeIcon(const CNode* n) {
    static const QIcon folder = qApp->style()->standardIcon(QStyle::SP_DirIcon);
    static const QIcon file = qApp->style()->standardIcon(QStyle::SP_FileIcon);
    static const QIcon deletedFolder = WithCross(folder);
    static const QIcon deletedFile = WithCross(file);
    // Whatever lacks the in-use flag carries the mark: deleted file-system items and carved
    // files alike. The top of the tree is no item.
    bool deleted = n->parent && n->IsDeleted();
    if (n->IsFolder()) return deleted ? deletedFolder : folder;
    return deleted ? deletedFile : file;
}

QString NodeSize(const CNode* n) {
    // A folder's own size is no sum of its content: every folder reads "0 KB".
    return QString::fromStdString(FormatSizeKB(n->IsFolder() ? 0 : n->size));
}

QString NodeDate(uint16_t dosDate) { return QString::fromStdString(FormatDosDateShort(dosDate)); }

} // namespace kestrin::ui
