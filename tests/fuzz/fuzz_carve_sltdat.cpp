// The signature file reader: any bytes load what they safely can; what loads writes back and
// reads again the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "carve/SignatureFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace kestrin;
    SignatureLoad load = ParseSignatureFile(std::span<const uint8_t>(data, size));
    auto bytes = SerializeSignatureFile(load.records);
    SignatureLoad again = ParseSignatureFile(bytes);
    if (again.status != SignatureLoadStatus::kOk || again.records.size() != load.records.size()) std::abort();
    for (size_t i = 0; i < load.records.size(); ++i)
        if (again.records[i].header != load.records[i].header || again.records[i].typeId != load.records[i].typeId)
            std::abort();
    SignatureFields f{"12", 1, "ffd8", "x", "7", 0, "d"};
    AddUserSignature(load.records, f);
    if (!load.records.empty()) DeleteUserSignature(load.records, load.records.size() - 1);
    return 0;
}
