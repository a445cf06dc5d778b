#pragma once
// The full times of an NTFS item, read again from its file record.
#include <memory>

#include "fs/ItemTimes.h"
#include "util/Bytes.h"

namespace kestrin {

class CPhysicalDisk;

// The standard information's four times of the file record at `node.location` on the media's
// selected volume. False when the record cannot be read, fails its checks or has none.
bool NtfsReadTimes(CPhysicalDisk& media, const CNode& node, ItemTimes& out);
// The same from a checked record already in memory.
bool NtfsRecordTimes(Bytes record, ItemTimes& out);

// NtfsReadTimes for many items of the media's selected volume: the boot sector is read once and
// one record buffer serves every item. The media must outlive the reader.
class NtfsTimesReader {
public:
    explicit NtfsTimesReader(CPhysicalDisk& media);
    ~NtfsTimesReader();
    NtfsTimesReader(const NtfsTimesReader&) = delete;
    NtfsTimesReader& operator=(const NtfsTimesReader&) = delete;
    bool Read(const CNode& node, ItemTimes& out);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace kestrin
