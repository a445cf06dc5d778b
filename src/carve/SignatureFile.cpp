#include "carve/SignatureFile.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>

#include "carve/SignatureList.h"
#include "platform/AtomicFile.h"
#include "platform/Platform.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

constexpr uint64_t kMaxFileBytes = 64ull << 20;

// The layout of slt.dat (little-endian): the magic, the record count, the records one after the
// other and the trailer. A record's texts and byte strings are stored as their length and then
// their bytes, so a record has no fixed offsets: its fields are listed once, in file order, with
// the type each is stored as, and reading and writing both walk that list.
namespace slt {
constexpr char kMagic[4] = {'K', 'S', 'T', '3'};
constexpr char kTrailer[4] = {'3', 'T', 'S', 'K'};
using Count = uint32_t;      // after the magic
using BlobLength = uint64_t; // before each text or byte string
struct Blob {};              // a text or byte string
// At most this many header bytes are stored (the in-memory length is an 8-bit count).
constexpr size_t kMaxHeaderBytes = 255;

template <class Record, class Field>
void ForEachField(Record& r, Field&& field) {
    field(Blob{}, r.header);
    field(Blob{}, r.extension);
    field(uint32_t{}, r.headerOffset);
    field(uint32_t{}, r.secondValue);
    field(uint64_t{}, r.fixedSize);
    field(Blob{}, r.description);
    field(uint32_t{}, r.typeId);
    field(uint32_t{}, r.userDefined);
    field(uint8_t{}, r.category);
}
} // namespace slt

// Sequential reader over the file's bytes; every read either fits or fails as a short read.
class Cursor {
public:
    explicit Cursor(std::span<const uint8_t> b) : m_b(b) {}
    bool Take(size_t n, std::span<const uint8_t>& out) {
        if (!Fits(m_b, m_at, n)) return false;
        out = m_b.subspan(m_at, n);
        m_at += n;
        return true;
    }
    template <class T>
    bool Le(T& v) {
        std::span<const uint8_t> s;
        if (!Take(sizeof(T), s)) return false;
        v = 0;
        for (size_t i = sizeof(T); i-- > 0;) v = T(v << 8 | s[i]);
        return true;
    }
    // A length-prefixed text or byte string. The length is a claim: it must fit in what the
    // file still holds, so a length of 10^12 is a short read and never an allocation.
    bool Blob(std::span<const uint8_t>& out) {
        slt::BlobLength n;
        if (!Le(n) || n > m_b.size() - m_at) return false;
        return Take(size_t(n), out);
    }
    // One record field: `Stored` is its type in the file.
    template <class Stored, class T>
    bool Field(Stored, T& value) {
        Stored v;
        if (!Le(v)) return false;
        value = v;
        return true;
    }
    bool Field(slt::Blob, std::string& value) {
        std::span<const uint8_t> s;
        if (!Blob(s)) return false;
        value.assign(reinterpret_cast<const char*>(s.data()), s.size());
        return true;
    }
    // The in-memory header length is an 8-bit count: a longer stored header keeps only the bytes
    // that count names.
    bool Field(slt::Blob, std::vector<uint8_t>& value) {
        std::span<const uint8_t> s;
        if (!Blob(s)) return false;
        value.assign(s.begin(), s.begin() + (s.size() & 0xFF));
        return true;
    }

private:
    std::span<const uint8_t> m_b;
    size_t m_at = 0;
};

void PutLe(std::vector<uint8_t>& out, uint64_t v, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i) out.push_back(uint8_t(v >> (8 * i)));
}

void PutBlob(std::vector<uint8_t>& out, const void* p, size_t n) {
    PutLe(out, n, sizeof(slt::BlobLength));
    auto* b = static_cast<const uint8_t*>(p);
    out.insert(out.end(), b, b + n);
}

