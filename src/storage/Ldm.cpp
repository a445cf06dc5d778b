#include "storage/Ldm.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "storage/BootSectorLayout.h"
#include "storage/LdmLayout.h"
#include "storage/SourceLayout.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

namespace privhead = layout::ldm::privhead;
namespace tocblock = layout::ldm::tocblock;
namespace vmdb = layout::ldm::vmdb;
namespace vblk = layout::ldm::vblk;

constexpr size_t kMaxRecords = 1u << 16;
constexpr uint16_t kMaxFragments = 64;
constexpr uint32_t kMaxVblkBytes = 64u << 10;
constexpr uint64_t kMaxConfigBytes = 64u << 20;
// Largest stripe chunk taken from a database (real ones are 64 KiB).
constexpr uint64_t kMaxChunkBytes = 1u << 30;

// A field of the variable-length kind: one length byte, then that many bytes (big-endian numbers).
struct Cursor {
    Bytes b;
    size_t at;
    bool ok = true;
    uint64_t Number() {
        uint8_t n = ReadU8(b, at).value_or(0xFF);
        if (n > 8 || !Fits(b, at + 1, n)) {
            ok = false;
            return 0;
        }
        uint64_t v = 0;
        for (uint8_t i = 0; i < n; ++i) v = v << 8 | b[at + 1 + i];
        at += 1 + n;
        return v;
    }
    std::string Text() {
        uint8_t n = ReadU8(b, at).value_or(0);
        if (!Fits(b, at + 1, n)) {
            ok = false;
            return {};
        }
        std::string s(reinterpret_cast<const char*>(b.data() + at + 1), n);
        at += 1 + n;
        return s;
    }
    void Skip(size_t n) {
        if (!Fits(b, at, n)) ok = false;
        else at += n;
    }
    uint64_t Be64At() {
        auto v = ReadBe64(b, at);
        if (!v) ok = false;
        at += 8;
        return v.value_or(0);
    }
};

struct Component {
    uint64_t id = 0, parent = 0, stripe = 0, columns = 0;
    uint8_t type = 0;
};
struct Part {
    uint64_t id = 0, parent = 0, disk = 0, start = 0, volumeOffset = 0, size = 0, index = 0;
};
struct Disk {
    uint64_t id = 0;
    std::string guid;
};
struct Volume {
    uint64_t id = 0;
    std::string name;
};

struct Database {
    std::vector<Volume> volumes;
    std::vector<Component> components;
    std::vector<Part> parts;
    std::vector<Disk> disks;
};

void ParseRecord(Bytes r, Database& db) {
    uint8_t flags = vblk::Flags::Or(r, 0);
    uint8_t typeAndRevision = vblk::TypeAndRevision::Or(r, 0);
    uint8_t type = typeAndRevision & vblk::kTypeMask;
    Cursor c{r, vblk::kRecordData};
    uint64_t id = c.Number();
    std::string name = c.Text();
    if (!c.ok) return;
    switch (type) {
    case vblk::kTypeVolume: {
        db.volumes.push_back({id, name});
        return;
    }
    case vblk::kTypeComponent: {
        Component k;
        k.id = id;
        c.Text(); // volume state
        uint8_t compType = ReadU8(r, c.at).value_or(0);
        c.Skip(vblk::kComponentTypeAndUnknown);
        c.Number(); // number of children
        c.Skip(vblk::kComponentLogCommitAndUnknown);
        k.parent = c.Number();
        if (flags & vblk::kFlagComponentStripe) {
            c.Skip(vblk::kComponentBeforeStripe);
            k.stripe = c.Number();
            k.columns = c.Number();
        }
        if (!c.ok) return;
        k.type = compType;
        db.components.push_back(k);
        return;
    }
    case vblk::kTypePartition: {
        Part p;
        p.id = id;
        c.Skip(vblk::kPartitionBeforeStart);
        p.start = c.Be64At();
        p.volumeOffset = c.Be64At();
        p.size = c.Number();
        p.parent = c.Number();
        p.disk = c.Number();
        if (flags & vblk::kFlagPartitionIndex) p.index = c.Number();
        if (!c.ok) return;
        db.parts.push_back(p);
        return;
    }
    case vblk::kTypeDisk: {
        Disk d;
        d.id = id;
        if ((typeAndRevision >> vblk::kRevisionShift) == vblk::kDiskRevisionBinaryGuid) {
            // The newer record keeps the disk GUID as 16 bytes.
            if (!Fits(r, c.at, vblk::kDiskGuidBytes)) return;
            static const char kHex[] = "0123456789abcdef";
            for (size_t i = 0; i < vblk::kDiskGuidBytes; ++i) {
                d.guid += kHex[r[c.at + i] >> 4];
                d.guid += kHex[r[c.at + i] & 15];
            }
        } else {
            d.guid = c.Text();
            if (!c.ok) return;
            d.guid.erase(std::remove(d.guid.begin(), d.guid.end(), '-'), d.guid.end());
            for (auto& ch : d.guid) ch = char(std::tolower(static_cast<unsigned char>(ch)));
        }
        db.disks.push_back(d);
        return;
    }
    default:
        return;
    }
}

