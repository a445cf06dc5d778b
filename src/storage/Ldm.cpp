#include "storage/Ldm.h"

#include <utility>

namespace kestrin {

namespace {
LdmDatabaseReader& InstalledReader() {
    static LdmDatabaseReader reader;
    return reader;
}
} // namespace

void SetLdmDatabaseReader(LdmDatabaseReader reader) { InstalledReader() = std::move(reader); }

bool ReadLdmDatabase(CPhysicalDisk& disk, const uint8_t* privhead, const LdmGptAreas* gpt) {
    auto& reader = InstalledReader();
    return reader ? reader(disk, privhead, gpt) : false;
}

} // namespace kestrin
