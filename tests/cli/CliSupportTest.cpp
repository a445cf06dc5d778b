#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/CliFrontEnd.h"
#include "cli/CliJson.h"
#include "cli/CliScan.h"
#include "session/Source.h"
#include "fs/CNode.h"
#include "fs/VolumeTree.h"

using namespace kestrin;
using namespace kestrin::cli;

namespace {
CNode* Add(CNode* parent, std::u16string name, uint16_t flags, uint64_t size = 0) {
    auto* n = new CNode;
    n->name = std::move(name);
    n->flags = flags;
    n->size = size;
    parent->AppendChild(n);
    return n;
}
} // namespace

TEST(CliJson, NodeShapeAndEscaping) {
    std::unique_ptr<CNode> top(MakeTopNode());
    CNode* vol = Add(top.get(), u".", 3);
    vol->recordId = vol->parentRecordId = 5;
    Add(vol, u"Lost", 2);
    CNode* f = Add(vol, u"quo\"te\\\u00e9\n.txt", 0, 1234);
    f->modifiedDate = uint16_t((44 << 9) | (2 << 5) | 29); // 2024-02-29
    f->location = 77;
    CNode* types = AddFolder(top.get(), u"File Types");
    AddCarvedFile(types, u"file#1.jpg", 900, 5000, 12);
    // A deep chain must not cost stack.
    CNode* deep = vol;
    for (int i = 0; i < 20000; ++i) deep = Add(deep, u"d", 3);

    std::ostringstream out;
    out << "{";
    WriteScanJsonBody(out, RecoveryMode::DeletedFiles, SourceInfo{"img \"x\".img", SourceKind::Volume, 0, 81920, 512, FsKind::Ntfs}, *top);
    out << "}";
    auto j = nlohmann::json::parse(out.str());
    EXPECT_EQ(j["mode"], 1019);
    EXPECT_EQ(j["source"]["path"], "img \"x\".img");
    EXPECT_EQ(j["source"]["kind"], 4);
    EXPECT_EQ(j["source"]["sectorCount"], 81920);
    EXPECT_EQ(j["source"]["fsKind"], 3);
    const auto& root = j["root"];
    EXPECT_EQ(root["name"], "_R");
    ASSERT_EQ(root["children"].size(), 2u);
    // "File Types" was prepended, so it comes first.
    const auto& ft = root["children"][0];
    EXPECT_EQ(ft["name"], "File Types");
    const auto& carved = ft["children"][0];
    EXPECT_EQ(carved["carved"], true);
    EXPECT_EQ(carved["location"], 900);
    EXPECT_EQ(carved["startOffset"], 12);
    EXPECT_EQ(carved["checked"], 1);
    EXPECT_FALSE(carved.contains("children"));
    const auto& v = root["children"][1];
    EXPECT_EQ(v["name"], ".");
    EXPECT_EQ(v["recordId"], 5);
    const auto& lost = v["children"][0];
    EXPECT_EQ(lost["name"], "Lost");
    EXPECT_EQ(lost["deleted"], true);
    EXPECT_TRUE(lost["children"].is_array());
    EXPECT_TRUE(lost["children"].empty());
    const auto& file = v["children"][1];
    EXPECT_EQ(file["name"], "quo\"te\\\u00e9\n.txt");
    EXPECT_EQ(file["folder"], false);
    EXPECT_EQ(file["size"], 1234);
    EXPECT_EQ(file["modified"], "2024-02-29");
    EXPECT_TRUE(file["created"].is_null());
    for (const char* k : {"name", "folder", "deleted", "carved", "size", "location", "startOffset", "recordId",
                          "parentRecordId", "flags", "checked", "created", "modified"})
        EXPECT_TRUE(file.contains(k)) << k;
    size_t depth = 0;
    for (const nlohmann::json* n = &v["children"][2]; n; ++depth)
        n = n->contains("children") && !(*n)["children"].empty() ? &(*n)["children"][0] : nullptr;
    EXPECT_EQ(depth, 20000u);
}

