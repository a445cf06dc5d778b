// slt.dat reading and writing, the add/edit/delete rules, mode and extension filters, and the
// shipped table against the class table.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
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

TEST(SignatureFile, SaveSequenceAndItsLeftoverQuirk) {
    TempFolder dir;
    auto table = ShippedTable();
    ASSERT_EQ(SaveSignatureFile(dir.str(), table), SignatureSaveStatus::kSaved);
    EXPECT_FALSE(fs::exists(dir.path / "~slt.dat"));
    EXPECT_EQ(LoadSignatureFile(dir.str()).records.size(), table.size());

    // A leftover "~slt.dat" is not overwritten: it becomes slt.dat and the edit is lost.
    {
        auto old = SerializeSignatureFile({table[0]});
        std::ofstream(dir.path / "~slt.dat", std::ios::binary).write(reinterpret_cast<const char*>(old.data()), old.size());
    }
    EXPECT_EQ(SaveSignatureFile(dir.str(), table), SignatureSaveStatus::kSaved);
    EXPECT_EQ(LoadSignatureFile(dir.str()).records.size(), 1u);

    // Nowhere to write: the old file is deleted first, so nothing is left.
    EXPECT_EQ(SaveSignatureFile((dir.path / "missing").string(), table), SignatureSaveStatus::kRenameFailed);
    SignatureLoad load = LoadSignatureFile((dir.path / "missing").string());
    EXPECT_EQ(load.status, SignatureLoadStatus::kMissing);
}

TEST(SignatureFile, AddEditDeleteRules) {
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
    EXPECT_EQ(added.extension, ".xyz");
    EXPECT_EQ(added.headerOffset, 3u);
    EXPECT_EQ(added.secondValue, 4u);
    EXPECT_EQ(added.category, kCategoryUserDefault);

    SignatureFields empty = f;
    empty.description.clear();
    EXPECT_EQ(AddUserSignature(rows, empty), SignatureEditResult::kEmptyField);
    EXPECT_EQ(rows.size(), shipped + 1);

    f.unitIndex = 1;
    EXPECT_EQ(EditUserSignature(rows, shipped, f), SignatureEditResult::kDone);
    EXPECT_EQ(rows.back().fixedSize, 5242880u);
    EXPECT_EQ(EditUserSignature(rows, 0, f), SignatureEditResult::kNotUserDefined);
    EXPECT_EQ(DeleteUserSignature(rows, 0), SignatureEditResult::kNotUserDefined);
    EXPECT_EQ(rows.size(), shipped + 1);
    EXPECT_EQ(DeleteUserSignature(rows, shipped), SignatureEditResult::kDone);
    EXPECT_EQ(rows.size(), shipped);
}

TEST(SignatureList, ModesAndExtensionLists) {
    auto table = ShippedTable();
    SignatureRecord user = UserRecord({1}, ".usr", 1);
    table.push_back(user);
    std::set<std::string> photo;
    for (const auto& r : FilterByMode(table, kModeLostPhotos)) photo.insert(r.extension);
    for (const char* e : {".jpg", ".cr2", ".mp3", ".mp4", ".usr"}) EXPECT_TRUE(photo.count(e)) << e;
    for (const char* e : {".doc", ".pdf", ".zip"}) EXPECT_FALSE(photo.count(e)) << e;
    EXPECT_EQ(FilterByMode(table, kModeFormatted).size(), table.size());

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
            if (s->IsHeader(sector)) EXPECT_EQ(sector[key->first], key->second) << r.extension;
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
