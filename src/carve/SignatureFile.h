#pragma once
// The signature file "slt.dat" in the program folder: every searchable type, shipped and
// user-defined, as "KST3", a count, the records and a "3TSK" trailer (little-endian, texts
// without terminator). Also the add, edit and delete rules of the signature list.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "carve/SignatureRecord.h"

namespace kestrin {

inline constexpr const char* kSignatureFileName = "slt.dat";
// Type ids of user records start here (record count at the time of adding + 1001).
inline constexpr uint32_t kFirstUserTypeId = 1001;

enum class SignatureLoadStatus {
    kOk,
    kMissing,   // the file could not be opened
    kBadMagic,  // not "KST3": nothing loaded
    kShortRead, // the file ends inside a record: the records before it are kept
};

struct SignatureLoad {
    std::vector<SignatureRecord> records;
    SignatureLoadStatus status = SignatureLoadStatus::kOk;
    uint32_t declaredCount = 0; // the count the file claims
    std::string systemText;     // the system's text for the failure (missing file, short read)
};

SignatureLoad ParseSignatureFile(std::span<const uint8_t> bytes);
// Reads "slt.dat" in `folder` (at most 64 MiB of it).
SignatureLoad LoadSignatureFile(const std::string& folder);
std::vector<uint8_t> SerializeSignatureFile(const std::vector<SignatureRecord>& records);

enum class SignatureSaveStatus { kSaved, kRenameFailed };
// Writes the whole list to a fresh temporary file beside "slt.dat", flushes it to the device and
// renames it over "slt.dat". Until that rename the old file is untouched, so a crash, a full disk
// or a failed rename leaves the previous list in place; a temporary left by an earlier crash
// ("~slt.dat" included) is never used.
SignatureSaveStatus SaveSignatureFile(const std::string& folder, const std::vector<SignatureRecord>& records);

// The add and edit dialogs' fields, as typed.
struct SignatureFields {
    std::string size;        // decimal; multiplied by the unit
    int unitIndex = 0;       // 0: first entry of the unit list (KB), above 0: MB, below 0: bytes
    std::string header;      // hex text
    std::string extension;   // "jpg" or ".jpg"
    std::string offset;      // decimal
    uint32_t secondValue = 0; // item data of the type drop-down entry
    std::string description;
    uint8_t category = 0;    // 0: the user-defined default (listed by every mode)
};

// The first sector a user signature is compared in: the header must lie inside its 512 bytes.
inline constexpr uint32_t kUserHeaderSectorBytes = 512;
// The stored header length is 8-bit.
inline constexpr size_t kMaxUserHeaderBytes = 255;
// Every hit of a user signature becomes a file of the fixed size. 4 GiB is far above any file
// a fixed-size rule is good for and keeps size × unit clear of overflow; a larger value is a
// typing error that would turn each hit into a huge bogus file.
inline constexpr uint64_t kMaxUserFixedSize = 4ull << 30;

// The fields of the add and edit dialogs, in the order they are shown and checked.
enum class SignatureField { kNone, kSize, kHeader, kExtension, kOffset, kDescription };
enum class SignatureProblem {
    kNone,
    kEmpty,           // nothing typed
    kNotHex,          // a character other than 0-9, A-F, a-f
    kOddHexDigits,    // a byte is given by one hex digit only
    kHeaderTooLong,   // more than kMaxUserHeaderBytes bytes
    kNotNumber,       // not a whole decimal number
    kNegative,        // a minus sign
    kZero,            // a fixed size of 0
    kTooLarge,        // the size times its unit is above kMaxUserFixedSize
    kNoRoomInSector,  // offset + header length is past the first 512 bytes
    kNoExtensionName, // only dots
};
struct SignatureCheck {
    SignatureField field = SignatureField::kNone;
    SignatureProblem problem = SignatureProblem::kNone;
    bool Ok() const { return problem == SignatureProblem::kNone; }
};

// Checks the typed fields before anything is stored: the first faulty field in dialog order.
SignatureCheck ValidateUserSignature(const SignatureFields& fields);
// Language text identifier that explains `problem` after the field's name (nullptr for kNone).
const char* SignatureProblemTextId(SignatureProblem problem);

// Whole hex pairs only (upper or lower case), nothing else; nullopt with `problem` set otherwise.
std::optional<std::vector<uint8_t>> ParseHeaderHexStrict(std::string_view text, SignatureProblem* problem = nullptr);
// Decimal digits only (blanks around them allowed) for a value up to `max`; nullopt with
// `problem` set to kEmpty, kNegative, kNotNumber or kTooLarge otherwise.
std::optional<uint64_t> ParseUnsignedDecimal(std::string_view text, uint64_t max, SignatureProblem* problem = nullptr);

// Upper-cased, two characters per byte: a character below 'A' counts as its value - 48, any
// other as its value - 55, with no further check; a trailing odd character is dropped.
std::vector<uint8_t> ParseHeaderHex(std::string_view text);
// Leading blanks, an optional sign and decimal digits, up to the first other character (0 when
// there are none), as the C runtime's string-to-integer conversions read them.
int64_t ParseDecimal64(std::string_view text);
// The add dialog's unit list: the first entry is kilobytes (× 1024), any other megabytes
// (× 1,048,576). A negative index is the edit dialog's byte unit (× 1).
uint64_t ApplySizeUnit(uint64_t size, int unitIndex);
// "jpg" becomes ".jpg"; a text holding a dot anywhere is kept as it is.
std::string ExtensionWithDot(std::string extension);

enum class SignatureEditResult { kDone, kInvalidField, kNotUserDefined, kNoSuchRow };
// Appends a user record: type id = record count + 1001. Fields that fail ValidateUserSignature
// add nothing; `check` (when given) says which and why.
SignatureEditResult AddUserSignature(std::vector<SignatureRecord>& records, const SignatureFields& fields,
                                     SignatureCheck* check = nullptr);
// Replaces the fields of the user record at `row` (shipped records cannot be edited), with the
// same checks as adding.
SignatureEditResult EditUserSignature(std::vector<SignatureRecord>& records, size_t row, const SignatureFields& fields,
                                      SignatureCheck* check = nullptr);
// Removes the user record at `row`; shipped records cannot be deleted.
SignatureEditResult DeleteUserSignature(std::vector<SignatureRecord>& records, size_t row);

} // namespace kestrin
