#pragma once
// The full times a file system keeps for an item, next to the dates the tree shows. They are
// not stored in the nodes (a million-entry scan would pay 32 bytes more per item): FAT and exFAT
// items, whose directory entries cannot be found again from the node, have them kept by their
// volume (VolumeHandle); NTFS items have them kept the same way when the scan was asked to keep
// times (a report), else read again from their file record when asked.
#include <cstdint>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

namespace kestrin {

class CNode;

// Times in 100 ns units since 1601-01-01 00:00 UTC (the unit and epoch NTFS stores).
using FileTime = int64_t;
constexpr FileTime kNoTime = INT64_MIN;

struct ItemTimes {
    FileTime created = kNoTime;
    FileTime modified = kNoTime; // content last written
    FileTime accessed = kNoTime;
    FileTime changed = kNoTime;  // NTFS only: the file record last changed
    bool Any() const { return created != kNoTime || modified != kNoTime || accessed != kNoTime || changed != kNoTime; }
};

// The full times one walk kept for the items of its volume, in flat arrays (no allocation per
// item): NTFS by file record number, FAT and exFAT by node.
class KeptTimes {
public:
    // NTFS: times are kept for records 0 to count - 1 (the MFT's records); 0 until set.
    void LimitRecords(uint64_t count);
    void SetRecord(uint32_t record, const ItemTimes& times);

    // FAT and exFAT, while the walk runs: `node` has these times.
    void Add(const CNode* node, const ItemTimes& times);
    // Forgets the times of `node` when it was the last added (a walk drops entries it has just
    // read); nothing otherwise.
    void Drop(const CNode* node);
    // `to` takes the times of `from`, replacing its own, when `from` was the last added.
    void Move(const CNode* to, const CNode* from);
    // Done adding: orders the entries for Find.
    void Seal();

    // The times kept for `node`, if any: by its record for an item its NTFS walk read (it has a
    // location and lies in the volume walked), by the node for the others.
    bool Find(const CNode& node, ItemTimes& out) const;
    bool Empty() const { return m_byRecord.empty() && m_byNode.empty(); }

private:
    std::vector<ItemTimes> m_byRecord;
    uint64_t m_recordLimit = 0;
    std::vector<std::pair<const CNode*, ItemTimes>> m_byNode;
    bool m_sealed = true;
};

// An NTFS time as stored (unsigned 100 ns ticks); 0 and values past the signed range are unknown.
FileTime FromNtfsTime(uint64_t ticks);
// A FAT date and time (date as in util/DosDate.h; time: seconds/2 in bits 0-4, minutes in 5-10,
// hours in 11-15) plus a count of 10 ms added to it (0-199). FAT keeps wall-clock time without a
// zone: it is taken as UTC. Date 0 or a field out of range gives kNoTime.
FileTime FromDosDateTime(uint16_t date, uint16_t time, uint8_t tenMs = 0);
// An exFAT timestamp (time in the low half, date in the high half) with its 10 ms count and its
// UTC offset byte (bit 7 set: the low 7 bits are a signed count of 15 minutes east of UTC).
FileTime FromExFatTime(uint32_t timestamp, uint8_t tenMs, uint8_t utcOffset);

// Seconds since the Unix epoch (rounded down) and the nanoseconds past them.
int64_t UnixSeconds(FileTime t);
timespec ToTimespec(FileTime t);
// "YYYY-MM-DDThh:mm:ss[.fffffff]Z" (the fraction only when not 0, without trailing zeros);
// empty for kNoTime.
std::string FormatIso8601(FileTime t);

} // namespace kestrin
