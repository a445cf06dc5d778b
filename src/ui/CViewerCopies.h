#pragma once
// Copies of found items for the system's viewer. They go into a folder of this run that only
// this user may enter (made on the first copy, with a name nobody can plant beforehand) and that
// is removed, with every copy in it, when the object goes.
#include <QString>
#include <cstdint>
#include <memory>

class QTemporaryDir;

namespace kestrin {
class CNode;
class CPhysicalDisk;
} // namespace kestrin

namespace kestrin::ui {

class CViewerCopies final {
public:
    CViewerCopies();
    ~CViewerCopies();
    CViewerCopies(const CViewerCopies&) = delete;
    CViewerCopies& operator=(const CViewerCopies&) = delete;

    struct Copy {
        QString path;          // the copy; empty when none was made
        QString error;         // why no copy was made
        uint64_t unreadable = 0; // bytes of the copy that could not be read from the source
        bool incomplete = false; // the copy does not hold the whole item
    };
    // Writes the content of `node` into a new file of the folder, under the item's own name so
    // that the viewer is chosen by its ending.
    Copy Make(CPhysicalDisk& media, const CNode& node);
    // The private folder; empty until the first copy.
    QString Folder() const;

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    unsigned m_copies = 0;
};

} // namespace kestrin::ui
