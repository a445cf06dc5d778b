#pragma once
// The full times of one found item, whatever engine found it.
#include <memory>

#include "fs/ItemTimes.h"

namespace kestrin {

class CPhysicalDisk;

// What the item's volume kept from the walk (FAT and exFAT items; NTFS items when the scan kept
// times); other NTFS items: read from their file record through the volume they were found on. False for carved items and items whose times are
// not known (a record that cannot be read any more, a tree loaded from a session).
bool ReadNodeTimes(CPhysicalDisk& media, const CNode& node, ItemTimes& out);

// ReadNodeTimes for many items in a row (a report): each volume's geometry is read once.
class NodeTimesReader {
public:
    explicit NodeTimesReader(CPhysicalDisk& media);
    ~NodeTimesReader();
    NodeTimesReader(const NodeTimesReader&) = delete;
    NodeTimesReader& operator=(const NodeTimesReader&) = delete;
    bool Read(const CNode& node, ItemTimes& out);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace kestrin
