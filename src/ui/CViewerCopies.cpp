#include "ui/CViewerCopies.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "fs/CNode.h"
#include "output/ContentCopy.h"
#include "ui/UiText.h"

namespace kestrin::ui {

CViewerCopies::CViewerCopies() = default;
CViewerCopies::~CViewerCopies() = default;

QString CViewerCopies::Folder() const { return m_dir ? m_dir->path() : QString(); }

CViewerCopies::Copy CViewerCopies::Make(CPhysicalDisk& media, const CNode& node) {
    Copy copy;
    if (!m_dir) {
        // A fresh folder with a random name, made with mode 0700 or not at all: a link planted
        // under a guessable name in the shared temporary folder is never followed.
        m_dir = std::make_unique<QTemporaryDir>(QDir::tempPath() + "/kestrin-view-XXXXXX");
        if (!m_dir->isValid()) {
            copy.error = Tx("IDS_UI_VIEW_NO_FOLDER", "No private temporary folder could be made for the copy:") + " " +
                         m_dir->errorString();
            m_dir.reset();
            return copy;
        }
    }
    // Each copy in its own numbered folder: two items of the same name never share a file, and
    // a viewer still showing the first copy keeps it.
    QString sub = QString::number(++m_copies);
    if (!QDir(m_dir->path()).mkdir(sub, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner)) {
        copy.error = Tx("IDS_UI_VIEW_NOT_WRITTEN", "The copy for the viewer could not be written:") + " " + m_dir->path() + "/" + sub;
        return copy;
    }
    QString name = QString::fromStdU16String(node.name);
    name.replace('/', '_');
    if (name.isEmpty() || name == "." || name == "..") name = "item";
    QFile file(m_dir->path() + "/" + sub + "/" + name);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly, QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
        copy.error = Tx("IDS_UI_VIEW_NOT_WRITTEN", "The copy for the viewer could not be written:") + " " + file.fileName() +
                     " (" + file.errorString() + ")";
        return copy;
    }
    bool writeFailed = false;
    ContentResult r = WriteNodeContent(media, node, [&](const uint8_t* p, size_t len) {
        writeFailed = file.write(reinterpret_cast<const char*>(p), qint64(len)) != qint64(len);
        return !writeFailed;
    });
    writeFailed = !file.flush() || writeFailed;
    if (writeFailed) {
        copy.error = Tx("IDS_UI_VIEW_NOT_WRITTEN", "The copy for the viewer could not be written:") + " " + file.fileName() +
                     " (" + file.errorString() + ")";
        file.remove();
        return copy;
    }
    file.close();
    // Zeros in place of every byte are no copy of the item.
    if (node.size && (!r.written || r.unreadable >= node.size)) {
        copy.error = Tx("IDS_UI_VIEW_UNREADABLE", "The content of this item could not be read from the source.");
        file.remove();
        return copy;
    }
    copy.path = file.fileName();
    copy.unreadable = r.unreadable;
    copy.incomplete = !r.ok;
    return copy;
}

} // namespace kestrin::ui