std::string NormaliseGuid(std::string s) {
    std::string out;
    for (char ch : s) {
        if (ch == 0) break;
        if (ch == '-' || ch == '{' || ch == '}') continue;
        out += char(std::tolower(static_cast<unsigned char>(ch)));
    }
    return out;
}

// Reads the VBLK area: fixed-size slots after the VMDB, records split over several slots joined
// by their group number.
Database ReadRecords(CStorageMedia& media, uint64_t configStart, uint64_t configSectors) {
    Database db;
    const uint32_t ss = std::max<uint32_t>(media.GetSectorSize(), 512);
    if (configSectors == 0 || configSectors > kMaxConfigBytes / ss) return db;
    // The table of contents: in sector 1 or 2 of the area, or at its end.
    std::vector<uint8_t> sector(ss);
    uint64_t vmdbSector = 0;
    for (uint64_t at : {uint64_t(1), uint64_t(2), configSectors - 1, configSectors - 2}) {
        if (at >= configSectors) continue;
        std::fill(sector.begin(), sector.end(), 0);
        media.ReadSectors(sector.data(), ss, configStart + at, true);
        Bytes t(sector);
        if (!tocblock::Magic::Is(t, tocblock::kMagic)) continue;
        // Two bitmap entries, "config" and "log"; the first gives where the VMDB starts.
        namespace bitmap = tocblock::bitmap;
        for (size_t e : {tocblock::kFirstBitmap, tocblock::kSecondBitmap}) {
            if (!MatchAt(t, e + bitmap::Name::kOffset, bitmap::kConfigName, sizeof bitmap::kConfigName)) continue;
            uint64_t start = bitmap::StartSector::Or(t, 0, e);
            if (start > 0 && start < configSectors) vmdbSector = start;
        }
        if (vmdbSector) break;
    }
    if (!vmdbSector) return db;
    std::vector<uint8_t> area(size_t(configSectors - vmdbSector) * ss, 0);
    media.ReadSectors(area.data(), uint32_t(area.size()), configStart + vmdbSector, true);
    Bytes a(area);
    if (!vmdb::Magic::Is(a, vmdb::kMagic)) return db;
    uint32_t vblkSize = vmdb::VblkSize::Or(a, 0);
    uint32_t first = vmdb::FirstVblkOffset::Or(a, 0);
    if (vblkSize < vblk::kMinSlotBytes || vblkSize > kMaxVblkBytes || first < vmdb::kHeaderBytes ||
        first >= area.size())
        return db;
    static_assert(vblk::kMinSlotBytes >= vblk::kFragmentHeaderBytes);

    struct Pending {
        uint16_t count = 0;
        std::vector<std::vector<uint8_t>> parts;
        size_t have = 0;
    };
    std::map<uint32_t, Pending> groups;
    size_t records = 0;
    for (size_t at = first; Fits(a, at, vblkSize) && records < kMaxRecords; at += vblkSize) {
        Bytes slot(area.data() + at, vblkSize);
        if (!vblk::Magic::Is(slot, vblk::kMagic)) continue;
        // Every slot holds at least its fragment header.
        uint32_t group = vblk::GroupNumber::At(slot.data());
        uint16_t index = vblk::FragmentIndex::At(slot.data());
        uint16_t count = vblk::FragmentCount::At(slot.data());
        if (count == 0 || count > kMaxFragments || index >= count) continue;
        if (count == 1) {
            ++records;
            ParseRecord(slot, db);
            continue;
        }
        Pending& p = groups[group];
        if (p.count == 0) {
            if (groups.size() > kMaxRecords) break;
            p.count = count;
            p.parts.resize(count);
        }
        if (p.count != count || !p.parts[index].empty()) continue;
        // The first fragment keeps its header (the record's offsets count from it); the others
        // add what follows their own fragment header.
        if (index == 0) p.parts[index].assign(slot.begin(), slot.end());
        else p.parts[index].assign(slot.begin() + vblk::kFragmentHeaderBytes, slot.end());
        if (++p.have == p.count) {
            std::vector<uint8_t> joined;
            for (auto& piece : p.parts) joined.insert(joined.end(), piece.begin(), piece.end());
            ++records;
            ParseRecord(Bytes(joined), db);
            groups.erase(group);
        }
    }
    return db;
}

} // namespace

