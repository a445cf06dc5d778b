#pragma once
// What the preview pane makes of a found file's first bytes: a picture (the file's own, or the
// JPEG preview a camera raw file carries), else text, else a hex dump.
#include <QByteArray>
#include <QFont>
#include <QImage>
#include <QString>

namespace kestrin::ui {

// A font whose characters are all as wide, for the hex view: the system's, else a monospace
// family the font configuration resolves.
QFont FixedWidthFont();
// By the name's extension: the raw formats of digital cameras.
bool IsCameraRawName(const QString& name);
// The file's picture when Qt reads its format, else the largest JPEG inside it that decodes and
// is more than a thumbnail; null when there is none. For a camera raw file the embedded JPEG
// is tried first.
QImage DecodePreviewImage(const QByteArray& bytes, bool cameraRaw = false);
// A picture of at most `edge` pixels on its longer side, decoded at that scale where the reader
// can (JPEG) and turned as its orientation tag says; for a camera raw file its embedded JPEG
// preview. Null when none decodes.
QImage DecodeThumbnail(const QByteArray& bytes, bool cameraRaw, int edge);
// The first `limit` bytes as text when they read as UTF-8 without control characters (line
// breaks and tabs allowed), else as a hex dump: offset, 16 bytes, their printable characters.
QString PreviewText(const QByteArray& bytes, int limit);

} // namespace kestrin::ui
