// Developer tool: runs the signature scan over an image file and prints every carved item as one
// JSON object per line, with the time taken on stderr.
//   kestrin_carvescan IMAGE [--table data/signatures.txt | --folder DIR] [--types jpg,doc] [--mode N]
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

#include "carve/ScanSignatures.h"
#include "carve/SignatureFile.h"
#include "carve/SignatureList.h"
#include "carve/SignatureTable.h"
#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "job/ScanContext.h"
#include "storage/CPhysicalDisk.h"
#include "util/Text.h"

namespace {
struct QuietEvents final : kestrin::IScanEvents {
    void OnEnd() override {}
    void OnProgress() override {}
    void OnSignatureScanStart() override {}
    void OnStatus(const kestrin::UserText& text) override { std::fprintf(stderr, "status: %s %s\n", text.id.c_str(), text.arg.c_str()); }
};
} // namespace

int main(int argc, char** argv) {
    using namespace kestrin;
    if (argc < 2) {
        std::fprintf(stderr, "usage: kestrin_carvescan IMAGE [--table FILE | --folder DIR] [--types LIST] [--mode N]\n");
        return 2;
    }
    std::string image = argv[1], table, folder, types;
    RecoveryMode mode = RecoveryMode::LostFiles;
    for (int i = 2; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--table")) table = argv[i + 1];
        else if (!std::strcmp(argv[i], "--folder")) folder = argv[i + 1];
        else if (!std::strcmp(argv[i], "--types")) types = argv[i + 1];
        else if (!std::strcmp(argv[i], "--mode")) mode = static_cast<RecoveryMode>(std::stoul(argv[i + 1]));
    }
    std::vector<SignatureRecord> rows;
    std::string problem;
    if (!table.empty()) {
        auto t = LoadSignatureTable(table, &problem);
        if (!t) {
            std::fprintf(stderr, "%s\n", problem.c_str());
            return 1;
        }
        rows = FilterByMode(*t, mode);
    } else {
        rows = SignaturesForMode(mode, folder.empty() ? "." : folder, &problem);
        if (!problem.empty()) std::fprintf(stderr, "%s\n", problem.c_str());
    }
    if (!types.empty()) rows = FilterByExtensions(rows, SplitTypeList(types));

    CPhysicalDisk disk;
    if (!disk.AttachImageFile(image)) {
        std::fprintf(stderr, "cannot open %s\n", image.c_str());
        return 1;
    }
    ScanOperation op;
    op.state = OperationState::Running;
    QuietEvents events;
    PauseGate gate;
    CNode* top = MakeTopNode();
    ScanContext ctx{op, events, gate, mode, top, &rows};
    auto t0 = std::chrono::steady_clock::now();
    Outcome result = ScanSignatures(disk, kScanSignaturesOnly, 0, disk.GetSectorCount(), ctx);
    double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    uint64_t files = 0;
    ForEachNode(top, [&](CNode* n) {
        if (n->IsFolder()) return;
        ++files;
        std::printf("{\"name\": \"%s\", \"folder\": \"%s\", \"sector\": %llu, \"offset\": %u, \"size\": %llu}\n",
                    ToUtf8(n->name).c_str(), ToUtf8(n->parent->parent->name).c_str(),
                    (unsigned long long)n->location, n->startOffset, (unsigned long long)n->size);
    });
    double mib = double(disk.GetSectorCount()) * disk.GetSectorSize() / (1 << 20);
    std::fprintf(stderr, "scan: %zu rows, %llu items, %s, %.3f s, %.1f MiB/s\n", rows.size(),
                 (unsigned long long)files, OutcomeName(result), secs, secs > 0 ? mib / secs : 0.0);
    delete top;
    return 0;
}