// One record field as `Stored`, its type in the file.
template <class Stored, class T>
void PutField(std::vector<uint8_t>& out, Stored, const T& value) {
    PutLe(out, Stored(value), sizeof(Stored));
}
void PutField(std::vector<uint8_t>& out, slt::Blob, const std::string& value) {
    PutBlob(out, value.data(), value.size());
}
void PutField(std::vector<uint8_t>& out, slt::Blob, const std::vector<uint8_t>& value) {
    PutBlob(out, value.data(), std::min(value.size(), slt::kMaxHeaderBytes));
}

unsigned UnitShift(int unitIndex) { return unitIndex < 0 ? 0 : unitIndex == 0 ? 10 : 20; }

int HexDigit(char ch) {
    if (ch >= '0' && ch <= '9') return ch - '0';
    if (ch >= 'A' && ch <= 'F') return ch - 'A' + 10;
    if (ch >= 'a' && ch <= 'f') return ch - 'a' + 10;
    return -1;
}

std::string_view TrimBlanks(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    return s;
}

// Only called once ValidateUserSignature passed, so every strict parse succeeds.
void ApplyFields(SignatureRecord& r, const SignatureFields& f) {
    r.fixedSize = *ParseUnsignedDecimal(f.size, kMaxUserFixedSize) << UnitShift(f.unitIndex);
    r.header = *ParseHeaderHexStrict(f.header);
    r.extension = ExtensionWithDot(f.extension);
    r.headerOffset = uint32_t(*ParseUnsignedDecimal(f.offset, kUserHeaderSectorBytes));
    r.secondValue = f.secondValue;
    r.description = f.description;
    r.category = f.category ? f.category : uint8_t(kCategoryUserDefault);
}

} // namespace

SignatureLoad ParseSignatureFile(std::span<const uint8_t> bytes) {
    SignatureLoad load;
    Cursor c(bytes);
    std::span<const uint8_t> magic;
    if (!c.Take(sizeof slt::kMagic, magic)) {
        load.status = SignatureLoadStatus::kShortRead;
        return load;
    }
    if (std::memcmp(magic.data(), slt::kMagic, sizeof slt::kMagic) != 0) {
        load.status = SignatureLoadStatus::kBadMagic;
        return load;
    }
    slt::Count count;
    if (!c.Le(count)) {
        load.status = SignatureLoadStatus::kShortRead;
        return load;
    }
    load.declaredCount = count;
    for (uint32_t i = 0; i < load.declaredCount; ++i) {
        SignatureRecord r;
        bool ok = true;
        slt::ForEachField(r, [&](auto stored, auto& value) { ok = ok && c.Field(stored, value); });
        if (!ok) {
            load.status = SignatureLoadStatus::kShortRead;
            break;
        }
        load.records.push_back(std::move(r));
    }
    return load;
}

SignatureLoad LoadSignatureFile(const std::string& folder) {
    SignatureLoad load;
    platform::File f;
    if (!f.OpenRead(folder + "/" + kSignatureFileName)) {
        load.status = SignatureLoadStatus::kMissing;
        load.systemText = platform::SysErrorText(f.LastError());
        return load;
    }
    uint64_t size = std::min(f.Size(), kMaxFileBytes);
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    long long got = size ? f.ReadAt(bytes.data(), bytes.size(), 0) : 0;
    uint32_t error = got < 0 ? f.LastError() : 0;
    bytes.resize(got > 0 ? size_t(got) : 0);
    load = ParseSignatureFile(bytes);
    if (load.status == SignatureLoadStatus::kShortRead) load.systemText = platform::SysErrorText(error);
    return load;
}

std::vector<uint8_t> SerializeSignatureFile(const std::vector<SignatureRecord>& records) {
    std::vector<uint8_t> out(std::begin(slt::kMagic), std::end(slt::kMagic));
    PutLe(out, records.size(), sizeof(slt::Count));
    for (const SignatureRecord& r : records)
        slt::ForEachField(r, [&](auto stored, const auto& value) { PutField(out, stored, value); });
    out.insert(out.end(), std::begin(slt::kTrailer), std::end(slt::kTrailer));
    return out;
}

