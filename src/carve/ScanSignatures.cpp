#include "carve/ScanSignatures.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "carve/CChunkPrefetcher.h"
#include "carve/CSectorReader.h"
#include "carve/ScannerSet.h"
#include "fs/CNode.h"
#include "platform/Platform.h"
#include "job/ScanContext.h"
#include "storage/CPhysicalDisk.h"
#include "util/Text.h"

namespace kestrin {

namespace {

// Streams that would yield a flood of false hits inside themselves are jumped over. The list is
// compared case-sensitively: ".Mp3" is not in it.
constexpr std::string_view kSkippedStreams[] = {".MP3", ".mp3", ".MPG", ".mpg", ".MOV", ".mov",
                                                 ".MTS", ".mts", ".M2TS", ".m2ts", ".ARJ", ".arj"};

bool IsSkippedStream(std::string_view extension) {
    return std::find(std::begin(kSkippedStreams), std::end(kSkippedStreams), extension) != std::end(kSkippedStreams);
}

// Picks the scanners that may accept a sector from the bytes at their header offsets: one
// 256-entry table of scanner indices per distinct offset. Scanners without a deciding byte are
// candidates for every sector. Candidates come out in set order, so the first scanner still wins.
class CandidateIndex {
public:
    CandidateIndex(const ScannerSet& set, uint32_t sectorSize) {
        for (uint16_t i = 0; i < set.size(); ++i) {
            auto key = set[i].scanner->HeaderKey();
            if (!key) {
                m_always.push_back(i);
                continue;
            }
            if (key->first >= sectorSize) continue; // its header can never fit in a sector
            auto g = std::find_if(m_groups.begin(), m_groups.end(), [&](const Group& x) { return x.offset == key->first; });
            if (g == m_groups.end()) {
                m_groups.push_back({key->first, {}});
                g = m_groups.end() - 1;
            }
            g->byByte[key->second].push_back(i);
        }
        m_merged.reserve(set.size());
    }