std::vector<LdmVolume> ReadLdmVolumes(CStorageMedia& media, uint64_t configStart, uint64_t configSectors,
                                      uint64_t dataStart, const std::string& diskGuid) {
    std::vector<LdmVolume> out;
    Database db = ReadRecords(media, configStart, configSectors);
    // This disk: the record whose GUID the private header names, or the only one there is.
    std::string mine = NormaliseGuid(diskGuid);
    uint64_t thisDisk = 0;
    bool known = false;
    for (const auto& d : db.disks)
        if (!mine.empty() && NormaliseGuid(d.guid) == mine) thisDisk = d.id, known = true;
    if (!known && db.disks.size() == 1) thisDisk = db.disks[0].id, known = true;

    for (const auto& v : db.volumes) {
        if (out.size() >= kMaxRecords) break;
        LdmVolume vol;
        vol.name = v.name;
        std::vector<const Component*> comps;
        for (const auto& k : db.components)
            if (k.parent == v.id) comps.push_back(&k);
        if (comps.empty()) continue;
        const Component& k = *comps.front();
        std::vector<const Part*> parts;
        for (const auto& p : db.parts)
            if (p.parent == k.id) parts.push_back(&p);
        if (parts.empty()) continue;
        std::sort(parts.begin(), parts.end(), [](const Part* x, const Part* y) {
            return std::tie(x->index, x->volumeOffset) < std::tie(y->index, y->volumeOffset);
        });
        vol.complete = known;
        for (const Part* p : parts) {
            if (p->size == 0 || p->start > ~0ull - dataStart) continue;
            LdmExtent e{dataStart + p->start, p->size, p->volumeOffset, uint32_t(p->index)};
            vol.extents.push_back(e);
            if (p->disk != thisDisk) vol.complete = false;
        }
        if (vol.extents.empty()) continue;
        if (comps.size() > 1) vol.layout = LdmLayout::Mirrored;
        else if (k.type == vblk::kComponentStriped) vol.layout = LdmLayout::Striped;
        else if (k.type == vblk::kComponentRaid) vol.layout = LdmLayout::Raid5;
        else vol.layout = vol.extents.size() > 1 ? LdmLayout::Spanned : LdmLayout::Simple;
        if (vol.layout == LdmLayout::Striped) {
            vol.stripeSectors = k.stripe;
            vol.columns = uint32_t(std::min<uint64_t>(k.columns, 1024));
            if (vol.stripeSectors == 0 || vol.columns == 0) vol.complete = false;
        }
        if (vol.layout == LdmLayout::Spanned || vol.layout == LdmLayout::Mirrored)
            std::sort(vol.extents.begin(), vol.extents.end(),
                      [](const LdmExtent& x, const LdmExtent& y) { return x.volumeOffset < y.volumeOffset; });
        if (vol.layout == LdmLayout::Raid5) vol.complete = false; // parity is not reassembled
        out.push_back(std::move(vol));
    }
    return out;
}