SignatureSaveStatus SaveSignatureFile(const std::string& folder, const std::vector<SignatureRecord>& records) {
    std::vector<uint8_t> bytes = SerializeSignatureFile(records);
    bool saved = platform::WriteFileAtomically(folder + "/" + kSignatureFileName, bytes.data(), bytes.size(),
                                               /*replace=*/true);
    return saved ? SignatureSaveStatus::kSaved : SignatureSaveStatus::kRenameFailed;
}

std::optional<std::vector<uint8_t>> ParseHeaderHexStrict(std::string_view text, SignatureProblem* problem) {
    auto fail = [problem](SignatureProblem p) {
        if (problem) *problem = p;
        return std::nullopt;
    };
    if (text.empty()) return fail(SignatureProblem::kEmpty);
    for (char ch : text)
        if (HexDigit(ch) < 0) return fail(SignatureProblem::kNotHex);
    if (text.size() % 2) return fail(SignatureProblem::kOddHexDigits);
    if (text.size() / 2 > kMaxUserHeaderBytes) return fail(SignatureProblem::kHeaderTooLong);
    std::vector<uint8_t> out;
    out.reserve(text.size() / 2);
    for (size_t i = 0; i < text.size(); i += 2) out.push_back(uint8_t(HexDigit(text[i]) << 4 | HexDigit(text[i + 1])));
    if (problem) *problem = SignatureProblem::kNone;
    return out;
}

std::optional<uint64_t> ParseUnsignedDecimal(std::string_view text, uint64_t max, SignatureProblem* problem) {
    auto fail = [problem](SignatureProblem p) {
        if (problem) *problem = p;
        return std::nullopt;
    };
    text = TrimBlanks(text);
    if (text.empty()) return fail(SignatureProblem::kEmpty);
    bool negative = text.front() == '-';
    if (text.front() == '+' || negative) text.remove_prefix(1);
    if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos)
        return fail(SignatureProblem::kNotNumber);
    // "-0" is zero, not a negative number.
    if (negative && text.find_first_not_of('0') != std::string_view::npos) return fail(SignatureProblem::kNegative);
    uint64_t v = 0;
    for (char ch : text) {
        uint64_t digit = uint64_t(ch - '0');
        if (v > (max - digit) / 10) return fail(SignatureProblem::kTooLarge);
        v = v * 10 + digit;
    }
    if (problem) *problem = SignatureProblem::kNone;
    return v;
}

SignatureCheck ValidateUserSignature(const SignatureFields& fields) {
    auto bad = [](SignatureField f, SignatureProblem p) { return SignatureCheck{f, p}; };
    SignatureProblem p = SignatureProblem::kNone;
    // The size is checked against the cap in the unit it was typed in, so size × unit can never
    // overflow.
    auto size = ParseUnsignedDecimal(fields.size, kMaxUserFixedSize >> UnitShift(fields.unitIndex), &p);
    if (!size) return bad(SignatureField::kSize, p);
    if (*size == 0) return bad(SignatureField::kSize, SignatureProblem::kZero);
    auto header = ParseHeaderHexStrict(fields.header, &p);
    if (!header) return bad(SignatureField::kHeader, p);
    if (fields.extension.empty()) return bad(SignatureField::kExtension, SignatureProblem::kEmpty);
    if (fields.extension.find_first_not_of('.') == std::string::npos)
        return bad(SignatureField::kExtension, SignatureProblem::kNoExtensionName);
    // The header is compared at the offset inside the candidate's first 512 bytes: it has to end
    // there, or the row could never match.
    auto offset = ParseUnsignedDecimal(fields.offset, kUserHeaderSectorBytes, &p);
    if (!offset) return bad(SignatureField::kOffset, p == SignatureProblem::kTooLarge ? SignatureProblem::kNoRoomInSector : p);
    if (*offset > kUserHeaderSectorBytes - header->size())
        return bad(SignatureField::kOffset, SignatureProblem::kNoRoomInSector);
    if (fields.description.empty()) return bad(SignatureField::kDescription, SignatureProblem::kEmpty);
    return {};
}