// Names go out from their UTF-16 units: a pair is one character, a lone half of one becomes
// U+FFFD, controls and bidi characters become escapes, as for any other text.
TEST(CliJson, NodeNamesFromUtf16Units) {
    std::unique_ptr<CNode> top(MakeTopNode());
    const char16_t units[] = {u'a', 0xD83D, 0xDE00, u'b', 0xD800, u'c', 0xDC00, 0x202E, 0x01, u'\u00e9', u'"', 0xD83D};
    Add(top.get(), std::u16string(units, std::size(units)), 0, 1);
    std::ostringstream out;
    WriteNodeJson(out, *top);
    const std::string text = out.str();
    EXPECT_NE(text.find("\"a\xF0\x9F\x98\x80" "b\xEF\xBF\xBD" "c\xEF\xBF\xBD\\u202e\\u0001\xC3\xA9\\\"\xEF\xBF\xBD\""),
              std::string::npos)
        << text;
    auto j = nlohmann::json::parse(text);
    EXPECT_EQ(j["children"][0]["name"], "a\xF0\x9F\x98\x80" "b\xEF\xBF\xBD" "c\xEF\xBF\xBD\u202e\x01\xC3\xA9\"\xEF\xBF\xBD");
}

TEST(CliJson, ControlsBidiAndSeparatorsBecomeEscapes) {
    // Ordinary names keep their bytes; the usual escapes are unchanged.
    EXPECT_EQ(JsonString("caf\xC3\xA9 \xE6\x97\xA5.txt"), "\"caf\xC3\xA9 \xE6\x97\xA5.txt\"");
    EXPECT_EQ(JsonString("q\"b\\\n\t\x1b"), "\"q\\\"b\\\\\\n\\t\\u001b\"");
    struct Case {
        const char* in;
        const char* escape;
    };
    for (const Case& c : {Case{"\x7f", "\\u007f"}, Case{"\xC2\x80", "\\u0080"}, Case{"\xC2\x9B", "\\u009b"},
                          Case{"\xD8\x9C", "\\u061c"}, Case{"\xE2\x80\x8F", "\\u200f"}, Case{"\xE2\x80\xA8", "\\u2028"},
                          Case{"\xE2\x80\xA9", "\\u2029"}, Case{"\xE2\x80\xAE", "\\u202e"}, Case{"\xE2\x81\xA6", "\\u2066"}}) {
        std::string name = std::string("a") + c.in + "b";
        std::string j = JsonString(name);
        EXPECT_EQ(j, std::string("\"a") + c.escape + "b\"");
        EXPECT_EQ(nlohmann::json::parse(j).get<std::string>(), name);
    }
    // Broken UTF-8 and an encoded surrogate still give a valid document.
    EXPECT_EQ(nlohmann::json::parse(JsonString("a\xFF\xED\xA0\x80")).get<std::string>(), "a\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(CliScan, PathsModesAndCounts) {
    std::unique_ptr<CNode> top(MakeTopNode());
    CNode* vol = Add(top.get(), u".", 3);
    Add(vol, u"Lost", 2);
    CNode* docs = Add(vol, u"docs", 3);
    Add(docs, u"a.txt", 1, 100);
    Add(docs, u"gone.txt", 0, 50);
    AddCarvedFile(AddFolder(AddFolder(top.get(), u"File Types"), u"jpg"), u"file#1.jpg", 10, 2048, 0);

    EXPECT_EQ(FindNodeByPath(top.get(), "docs/a.txt")->size, 100u);
    EXPECT_EQ(FindNodeByPath(top.get(), "/./docs//gone.txt")->size, 50u);
    EXPECT_EQ(FindNodeByPath(top.get(), "File Types/jpg/file#1.jpg")->size, 2048u);
    EXPECT_EQ(FindNodeByPath(top.get(), "docs/A.TXT"), nullptr);
    EXPECT_EQ(FindNodeByPath(top.get(), ""), nullptr);

    TreeCounts c = CountTree(top.get());
    EXPECT_EQ(c.folders, 5u); // ".", "Lost", "docs", "File Types", "jpg"
    EXPECT_EQ(c.files, 3u);
    EXPECT_EQ(c.deletedFiles, 1u); // the carved file is not a deleted one
    EXPECT_EQ(c.bytes, 2198u);

    EXPECT_EQ(ParseMode("lost-photos"), RecoveryMode::LostPhotos);
    EXPECT_EQ(ParseMode("Deleted-Files"), RecoveryMode::DeletedFiles);
    EXPECT_EQ(ParseMode("1022"), RecoveryMode::Formatted);
    EXPECT_EQ(ParseMode("1023"), std::nullopt);
    EXPECT_EQ(ParseMode("photos"), std::nullopt);
}

TEST(CliSource, PartitionRangesFollowTheTableKind) {
    OpenedSource src;
    src.media = std::make_unique<CPhysicalDisk>();
    src.media->Attach(std::make_unique<MemorySource>(std::vector<uint8_t>(512 * 4096)));
    src.media->SetSectorSize(512);
    src.wholeSectorCount = 4096;
    PartitionRecord gpt;
    gpt.startSector = 2048;
    gpt.length = 3071; // GPT keeps the last sector
    gpt.fsKind = FsKind::Ntfs;
    PartitionRecord past;
    past.startSector = 3000;
    past.length = 5000; // claims more than the source holds
    past.fsKind = FsKind::Fat32;
    PartitionRecord outside;
    outside.startSector = 9000;
    outside.length = 10;
    src.partitions = {gpt, past, outside};

    src.layout = Layout::Gpt;
    ASSERT_TRUE(SelectListedPartition(src, 0));
    EXPECT_EQ(src.media->GetFirstSector(), 2048u);
    EXPECT_EQ(src.media->GetSectorCount(), 1024u);
    EXPECT_EQ(src.media->GetSourceKind(), SourceKind::ImagePartition);
    EXPECT_EQ(src.media->GetFsKind(), FsKind::Ntfs);

    src.layout = Layout::Mbr;
    ASSERT_TRUE(SelectListedPartition(src, 1));
    EXPECT_EQ(src.media->GetSectorCount(), 1096u); // cut at the end of the source
    EXPECT_FALSE(SelectListedPartition(src, 2));
    EXPECT_FALSE(SelectListedPartition(src, 3));
    EXPECT_EQ(ScannablePartitions(src), (std::vector<size_t>{0, 1}));
}

// The progress line on a terminal: whole fields only, dropped from the right until the line
// fits; accented letters take one column.
TEST(CliProgressLine, FitsTheWidthAndNeverCutsAField) {
    const std::vector<std::string> fields = {
        "[##########] 100%",
        "1,234,567,890 records/s",
        "",
        "123456:59:59 left",
        "123,456,789,012 fichiers (12,345,678,901 supprimés, 98,765,432,109 reconstitués)",
        "Temps écoulé : 123456:59:59",
        "1,234,567,890,123 of 9,876,543,210,987 enregistrements",
    };
    auto columns = [](const std::string& s) {
        size_t n = 0;
        for (unsigned char c : s) n += (c & 0xC0) != 0x80;
        return n;
    };
    for (size_t width = 0; width <= 260; ++width) {
        std::string line = FitFields(fields, width);
        EXPECT_LE(columns(line), width) << width;
        // The line is the longest run of leading non-empty fields, whole, joined by two spaces.
        std::string expected;
        for (const auto& f : fields) {
            if (f.empty()) continue;
            std::string next = expected + (expected.empty() ? "" : "  ") + f;
            if (columns(next) > width) break;
            expected = next;
        }
        EXPECT_EQ(line, expected) << width;
    }
    EXPECT_EQ(FitFields(fields, 79), "[##########] 100%  1,234,567,890 records/s  123456:59:59 left");
    // A field that does not fit ends the line, even when a shorter one after it would fit.
    EXPECT_EQ(FitFields({"abc", "a long field", "x"}, 10), "abc");
    EXPECT_EQ(FitFields({"too wide for it"}, 5), "");
}
