#pragma once
// One searchable file type, as stored in the signature file and shown as a row of the list.
#include <cstdint>
#include <string>
#include <vector>

namespace kestrin {

struct SignatureRecord {
    std::vector<uint8_t> header; // at most 255 bytes (the length is stored in 8 bits)
    std::string extension;       // with its leading dot: ".jpg"
    uint32_t headerOffset = 0;
    uint32_t secondValue = 0;
    uint64_t fixedSize = 0;
    std::string description;
    uint32_t typeId = 0;
    uint32_t userDefined = 0;
    uint8_t category = 0;
};

} // namespace kestrin