const char* SignatureProblemTextId(SignatureProblem problem) {
    switch (problem) {
    case SignatureProblem::kNone: return nullptr;
    case SignatureProblem::kEmpty: return "IDS_SIG_BAD_EMPTY";
    case SignatureProblem::kNotHex: return "IDS_SIG_BAD_NOT_HEX";
    case SignatureProblem::kOddHexDigits: return "IDS_SIG_BAD_ODD_HEX";
    case SignatureProblem::kHeaderTooLong: return "IDS_SIG_BAD_HEADER_LONG";
    case SignatureProblem::kNotNumber: return "IDS_SIG_BAD_NOT_NUMBER";
    case SignatureProblem::kNegative: return "IDS_SIG_BAD_NEGATIVE";
    case SignatureProblem::kZero: return "IDS_SIG_BAD_ZERO";
    case SignatureProblem::kTooLarge: return "IDS_SIG_BAD_TOO_LARGE";
    case SignatureProblem::kNoRoomInSector: return "IDS_SIG_BAD_NO_ROOM";
    case SignatureProblem::kNoExtensionName: return "IDS_SIG_BAD_NO_EXT";
    }
    return nullptr;
}

std::vector<uint8_t> ParseHeaderHex(std::string_view text) {
    std::vector<uint8_t> out;
    auto nibble = [](char ch) {
        unsigned char u = static_cast<unsigned char>(std::toupper(static_cast<unsigned char>(ch)));
        return u < 'A' ? u - 48 : u - 55;
    };
    for (size_t i = 0; i + 1 < text.size(); i += 2) out.push_back(uint8_t(nibble(text[i]) << 4 | nibble(text[i + 1])));
    return out;
}

int64_t ParseDecimal64(std::string_view text) {
    size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    uint64_t v = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) v = v * 10 + uint64_t(text[i] - '0');
    return negative ? -int64_t(v) : int64_t(v);
}

uint64_t ApplySizeUnit(uint64_t size, int unitIndex) {
    if (unitIndex < 0) return size;
    return unitIndex == 0 ? size << 10 : size << 20;
}

std::string ExtensionWithDot(std::string extension) {
    if (extension.find('.') == std::string::npos) extension.insert(extension.begin(), '.');
    return extension;
}

SignatureEditResult AddUserSignature(std::vector<SignatureRecord>& records, const SignatureFields& fields,
                                     SignatureCheck* check) {
    SignatureCheck c = ValidateUserSignature(fields);
    if (check) *check = c;
    if (!c.Ok()) return SignatureEditResult::kInvalidField;
    SignatureRecord r;
    ApplyFields(r, fields);
    r.userDefined = 1;
    r.typeId = uint32_t(records.size()) + kFirstUserTypeId;
    records.push_back(std::move(r));
    return SignatureEditResult::kDone;
}

SignatureEditResult EditUserSignature(std::vector<SignatureRecord>& records, size_t row, const SignatureFields& fields,
                                      SignatureCheck* check) {
    if (row >= records.size()) return SignatureEditResult::kNoSuchRow;
    if (records[row].userDefined != 1) return SignatureEditResult::kNotUserDefined;
    SignatureCheck c = ValidateUserSignature(fields);
    if (check) *check = c;
    if (!c.Ok()) return SignatureEditResult::kInvalidField;
    ApplyFields(records[row], fields);
    return SignatureEditResult::kDone;
}

SignatureEditResult DeleteUserSignature(std::vector<SignatureRecord>& records, size_t row) {
    if (row >= records.size()) return SignatureEditResult::kNoSuchRow;
    if (records[row].userDefined != 1) return SignatureEditResult::kNotUserDefined;
    records.erase(records.begin() + ptrdiff_t(row));
    return SignatureEditResult::kDone;
}

} // namespace kestrin
