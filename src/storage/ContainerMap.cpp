#include "storage/ContainerMap.h"

#include <algorithm>
#include <cstring>

#include "storage/ContainerLayout.h"

namespace kestrin {

namespace {

// Top-level entries kept at most (a 32 MiB directory): far more than any real disk needs.
constexpr uint64_t kMaxTopEntries = 1ull << 22;
// Second-level tables read by one DataRun while it looks for the end of a run.
constexpr int kTablesPerRun = 16;
// A top-level entry that names no table: its whole span is unallocated.
constexpr uint64_t kNoTable = 0;
// A top-level entry whose span counts as data without reading anything (a present VHD block, a
// table that points outside the file or carries bits this reader does not know).
constexpr uint64_t kAllData = UINT64_MAX;

enum class EntryKind : uint8_t { QcowL2, VmdkGrain };

bool IsPowerOfTwo(uint64_t v) { return v && (v & (v - 1)) == 0; }

std::vector<uint8_t> ReadExactly(ByteSource& file, uint64_t offset, size_t bytes) {
    std::vector<uint8_t> buf(bytes);
    if (file.ReadAt(buf.data(), bytes, offset) != (long long)bytes) buf.clear();
    return buf;
}

} // namespace

// A two-level table over `units` allocation units of `unitBytes` each: `tables[t]` says where
// the second-level table for units [t × perTable, (t+1) × perTable) is.
struct ContainerMap::Table {
    std::unique_ptr<ByteSource> file;
    uint64_t unitBytes = 0, perTable = 1, units = 0;
    uint32_t entryBytes = 0;
    EntryKind kind = EntryKind::QcowL2;
    std::vector<uint64_t> tables;
    uint64_t cached = UINT64_MAX;
    std::vector<uint8_t> present; // of the cached table, one flag per unit
    std::vector<uint8_t> raw;

    // Whether the second-level table `t` was read now (false: it was cached already).
    bool Load(uint64_t t) {
        if (cached == t) return false;
        cached = t;
        present.assign(size_t(perTable), 1);
        raw.resize(size_t(perTable * entryBytes));
        if (file->ReadAt(raw.data(), raw.size(), tables[t]) != (long long)raw.size()) return true; // all data
        for (size_t i = 0; i < present.size(); ++i) {
            const uint8_t* e = raw.data() + i * entryBytes;
            if (kind == EntryKind::QcowL2) {
                // Unallocated (offset 0, maybe the zero flag): reads as zeros with no backing file.
                // Anything else, compressed or preallocated zero clusters among them, is data.
                const uint64_t v = Be64(e) & ~(layout::qcow::kCopiedFlag | layout::qcow::kZeroFlag);
                present[i] = v != 0;
            } else {
                present[i] = Le32(e) != 0;
            }
        }
        return true;
    }

    // The first unit at or after `u` that may hold data; `units` when none does.
    uint64_t FirstData(uint64_t u) {
        while (u < units) {
            const uint64_t t = u / perTable;
            if (tables[t] == kNoTable) {
                u = (t + 1) * perTable;
                continue;
            }
            if (tables[t] == kAllData) return u;
            Load(t);
            const uint64_t last = std::min(units, (t + 1) * perTable);
            for (; u < last; ++u)
                if (present[size_t(u - t * perTable)]) return u;
        }
        return units;
    }