    // Candidates for `sector` (valid until the next call).
    std::span<const uint16_t> For(const uint8_t* sector) {
        // Most sectors have no candidate at all, and most of the rest one group's list: those
        // are handed back as they stand, without merging.
        const std::vector<uint16_t>* only = nullptr;
        size_t lists = 0;
        for (const Group& g : m_groups) {
            const auto& list = g.byByte[sector[g.offset]];
            if (list.empty()) continue;
            only = &list;
            ++lists;
        }
        if (m_always.empty() && lists <= 1) return only ? std::span<const uint16_t>(*only) : std::span<const uint16_t>();
        m_merged.clear();
        for (const Group& g : m_groups) {
            const auto& list = g.byByte[sector[g.offset]];
            m_merged.insert(m_merged.end(), list.begin(), list.end());
        }
        m_merged.insert(m_merged.end(), m_always.begin(), m_always.end());
        if (m_merged.size() > 1) std::sort(m_merged.begin(), m_merged.end());
        return m_merged;
    }

private:
    struct Group {
        uint32_t offset;
        std::array<std::vector<uint16_t>, 256> byByte;
    };
    std::vector<Group> m_groups;
    std::vector<uint16_t> m_always;
    std::vector<uint16_t> m_merged;
};

std::u16string Decimal(uint64_t v) { return ToUtf16(std::to_string(v)); }

} // namespace

int AddCarvedHit(CNode* fileTypes, CScanner& scanner, uint64_t sector, uint64_t fileSize, uint64_t embeddedSize) {
    std::string_view ext = scanner.Extension();
    std::u16string typeName = ToUtf16(ext.empty() ? ext : ext.substr(1));
    CNode* typeFolder = FindChild(fileTypes, typeName);
    if (!typeFolder && !(typeFolder = AddFolder(fileTypes, typeName))) return 0;

    uint64_t count = GetCount(typeFolder);
    std::string bare;
    for (char ch : ext)
        if (ch != '.') bare += ch;
    uint64_t base = count / 1000 * 1000;
    std::u16string rangeName = ToUtf16(bare) + u"[" + Decimal(base + 1) + u"-" + Decimal(base + 1000) + u"]";
    CNode* rangeFolder = FindChild(typeFolder, rangeName);
    if (!rangeFolder && !(rangeFolder = AddFolder(typeFolder, rangeName))) return 0;

    // Numbers are printed as 32-bit values, as the names have always been.
    std::u16string number = Decimal(uint32_t(count + 1));
    int added = 0;
    if (fileSize != 0 && AddCarvedFile(rangeFolder, u"file#" + number + ToUtf16(ext), sector, fileSize, 0)) {
        IncrementCount(typeFolder);
        IncrementCount(rangeFolder);
        ++added;
    }
    if (embeddedSize > 0 && embeddedSize < kMaxEmbeddedSize) {
        uint32_t offset = scanner.GetEmbeddedOffset();
        std::u16string name = u"file_RAW#" + number + std::u16string(scanner.GetEmbeddedExtension());
        if (AddCarvedFile(rangeFolder, name, scanner.GetEmbeddedSector(), embeddedSize + offset, offset)) ++added;
    }
    return added;
}

namespace {

bool StartsWithEightZeros(const uint8_t* p) {
    uint64_t v;
    std::memcpy(&v, p, 8);
    return v == 0;
}

} // namespace

Outcome ScanSignatures(CPhysicalDisk& media, uint32_t scanKind, uint64_t firstSector, uint64_t endSector,
                       ScanContext& ctx) {
    ctx.events.OnSignatureScanStart();
    // The record search is a stage of its own; a kind without signatures has nothing to test.
    const bool signatures = scanKind == kScanSignaturesOnly || scanKind == kScanRecordsAndSignatures;
    if (!signatures) return Outcome::Ok;

    CNode* fileTypes = ctx.top ? AddFolder(ctx.top, u"File Types") : nullptr;

    CSectorReader reader(media);
    reader.SetScan(&ctx);
    const uint32_t bps = reader.SectorSize();
    ScannerSet set;
    if (fileTypes && ctx.signatures) set = BuildScannerSet(*ctx.signatures);
    for (auto& e : set) e.scanner->SetReader(&reader);
    CandidateIndex candidates(set, bps);

    ctx.op.endSector.store(endSector);
    // Progress counts from the range's first sector, so a partition deep in a disk starts at 0.
    const int64_t rangeSectors = int64_t(endSector > firstSector ? endSector - firstSector : 0);
    ctx.op.unitBytes.store(bps);
    ctx.op.total.store(rangeSectors);
    uint64_t current = firstSector;
    uint64_t skipUntil = 0;
    Outcome outcome = Outcome::Ok;
    // What the scanners read past a candidate is kept in the read-ahead window, so it is read
    // from the media once, in the loop's large reads.
    uint64_t lookAheadSectors = 0;
    for (auto& e : set) lookAheadSectors = std::max(lookAheadSectors, e.scanner->LookAheadSectors(bps));
    // A sector needs at least the eight bytes of the zero test.
    // Reads of the same size (1 MiB) whatever the sector size.
    const uint32_t chunkSectors = std::max<uint32_t>(1, uint32_t(uint64_t(kSignatureChunkSectors) * 512 / std::max<uint32_t>(bps, 1)));
    CChunkPrefetcher chunks(reader, firstSector, bps >= 8 ? endSector : firstSector, chunkSectors, true,
                            lookAheadSectors);
    reader.SetWindow(&chunks);

    while (current < endSector && bps >= 8) {
        if (ctx.StopRequested()) {
            outcome = Outcome::Stopped;
            break;
        }
        // A scanner's own read found the source gone (the read-ahead reports it with its chunk).
        if (reader.SourceGoneInScannerRead()) {
            ctx.events.OnStatus(UserText{"", CStorageMedia::ErrorText(platform::kErrDeviceGone)});
            outcome = Outcome::DeviceGone;
            break;
        }
        ctx.op.currentSector.store(current);
        ctx.op.done.store(int64_t(current - firstSector));
        ctx.events.OnProgress();
        CChunkPrefetcher::Chunk chunk = chunks.Next();
        if (chunk.sectors == 0) break;
        // A hole of a sparse image: zeros only, of which no sector is ever offered.
        if (chunk.hole) {
            current += chunk.sectors;
            continue;
        }
        if (!chunk.data) break;
        if (!chunk.ok) {
            if (chunk.error == platform::kErrAccessDenied || chunk.error == platform::kErrDeviceGone) {
                ctx.events.OnStatus(UserText{"", CStorageMedia::ErrorText(chunk.error)});
                outcome = chunk.error == platform::kErrDeviceGone ? Outcome::DeviceGone : Outcome::ReadFailed;
                break;
            }
            outcome = Worse(outcome, Outcome::ReadFailed);
            current += chunk.sectors; // never offered to a scanner
            continue;
        }
        bool stop = false;
        for (uint32_t i = 0; i < chunk.sectors && !stop; ++i, ++current) {
            if (ctx.StopRequested()) {
                stop = true;
                break;
            }
            const uint8_t* p = chunk.data + size_t(i) * bps;
            if (skipUntil > current) continue;
            // Deliberate: a sector that opens with eight zero bytes is never offered, not even
            // to a signature that stands further into the sector.
            if (StartsWithEightZeros(p)) continue;
            std::span<const uint8_t> sector(p, bps);
            for (uint16_t index : candidates.For(p)) {
                if (ctx.StopRequested()) {
                    stop = true;
                    break;
                }
                CScanner& s = *set[index].scanner;
                if (!s.IsHeader(sector) || s.Verify(current, sector) != 1) continue;
                uint64_t fileSize = s.FindFileSize(current, sector);
                uint64_t embeddedSize = s.GetEmbeddedSize();
                if (fileSize == 0 && embeddedSize == 0) continue;
                // The last two sectors of a jumped-over stream are offered again. (Kept from
                // wrapping below zero for a stream shorter than two sectors at the start.)
                if (IsSkippedStream(s.Extension())) {
                    uint64_t to = fileSize / bps + current;
                    skipUntil = to >= 2 ? to - 2 : 0;
                }
                if (int added = AddCarvedHit(fileTypes, s, current, fileSize, embeddedSize))
                    ctx.op.found.carved.fetch_add(uint64_t(added), std::memory_order_relaxed);
                break;
            }
        }
        if (stop) {
            outcome = Outcome::Stopped;
            break;
        }
    }

    set.clear();
    reader.SetWindow(nullptr);
    return outcome;
}

ContentResult CarvedWriteContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink) {
    ContentResult result;
    uint32_t bps = media.GetSectorSize();
    if (bps == 0 || node.location > UINT64_MAX / bps) return result;
    CSectorReader reader(media);
    // Runs of 2 MiB, whole sectors, starting at the item's first sector.
    const uint32_t runSectors = std::max<uint32_t>(1, (2u << 20) / bps);
    const uint64_t runBytes = uint64_t(runSectors) * bps;
    // Made when a run is first read (copied runs need none), no larger than the item's sectors.
    std::unique_ptr<uint8_t[]> buf;
    size_t bufSize = 0;
    uint64_t begin = node.startOffset;
    uint64_t end = node.size;
    uint64_t sector = node.location;
    uint64_t available = reader.BytesFrom(node.location * bps);
    result.ok = true;
    for (uint64_t runStart = 0; runStart < end; runStart += runBytes, sector += runSectors) {
        uint64_t runEnd = std::min<uint64_t>(runStart + runBytes, end);
        if (runEnd <= begin) continue;
        if (runStart >= available) {
            result.beyondVolume += end - std::max(runStart, begin);
            result.ok = false;
            break;
        }
        uint32_t want = uint32_t(std::min<uint64_t>(runEnd - runStart, available - runStart));
        uint32_t wantSectors = (want + bps - 1) / bps;
        size_t from = size_t(std::max(runStart, begin) - runStart);
        // A run whose whole sectors lie on the source may go from file to file. Anything else
        // (a sink or source that cannot, a failed copy, the short run at the source's end) is read
        // and written as below, so the bytes counted as unreadable stay what reading counts.
        if (sink.CanCopy() && media.Handle() && uint64_t(wantSectors) * bps <= available - runStart) {
            size_t len = size_t(runEnd - runStart) - from;
            ContentSink::Copy c = sink.CopyRun(*media.Handle(), sector * bps + from, len);
            if (c == ContentSink::Copy::Stop) {
                result.ok = false;
                return result;
            }
            if (c == ContentSink::Copy::Done) {
                result.written += len;
                continue;
            }
        }
        if (!buf) {
            bufSize = size_t(end >= runBytes ? runBytes : (end + bps - 1) / bps * bps);
            buf = std::make_unique_for_overwrite<uint8_t[]>(bufSize);
        }
        bool readOk = reader.Read(buf.get(), wantSectors * bps, sector);
        if (!readOk) std::memset(buf.get(), 0, bufSize);
        size_t len = size_t(std::min<uint64_t>(runEnd, runStart + want) - runStart) - from;
        if (!readOk) {
            result.unreadable += len;
            result.ok = false;
        }
        if (!sink(buf.get() + from, len)) {
            result.ok = false;
            return result;
        }
        result.written += len;
        if (runEnd > runStart + want) {
            result.beyondVolume += runEnd - (runStart + want);
            result.ok = false;
            break;
        }
    }
    return result;
}

} // namespace kestrin
