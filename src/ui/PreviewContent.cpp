#include "ui/PreviewContent.h"

#include <QBuffer>
#include <QFileInfo>
#include <QImageReader>
#include <QFontDatabase>
#include <QFontMetrics>
#include <QStringList>

#include "carve/EmbeddedJpeg.h"

namespace kestrin::ui {

QFont FixedWidthFont() {
    QFont f = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    // Measured rather than asked: some monospace fonts do not declare themselves so.
    QFontMetrics fm(f);
    if (fm.horizontalAdvance("iiii") == fm.horizontalAdvance("MMMM")) return f;
    f.setFamily("Monospace");
    f.setStyleHint(QFont::TypeWriter);
    f.setFixedPitch(true);
    return f;
}

bool IsCameraRawName(const QString& name) {
    static const QStringList kRaw = {"3fr", "arw", "cr2", "crw", "dcr", "dng", "erf", "kdc", "mef", "mos", "mrw",
                                     "nef", "nrw", "orf", "pef", "raf", "raw", "rw2", "rwl", "sr2", "srf", "srw", "x3f"};
    return kRaw.contains(QFileInfo(name).suffix().toLower());
}

QImage DecodePreviewImage(const QByteArray& bytes, bool cameraRaw) {
    QImage img;
    if (bytes.isEmpty()) return img;
    // A raw file read as TIFF shows its first directory, often a thumbnail of a few pixels:
    // its embedded preview JPEG comes first.
    if (!cameraRaw && img.loadFromData(bytes)) return img;
    auto candidates = FindEmbeddedJpegs({reinterpret_cast<const uint8_t*>(bytes.constData()), size_t(bytes.size())});
    // Largest first; a handful of tries is enough, and a thumbnail of a few pixels is no preview.
    for (size_t i = 0; i < candidates.size() && i < 4; ++i) {
        if (uint32_t(candidates[i].width) * candidates[i].height < 64 * 48) break;
        QByteArray jpeg = QByteArray::fromRawData(bytes.constData() + candidates[i].offset,
                                                  bytes.size() - qsizetype(candidates[i].offset));
        if (img.loadFromData(jpeg, "JPEG")) return img;
    }
    if (cameraRaw && img.loadFromData(bytes)) return img;
    return {};
}

namespace {

QImage ReadScaled(const QByteArray& bytes, const char* format, int edge) {
    QBuffer buf;
    buf.setData(bytes);
    buf.open(QIODevice::ReadOnly);
    QImageReader reader(&buf, format);
    reader.setAutoTransform(true);
    QSize size = reader.size();
    // A claimed size is only a hint for the scaled decode; the reader checks the data itself.
    if (size.isValid() && (size.width() > edge || size.height() > edge))
        reader.setScaledSize(size.scaled(edge, edge, Qt::KeepAspectRatio).expandedTo(QSize(1, 1)));
    QImage img = reader.read();
    if (!img.isNull() && (img.width() > edge || img.height() > edge))
        img = img.scaled(edge, edge, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return img;
}

} // namespace

QImage DecodeThumbnail(const QByteArray& bytes, bool cameraRaw, int edge) {
    if (bytes.isEmpty() || edge <= 0) return {};
    if (!cameraRaw) {
        QImage img = ReadScaled(bytes, nullptr, edge);
        if (!img.isNull()) return img;
    }
    auto candidates = FindEmbeddedJpegs({reinterpret_cast<const uint8_t*>(bytes.constData()), size_t(bytes.size())});
    for (size_t i = 0; i < candidates.size() && i < 4; ++i) {
        QByteArray jpeg = QByteArray::fromRawData(bytes.constData() + candidates[i].offset,
                                                  bytes.size() - qsizetype(candidates[i].offset));
        QImage img = ReadScaled(jpeg, "JPEG", edge);
        if (!img.isNull()) return img;
    }
    return {};
}

QString PreviewText(const QByteArray& bytes, int limit) {
    QByteArray head = bytes.left(limit);
    bool text = !head.isEmpty();
    for (char c : head)
        if ((unsigned char)c < 0x20 && c != '\n' && c != '\r' && c != '\t') text = false;
    if (text) {
        // A multi-byte character that the limit cut in two is left out.
        qsizetype end = head.size();
        if (bytes.size() > head.size()) {
            for (qsizetype back = 1; back <= 3 && back <= end; ++back) {
                unsigned char c = (unsigned char)head[end - back];
                if ((c & 0xC0) == 0x80) continue;
                int need = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
                if (need > back) end -= back;
                break;
            }
        }
        QString s = QString::fromUtf8(head.left(end));
        if (!s.contains(QChar::ReplacementCharacter)) return s; // not UTF-8: shown as hex
    }
    QString hex;
    for (int off = 0; off < head.size(); off += 16) {
        QString line = QString("%1  ").arg(off, 8, 16, QChar('0'));
        QString ascii;
        for (int i = off; i < off + 16 && i < head.size(); ++i) {
            unsigned char c = (unsigned char)head[i];
            line += QString("%1 ").arg(c, 2, 16, QChar('0'));
            ascii += (c >= 0x20 && c < 0x7f) ? QChar(c) : QChar('.');
        }
        hex += line.leftJustified(58) + ascii + "\n";
    }
    return hex;
}

} // namespace kestrin::ui
