#pragma once
// Shared pieces of the carve tests: an in-memory media, a recording event sink and a scan run.
#include <cstdint>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "carve/ScanSignatures.h"
#include "carve/SignatureRecord.h"
#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "job/ScanContext.h"
#include "storage/ByteSource.h"
#include "storage/CPhysicalDisk.h"
#include "util/Text.h"

namespace kestrin::test {

inline std::vector<uint8_t> ReadDataFile(const std::string& name) {
    std::ifstream in(std::string(KESTRIN_SOURCE_DIR) + "/tests/carve/data/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void Put(std::vector<uint8_t>& image, uint64_t at, const std::vector<uint8_t>& bytes) {
    if (image.size() < at + bytes.size()) image.resize(at + bytes.size());
    std::copy(bytes.begin(), bytes.end(), image.begin() + ptrdiff_t(at));
}

// A source whose reads fail with one system code inside [from, to) bytes.
class FailingSource final : public ByteSource {
public:
    FailingSource(std::vector<uint8_t> data, uint64_t from, uint64_t to, uint32_t code)
        : m_data(std::move(data)), m_from(from), m_to(to), m_code(code) {}
    long long ReadAt(void* buf, size_t len, uint64_t offset) override {
        if (offset < m_to && m_from < offset + len) return -1;
        if (offset >= m_data.size()) return 0;
        size_t n = std::min<size_t>(len, size_t(m_data.size() - offset));
        std::copy_n(m_data.begin() + ptrdiff_t(offset), n, static_cast<uint8_t*>(buf));
        return (long long)n;
    }
    uint64_t Size() const override { return m_data.size(); }
    uint32_t LastError() const override { return m_code; }

private:
    std::vector<uint8_t> m_data;
    uint64_t m_from, m_to;
    uint32_t m_code;
};

inline void AttachMemory(CPhysicalDisk& disk, std::unique_ptr<ByteSource> source, uint32_t sectorSize = 512) {
    uint64_t size = source->Size();
    disk.Attach(std::move(source));
    disk.SetSectorSize(sectorSize);
    disk.SetSectorCount(size / sectorSize);
}

struct RecordingEvents final : IScanEvents {
    int starts = 0, progress = 0;
    std::vector<std::string> status;
    std::function<void()> onProgress;
    void OnEnd() override {}
    void OnProgress() override {
        ++progress;
        if (onProgress) onProgress();
    }
    void OnSignatureScanStart() override { ++starts; }
    void OnStatus(const UserText& t) override { status.push_back(t.arg); }
};

inline SignatureRecord UserRecord(std::vector<uint8_t> header, std::string ext, uint64_t fixedSize,
                                  uint32_t offset = 0) {
    SignatureRecord r;
    r.header = std::move(header);
    r.extension = std::move(ext);
    r.fixedSize = fixedSize;
    r.headerOffset = offset;
    r.userDefined = 1;
    r.typeId = 1001;
    r.category = 5;
    return r;
}

// One signature scan of the whole image with `rows`; the tree stays for inspection.
struct ScanRun {
    CPhysicalDisk disk;
    ScanOperation op;
    RecordingEvents events;
    PauseGate gate;
    std::unique_ptr<CNode> top{MakeTopNode()};
    std::vector<SignatureRecord> rows;
    Outcome result = Outcome::Ok;

    ScanContext Context() { return ScanContext{op, events, gate, RecoveryMode::LostFiles, top.get(), &rows}; }
    Outcome Run(uint32_t kind = kScanSignaturesOnly) {
        op.state = OperationState::Running;
        ScanContext ctx = Context();
        result = ScanSignatures(disk, kind, 0, disk.GetSectorCount(), ctx);
        return result;
    }
    CNode* FileTypes() const { return FindChild(top.get(), u"File Types"); }
    // Every carved file below "File Types" as "folder/name@sector:size", newest first per folder.
    std::vector<std::string> Files() const {
        std::vector<std::string> out;
        ForEachNode(top.get(), [&](CNode* n) {
            if (!n->IsFolder())
                out.push_back(ToUtf8(n->parent->name) + "/" + ToUtf8(n->name) + "@" + std::to_string(n->location) +
                              ":" + std::to_string(n->size));
        });
        return out;
    }
};

} // namespace kestrin::test
