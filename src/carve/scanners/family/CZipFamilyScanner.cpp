#include "carve/scanners/family/CZipFamilyScanner.h"

#include <algorithm>

#include "util/Bytes.h"

namespace kestrin {

namespace {

// The zip records the walk reads (little-endian), offsets from each record's signature.
namespace zip {
constexpr uint32_t kLocal = 0x04034B50;
constexpr uint32_t kCentral = 0x02014B50;
constexpr uint32_t kDescriptor = 0x08074B50;
constexpr uint32_t kEnd = 0x06054B50;
constexpr uint32_t kZip64End = 0x06064B50;
constexpr uint32_t kZip64Locator = 0x07064B50;
using Signature = LeField<uint32_t, 0>;

namespace local {
using Flags = LeField<uint16_t, 6>;
using CompressedSize = LeField<uint32_t, 18>;
using NameLength = LeField<uint16_t, 26>;
using ExtraLength = LeField<uint16_t, 28>;
constexpr uint32_t kSize = 30; // the name and the extra field follow
constexpr uint16_t kSizesFollowData = 0x0008; // flag: a data descriptor carries the sizes
constexpr uint32_t kSizeInZip64 = 0xFFFFFFFF; // the real size is in the zip64 extra field
static_assert(ExtraLength::kEnd <= kSize);
} // namespace local

// One field of a local header's extra data: its id, its length, then that many bytes.
namespace extra {
using Id = LeField<uint16_t, 0>;
using Length = LeField<uint16_t, 2>;
constexpr size_t kHeaderSize = 4;
constexpr uint16_t kZip64 = 0x0001;
// The zip64 field's data: the uncompressed size, then the compressed one.
using Zip64Compressed = LeField<uint64_t, kHeaderSize + 8>;
constexpr uint16_t kZip64SizesLength = 16;
} // namespace extra

// The data descriptor after data whose sizes follow it: signature, CRC, then the sizes (32-bit,
// or 64-bit in a zip64 entry).
namespace descriptor {
using Compressed32 = LeField<uint32_t, 8>;
using Compressed64 = LeField<uint64_t, 8>;
constexpr uint32_t kSize32 = 16;
constexpr uint32_t kSize64 = 24;
} // namespace descriptor

namespace central {
using NameLength = LeField<uint16_t, 28>;
using ExtraLength = LeField<uint16_t, 30>;
using CommentLength = LeField<uint16_t, 32>;
constexpr uint32_t kSize = 46; // the name, extra field and comment follow
static_assert(CommentLength::kEnd <= kSize);
} // namespace central

namespace zip64end {
using RecordSize = LeField<uint64_t, 4>; // the bytes after this field
constexpr uint32_t kFixedSize = 12;
constexpr uint64_t kMaxRecordSize = 0x10000;
} // namespace zip64end

namespace zip64locator {
constexpr uint32_t kSize = 20;
} // namespace zip64locator

namespace end {
using CommentLength = LeField<uint16_t, 20>;
constexpr uint32_t kSize = 22; // the comment follows
static_assert(CommentLength::kEnd <= kSize);
} // namespace end
} // namespace zip

} // namespace

// Data whose sizes follow it: the descriptor (with or without its signature) is the first one
// whose compressed size equals the distance from the data's start, followed by another header.
uint64_t CZipFamilyScanner::FindDescriptor(uint64_t dataStart, bool zip64, uint64_t& after) {
    uint64_t from = dataStart;
    constexpr char kSignature[4] = {'P', 'K', 7, 8}; // zip::kDescriptor as stored
    constexpr int kMaxTries = 100000;
    for (int tries = 0; tries < kMaxTries; ++tries) {
        uint64_t at = Find(from, kMaxSize - std::min(kMaxSize, from), kSignature, sizeof kSignature);
        if (at == UINT64_MAX) return UINT64_MAX;
        uint32_t recordSize = zip64 ? zip::descriptor::kSize64 : zip::descriptor::kSize32;
        auto d = At(at, recordSize + zip::Signature::kSize); // and the next record's signature
        if (!d.empty()) {
            uint64_t compressed = zip64 ? zip::descriptor::Compressed64::At(d.data())
                                        : zip::descriptor::Compressed32::At(d.data());
            uint32_t next = zip::Signature::At(d.data() + recordSize);
            if (compressed == at - dataStart && (next == zip::kLocal || next == zip::kCentral)) {
                after = at + recordSize;
                return at;
            }
        }
        from = at + 1;
    }
    return UINT64_MAX;
}

uint64_t CZipFamilyScanner::Walk(std::span<const uint8_t> sector) {
    bool ownPart = m_partPrefix.empty();
    uint64_t pos = 0;
    auto first = zip::Signature::Read(sector);
    if (!first) return 0;
    if (*first == zip::kDescriptor) pos = zip::Signature::kSize; // a spanned archive's marker
    else if (*first != zip::kLocal) return 0;
    uint32_t locals = 0;
    for (; locals < kMaxEntries; ++locals) {
        auto h = At(pos, zip::local::kSize);
        if (h.empty() || zip::Signature::At(h.data()) != zip::kLocal) break;
        uint16_t flags = zip::local::Flags::At(h.data());
        uint64_t compressed = zip::local::CompressedSize::At(h.data());
        uint16_t nameLength = zip::local::NameLength::At(h.data());
        uint16_t extraLength = zip::local::ExtraLength::At(h.data());
        auto name = At(pos + zip::local::kSize, nameLength);
        if (nameLength && name.empty()) return 0;
        if (std::string_view(reinterpret_cast<const char*>(name.data()), name.size()).starts_with(m_partPrefix))
            ownPart = true;
        uint64_t data = pos + zip::local::kSize + nameLength + extraLength;
        bool zip64 = false;
        if (compressed == zip::local::kSizeInZip64) {
            // The zip64 extra field holds the real sizes (uncompressed first, then compressed).
            auto extra = At(pos + zip::local::kSize + nameLength, extraLength);
            for (size_t e = 0; e + zip::extra::kHeaderSize <= extra.size();) {
                const uint8_t* field = extra.data() + e;
                uint16_t id = zip::extra::Id::At(field), len = zip::extra::Length::At(field);
                if (id == zip::extra::kZip64 && len >= zip::extra::kZip64SizesLength &&
                    e + zip::extra::kHeaderSize + zip::extra::kZip64SizesLength <= extra.size()) {
                    compressed = zip::extra::Zip64Compressed::At(field);
                    zip64 = true;
                    break;
                }
                e += zip::extra::kHeaderSize + size_t(len);
            }
        }
        if (flags & zip::local::kSizesFollowData) {
            uint64_t after = 0;
            if (FindDescriptor(data, zip64, after) == UINT64_MAX) return 0;
            pos = after;
        } else {
            if (compressed > kMaxSize - data) return 0;
            pos = data + compressed;
        }
    }
    if (locals == 0) return 0;
    // The central directory.
    uint32_t centrals = 0;
    for (; centrals < kMaxEntries; ++centrals) {
        auto h = At(pos, zip::central::kSize);
        if (h.empty() || zip::Signature::At(h.data()) != zip::kCentral) break;
        pos += zip::central::kSize + uint64_t(zip::central::NameLength::At(h.data())) +
               zip::central::ExtraLength::At(h.data()) + zip::central::CommentLength::At(h.data());
    }
    if (centrals == 0) return 0;
    auto h = At(pos, zip::end::kSize);
    if (!h.empty() && zip::Signature::At(h.data()) == zip::kZip64End) {
        auto z = At(pos, zip::zip64end::kFixedSize);
        if (z.empty()) return 0;
        uint64_t length = zip::zip64end::RecordSize::At(z.data());
        if (length > zip::zip64end::kMaxRecordSize) return 0;
        pos += zip::zip64end::kFixedSize + length;
        h = At(pos, zip::end::kSize);
    }
    if (!h.empty() && zip::Signature::At(h.data()) == zip::kZip64Locator) {
        pos += zip::zip64locator::kSize;
        h = At(pos, zip::end::kSize);
    }
    if (h.empty() || zip::Signature::At(h.data()) != zip::kEnd) return 0;
    pos += zip::end::kSize + uint64_t(zip::end::CommentLength::At(h.data()));
    if (!ownPart) return 0;
    return pos;
}

} // namespace kestrin
