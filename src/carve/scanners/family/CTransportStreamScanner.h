#pragma once
// The walk shared by the MPEG transport stream members: fixed-size packets, each with the sync
// byte 0x47 at the same place (188-byte packets with the sync byte first, or 192-byte packets
// behind a 4-byte time code). The size is the end of the last packet in the unbroken run;
// at least kMinPackets packets must follow each other.
//
// Bounds: kMaxSize bytes.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CTransportStreamScanner : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 8ull << 30;
    static constexpr uint32_t kMinPackets = 8;

protected:
    CTransportStreamScanner(uint32_t packetSize, uint32_t syncAt) : m_packet(packetSize), m_syncAt(syncAt) {}
    uint64_t Walk(std::span<const uint8_t> sector) override;

private:
    uint32_t m_packet;
    uint32_t m_syncAt;
};

} // namespace kestrin
