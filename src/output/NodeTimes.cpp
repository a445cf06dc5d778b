#include "output/NodeTimes.h"

#include <memory>

#include "fs/CNode.h"
#include "fs/VolumeHandle.h"
#include "fs/ntfs/NtfsTimes.h"
#include "output/ContentCopy.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {

namespace {

// What the walk kept, from the nearest handle that has the node.
bool KeptTimesOf(const CNode& node, ItemTimes& out) {
    for (const CNode* n = &node; n; n = n->parent)
        if (n->volume && n->volume->times.Find(node, out)) return true;
    return false;
}

} // namespace

bool ReadNodeTimes(CPhysicalDisk& media, const CNode& node, ItemTimes& out) {
    out = {};
    if (node.carved) return false;
    if (KeptTimesOf(node, out)) return out.Any();
    const VolumeHandle* volume = VolumeOf(node);
    if ((volume ? volume->fsKind : media.GetFsKind()) != FsKind::Ntfs) return false;
    if (!volume || !media.Handle()) return NtfsReadTimes(media, node, out);
    CPhysicalDisk view;
    view.Attach(std::make_unique<BorrowedSource>(*media.Handle()));
    SelectVolume(view, *volume);
    return NtfsReadTimes(view, node, out);
}

struct NodeTimesReader::State {
    explicit State(CPhysicalDisk& m) : media(m) {}
    CPhysicalDisk& media;
    // The NTFS volume read last: its own view of the source and its reader.
    const VolumeHandle* volume = nullptr;
    std::unique_ptr<CPhysicalDisk> view;
    std::unique_ptr<NtfsTimesReader> ntfs;
};

NodeTimesReader::NodeTimesReader(CPhysicalDisk& media) : m_state(std::make_unique<State>(media)) {}
NodeTimesReader::~NodeTimesReader() = default;

bool NodeTimesReader::Read(const CNode& node, ItemTimes& out) {
    out = {};
    if (node.carved) return false;
    if (KeptTimesOf(node, out)) return out.Any();
    const VolumeHandle* volume = VolumeOf(node);
    State& s = *m_state;
    if (!volume || !s.media.Handle()) return ReadNodeTimes(s.media, node, out);
    if (volume->fsKind != FsKind::Ntfs) return false;
    if (volume != s.volume || !s.ntfs) {
        s.ntfs.reset();
        s.view = std::make_unique<CPhysicalDisk>();
        s.view->Attach(std::make_unique<BorrowedSource>(*s.media.Handle()));
        SelectVolume(*s.view, *volume);
        s.ntfs = std::make_unique<NtfsTimesReader>(*s.view);
        s.volume = volume;
    }
    return s.ntfs->Read(node, out);
}

} // namespace kestrin