namespace {

std::string DiskGuidText(Bytes privheadBytes) {
    Bytes text = privhead::DiskGuid::In(privheadBytes);
    return std::string(text.begin(), text.end());
}

// Lists the volumes of the database in the configuration area at `configStart` as described at
// ReadMbrDynamicDisk; `gpt` selects how lengths are kept.
bool ListDynamicVolumes(CPhysicalDisk& disk, uint64_t configStart, uint64_t configSectors, uint64_t dataStart,
                        const std::string& guid, bool gpt) {
    const uint32_t ss = std::max<uint32_t>(disk.GetSectorSize(), 512);
    auto volumes = ReadLdmVolumes(disk, configStart, configSectors, dataStart, guid);
    bool any = false;
    const uint64_t diskEnd = disk.ByteSize() ? disk.ByteSize() / ss : ~0ull;
    // A database read through an assembled volume (one dynamic disk's image inside another's
    // volume) gives ranges of that volume, not of the disk: only its one-range volumes are
    // listed then, and nothing is kept for the front ends, which open volumes of the disk.
    ByteSource* base = disk.Handle();
    const bool nested = dynamic_cast<ExtentSource*>(base) != nullptr;
    std::vector<uint8_t> boot(ss, 0);
    // The database is read again by every layout read of the disk: one entry per volume, by its
    // first sector, kept in that order.
    std::map<uint64_t, AssembledVolume> kept;
    if (!nested)
        for (auto& k : disk.AssembledVolumes()) kept[k.startSector] = std::move(k);
    for (const auto& v : volumes) {
        if (!v.complete || v.layout == LdmLayout::Raid5) continue;
        // One range of the disk: a simple volume, a spanned one whose pieces follow each other,
        // or the first copy of a mirror made of one piece. Anything else is read through an
        // extent source (its pieces in volume order, a stripe's chunks in turn).
        bool contiguous = v.layout != LdmLayout::Striped;
        uint64_t total = 0;
        for (size_t i = 0; i < v.extents.size(); ++i) {
            if (i && v.extents[i].startSector != v.extents[i - 1].startSector + v.extents[i - 1].sectors)
                contiguous = false;
            total = v.extents[i].sectors > ~0ull - total ? ~0ull : total + v.extents[i].sectors;
        }
        const uint64_t start = v.extents.front().startSector;
        if (start >= diskEnd) continue;
        std::fill(boot.begin(), boot.end(), 0);
        PartitionRecord r;
        uint64_t count = 0;
        if (contiguous) {
            disk.ReadSectors(boot.data(), ss, start, true);
            if (auto got = RecogniseVolume(disk, Bytes(boot.data(), layout::kBootSectorBytes), total)) r = *got;
            count = std::min(total, diskEnd - start);
        } else {
            if (nested || !base) continue;
            CPhysicalDisk volume;
            volume.Attach(std::make_unique<ExtentSource>(*base, v, ss));
            volume.SetSectorSize(ss);
            count = volume.ByteSize() / ss;
            if (count == 0) continue;
            volume.SetSectorCount(count);
            volume.ReadSectors(boot.data(), ss, 0, true);
            if (auto got = RecogniseVolume(volume, Bytes(boot.data(), layout::kBootSectorBytes), count)) r = *got;
        }
        r.startSector = start;
        // The length follows the table's convention: a GPT entry keeps its last sector.
        r.length = !gpt ? count : count > ~0ull - start ? ~0ull : start + count - 1;
        disk.SecondPartitions().push_back(r);
        any = true;
        if (nested) continue;
        AssembledVolume a;
        // The name is shown and written into JSON: printable ASCII only, as the format keeps it.
        a.name = v.name;
        for (char& ch : a.name)
            if (static_cast<unsigned char>(ch) < 0x20 || static_cast<unsigned char>(ch) > 0x7E) ch = '?';
        a.startSector = start;
        a.sectors = count;
        if (!contiguous)
            a.open = [v, ss](ByteSource& b) -> std::unique_ptr<ByteSource> {
                return std::make_unique<ExtentSource>(b, v, ss);
            };
        kept[start] = std::move(a);
    }
    if (!nested) {
        disk.AssembledVolumes().clear();
        for (auto& [start, a] : kept) disk.AssembledVolumes().push_back(std::move(a));
    }
    return any;
}

} // namespace

bool ReadMbrDynamicDisk(CPhysicalDisk& disk, std::span<const uint8_t> header) {
    return ListDynamicVolumes(disk, privhead::ConfigStart::Or(header, 0), privhead::ConfigSize::Or(header, 0),
                              privhead::LogicalDiskStart::Or(header, 0), DiskGuidText(header), false);
}

