#include "carve/scanners/family/CHeaderFieldMembers.h"

#include <string_view>

#include "carve/SignatureList.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

using namespace std::string_view_literals;
using Sector = std::span<const uint8_t>;

// Windows bitmap file header and the size of the information header behind it.
namespace bmp {
using FileSize = LeField<uint32_t, 0x02>;
using Reserved = LeField<uint32_t, 0x06>;
using InfoHeaderSize = LeField<uint32_t, 0x0E>;
constexpr uint32_t kClassicInfoHeader = 40;
// A damaged size field gives a capped file, not a refusal.
constexpr uint64_t kMaxSize = 0x3C00000;
} // namespace bmp

// Cabinet header.
namespace cab {
using CabinetSize = LeField<uint32_t, 0x08>;
} // namespace cab

// 7-Zip start header: the next header's offset (from the end of the start header) and size; only
// the low halves are read.
namespace sevenzip {
using NextHeaderOffset = LeField<uint32_t, 0x0C>;
using NextHeaderSize = LeField<uint32_t, 0x14>;
constexpr uint64_t kStartHeaderSize = 32;
} // namespace sevenzip

// The sizes above which the cabinet and 7-Zip rules carve 300 MiB instead.
constexpr uint64_t kArchiveLimit = 0x77000000;
constexpr uint64_t kArchiveCapped = 314572800;

// RealAudio header (big-endian).
namespace ra {
constexpr size_t kMarker = 0x08;  // u32 ".ra4"
constexpr size_t kLength = 0x0C;  // u32, the bytes after the 40-byte header
constexpr uint32_t kMarkerValue = 0x2E726134;
constexpr uint64_t kHeaderSize = 40;
constexpr uint64_t kLimit = 0xA0000000;
constexpr uint64_t kCapped = 1024;
} // namespace ra

// Flash movie header: an uncompressed movie ("FWS") carries its length.
namespace swf {
using Signature = ByteField<0x00, 3>;
using FileLength = LeField<uint32_t, 0x04>;
} // namespace swf

// Outlook personal and offline folders header: "SM" and the format version, then the end-of-file
// field of the narrow (32-bit) or wide (64-bit) format.
namespace pst {
using ClientMagic = ByteField<0x08, 2>;
using Version = LeField<uint8_t, 0x0A>;
using NarrowFileEnd = LeField<uint32_t, 0xA8>;
using WideFileEnd = LeField<uint64_t, 0xB8>;
bool IsWide(uint8_t version) { return version == 21 || version == 23; }
bool IsKnown(uint8_t version) { return version == 14 || version == 15 || IsWide(version); }
} // namespace pst

bool Always(Sector, uint64_t) { return true; }
// The layouts of the QuickBooks files are not open: the header compare and the fixed size, as for
// a user-defined signature.
bool HasFixedSize(Sector, uint64_t fixedSize) { return fixedSize != 0; }
uint64_t FixedSize(Sector, uint64_t fixedSize) { return fixedSize; }

uint64_t Capped(uint64_t size, uint64_t limit, uint64_t capped) { return size > limit ? capped : size; }

bool IsClassicBitmap(Sector s, uint64_t) {
    auto reserved = bmp::Reserved::Read(s);
    auto info = bmp::InfoHeaderSize::Read(s);
    return reserved && *reserved == 0 && info && *info == bmp::kClassicInfoHeader;
}
uint64_t BitmapSize(Sector s, uint64_t) {
    auto size = bmp::FileSize::Read(s);
    return size ? Capped(*size, bmp::kMaxSize, bmp::kMaxSize) : 0;
}

uint64_t CabinetSize(Sector s, uint64_t) {
    auto size = cab::CabinetSize::Read(s);
    return size ? Capped(*size, kArchiveLimit, kArchiveCapped) : 0;
}

uint64_t SevenZipSize(Sector s, uint64_t) {
    auto offset = sevenzip::NextHeaderOffset::Read(s);
    auto length = sevenzip::NextHeaderSize::Read(s);
    if (!offset || !length) return 0;
    return Capped(uint64_t(*offset) + *length + sevenzip::kStartHeaderSize, kArchiveLimit, kArchiveCapped);
}

bool IsRealAudio(Sector s, uint64_t) {
    auto marker = ReadBe32(s, ra::kMarker);
    return marker && *marker == ra::kMarkerValue;
}
uint64_t RealAudioSize(Sector s, uint64_t) {
    auto length = ReadBe32(s, ra::kLength);
    if (!length || *length == 0) return 0;
    return Capped(uint64_t(*length) + ra::kHeaderSize, ra::kLimit, ra::kCapped);
}

