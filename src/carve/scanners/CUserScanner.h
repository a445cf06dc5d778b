#pragma once
// A signature the user added: the header compare, always accepted, and the record's fixed size.
#include "carve/CScanner.h"

namespace kestrin {

class CUserScanner final : public CScanner {
public:
    bool IsHeader(std::span<const uint8_t> sector) override { return CompareHeader(sector); }
    int Verify(uint64_t, std::span<const uint8_t>) override { return 1; }
    uint64_t FindFileSize(uint64_t, std::span<const uint8_t>) override { return FixedSize(); }
    uint64_t GetEmbeddedSize() override { return 0; }
    uint64_t GetEmbeddedSector() override { return 0; }
    uint32_t GetEmbeddedOffset() override { return 0; }
    std::u16string_view GetEmbeddedExtension() override { return u".usr"; }
};

} // namespace kestrin
