// slt.dat reading and writing, the add/edit/delete rules, mode and extension filters, and the
// shipped table against the class table.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "CarveTestUtil.h"
#include "carve/ScannerSet.h"
#include "carve/SignatureFile.h"
#include "carve/SignatureList.h"
#include "carve/SignatureTable.h"
#include "carve/scanners/CUserScanner.h"
#include "util/Bytes.h"

namespace kestrin::test {
namespace {

namespace fs = std::filesystem;

std::vector<SignatureRecord> ShippedTable() {
    std::string error;
    auto t = LoadSignatureTable(std::string(KESTRIN_SOURCE_DIR) + "/data/signatures.txt", &error);
    EXPECT_TRUE(t) << error;
    return t ? *t : std::vector<SignatureRecord>{};
}

struct TempFolder {
    fs::path path;
    TempFolder() {
        path = fs::temp_directory_path() / ("kestrin-carve-" + std::to_string(::getpid()) + "-" +
                                            std::to_string(reinterpret_cast<uintptr_t>(this)));
        fs::create_directories(path);
    }
    ~TempFolder() {
        std::error_code ec;
        fs::remove_all(path, ec);
    }
    std::string str() const { return path.string(); }
};

TEST(SignatureFile, RoundTripAndDamagedFiles) {
    auto table = ShippedTable();
    ASSERT_GT(table.size(), 50u);
    auto bytes = SerializeSignatureFile(table);
    EXPECT_EQ(std::string(bytes.end() - 4, bytes.end()), "3TSK");
    SignatureLoad load = ParseSignatureFile(bytes);
    EXPECT_EQ(load.status, SignatureLoadStatus::kOk);
    ASSERT_EQ(load.records.size(), table.size());
    EXPECT_EQ(load.records[0].header, table[0].header);
    EXPECT_EQ(load.records.back().description, table.back().description);

    auto bad = bytes;
    bad[3] = '4';
    EXPECT_EQ(ParseSignatureFile(bad).status, SignatureLoadStatus::kBadMagic);
    EXPECT_TRUE(ParseSignatureFile(bad).records.empty());

    // Cut inside the third record: two kept.
    auto two = SerializeSignatureFile({table[0], table[1]});
    auto three = SerializeSignatureFile({table[0], table[1], table[2]});
    std::vector<uint8_t> cut(three.begin(), three.begin() + ptrdiff_t(two.size() - 4 + 10));
    load = ParseSignatureFile(cut);
    EXPECT_EQ(load.status, SignatureLoadStatus::kShortRead);
    EXPECT_EQ(load.records.size(), 2u);
    EXPECT_EQ(load.declaredCount, 3u);

    // A header length of 10^12 in the second record: a short read, never an allocation.
    auto huge = three;
    size_t second = 8 + SerializeSignatureFile({table[0]}).size() - 12; // magic and count, one record
    PutLe64(huge.data() + second, 1000000000000ull);
    load = ParseSignatureFile(huge);
    EXPECT_EQ(load.status, SignatureLoadStatus::kShortRead);
    EXPECT_EQ(load.records.size(), 1u);

    // A stored header longer than 255 bytes keeps the count its 8-bit length names.
    SignatureRecord longHeader = table[0];
    longHeader.header.assign(300, 0xAB);
    auto longBytes = SerializeSignatureFile({longHeader});
    PutLe64(longBytes.data() + 8, 300); // the writer caps at 255; patch in a longer one
    longBytes.insert(longBytes.begin() + 16 + 255, 45, 0xAB);
    load = ParseSignatureFile(longBytes);
    ASSERT_EQ(load.records.size(), 1u);
    EXPECT_EQ(load.records[0].header.size(), 44u);
}

std::string FileText(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

size_t EntryCount(const fs::path& dir) {
    return size_t(std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

TEST(SignatureFile, SaveReplacesWholeAndKeepsTheOldFileOnFailure) {
    TempFolder dir;
    auto table = ShippedTable();
    ASSERT_EQ(SaveSignatureFile(dir.str(), table), SignatureSaveStatus::kSaved);
    EXPECT_EQ(LoadSignatureFile(dir.str()).records.size(), table.size());
    EXPECT_EQ(EntryCount(dir.path), 1u); // no temporary left beside it

    // A temporary left by an earlier crash (the old fixed name, or ours) takes no part: the new
    // list lands, and the leftovers are not ours to delete.
    auto stale = SerializeSignatureFile({table[0]});
    std::string staleText(stale.begin(), stale.end());
    std::ofstream(dir.path / "~slt.dat", std::ios::binary) << staleText;
    std::ofstream(dir.path / ".slt.dat.AbC123.part", std::ios::binary) << staleText;
    std::vector<SignatureRecord> two = {table[1], table[2]};
    ASSERT_EQ(SaveSignatureFile(dir.str(), two), SignatureSaveStatus::kSaved);
    SignatureLoad load = LoadSignatureFile(dir.str());
    ASSERT_EQ(load.records.size(), 2u);
    EXPECT_EQ(load.records[0].extension, table[1].extension);
    EXPECT_EQ(FileText(dir.path / "~slt.dat"), staleText);
    EXPECT_EQ(EntryCount(dir.path), 3u);

    // The rename cannot replace what is there (a folder with content): it stays as it was and
    // no temporary is left.
    TempFolder blocked;
    fs::create_directories(blocked.path / "slt.dat");
    std::ofstream(blocked.path / "slt.dat" / "keep", std::ios::binary) << "keep";
    EXPECT_EQ(SaveSignatureFile(blocked.str(), table), SignatureSaveStatus::kRenameFailed);
    EXPECT_EQ(FileText(blocked.path / "slt.dat" / "keep"), "keep");
    EXPECT_EQ(EntryCount(blocked.path), 1u);

    // No folder to write into.
    EXPECT_EQ(SaveSignatureFile((dir.path / "missing").string(), table), SignatureSaveStatus::kRenameFailed);
    EXPECT_FALSE(fs::exists(dir.path / "missing"));
}

TEST(SignatureFile, AddEditDeleteRules) {
    // The literal parsers keep their behaviour for what still reads old text.
    EXPECT_EQ(ParseHeaderHex("ffd8"), (std::vector<uint8_t>{0xFF, 0xD8}));
    EXPECT_EQ(ParseHeaderHex("FFD"), (std::vector<uint8_t>{0xFF}));
    EXPECT_EQ(ParseHeaderHex("G0"), (std::vector<uint8_t>{0x00}));    // 'G' - 55 = 16: its high half is lost
    EXPECT_EQ(ParseHeaderHex("0:"), (std::vector<uint8_t>{0x0A}));    // ':' - 48 = 10
    EXPECT_EQ(ApplySizeUnit(5, 0), 5120u);
    EXPECT_EQ(ApplySizeUnit(5, 1), 5242880u);
    EXPECT_EQ(ExtensionWithDot("jpg"), ".jpg");
    EXPECT_EQ(ExtensionWithDot(".jpg"), ".jpg");
    EXPECT_EQ(ParseDecimal64(" 12abc"), 12);

    std::vector<SignatureRecord> rows = ShippedTable();
    size_t shipped = rows.size();
    SignatureFields f{"5", 0, "ffd8", "xyz", "3", 4, "Mine"};
    ASSERT_EQ(AddUserSignature(rows, f), SignatureEditResult::kDone);
    const SignatureRecord& added = rows.back();
    EXPECT_EQ(added.typeId, shipped + 1001);
    EXPECT_EQ(added.userDefined, 1u);
    EXPECT_EQ(added.fixedSize, 5120u);
    EXPECT_EQ(added.header, (std::vector<uint8_t>{0xFF, 0xD8}));
    EXPECT_EQ(added.extension, ".xyz");
    EXPECT_EQ(added.headerOffset, 3u);
    EXPECT_EQ(added.secondValue, 4u);
    EXPECT_EQ(added.category, kCategoryUserDefault);

    // A faulty field stores nothing and says which.
    SignatureFields junk = f;
    junk.header = "ZZ";
    SignatureCheck check;
    EXPECT_EQ(AddUserSignature(rows, junk, &check), SignatureEditResult::kInvalidField);
    EXPECT_EQ(check.field, SignatureField::kHeader);
    EXPECT_EQ(rows.size(), shipped + 1);
    EXPECT_EQ(EditUserSignature(rows, shipped, junk, &check), SignatureEditResult::kInvalidField);
    EXPECT_EQ(rows.back().header, (std::vector<uint8_t>{0xFF, 0xD8}));

    f.unitIndex = 1;
    EXPECT_EQ(EditUserSignature(rows, shipped, f), SignatureEditResult::kDone);
    EXPECT_EQ(rows.back().fixedSize, 5242880u);
    EXPECT_EQ(EditUserSignature(rows, 0, f), SignatureEditResult::kNotUserDefined);
    EXPECT_EQ(EditUserSignature(rows, rows.size(), f), SignatureEditResult::kNoSuchRow);
    EXPECT_EQ(DeleteUserSignature(rows, 0), SignatureEditResult::kNotUserDefined);
    EXPECT_EQ(rows.size(), shipped + 1);
    EXPECT_EQ(DeleteUserSignature(rows, shipped), SignatureEditResult::kDone);
    EXPECT_EQ(rows.size(), shipped);
}

TEST(SignatureFile, UserFieldsAreCheckedBeforeStoring) {
    using F = SignatureField;
    using P = SignatureProblem;
    const std::string maxHeader(2 * kMaxUserHeaderBytes, 'A');
    struct Case {
        SignatureFields fields;
        F field;
        P problem;
    } cases[] = {
        {{"1", 0, "4B53", "ks", "0", 0, "d"}, F::kNone, P::kNone},
        {{" 7 ", -1, "4b53", ".ks", "+5", 0, "d"}, F::kNone, P::kNone},
        // Header: whole hex pairs, 1 to 255 bytes.
        {{"1", 0, "ZZ", "ks", "0", 0, "d"}, F::kHeader, P::kNotHex},
        {{"1", 0, "FF D8", "ks", "0", 0, "d"}, F::kHeader, P::kNotHex},
        {{"1", 0, "0x", "ks", "0", 0, "d"}, F::kHeader, P::kNotHex},
        {{"1", 0, "FFD", "ks", "0", 0, "d"}, F::kHeader, P::kOddHexDigits},
        {{"1", 0, "", "ks", "0", 0, "d"}, F::kHeader, P::kEmpty},
        {{"1", 0, maxHeader + "AA", "ks", "0", 0, "d"}, F::kHeader, P::kHeaderTooLong},
        // Offset: the header has to end inside the first 512 bytes.
        {{"1", 0, maxHeader, "ks", "257", 0, "d"}, F::kNone, P::kNone},
        {{"1", 0, maxHeader, "ks", "258", 0, "d"}, F::kOffset, P::kNoRoomInSector},
        {{"1", 0, "AA", "ks", "511", 0, "d"}, F::kNone, P::kNone},
        {{"1", 0, "AA", "ks", "512", 0, "d"}, F::kOffset, P::kNoRoomInSector},
        {{"1", 0, "AA", "ks", "4294967295", 0, "d"}, F::kOffset, P::kNoRoomInSector},
        {{"1", 0, "AA", "ks", "99999999999999999999999", 0, "d"}, F::kOffset, P::kNoRoomInSector},
        {{"1", 0, "AA", "ks", "-1", 0, "d"}, F::kOffset, P::kNegative},
        {{"1", 0, "AA", "ks", "12abc", 0, "d"}, F::kOffset, P::kNotNumber},
        {{"1", 0, "AA", "ks", "-", 0, "d"}, F::kOffset, P::kNotNumber},
        {{"1", 0, "AA", "ks", " ", 0, "d"}, F::kOffset, P::kEmpty},
        // Size: 1 byte up to 4 GiB whatever the unit, never a wrapped product.
        {{"0", 0, "AA", "ks", "0", 0, "d"}, F::kSize, P::kZero},
        {{"-5", 0, "AA", "ks", "0", 0, "d"}, F::kSize, P::kNegative},
        {{"5k", 0, "AA", "ks", "0", 0, "d"}, F::kSize, P::kNotNumber},
        {{"4194304", 0, "AA", "ks", "0", 0, "d"}, F::kNone, P::kNone},
        {{"4194305", 0, "AA", "ks", "0", 0, "d"}, F::kSize, P::kTooLarge},
        {{"4096", 1, "AA", "ks", "0", 0, "d"}, F::kNone, P::kNone},
        {{"4097", 1, "AA", "ks", "0", 0, "d"}, F::kSize, P::kTooLarge},
        {{"17592186044416", 1, "AA", "ks", "0", 0, "d"}, F::kSize, P::kTooLarge}, // 2^44 MB = 2^64 bytes
        {{"4294967297", -1, "AA", "ks", "0", 0, "d"}, F::kSize, P::kTooLarge},
        {{"18446744073709551616", -1, "AA", "ks", "0", 0, "d"}, F::kSize, P::kTooLarge},
        // Extension and description.
        {{"1", 0, "AA", "", "0", 0, "d"}, F::kExtension, P::kEmpty},
        {{"1", 0, "AA", ".", "0", 0, "d"}, F::kExtension, P::kNoExtensionName},
        {{"1", 0, "AA", "..", "0", 0, "d"}, F::kExtension, P::kNoExtensionName},
        {{"1", 0, "AA", "ks", "0", 0, ""}, F::kDescription, P::kEmpty},
        // The first faulty field in dialog order is the one named.
        {{"0", 0, "ZZ", "", "-1", 0, ""}, F::kSize, P::kZero},
    };
    for (const Case& c : cases) {
        SignatureCheck check = ValidateUserSignature(c.fields);
        std::string what = c.fields.size + "|" + c.fields.header.substr(0, 8) + "|" + c.fields.extension + "|" +
                           c.fields.offset + "|" + c.fields.description;
        EXPECT_EQ(check.field, c.field) << what;
        EXPECT_EQ(check.problem, c.problem) << what;
        EXPECT_EQ(check.Ok(), c.problem == P::kNone) << what;
        EXPECT_EQ(SignatureProblemTextId(check.problem) == nullptr, check.Ok()) << what;
        std::vector<SignatureRecord> rows;
        EXPECT_EQ(AddUserSignature(rows, c.fields) == SignatureEditResult::kDone, check.Ok()) << what;
    }

    // What passes is stored exactly: 4 GiB in bytes, the header at the last offset that fits.
    std::vector<SignatureRecord> rows;
    ASSERT_EQ(AddUserSignature(rows, {"4194304", 0, "a0Ff", "ks", "510", 0, "d"}), SignatureEditResult::kDone);
    EXPECT_EQ(rows[0].fixedSize, kMaxUserFixedSize);
    EXPECT_EQ(rows[0].header, (std::vector<uint8_t>{0xA0, 0xFF}));
    EXPECT_EQ(rows[0].headerOffset, 510u);
}

TEST(SignatureList, ModesAndExtensionLists) {
    auto table = ShippedTable();
    SignatureRecord user = UserRecord({1}, ".usr", 1);
    table.push_back(user);
    std::set<std::string> photo;
    for (const auto& r : FilterByMode(table, RecoveryMode::LostPhotos)) photo.insert(r.extension);
    for (const char* e : {".jpg", ".cr2", ".mp3", ".mp4", ".usr"}) EXPECT_TRUE(photo.count(e)) << e;
    for (const char* e : {".doc", ".pdf", ".zip"}) EXPECT_FALSE(photo.count(e)) << e;
    EXPECT_EQ(FilterByMode(table, RecoveryMode::Formatted).size(), table.size());

    EXPECT_EQ(SplitTypeList(" jpg, .PDF,,doc "), (std::vector<std::string>{"jpg", "PDF", "doc"}));
    std::vector<std::string> unmatched;
    auto picked = FilterByExtensions(table, {"JPG", "pdf", "nosuch"}, &unmatched);
    std::set<std::string> exts;
    for (const auto& r : picked) exts.insert(r.extension);
    EXPECT_EQ(exts, (std::set<std::string>{".jpg", ".pdf"}));
    EXPECT_EQ(unmatched, std::vector<std::string>{"nosuch"});
}

TEST(ScannerClasses, ChoiceByTypeIdAndExtension) {
    auto one = [](uint32_t id, std::string ext, uint32_t user = 0) {
        SignatureRecord r;
        r.typeId = id;
        r.extension = std::move(ext);
        r.userDefined = user;
        r.header = {0x11};
        r.fixedSize = 99;
        return MakeScanners(r);
    };
    EXPECT_TRUE(one(10, ".TIF").empty());                 // case-sensitive extension test
    EXPECT_TRUE(one(235, ".dot").empty());
    ASSERT_EQ(one(999, ".abc").size(), 1u);               // unknown id: a user signature
    EXPECT_TRUE(dynamic_cast<CUserScanner*>(one(999, ".abc")[0].get()));
    EXPECT_EQ(one(999, ".abc")[0]->FindFileSize(0, {}), 99u);
    EXPECT_TRUE(dynamic_cast<CUserScanner*>(one(11, ".jpg", 1)[0].get())); // the flag decides
    EXPECT_EQ(one(11, ".jpg")[0]->Extension(), ".jpg");
}

TEST(ShippedTable, CoversTheClassTableWithWorkingHeaders) {
    auto table = ShippedTable();
    std::set<uint32_t> shippedIds, known;
    for (const auto& r : table) shippedIds.insert(r.typeId);
    for (uint32_t id : KnownTypeIds()) known.insert(id);
    EXPECT_EQ(shippedIds, known);
    for (const auto& r : table) {
        EXPECT_GE(r.category, 1);
        EXPECT_LE(r.category, 4);
        EXPECT_EQ(r.userDefined, 0u);
        // The loop asks a scanner only when the sector holds its key byte: a scanner must never
        // accept a sector without it.
        std::vector<uint8_t> sector(512, 0x20);
        std::copy(r.header.begin(), r.header.end(), sector.begin() + r.headerOffset);
        for (auto& s : MakeScanners(r)) {
            auto key = s->HeaderKey();
            if (!key) continue; // asked for every sector
            if (s->IsHeader(sector)) {
                EXPECT_EQ(sector[key->first], key->second) << r.extension;
            }
            auto other = sector;
            other[key->first] ^= 0xFF;
            EXPECT_FALSE(s->IsHeader(other)) << r.extension;
        }
    }
    // The classes of this subsystem's own rows accept their magic as shipped.
    for (const auto& r : table)
        if (r.extension == ".jpg" || r.extension == ".doc" || r.extension == ".xls" || r.extension == ".ppt") {
            std::vector<uint8_t> sector(512, 0x20);
            std::copy(r.header.begin(), r.header.end(), sector.begin() + r.headerOffset);
            for (auto& s : MakeScanners(r)) EXPECT_TRUE(s->IsHeader(sector)) << r.extension;
        }
}

} // namespace
} // namespace kestrin::test