// A compressed movie gets the record's fixed size.
uint64_t FlashSize(Sector s, uint64_t fixedSize) {
    if (!swf::Signature::Is(s, "FWS")) return fixedSize;
    return swf::FileLength::Or(s, 0);
}

bool IsPersonalFolders(Sector s, uint64_t) {
    auto version = pst::Version::Read(s);
    return pst::ClientMagic::Is(s, "SM") && version && pst::IsKnown(*version);
}
uint64_t PersonalFoldersSize(Sector s, uint64_t) {
    auto version = pst::Version::Read(s);
    if (!version) return 0;
    if (pst::IsWide(*version)) return pst::WideFileEnd::Or(s, 0);
    return pst::NarrowFileEnd::Or(s, 0);
}

struct HeaderFieldRow {
    HeaderFieldMember member;
    FamilyMember facts;
    bool (*accepts)(Sector sector, uint64_t fixedSize);
    uint64_t (*size)(Sector sector, uint64_t fixedSize);
};

constexpr auto kFolders = "!BDN"sv;

constexpr HeaderFieldRow kRows[] = {
    // Windows bitmap: reserved fields zero and the 40-byte information header; capped at 60 MiB.
    {HeaderFieldMember::BMP, {142, ".bmp", "BM"sv, 0, kCategoryPicture, MakeMember<CBMPScanner>, true},
     IsClassicBitmap, BitmapSize},
    // Cabinet archive: always accepted.
    {HeaderFieldMember::CAB, {517, ".cab", "MSCF"sv, 0, kCategoryContainer, MakeMember<CCABScanner>, true}, Always,
     CabinetSize},
    // 7-Zip archive: always accepted.
    {HeaderFieldMember::SevenZip,
     {516, ".7z", "7z\xBC\xAF\x27\x1C"sv, 0, kCategoryContainer, MakeMember<C7zScanner>, true}, Always,
     SevenZipSize},
    // RealAudio: the ".ra4" marker; the length plus the header, 0 when the length is 0.
    {HeaderFieldMember::RA, {69, ".ra", ".ra\xFD"sv, 0, kCategoryAudioVideo, MakeMember<CRaScanner>, true},
     IsRealAudio, RealAudioSize},
    // Flash movie: always accepted.
    {HeaderFieldMember::SWF, {506, ".swf", "FWS"sv, 0, kCategoryAudioVideo, MakeMember<CSWFScanner>, true}, Always,
     FlashSize},
    // Outlook personal folders.
    {HeaderFieldMember::PST, {136, ".pst", kFolders, 0, kCategoryContainer, MakeMember<CPSTScanner>, true},
     IsPersonalFolders, PersonalFoldersSize},
    // Outlook offline folders: every rule of the personal folders, listed as its own type.
    {HeaderFieldMember::OST, {137, ".ost", kFolders, 0, kCategoryContainer, MakeMember<COSTScanner>, true},
     IsPersonalFolders, PersonalFoldersSize},
    // QuickBooks backup and company file: no type id selects these classes.
    {HeaderFieldMember::QBB, {0, ".qbb", ""sv, 0, kCategoryContainer, MakeMember<CQBBScanner>, true}, HasFixedSize,
     FixedSize},
    {HeaderFieldMember::QBW, {0, ".qbw", ""sv, 0, kCategoryContainer, MakeMember<CQBWScanner>, true}, HasFixedSize,
     FixedSize},
};
static_assert(InMemberOrder(kRows));

} // namespace

bool HeaderFieldMemberAccepts(HeaderFieldMember member, std::span<const uint8_t> sector, uint64_t fixedSize) {
    return kRows[size_t(member)].accepts(sector, fixedSize);
}

uint64_t HeaderFieldMemberSize(HeaderFieldMember member, std::span<const uint8_t> sector, uint64_t fixedSize) {
    return kRows[size_t(member)].size(sector, fixedSize);
}

std::vector<FamilyMember> HeaderFieldMembers() {
    std::vector<FamilyMember> out = FactsOf(kRows);
    // The compressed movie's record: the fixed size.
    out.push_back({507, ".swf", "CWS"sv, 0, kCategoryAudioVideo, MakeMember<CSWFScanner>, true});
    return out;
}

} // namespace kestrin
