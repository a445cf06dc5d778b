#pragma once
// The signature file "slt.dat" in the program folder: every searchable type, shipped and
// user-defined, as "KST3", a count, the records and a "3TSK" trailer (little-endian, texts
// without terminator). Also the add, edit and delete rules of the signature list.
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "carve/SignatureRecord.h"

namespace kestrin {

inline constexpr const char* kSignatureFileName = "slt.dat";
inline constexpr const char* kSignatureTempName = "~slt.dat";
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
// Writes "~slt.dat" (only when no such file exists), deletes "slt.dat" and renames the new file
// into its place. A leftover "~slt.dat" is therefore what ends up as "slt.dat", and a failed
// rename leaves no "slt.dat" at all: both as the program has always behaved.
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

enum class SignatureEditResult { kDone, kEmptyField, kNotUserDefined, kNoSuchRow };
// Appends a user record: type id = record count + 1001. Any empty field adds nothing.
SignatureEditResult AddUserSignature(std::vector<SignatureRecord>& records, const SignatureFields& fields);
// Replaces the fields of the user record at `row` (shipped records cannot be edited).
SignatureEditResult EditUserSignature(std::vector<SignatureRecord>& records, size_t row, const SignatureFields& fields);
// Removes the user record at `row`; shipped records cannot be deleted.
SignatureEditResult DeleteUserSignature(std::vector<SignatureRecord>& records, size_t row);

} // namespace kestrin
