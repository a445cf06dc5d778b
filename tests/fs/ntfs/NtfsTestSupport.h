#pragma once
// Helpers shared by the NTFS tests and the developer program: run a scan over a media without the
// scan driver, and list the resulting tree as "path<TAB>size<TAB>flags" lines.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "job/QuietScanEvents.h"
#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "fs/ntfs/NtfsEngine.h"
#include "job/ScanContext.h"
#include "util/Text.h"

namespace kestrin::test {

using NullEvents = QuietScanEvents;

// One scan's worth of driver state.
struct ScanHarness {
    ScanOperation op;
    NullEvents events;
    PauseGate gate;
    ScanContext ctx{op, events, gate};
    std::unique_ptr<CNode> top{MakeTopNode()};
    ScanHarness() {
        ctx.top = top.get();
        op.state = OperationState::Running;
    }
    CNode* Volume() const { return FindVolumeRoot(top.get()); }
};

struct Listed {
    std::string path;
    uint64_t size;
    uint16_t flags;
    uint32_t recordId;
    uint64_t location;
};

// Every node below the volume root, depth first, with "/"-joined paths from ".".
inline std::vector<Listed> ListTree(CNode* volume) {
    std::vector<Listed> out;
    struct Frame {
        CNode* node;
        std::string path;
    };
    std::vector<Frame> stack;
    for (CNode* c = volume ? volume->firstChild : nullptr; c; c = c->nextSibling) stack.push_back({c, ""});
    while (!stack.empty()) {
        Frame f = stack.back();
        stack.pop_back();
        std::string path = f.path + "/" + ToUtf8(f.node->name);
        out.push_back({path, f.node->size, f.node->flags, f.node->recordId, f.node->location});
        for (CNode* c = f.node->firstChild; c; c = c->nextSibling) stack.push_back({c, path});
    }
    return out;
}

// The node at a "/"-joined path below `volume` ("/Lost/#40/a.txt"), or null.
inline CNode* FindPath(CNode* volume, const std::string& path) {
    CNode* n = volume;
    size_t pos = 1;
    while (n && pos <= path.size()) {
        size_t slash = path.find('/', pos);
        std::string part = path.substr(pos, slash == std::string::npos ? std::string::npos : slash - pos);
        n = FindChild(n, ToUtf16(part));
        if (slash == std::string::npos) break;
        pos = slash + 1;
    }
    return n;
}

} // namespace kestrin::test
