#include "carve/scanners/family/CTiffWalkScanner.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <vector>

#include "util/Bytes.h"

namespace kestrin {

namespace {

// The TIFF header and directories, in the byte order the header names.
namespace tiff {
constexpr size_t kMagic = 2;       // u16
constexpr size_t kFirstIfd = 4;    // u32
constexpr size_t kCanonMarker = 8; // "CR" in a Canon raw
constexpr uint64_t kHeaderSize = 8;
constexpr size_t kMinSector = 16;
// A directory: its entry count (u16), the entries, the next directory's offset (u32).
namespace ifd {
constexpr uint32_t kCountSize = 2;
constexpr uint32_t kEntrySize = 12;
constexpr uint32_t kNextSize = 4;
} // namespace ifd
// One entry: tag, type, value count, then the value itself when it fits in four bytes, else
// the offset of the value block.
namespace entry {
constexpr size_t kTag = 0;   // u16
constexpr size_t kType = 2;  // u16
constexpr size_t kCount = 4; // u32
constexpr size_t kValue = 8; // the value or the u32 offset of it
constexpr uint64_t kInlineBytes = 4;
} // namespace entry
// Entry types.
constexpr uint16_t kAscii = 2, kShort = 3, kLong = 4, kUndefined = 7, kIfd = 13;
// Compressions of a JPEG strip; the NewSubfileType bit of a reduced-resolution image.
constexpr uint32_t kOldJpeg = 6, kJpeg = 7;
constexpr uint32_t kReducedResolution = 1;
} // namespace tiff

constexpr uint16_t kNewSubfileType = 254;
constexpr uint16_t kCompression = 259;
constexpr uint16_t kPhotometric = 262;
constexpr uint16_t kMake = 271;
constexpr uint16_t kModel = 272;
constexpr uint16_t kStripOffsets = 273;
constexpr uint16_t kStripByteCounts = 279;
constexpr uint16_t kTileOffsets = 324;
constexpr uint16_t kTileByteCounts = 325;
constexpr uint16_t kSubIfds = 330;
constexpr uint16_t kJpegOffset = 513;
constexpr uint16_t kJpegLength = 514;
constexpr uint16_t kExifIfd = 34665;
constexpr uint16_t kGpsIfd = 34853;
constexpr uint16_t kInteropIfd = 40965;
constexpr uint16_t kDngVersion = 50706;
constexpr uint16_t kDngPrivate = 50740;
constexpr uint16_t kPanasonicJpeg = 0x2E; // the preview JPEG of Panasonic and Leica raws
// Make and model texts longer than this are not read.
constexpr uint32_t kMaxNameBytes = 64;

uint32_t TypeSize(uint16_t type) {
    switch (type) {
    case 1: case 2: case 6: case 7: return 1;
    case 3: case 8: return 2;
    case 4: case 9: case 11: case 13: return 4;
    case 5: case 10: case 12: return 8;
    default: return 0;
    }
}

// Photometric interpretations and compressions that only raw sensor data uses.
bool IsRawPhotometric(uint32_t v) { return v == 32803 || v == 34892; }
bool IsRawCompression(uint32_t v) {
    switch (v) {
    case 262: case 32767: case 32769: case 32770: case 32772: case 32867:
    case 34316: case 34713: case 65000: case 65535:
        return true;
    default:
        return false;
    }
}

struct Entry {
    uint16_t tag, type;
    uint32_t count;
    uint64_t valueAt; // file offset of the value (inline or block)
    uint64_t bytes;
};

} // namespace

bool CTiffWalkScanner::MakeIs(const TiffFacts& f, const char* prefix) {
    size_t n = std::strlen(prefix);
    if (f.make.size() < n) return false;
    for (size_t i = 0; i < n; ++i)
        if (std::tolower(uint8_t(f.make[i])) != std::tolower(uint8_t(prefix[i]))) return false;
    return true;
}

bool CTiffWalkScanner::ModelHas(const TiffFacts& f, const char* part) {
    return f.model.find(part) != std::string::npos;
}

uint64_t CTiffWalkScanner::Walk(std::span<const uint8_t> sector) {
    if (sector.size() < tiff::kMinSector) return 0;
    TiffFacts facts;
    if (MatchAt(sector, 0, "MM", 2)) facts.bigEndian = true;
    else if (!MatchAt(sector, 0, "II", 2)) return 0;
    const bool be = facts.bigEndian;
    auto u16 = [be](const uint8_t* p) { return be ? Be16(p) : Le16(p); };
    auto u32 = [be](const uint8_t* p) { return be ? Be32(p) : Le32(p); };
    facts.magic = u16(sector.data() + tiff::kMagic);
    if (facts.magic != TiffFacts::kClassicMagic && facts.magic != TiffFacts::kOlympusMagic &&
        facts.magic != TiffFacts::kOlympusSrMagic && facts.magic != TiffFacts::kPanasonicMagic)
        return 0;
    facts.canonMarker = MatchAt(sector, tiff::kCanonMarker, "CR", 2);

    uint64_t furthest = tiff::kHeaderSize;
    auto reach = [&](uint64_t offset, uint64_t length) {
        if (offset > kMaxSize || length > kMaxSize - offset) return false;
        furthest = std::max(furthest, offset + length);
        return true;
    };
    // One value of an entry (SHORT or LONG), index `i`.
    auto valueOf = [&](const Entry& e, uint32_t i) -> std::optional<uint32_t> {
        uint32_t size = TypeSize(e.type);
        if ((size != 2 && size != 4) || i >= e.count) return std::nullopt;
        auto b = At(e.valueAt + uint64_t(i) * size, size);
        if (b.empty()) return std::nullopt;
        return size == 2 ? u16(b.data()) : u32(b.data());
    };

    std::vector<uint64_t> queue{u32(sector.data() + tiff::kFirstIfd)};
    std::vector<uint64_t> seen;
    uint64_t bestJpegAt = 0, bestJpegLength = 0;
    auto offerJpeg = [&](uint64_t at, uint64_t length) {
        if (!m_reportsEmbedded || length <= bestJpegLength || length < 4) return;
        auto head = At(at, 2);
        if (head.empty() || head[0] != 0xFF || head[1] != 0xD8) return;
        bestJpegAt = at;
        bestJpegLength = length;
    };
    std::vector<Entry> entries;
    while (!queue.empty() && int(seen.size()) < kMaxIfds) {
        uint64_t ifd = queue.back();
        queue.pop_back();
        if (ifd < tiff::kHeaderSize || ifd > kMaxSize || std::find(seen.begin(), seen.end(), ifd) != seen.end()) continue;
        seen.push_back(ifd);
        auto countBytes = At(ifd, tiff::ifd::kCountSize);
        if (countBytes.empty()) continue;
        uint32_t count = u16(countBytes.data());
        if (count == 0 || count > kMaxEntries) continue;
        const uint32_t entriesSize = count * tiff::ifd::kEntrySize;
        auto table = At(ifd + tiff::ifd::kCountSize, entriesSize + tiff::ifd::kNextSize);
        if (table.empty()) continue;
        // A directory whose first entries have unknown types is not a directory.
        entries.clear();
        uint32_t unknownTypes = 0;
        for (uint32_t i = 0; i < count; ++i) {
            const uint8_t* p = table.data() + i * tiff::ifd::kEntrySize;
            Entry e{u16(p + tiff::entry::kTag), u16(p + tiff::entry::kType), u32(p + tiff::entry::kCount), 0, 0};
            uint32_t size = TypeSize(e.type);
            if (size == 0) {
                ++unknownTypes;
                continue;
            }
            e.bytes = uint64_t(size) * e.count;
            e.valueAt = e.bytes <= tiff::entry::kInlineBytes
                            ? ifd + tiff::ifd::kCountSize + i * tiff::ifd::kEntrySize + tiff::entry::kValue
                            : u32(p + tiff::entry::kValue);
            entries.push_back(e);
        }
        if (unknownTypes * 2 > count) continue;
        reach(ifd, tiff::ifd::kCountSize + uint64_t(entriesSize) + tiff::ifd::kNextSize);
        uint64_t next = u32(table.data() + entriesSize);
        if (next) queue.push_back(next);

        const Entry* strips[2] = {nullptr, nullptr};
        const Entry* tiles[2] = {nullptr, nullptr};
        uint64_t jpegAt = 0, jpegLength = 0;
        uint32_t compression = 0, subfile = 0;
        for (const Entry& e : entries) {
            if (e.bytes > tiff::entry::kInlineBytes) reach(e.valueAt, e.bytes);
            switch (e.tag) {
            case kStripOffsets: strips[0] = &e; break;
            case kStripByteCounts: strips[1] = &e; break;
            case kTileOffsets: tiles[0] = &e; break;
            case kTileByteCounts: tiles[1] = &e; break;
            case kJpegOffset: jpegAt = valueOf(e, 0).value_or(0); break;
            case kJpegLength: jpegLength = valueOf(e, 0).value_or(0); break;
            case kCompression:
                compression = valueOf(e, 0).value_or(0);
                if (IsRawCompression(compression)) facts.rawData = true;
                break;
            case kPhotometric:
                if (IsRawPhotometric(valueOf(e, 0).value_or(0))) facts.rawData = true;
                break;
            case kNewSubfileType: subfile = valueOf(e, 0).value_or(0); break;
            case kDngVersion: facts.dng = true; break;
            case kDngPrivate: facts.sonyPrivate = true; break;
            case kPanasonicJpeg:
                if (facts.magic == TiffFacts::kPanasonicMagic && e.type == tiff::kUndefined) offerJpeg(e.valueAt, e.bytes);
                break;
            case kMake:
            case kModel:
                if (e.type == tiff::kAscii && e.count > 0 && e.count <= kMaxNameBytes) {
                    auto text = At(e.valueAt, e.count);
                    if (!text.empty()) {
                        std::string s(reinterpret_cast<const char*>(text.data()), text.size());
                        s.resize(std::strlen(s.c_str()));
                        (e.tag == kMake ? facts.make : facts.model) = s;
                    }
                }
                break;
            case kSubIfds:
            case kExifIfd:
            case kGpsIfd:
            case kInteropIfd:
                if (e.type == tiff::kLong || e.type == tiff::kIfd || e.type == tiff::kUndefined ||
                    e.type == tiff::kShort) {
                    uint32_t n = std::min<uint32_t>(e.count, kMaxIfds);
                    // Offsets stored as undefined bytes are read as LONGs.
                    const Entry asLong{e.tag, tiff::kLong, e.count, e.valueAt, e.bytes};
                    for (uint32_t i = 0; i < n; ++i)
                        if (auto v = valueOf(e.type == tiff::kUndefined ? asLong : e, i))
                            queue.push_back(*v);
                }
                break;
            default:
                break;
            }
        }
        if (jpegAt && jpegLength && reach(jpegAt, jpegLength)) offerJpeg(jpegAt, jpegLength);
        // Strips and tiles: offsets and byte counts pair up by index.
        for (const Entry* const* pair : {strips, tiles}) {
            if (!pair[0] || !pair[1]) continue;
            uint32_t n = std::min({pair[0]->count, pair[1]->count, kMaxStrips});
            uint64_t lastEnd = 0;
            for (uint32_t i = 0; i < n; ++i) {
                auto at = valueOf(*pair[0], i), length = valueOf(*pair[1], i);
                if (!at || !length) break;
                if (*length && reach(*at, *length)) lastEnd = std::max<uint64_t>(lastEnd, uint64_t(*at) + *length);
            }
            // A single-strip JPEG image in a reduced-resolution directory is a preview.
            if (n == 1 && (compression == tiff::kOldJpeg || compression == tiff::kJpeg) &&
                (subfile & tiff::kReducedResolution)) {
                auto at = valueOf(*pair[0], 0), length = valueOf(*pair[1], 0);
                if (at && length) offerJpeg(*at, *length);
            }
        }
    }
    if (seen.empty() || furthest <= tiff::kHeaderSize || !Accepts(facts)) return 0;
    if (bestJpegLength) SetEmbedded(bestJpegAt, bestJpegLength);
    // Writers keep every block on a word boundary, so a file whose last block ends on an odd
    // offset carries one pad byte.
    if (furthest & 1) ++furthest;
    return furthest;
}

} // namespace kestrin
