#pragma once
// Shared by the FAT and exFAT tests: scan a volume (an image file or bytes in memory) with an
// engine, flatten the found tree into paths, and compare it with a manifest.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "FailingSources.h"
#include "job/QuietScanEvents.h"
#include "fs/VolumeTree.h"
#include "job/ScanContext.h"
#include "storage/ByteSource.h"
#include "storage/CPhysicalDisk.h"
#include "util/Text.h"

namespace kestrin::test {

using NullEvents = QuietScanEvents;

using ScanFn = Outcome (*)(CPhysicalDisk&, int, ScanContext&);
using WriterFn = ContentResult (*)(CPhysicalDisk&, const CNode&, const ContentSink&);

struct ScannedVolume {
    CPhysicalDisk media;
    std::unique_ptr<CNode> top{MakeTopNode()};
    CNode* root = nullptr; // the volume root "."
    Outcome outcome = Outcome::Ok;
};

// Scans the volume at [start, start + sectors) of an image file (`image` non-empty) or of
// `bytes` in memory, whose reads of [failAt, failAt + failLen) fail. No partition record: the
// engine reads the boot sector itself.
inline std::unique_ptr<ScannedVolume> Scan(const std::string& image, const std::vector<uint8_t>& bytes, FsKind fsKind,
                                           uint64_t start, uint64_t sectors, ScanFn scan, int mode = 1,
                                           ScanOperation* op = nullptr, uint64_t failAt = 0, uint64_t failLen = 0) {
    auto v = std::make_unique<ScannedVolume>();
    if (!image.empty()) {
        if (!v->media.AttachImageFile(image)) return nullptr;
    } else {
        auto src = std::make_unique<MemorySource>(bytes);
        src->FailReadsAt(failAt, failLen);
        v->media.Attach(std::move(src));
        v->media.SetSectorSize(512);
    }
    v->media.SetFirstSector(start);
    v->media.SetSectorCount(sectors);
    v->media.SetFsKind(fsKind);
    ScanOperation localOp;
    if (!op) localOp.state = OperationState::Running;
    NullEvents events;
    PauseGate gate;
    ScanContext ctx{op ? *op : localOp, events, gate};
    ctx.top = v->top.get();
    v->outcome = scan(v->media, mode, ctx);
    v->root = FindVolumeRoot(v->top.get());
    return v;
}
inline std::unique_ptr<ScannedVolume> ScanMemory(const std::vector<uint8_t>& bytes, FsKind fsKind, ScanFn scan,
                                                 int mode = 1, ScanOperation* op = nullptr, uint64_t failAt = 0,
                                                 uint64_t failLen = 0) {
    return Scan("", bytes, fsKind, 0, bytes.size() / 512, scan, mode, op, failAt, failLen);
}

// Every item below the volume root by its '/'-joined path ("Lost" left out).
inline std::map<std::string, const CNode*> Flatten(const CNode* root) {
    std::map<std::string, const CNode*> out;
    std::vector<std::pair<const CNode*, std::string>> stack;
    for (const CNode* c = root ? root->firstChild : nullptr; c; c = c->nextSibling)
        if (c->name != u"Lost") stack.push_back({c, ToUtf8(c->name)});
    while (!stack.empty()) {
        auto [n, path] = stack.back();
        stack.pop_back();
        out[path] = n;
        for (const CNode* c = n->firstChild; c; c = c->nextSibling) stack.push_back({c, path + "/" + ToUtf8(c->name)});
    }
    return out;
}
inline std::vector<std::string> Paths(const CNode* root) {
    std::vector<std::string> out;
    for (auto& [path, node] : Flatten(root)) out.push_back(path);
    return out;
}

// How a volume's source misbehaves during a walk: the first read that touches [from, to) fails,
// with a data error (only reads there fail) or, when `gone`, with the device-gone code (that read
// and every later one fail). A stop is requested at progress call `stopAtProgress` (0: never).
struct Trouble {
    uint64_t from = 0, to = 0;
    bool gone = false;
    int stopAtProgress = 0;
};

// Events that request a stop (as the front end's Stop button does) at one progress call.
class StopAtProgress final : public IScanEvents {
public:
    StopAtProgress(ScanOperation& op, int at) : m_op(op), m_at(at) {}
    void OnEnd() override {}
    void OnProgress() override {
        if (++m_calls == m_at) m_op.state = OperationState::Cancel;
    }
    void OnSignatureScanStart() override {}

private:
    ScanOperation& m_op;
    int m_at, m_calls = 0;
};

struct TroubledScan {
    Outcome outcome = Outcome::Ok;
    std::vector<std::string> paths; // what the walk listed
    int readsAfterGone = 0;
    OperationState stateAfter = OperationState::Finished;        // the operation state when the engine returned
};

// Scans the volume in `bytes` with `scan` while its source misbehaves as `trouble` says.
inline TroubledScan ScanWithTrouble(const std::vector<uint8_t>& bytes, FsKind fsKind, ScanFn scan,
                                    const Trouble& trouble) {
    CPhysicalDisk media;
    auto owned = std::make_unique<FlakySource>(bytes, trouble.from, trouble.to,
                                               trouble.gone ? platform::kErrDeviceGone : platform::kErrNotReady + 2);
    FlakySource* src = owned.get();
    media.Attach(std::move(owned));
    media.SetSectorSize(512);
    media.SetSectorCount(bytes.size() / 512);
    media.SetFsKind(fsKind);
    ScanOperation op;
    op.state = OperationState::Running;
    StopAtProgress events(op, trouble.stopAtProgress);
    PauseGate gate;
    std::unique_ptr<CNode> top(MakeTopNode());
    ScanContext ctx{op, events, gate};
    ctx.top = top.get();
    TroubledScan r;
    r.outcome = scan(media, 1, ctx);
    r.paths = Paths(FindVolumeRoot(top.get()));
    r.readsAfterGone = src->readsAfterGone;
    r.stateAfter = op.state.load();
    return r;
}

// Checks how a walk over `bytes` ended under `trouble`: its outcome, what it listed, that it read
// nothing once the source said it was gone, and that it left the operation state alone.
inline void ExpectWalkEnd(const std::vector<uint8_t>& bytes, FsKind fsKind, ScanFn scan, const Trouble& trouble,
                          Outcome outcome, const std::vector<std::string>& paths) {
    TroubledScan r = ScanWithTrouble(bytes, fsKind, scan, trouble);
    EXPECT_EQ(r.outcome, outcome) << OutcomeName(r.outcome);
    EXPECT_EQ(r.paths, paths);
    EXPECT_EQ(r.readsAfterGone, 0);
    EXPECT_EQ(r.stateAfter, trouble.stopAtProgress ? OperationState::Cancel : OperationState::Running);
}

inline std::string ReadContent(WriterFn writer, CPhysicalDisk& media, const CNode& node, ContentResult* result = nullptr) {
    std::string out;
    ContentResult r = writer(media, node, [&](const uint8_t* p, size_t n) {
        out.append(reinterpret_cast<const char*>(p), n);
        return true;
    });
    if (result) *result = r;
    return out;
}

// An image of tests/images, or of the shared corpus (unpacked into the build folder), with its
// manifest; empty when not available.
inline std::pair<std::string, nlohmann::json> OpenFixture(const std::string& name, bool corpus) {
    namespace fs = std::filesystem;
    fs::path dir = corpus ? fs::path(KESTRIN_CORPUS_DIR) / "fixtures" : fs::path(KESTRIN_SOURCE_DIR) / "tests/images";
    fs::path out = fs::path(KESTRIN_BINARY_DIR) / "test-images" / (name + ".img");
    std::ifstream in(dir / (name + ".json"));
    std::error_code ec;
    if (!in || !fs::exists(dir / (name + ".img.zst"), ec)) return {};
    if (!fs::exists(out, ec)) {
        fs::create_directories(out.parent_path(), ec);
        std::string tmp = out.string() + ".part" + std::to_string(::getpid());
        if (std::system(("zstd -q -d -f '" + (dir / (name + ".img.zst")).string() + "' -o '" + tmp + "'").c_str()))
            return {};
        fs::rename(tmp, out, ec);
    }
    return {out.string(), nlohmann::json::parse(in, nullptr, false)};
}

// The path the engine shows for a manifest item, and false when a deliberate rule hides it.
using ExpectFn = std::pair<std::string, bool> (*)(const nlohmann::json& item,
                                                 const std::map<std::string, nlohmann::json>& byPath);

// Compares a scanned volume with a manifest partition: every expected item listed with its
// folder/deleted state and (files) size, nothing else listed, and in-use files and deleted ones
// whose content is intact and contiguous read back byte-exact. Returns the differences.
inline std::vector<std::string> CompareWithManifest(const std::string& image, const nlohmann::json& part,
                                                    ScannedVolume& v, WriterFn writer, ExpectFn expect) {
    std::vector<std::string> problems;
    std::map<std::string, nlohmann::json> byPath;
    for (const auto& f : part["files"]) byPath[f["path"].get<std::string>()] = f;
    auto found = Flatten(v.root);
    std::ifstream in(image, std::ios::binary);
    for (const auto& [manifestPath, item] : byPath) {
        auto [path, listed] = expect(item, byPath);
        auto it = found.find(path);
        if (!listed || it == found.end()) {
            if (listed) problems.push_back("missing: " + path);
            if (it != found.end()) found.erase(it); // hidden by a rule but listed after all: fine
            continue;
        }
        const CNode* n = it->second;
        found.erase(it);
        bool deleted = item["deleted"], isDir = item["type"] == "dir";
        if (n->IsFolder() != isDir || n->IsDeleted() != deleted) problems.push_back("flags: " + path);
        if (isDir) continue;
        if (n->size != item["size"].get<uint64_t>()) problems.push_back("size: " + path);
        if (deleted && !(item.value("content_intact", false) && !item.value("fragmented", false))) continue;
        std::string expected;
        for (const auto& ext : item["extents"]) {
            std::string piece(ext[1].get<size_t>(), '\0');
            in.seekg(ext[0].get<int64_t>());
            in.read(piece.data(), std::streamsize(piece.size()));
            expected += piece;
        }
        ContentResult r;
        if (ReadContent(writer, v.media, *n, &r) != expected || !r.ok) problems.push_back("content: " + path);
    }
    for (const auto& [path, n] : found) problems.push_back("extra: " + path);
    return problems;
}

} // namespace kestrin::test