    // The first unit at or after `u` that holds no data, or where the walk stopped after
    // reading kTablesPerRun tables; `units` at the end.
    uint64_t FirstHole(uint64_t u) {
        int reads = 0;
        while (u < units) {
            const uint64_t t = u / perTable;
            if (tables[t] == kNoTable) return u;
            if (tables[t] != kAllData) {
                if (cached != t && reads == kTablesPerRun) return u;
                reads += Load(t) ? 1 : 0;
                const uint64_t last = std::min(units, (t + 1) * perTable);
                for (; u < last; ++u)
                    if (!present[size_t(u - t * perTable)]) return u;
                continue;
            }
            u = (t + 1) * perTable;
        }
        return units;
    }
};

ContainerMap::~ContainerMap() = default;

namespace {

// The top level as read from `bytes` (entries of `entryBytes`): where each second-level table
// is, each checked to lie wholly inside the file.
template <typename Decode>
std::vector<uint64_t> TopLevel(const std::vector<uint8_t>& bytes, uint32_t entryBytes, Decode decode) {
    std::vector<uint64_t> out(bytes.size() / entryBytes);
    for (size_t i = 0; i < out.size(); ++i) out[i] = decode(bytes.data() + i * entryBytes);
    return out;
}

} // namespace

std::unique_ptr<ContainerMap> ContainerMap::WholeDisk(std::unique_ptr<Table> table, uint64_t diskSize) {
    auto map = std::unique_ptr<ContainerMap>(new ContainerMap);
    map->m_size = diskSize;
    Piece piece;
    piece.bytes = diskSize;
    piece.kind = VmdkExtent::Kind::Sparse;
    piece.table = std::move(table);
    map->m_pieces.push_back(std::move(piece));
    return map;
}

std::unique_ptr<ContainerMap> ContainerMap::Qcow(std::unique_ptr<ByteSource> file, uint64_t diskSize) {
    namespace q = layout::qcow;
    if (!file || diskSize == 0) return nullptr;
    std::vector<uint8_t> head(q::kHeaderV3Bytes);
    long long n = file->ReadAt(head.data(), head.size(), 0);
    if (n < (long long)q::kHeaderV2Bytes) return nullptr;
    head.resize(size_t(n));
    const uint32_t version = q::Version::At(head.data());
    if (!q::Magic::Is(head, "QFI\xfb") || (version != 2 && version != 3)) return nullptr;
    if (version == 3) {
        auto features = q::IncompatibleFeatures::Read(head);
        if (!features || (*features & ~q::kKnownIncompatible) != 0) return nullptr;
    }
    const uint32_t bits = q::ClusterBits::At(head.data());
    if (q::BackingFileOffset::At(head.data()) != 0 || q::CryptMethod::At(head.data()) != 0 ||
        bits < q::kMinClusterBits || bits > q::kMaxClusterBits || q::DiskSize::At(head.data()) != diskSize)
        return nullptr;
    const uint64_t cluster = 1ull << bits;
    const uint64_t perTable = cluster / q::kEntryBytes;
    const uint64_t span = cluster * perTable;
    const uint64_t needed = diskSize / span + (diskSize % span ? 1 : 0);
    const uint64_t l1Offset = q::L1TableOffset::At(head.data());
    const uint64_t fileSize = file->Size();
    if (needed > q::L1Size::At(head.data()) || needed > kMaxTopEntries || l1Offset > fileSize ||
        fileSize - l1Offset < needed * q::kEntryBytes)
        return nullptr;
    std::vector<uint8_t> l1 = ReadExactly(*file, l1Offset, size_t(needed * q::kEntryBytes));
    if (l1.empty()) return nullptr;
    auto t = std::make_unique<Table>();
    t->tables = TopLevel(l1, q::kEntryBytes, [&](const uint8_t* p) {
        const uint64_t e = Be64(p) & ~q::kCopiedFlag;
        const uint64_t at = e & q::kTableOffsetMask;
        if (e == 0) return kNoTable;
        if (e != at || at % cluster != 0 || at > fileSize || fileSize - at < cluster) return kAllData;
        return at;
    });
    t->file = std::move(file);
    t->unitBytes = cluster;
    t->perTable = perTable;
    t->units = diskSize / cluster + (diskSize % cluster ? 1 : 0);
    t->entryBytes = q::kEntryBytes;
    t->kind = EntryKind::QcowL2;
    return WholeDisk(std::move(t), diskSize);
}

namespace {

// A hosted sparse extent of `bytes` bytes: its grain directory, or null.
std::unique_ptr<ContainerMap::Table> SparseExtentTable(std::unique_ptr<ByteSource> file, uint64_t bytes) {
    namespace v = layout::vmdk;
    if (!file) return nullptr;
    const uint64_t fileSize = file->Size();
    std::vector<uint8_t> head = ReadExactly(*file, 0, v::kHeaderBytes);
    if (head.empty() || !v::Magic::Is(head, "KDMV")) return nullptr;
    // A stream-optimised extent writes its directory last and says where in its footer.
    if (v::DirectoryOffset::At(head.data()) == v::kDirectoryAtEnd) {
        if (fileSize < v::kFooterFromEnd + v::kHeaderBytes) return nullptr;
        head = ReadExactly(*file, fileSize - v::kFooterFromEnd, v::kHeaderBytes);
        if (head.empty() || !v::Magic::Is(head, "KDMV")) return nullptr;
    }
    const uint32_t version = v::Version::At(head.data());
    const uint64_t capacity = v::Capacity::At(head.data());
    const uint64_t grain = v::GrainSize::At(head.data());
    const uint32_t perTable = v::GrainTableEntries::At(head.data());
    const uint64_t gd = v::DirectoryOffset::At(head.data());
    if (version < 1 || version > 3 || capacity > UINT64_MAX / v::kSectorBytes || capacity * v::kSectorBytes != bytes ||
        !IsPowerOfTwo(grain) || grain > (1u << 16) || perTable == 0 || perTable > (1u << 16) ||
        gd > fileSize / v::kSectorBytes)
        return nullptr;
    const uint64_t unitBytes = grain * v::kSectorBytes;
    const uint64_t span = unitBytes * perTable;
    const uint64_t needed = bytes / span + (bytes % span ? 1 : 0);
    const uint64_t gdOffset = gd * v::kSectorBytes;
    if (needed > kMaxTopEntries || fileSize - gdOffset < needed * v::kEntryBytes) return nullptr;
    std::vector<uint8_t> dir = ReadExactly(*file, gdOffset, size_t(needed * v::kEntryBytes));
    if (dir.empty()) return nullptr;
    const uint64_t tableBytes = uint64_t(perTable) * v::kEntryBytes;
    auto t = std::make_unique<ContainerMap::Table>();
    t->tables = TopLevel(dir, v::kEntryBytes, [&](const uint8_t* p) {
        const uint64_t at = uint64_t(Le32(p)) * v::kSectorBytes;
        if (at == 0) return kNoTable;
        if (at > fileSize || fileSize - at < tableBytes) return kAllData;
        return at;
    });
    t->file = std::move(file);
    t->unitBytes = unitBytes;
    t->perTable = perTable;
    t->units = bytes / unitBytes + (bytes % unitBytes ? 1 : 0);
    t->entryBytes = v::kEntryBytes;
    t->kind = EntryKind::VmdkGrain;
    return t;
}

} // namespace

std::unique_ptr<ContainerMap> ContainerMap::Vmdk(std::vector<VmdkExtent> extents, uint64_t diskSize) {
    auto map = std::unique_ptr<ContainerMap>(new ContainerMap);
    map->m_size = diskSize;
    uint64_t at = 0;
    bool anyHoles = false;
    for (VmdkExtent& e : extents) {
        if (e.bytes == 0) continue;
        if (e.bytes > diskSize - at) return nullptr;
        Piece piece;
        piece.start = at;
        piece.bytes = e.bytes;
        piece.kind = e.kind;
        if (e.kind == VmdkExtent::Kind::Sparse) {
            piece.table = SparseExtentTable(std::move(e.file), e.bytes);
            if (!piece.table) piece.kind = VmdkExtent::Kind::Data;
        }
        anyHoles |= piece.kind != VmdkExtent::Kind::Data;
        at += e.bytes;
        map->m_pieces.push_back(std::move(piece));
    }
    if (at != diskSize || !anyHoles) return nullptr;
    return map;
}

std::unique_ptr<ContainerMap> ContainerMap::DynamicVhd(std::unique_ptr<ByteSource> file, uint64_t diskSize) {
    namespace v = layout::vhd;
    if (!file || diskSize == 0) return nullptr;
    const uint64_t fileSize = file->Size();
    // A dynamic disk keeps a copy of its footer at byte 0.
    std::vector<uint8_t> footer = ReadExactly(*file, 0, v::kFooterBytes);
    if (footer.empty() || !v::FooterCookie::Is(footer, "conectix") ||
        v::DiskType::At(footer.data()) != v::kDiskTypeDynamic || v::CurrentSize::At(footer.data()) != diskSize)
        return nullptr;
    const uint64_t headerAt = v::DataOffset::At(footer.data());
    if (headerAt > fileSize || fileSize - headerAt < v::kHeaderBytes) return nullptr;
    std::vector<uint8_t> header = ReadExactly(*file, headerAt, v::kHeaderBytes);
    if (header.empty() || !v::HeaderCookie::Is(header, "cxsparse")) return nullptr;
    const uint64_t block = v::BlockSize::At(header.data());
    const uint64_t batAt = v::TableOffset::At(header.data());
    if (!IsPowerOfTwo(block) || block < 512) return nullptr;
    const uint64_t needed = diskSize / block + (diskSize % block ? 1 : 0);
    if (needed > v::MaxTableEntries::At(header.data()) || needed > kMaxTopEntries || batAt > fileSize ||
        fileSize - batAt < needed * v::kEntryBytes)
        return nullptr;
    std::vector<uint8_t> bat = ReadExactly(*file, batAt, size_t(needed * v::kEntryBytes));
    if (bat.empty()) return nullptr;
    auto t = std::make_unique<Table>();
    // One level: a block is there or not; what its sector bitmap says is not looked at.
    t->tables = TopLevel(bat, v::kEntryBytes,
                         [](const uint8_t* p) { return Be32(p) == v::kUnusedEntry ? kNoTable : kAllData; });
    t->unitBytes = block;
    t->perTable = 1;
    t->units = needed;
    t->entryBytes = v::kEntryBytes;
    return WholeDisk(std::move(t), diskSize);
}

void ContainerMap::DataRun(uint64_t offset, uint64_t& start, uint64_t& end) {
    start = end = UINT64_MAX;
    for (Piece& p : m_pieces) {
        if (offset >= p.start + p.bytes) continue;
        const uint64_t from = std::max(offset, p.start);
        const uint64_t pieceEnd = p.start + p.bytes;
        switch (p.kind) {
        case VmdkExtent::Kind::Zero: continue;
        case VmdkExtent::Kind::Data:
            start = from;
            end = pieceEnd;
            return;
        case VmdkExtent::Kind::Sparse: {
            Table& t = *p.table;
            const uint64_t first = t.FirstData((from - p.start) / t.unitBytes);
            if (first >= t.units) continue;
            start = std::max(from, p.start + first * t.unitBytes);
            const uint64_t hole = t.FirstHole(first + 1);
            end = hole >= t.units ? pieceEnd : std::min(pieceEnd, p.start + hole * t.unitBytes);
            return;
        }
        }
    }
}

uint64_t ContainerMap::HoleBytes() {
    uint64_t holes = 0, at = 0;
    while (at < m_size) {
        uint64_t s, e;
        DataRun(at, s, e);
        if (s >= m_size) return holes + (m_size - at);
        holes += s - at;
        at = std::min(e, m_size);
    }
    return holes;
}

} // namespace kestrin