bool ReadGptDynamicDisk(CPhysicalDisk& disk, const LdmGptAreas& gpt) {
    if (gpt.metadataSectors == 0) return false;
    // The private header sits in the last sector of the metadata partition.
    const uint32_t ss = std::max<uint32_t>(disk.GetSectorSize(), 512);
    std::vector<uint8_t> s(ss, 0);
    disk.ReadSectors(s.data(), ss, gpt.metadataStart + gpt.metadataSectors - 1, true);
    std::string guid;
    if (privhead::Magic::Is(s, privhead::kMagic)) guid = DiskGuidText(s);
    return ListDynamicVolumes(disk, gpt.metadataStart, gpt.metadataSectors, gpt.dataStart, guid, true);
}

namespace {

// Pieces of `bytes` bytes at `sectorStart` sectors, appended after `total` bytes; false when a
// number does not fit in 64 bits.
bool AddPiece(std::vector<ExtentSource::Piece>& out, uint64_t& total, uint64_t sectorStart, uint64_t sectors,
              uint64_t ss) {
    if (sectors > ~0ull / ss || sectorStart > ~0ull / ss || sectors * ss > ~0ull - total) return false;
    out.push_back({total, sectorStart * ss, sectors * ss});
    total += sectors * ss;
    return true;
}

} // namespace

ExtentSource::ExtentSource(ByteSource& base, const LdmVolume& volume, uint32_t sectorSize) : m_base(base) {
    const uint64_t ss = sectorSize ? sectorSize : 512;
    if (volume.layout == LdmLayout::Striped) {
        // Chunks taken from the columns in turn, as many whole rows as the shortest column
        // holds; every column's extents in column order. The mapping is computed per read, so
        // a volume of any size needs only its extents in memory.
        if (volume.columns == 0 || volume.stripeSectors == 0 || volume.stripeSectors > kMaxChunkBytes / ss) return;
        m_chunk = volume.stripeSectors * ss;
        m_columns.resize(volume.columns);
        std::vector<uint64_t> columnBytes(volume.columns, 0);
        for (const auto& e : volume.extents)
            if (e.column < volume.columns && !AddPiece(m_columns[e.column], columnBytes[e.column], e.startSector,
                                                       e.sectors, ss))
                break;
        uint64_t rows = ~0ull;
        for (uint64_t bytes : columnBytes) rows = std::min(rows, bytes / m_chunk);
        const uint64_t rowBytes = m_chunk * volume.columns; // at most 1,024 columns of 1 GiB
        m_size = std::min<uint64_t>(rows, ~0ull / rowBytes) * rowBytes;
        return;
    }
    for (const auto& e : volume.extents)
        if (!AddPiece(m_pieces, m_size, e.startSector, e.sectors, ss)) break;
}

long long ExtentSource::ReadPieces(const std::vector<Piece>& pieces, uint8_t* out, size_t len, uint64_t offset) {
    size_t done = 0;
    auto it = std::upper_bound(pieces.begin(), pieces.end(), offset,
                               [](uint64_t off, const Piece& p) { return off < p.volumeByte; });
    if (it != pieces.begin()) --it;
    for (; it != pieces.end() && done < len; ++it) {
        uint64_t at = offset + done;
        if (at < it->volumeByte || at - it->volumeByte >= it->bytes) continue;
        uint64_t into = at - it->volumeByte;
        size_t n = size_t(std::min<uint64_t>(len - done, it->bytes - into));
        long long got = m_base.ReadAt(out + done, n, it->baseByte + into);
        if (got < 0) return done ? (long long)done : -1;
        done += size_t(got);
        if (size_t(got) < n) break;
    }
    return (long long)done;
}

long long ExtentSource::ReadAt(void* buf, size_t len, uint64_t offset) {
    auto* out = static_cast<uint8_t*>(buf);
    if (offset >= m_size) return 0;
    len = size_t(std::min<uint64_t>(len, m_size - offset));
    if (m_columns.empty()) return ReadPieces(m_pieces, out, len, offset);
    size_t done = 0;
    while (done < len) {
        uint64_t at = offset + done;
        uint64_t chunkIndex = at / m_chunk, into = at % m_chunk;
        size_t column = size_t(chunkIndex % m_columns.size());
        uint64_t inColumn = chunkIndex / m_columns.size() * m_chunk + into;
        size_t n = size_t(std::min<uint64_t>(len - done, m_chunk - into));
        long long got = ReadPieces(m_columns[column], out + done, n, inColumn);
        if (got < 0) return done ? (long long)done : -1;
        done += size_t(got);
        if (size_t(got) < n) break;
    }
    return (long long)done;
}

} // namespace kestrin
