#pragma once
// The volume-case fixtures (scripts/fixtures/make-volume-case-fixtures): a volume made by the file
// system's own tools, a manifest of what it holds (path, folder or file, deleted, size, SHA-256),
// and a check that the engine lists every item and reads every file back.
#include <map>
#include <string>
#include <vector>

#include "fs/Content.h"
#include "fs/fat/VolumeImageCheck.h"
#include "fs/ntfs/Sha256.h"

namespace kestrin::test {

inline std::string Sha256Of(const std::string& bytes) {
    HexSha256 h;
    h.Update(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return h.Hex();
}

// Scans the fixture `name` as a bare volume of `kind` (image size when `sectors` is 0).
inline std::unique_ptr<ScannedVolume> ScanCase(const std::string& name, FsKind kind, ScanFn scan,
                                               nlohmann::json& manifest, int mode = 1) {
    auto [image, m] = OpenFixture(name, false);
    if (image.empty()) return nullptr;
    manifest = m;
    return Scan(image, {}, kind, 0, m["size_bytes"].get<uint64_t>() / 512, scan, mode);
}

// The differences between a scanned volume and the manifest's files: items not listed (by
// `shown(item)`, the path the engine shows), listed with the wrong kind, state or size, and files
// whose content reads back otherwise (deleted files too, unless marked "overwritten").
template <class Shown>
std::vector<std::string> CaseProblems(ScannedVolume& v, const nlohmann::json& manifest, WriterFn writer, Shown shown) {
    std::vector<std::string> problems;
    auto found = Flatten(v.root);
    for (const auto& item : manifest["files"]) {
        const std::string path = shown(item);
        auto it = found.find(path);
        if (it == found.end()) {
            problems.push_back("missing: " + path);
            continue;
        }
        const CNode* n = it->second;
        const bool isDir = item["type"] == "dir";
        if (n->IsFolder() != isDir || n->IsDeleted() != item["deleted"].get<bool>()) problems.push_back("flags: " + path);
        if (isDir) continue;
        if (n->size != item["size"].get<uint64_t>()) problems.push_back("size: " + path + " " + std::to_string(n->size));
        if (item.value("overwritten", false)) continue;
        ContentResult r;
        std::string bytes = ReadContent(writer, v.media, *n, &r);
        if (!r.ok || Sha256Of(bytes) != item["sha256"].get<std::string>()) problems.push_back("content: " + path);
    }
    return problems;
}

inline std::vector<std::string> CaseProblems(ScannedVolume& v, const nlohmann::json& manifest, WriterFn writer) {
    return CaseProblems(v, manifest, writer, [](const nlohmann::json& item) { return item["path"].get<std::string>(); });
}

} // namespace kestrin::test
