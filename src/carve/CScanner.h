#pragma once
// The carving interface: one scanner per searchable file type. The loop asks IsHeader for every
// sector, then Verify, FindFileSize and GetEmbeddedSize on the same scanner for the same sector;
// a scanner may keep what it learnt between those calls.
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "carve/SignatureRecord.h"

namespace kestrin {

class CSectorReader;

class CScanner {
public:
    // A header test never compares more than this many bytes, whatever the record holds.
    static constexpr size_t kMaxHeaderBytes = 16;

    CScanner() = default;
    virtual ~CScanner() = default;
    CScanner(const CScanner&) = delete;
    CScanner& operator=(const CScanner&) = delete;

    // Copies the record's fields; the header and the extension are cut to 16 bytes.
    void SetSignature(const SignatureRecord& record);
    // Where Verify and FindFileSize read further sectors.
    void SetReader(CSectorReader* reader) { m_reader = reader; }

    // `sector` is exactly one sector of the read buffer.
    virtual bool IsHeader(std::span<const uint8_t> sector) = 0;
    // Exactly 1 accepts the candidate at absolute sector `sectorNumber`.
    virtual int Verify(uint64_t sectorNumber, std::span<const uint8_t> sector) = 0;
    // Bytes of the file from the first byte of that sector; 0 = none.
    virtual uint64_t FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) = 0;
    // A second item inside the file (a camera raw's preview image); 0 = none.
    virtual uint64_t GetEmbeddedSize() = 0;
    virtual uint64_t GetEmbeddedSector() = 0;
    virtual uint32_t GetEmbeddedOffset() = 0;
    virtual std::u16string_view GetEmbeddedExtension() = 0;

    // (offset, byte) that the sector must hold for IsHeader to be true, so the loop can pick
    // candidates per sector from a table instead of asking every scanner; nullopt when no single
    // byte decides (an empty header). Scanners that override IsHeader override this too.
    virtual std::optional<std::pair<uint32_t, uint8_t>> HeaderKey() const;
    // How many sectors past a candidate sector Verify and FindFileSize may read through the
    // reader's ReadView; the loop keeps that much of what it reads ahead for them. 0: none.
    virtual uint64_t LookAheadSectors(uint32_t /*sectorSize*/) const { return 0; }

    uint64_t FixedSize() const { return m_fixedSize; }
    uint8_t HeaderLength() const { return m_headerLength; }
    const uint8_t* Header() const { return m_header; }
    std::string_view Extension() const { return m_extension; }
    uint32_t HeaderOffset() const { return m_headerOffset; }
    uint32_t SecondValue() const { return m_secondValue; }
    uint32_t TypeId() const { return m_typeId; }
    uint32_t UserDefined() const { return m_userDefined; }
    uint8_t Category() const { return m_category; }

protected:
    // The common test: the header bytes stand at the header offset of the sector. A header that
    // would run past the sector does not match.
    bool CompareHeader(std::span<const uint8_t> sector) const;
    CSectorReader* Reader() const { return m_reader; }

private:
    uint64_t m_reserved0 = 0;
    uint64_t m_fixedSize = 0;
    uint64_t m_reserved1 = 0;
    uint8_t m_headerLength = 0;
    uint8_t m_header[kMaxHeaderBytes + 1] = {};
    char m_extension[kMaxHeaderBytes + 1] = {};
    uint32_t m_headerOffset = 0;
    uint32_t m_secondValue = 0;
    uint32_t m_typeId = 0;
    uint32_t m_userDefined = 0;
    uint8_t m_category = 0;
    CSectorReader* m_reader = nullptr;
};

} // namespace kestrin
