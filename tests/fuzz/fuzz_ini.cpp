// Settings and language files: any bytes must parse, and a key written must read back.
#include <cstdlib>

#include "app/CIniFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using kestrin::app::CIniFile;
    CIniFile ini(std::span<const uint8_t>(data, size));
    (void)ini.Get("Kestrin Windows", "IDS_LANGUAGE");
    (void)ini.Entries("Kestrin Windows");
    (void)kestrin::app::CapUtf16Units(std::string_view(reinterpret_cast<const char*>(data), size), 7);
    ini.Set("Kestrin Windows", "IDS_LANGUAGE", "2");
    if (ini.Get("Kestrin Windows", "IDS_LANGUAGE") != "2") std::abort();
    auto bytes = ini.Serialize();
    CIniFile again(bytes);
    if (again.Get("Kestrin Windows", "IDS_LANGUAGE") != "2") std::abort();
    return 0;
}
