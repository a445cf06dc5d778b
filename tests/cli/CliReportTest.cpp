// The report verb and saved files' times, checked against the images' manifests (what the files
// were made with), against the JSON tree and, when The Sleuth Kit is installed, through mactime.
#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/stat.h>
#include <vector>
#include <zip.h>

#include "ScratchDir.h"
#include "TestImages.h"
#include "cli/CliRun.h"
#include "util/Digest.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

using kestrin::test::Quote;
using Result = kestrin::test::CliResult;
using Scratch = kestrin::test::ScratchDir;

Result Shell(const std::string& cmd) { return kestrin::test::RunShell(cmd); }

// kestrin with `args`, in UTC so that local-time conversions cannot move what is compared.
Result Kestrin(const std::string& args) { return kestrin::test::RunKestrin(args, "TZ=UTC "); }

std::string ReadFile(const std::string& path) { return kestrin::test::FileText(path); }

json Manifest(const std::string& image) {
    std::ifstream f(std::string(KESTRIN_SOURCE_DIR) + "/tests/images/" + image + ".json");
    return json::parse(f);
}

// A body file's lines by name: the ten fields after the digest.
std::map<std::string, std::vector<std::string>> ReadBody(const std::string& text) {
    std::map<std::string, std::vector<std::string>> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> fields;
        size_t at = 0;
        for (size_t bar; (bar = line.find('|', at)) != std::string::npos; at = bar + 1)
            fields.push_back(line.substr(at, bar - at));
        fields.push_back(line.substr(at));
        if (fields.size() == 11) lines[fields[1]] = fields;
    }
    return lines;
}

// What The Sleuth Kit reads as the times of the volume's files in use (its own metadata files,
// named streams and empty files left out); empty when it is not installed.
std::map<std::string, std::vector<std::string>> SleuthKitTimes(const std::string& img) {
    if (!fs::exists("/usr/bin/fls")) return {};
    auto all = ReadBody(Shell("fls -r -m / -z UTC " + Quote(img)).out);
    std::map<std::string, std::vector<std::string>> files;
    for (auto& [name, fields] : all) {
        if (fields[3].rfind("r/r", 0) != 0 || name.rfind("/$", 0) == 0 || name.find(':') != std::string::npos ||
            name.find(" (deleted)") != std::string::npos || name.find("($FILE_NAME)") != std::string::npos ||
            name.find("(Volume Label Entry)") != std::string::npos || fields[6] == "0")
            continue;
        files[name] = fields;
    }
    return files;
}

// Every path below the volume root of a `scan --json` tree, folders with a trailing '/'.
void TreePaths(const json& node, const std::string& prefix, std::vector<std::string>& out) {
    if (!node.contains("children")) return;
    for (const auto& c : node["children"]) {
        const std::string path = prefix + c["name"].get<std::string>();
        out.push_back(path + (c["folder"].get<bool>() ? "/" : ""));
        TreePaths(c, path + "/", out);
    }
}

const char* const kVolumes[] = {"ntfs-features", "fat32-features", "exfat-features"};

TEST(CliReport, BodyFileCarriesEachFilesTimesAndMakesATimeline) {
    if (!fs::exists("/usr/bin/fls") || !fs::exists("/usr/bin/mactime")) GTEST_SKIP() << "The Sleuth Kit is not installed";
    Scratch s("report-body");
    for (const char* name : kVolumes) {
        SCOPED_TRACE(name);
        const std::string img = kestrin::test::UnpackImage(name);
        ASSERT_FALSE(img.empty());
        const std::string body = s / (std::string(name) + ".body");
        ASSERT_EQ(Kestrin("report " + Quote(img) + " --format bodyfile --quiet --out " + Quote(body)).exitCode, 0);
        const auto lines = ReadBody(ReadFile(body));
        const auto reference = SleuthKitTimes(img);
        ASSERT_GT(reference.size(), 5u);
        const bool exfat = std::string(name).rfind("exfat", 0) == 0;
        for (const auto& [path, want] : reference) {
            auto it = lines.find(path);
            ASSERT_NE(it, lines.end()) << path;
            const auto& got = it->second;
            EXPECT_EQ(got[6], want[6]) << path << " size";
            EXPECT_EQ(got[7], want[7]) << path << " accessed";
            EXPECT_EQ(got[9], want[9]) << path << " changed";
            // exFAT creation and modification times carry up to 1.99 s more in a 10 ms field,
            // which the reference leaves out.
            const int64_t modified = std::stoll(got[8]) - std::stoll(want[8]);
            const int64_t created = std::stoll(got[10]) - std::stoll(want[10]);
            EXPECT_TRUE(modified == 0 || (exfat && modified == 1)) << path << " modified";
            EXPECT_TRUE(created == 0 || (exfat && created == 1)) << path << " created";
        }

        // The timeline shows chosen files' modification at their time.
        const Result timeline = Shell("mactime -b " + Quote(body) + " -d -z UTC");
        ASSERT_EQ(timeline.exitCode, 0);
        size_t i = 0;
        for (const auto& [path, want] : reference) {
            if (i++ % 97) continue;
            const std::time_t t = std::time_t(std::stoll(want[8]));
            char date[64];
            std::strftime(date, sizeof date, "%a %b %d %Y %H:%M:%S", std::gmtime(&t));
            std::string quoted = ",\"";
            quoted += path;
            quoted += '"';
            bool found = false;
            std::istringstream tl(timeline.out);
            for (std::string line; std::getline(tl, line);) {
                if (line.rfind(date, 0) != 0 || line.find(quoted) == std::string::npos) continue;
                const size_t c1 = line.find(','), c2 = line.find(',', c1 + 1);
                found |= line[c2 + 1] == 'm';
            }
            EXPECT_TRUE(found) << path << " at " << date;
        }
    }
}

// A scan keeps NTFS times as it reads the records; a session's tree has them read again from the
// source: both reports agree.
TEST(CliReport, ASessionReportsTheSameNtfsTimesAsItsSource) {
    Scratch s("report-session");
    const std::string img = kestrin::test::UnpackImage("ntfs-features");
    ASSERT_FALSE(img.empty());
    const std::string session = s / "s.tks4", fromSource = s / "a.body", fromSession = s / "b.body";
    ASSERT_EQ(Kestrin("scan " + Quote(img) + " --quiet --session " + Quote(session)).exitCode, 0);
    ASSERT_EQ(Kestrin("report " + Quote(img) + " --format bodyfile --quiet --out " + Quote(fromSource)).exitCode, 0);
    ASSERT_EQ(Kestrin("report " + Quote(session) + " --format bodyfile --quiet --out " + Quote(fromSession)).exitCode, 0);
    const auto a = ReadBody(ReadFile(fromSource)), b = ReadBody(ReadFile(fromSession));
    ASSERT_GT(a.size(), 1000u);
    EXPECT_EQ(a, b);
}

// The DFXML read back with the few rules its writer follows: one element per line, the
// file objects' fields as the first text of their element.
struct ByteRun {
    uint64_t fileOffset = 0, imageOffset = 0, len = 0;
    bool operator==(const ByteRun&) const = default;
};

struct FileObject {
    std::string filename, sha256;
    uint64_t filesize = 0;
    int alloc = -1;
    std::vector<ByteRun> runs;
};

std::string XmlText(const std::string& s) {
    std::string o;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '&') {
            o += s[i];
            continue;
        }
        const size_t semi = s.find(';', i);
        const std::string ent = s.substr(i + 1, semi - i - 1);
        o += ent == "amp" ? '&' : ent == "lt" ? '<' : ent == "gt" ? '>' : ent == "quot" ? '"' : '\'';
        i = semi;
    }
    return o;
}

std::string Between(const std::string& line, const std::string& open, const std::string& close) {
    const size_t a = line.find(open);
    if (a == std::string::npos) return {};
    const size_t b = line.find(close, a + open.size());
    return b == std::string::npos ? std::string() : line.substr(a + open.size(), b - a - open.size());
}

std::vector<FileObject> ReadDfxml(const std::string& text) {
    std::vector<FileObject> out;
    std::istringstream in(text);
    FileObject* cur = nullptr;
    for (std::string line; std::getline(in, line);) {
        if (line.find("<fileobject>") != std::string::npos) cur = &out.emplace_back();
        if (!cur) continue;
        if (line.find("<filename>") != std::string::npos) cur->filename = XmlText(Between(line, "<filename>", "</filename>"));
        if (line.find("<filesize>") != std::string::npos) cur->filesize = std::stoull(Between(line, "<filesize>", "</filesize>"));
        if (line.find("<alloc>") != std::string::npos) cur->alloc = std::stoi(Between(line, "<alloc>", "</alloc>"));
        if (line.find("<byte_run ") != std::string::npos)
            cur->runs.push_back({std::stoull(Between(line, "file_offset=\"", "\"")),
                                 std::stoull(Between(line, "img_offset=\"", "\"")), std::stoull(Between(line, "len=\"", "\""))});
        if (line.find("type=\"sha256\"") != std::string::npos) cur->sha256 = Between(line, "\">", "</hashdigest>");
        if (line.find("</fileobject>") != std::string::npos) cur = nullptr;
    }
    return out;
}

TEST(CliReport, DfxmlListsTheTreeWithDigestsOfTheContent) {
    Scratch s("report-dfxml");
    const std::string img = kestrin::test::UnpackImage("ntfs-features");
    ASSERT_FALSE(img.empty());
    const std::string xml = s / "r.xml", tree = s / "t.json";
    ASSERT_EQ(Kestrin("report " + Quote(img) + " --format dfxml --hash md5,sha256 --quiet --out " + Quote(xml)).exitCode, 0);
    ASSERT_EQ(Kestrin("scan " + Quote(img) + " --quiet --json " + Quote(tree)).exitCode, 0);
    const std::string text = ReadFile(xml);
    if (fs::exists("/usr/bin/xmllint")) {
        EXPECT_EQ(Shell("xmllint --noout " + Quote(xml)).exitCode, 0);
    }
    const auto objects = ReadDfxml(text);

    // The same items as the JSON tree, in the same order.
    std::vector<std::string> paths;
    TreePaths(json::parse(ReadFile(tree))["root"]["children"][0], "", paths);
    ASSERT_EQ(objects.size(), paths.size());
    for (size_t i = 0; i < paths.size(); ++i) {
        const bool folder = paths[i].back() == '/';
        EXPECT_EQ(objects[i].filename + (folder ? "/" : ""), paths[i]);
    }

    std::map<std::string, const FileObject*> byName;
    for (const auto& o : objects) byName[o.filename] = &o;
    size_t checked = 0;
    const json manifest = Manifest("ntfs-features");
    for (const auto& f : manifest["partitions"][0]["files"]) {
        if (f["type"] != "file" || f.value("deleted", false) || !f.value("content_intact", false) || f["size"] == 0)
            continue;
        auto it = byName.find(f["path"]);
        ASSERT_NE(it, byName.end()) << f["path"];
        EXPECT_EQ(it->second->alloc, 1);
        EXPECT_EQ(it->second->filesize, f["size"].get<uint64_t>());
        EXPECT_EQ(it->second->sha256, f["sha256"]) << f["path"];
        ++checked;
    }
    EXPECT_GT(checked, 1000u);
}

// RFC 4180: fields split at commas outside quotes, "" inside quotes is one quote, records end in
// CRLF outside quotes.
std::vector<std::vector<std::string>> ReadCsv(const std::string& text) {
    std::vector<std::vector<std::string>> rows(1, std::vector<std::string>(1));
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quoted) {
            if (c == '"' && i + 1 < text.size() && text[i + 1] == '"') {
                rows.back().back() += '"';
                ++i;
            } else if (c == '"') {
                quoted = false;
            } else {
                rows.back().back() += c;
            }
        } else if (c == '"') {
            quoted = true;
        } else if (c == ',') {
            rows.back().emplace_back();
        } else if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
            rows.emplace_back(1);
            ++i;
        } else {
            rows.back().back() += c;
        }
    }
    if (rows.back().size() == 1 && rows.back()[0].empty()) rows.pop_back();
    return rows;
}

// The byte runs of every file whose content lies plainly on the volume are where the image was
// made to put it (its manifest's extents), and the bytes there are the content; following the
// content for digests finds the same runs as following it for its places only.
TEST(CliReport, ByteRunsPlaceEachFilesContentOnTheImage) {
    Scratch s("report-runs");
    for (const char* name : kVolumes) {
        SCOPED_TRACE(name);
        const std::string img = kestrin::test::UnpackImage(name);
        ASSERT_FALSE(img.empty());
        const std::string placed = s / (std::string(name) + ".xml"), hashed = s / (std::string(name) + "-h.xml");
        const std::string csv = s / (std::string(name) + ".csv");
        ASSERT_EQ(Kestrin("report " + Quote(img) + " --format dfxml --quiet --out " + Quote(placed)).exitCode, 0);
        ASSERT_EQ(Kestrin("report " + Quote(img) + " --format dfxml --hash sha256 --quiet --out " + Quote(hashed)).exitCode, 0);
        ASSERT_EQ(Kestrin("report " + Quote(img) + " --format csv --quiet --out " + Quote(csv)).exitCode, 0);
        const auto objects = ReadDfxml(ReadFile(placed)), withDigests = ReadDfxml(ReadFile(hashed));
        ASSERT_EQ(objects.size(), withDigests.size());
        std::map<std::string, const FileObject*> byName;
        for (size_t i = 0; i < objects.size(); ++i) {
            EXPECT_EQ(objects[i].runs, withDigests[i].runs) << objects[i].filename;
            byName[objects[i].filename] = &objects[i];
        }
        std::map<std::string, std::string> csvRuns;
        const auto rows = ReadCsv(ReadFile(csv));
        ASSERT_FALSE(rows.empty());
        const size_t pathCol = size_t(std::find(rows[0].begin(), rows[0].end(), "path") - rows[0].begin());
        const size_t runsCol = size_t(std::find(rows[0].begin(), rows[0].end(), "byte_runs") - rows[0].begin());
        ASSERT_LT(runsCol, rows[0].size());
        for (size_t i = 1; i < rows.size(); ++i) csvRuns[rows[i][pathCol]] = rows[i][runsCol];

        std::ifstream image(img, std::ios::binary);
        size_t compared = 0, fragmented = 0;
        // Flags the manifests give as true, false or null.
        auto flag = [](const json& f, const char* key) { return f.contains(key) && f[key].is_boolean() && f[key].get<bool>(); };
        const json manifest = Manifest(name);
        for (const auto& f : manifest["partitions"][0]["files"]) {
            if (f["type"] != "file" || flag(f, "deleted") || !flag(f, "content_intact") || f["size"] == 0 ||
                flag(f, "resident") || flag(f, "compressed") || !f.contains("extents"))
                continue;
            SCOPED_TRACE(f["path"].get<std::string>());
            auto it = byName.find(f["path"]);
            ASSERT_NE(it, byName.end());
            const auto& runs = it->second->runs;
            // The manifest's extents with neighbours on the image joined, as the report joins them.
            std::vector<std::pair<uint64_t, uint64_t>> want, got;
            for (const auto& e : f["extents"]) {
                const uint64_t at = e[0], len = e[1];
                if (!want.empty() && want.back().first + want.back().second == at) want.back().second += len;
                else want.emplace_back(at, len);
            }
            for (const ByteRun& r : runs) got.emplace_back(r.imageOffset, r.len);
            // A sparse file's last extent may reach past its initialised size, which reads as zeros
            // and is no run.
            if (flag(f, "sparse") && got.size() == want.size() && !got.empty() && got.back().second < want.back().second)
                want.back().second = got.back().second;
            EXPECT_EQ(got, want);
            ++compared;
            std::string joined;
            for (const ByteRun& r : runs)
                joined += (joined.empty() ? "" : ";") + std::to_string(r.fileOffset) + ":" + std::to_string(r.imageOffset) +
                          ":" + std::to_string(r.len);
            EXPECT_EQ(csvRuns[f["path"]], joined);
            if (!flag(f, "fragmented")) continue;
            ++fragmented;
            EXPECT_GT(runs.size(), 1u);
            // What is not in a run reads as zeros (a sparse file's holes).
            std::string content(size_t(f["size"].get<uint64_t>()), '\0');
            for (const ByteRun& r : runs) {
                ASSERT_LE(r.fileOffset + r.len, content.size());
                image.seekg(std::streamoff(r.imageOffset));
                image.read(content.data() + r.fileOffset, std::streamsize(r.len));
                ASSERT_TRUE(image.good());
            }
            kestrin::Sha256 digest;
            digest.Update(reinterpret_cast<const uint8_t*>(content.data()), content.size());
            EXPECT_EQ(kestrin::ToHex(digest.Finish()), f["sha256"]);
        }
        EXPECT_GT(compared, 0u);
        EXPECT_GT(fragmented, 0u);
    }
}

TEST(CliReport, CsvQuotesHostileNamesAndKeepsEveryItem) {
    Scratch s("report-csv");
    const std::string img = kestrin::test::UnpackImage("fat16-hostile-names");
    ASSERT_FALSE(img.empty());
    const std::string csv = s / "r.csv", tree = s / "t.json";
    ASSERT_EQ(Kestrin("report " + Quote(img) + " --format csv --quiet --out " + Quote(csv)).exitCode, 0);
    ASSERT_EQ(Kestrin("scan " + Quote(img) + " --quiet --json " + Quote(tree)).exitCode, 0);
    const auto rows = ReadCsv(ReadFile(csv));
    ASSERT_GT(rows.size(), 10u);
    const auto& header = rows[0];
    for (const auto& r : rows) ASSERT_EQ(r.size(), header.size());
    const size_t pathCol = size_t(std::find(header.begin(), header.end(), "path") - header.begin());
    const size_t typeCol = size_t(std::find(header.begin(), header.end(), "type") - header.begin());
    ASSERT_LT(pathCol, header.size());
    std::vector<std::string> paths;
    TreePaths(json::parse(ReadFile(tree))["root"]["children"][0], "", paths);
    ASSERT_EQ(rows.size() - 1, paths.size());
    bool newline = false;
    for (size_t i = 1; i < rows.size(); ++i) {
        EXPECT_EQ(rows[i][pathCol] + (rows[i][typeCol] == "folder" ? "/" : ""), paths[i - 1]);
        newline |= rows[i][pathCol] == "a\nb.txt";
    }
    EXPECT_TRUE(newline);
}

TEST(CliReport, SavedFilesKeepTheirModificationTimes) {
    if (!fs::exists("/usr/bin/fls")) GTEST_SKIP() << "The Sleuth Kit is not installed";
    Scratch s("report-mtime");
    setenv("TZ", "UTC", 1);
    tzset();
    for (const char* name : kVolumes) {
        SCOPED_TRACE(name);
        const std::string img = kestrin::test::UnpackImage(name);
        ASSERT_FALSE(img.empty());
        const std::string to = s / name, zip = s / (std::string(name) + ".zip");
        ASSERT_EQ(Kestrin("recover " + Quote(img) + " --quiet --to " + Quote(to)).exitCode, 0);
        ASSERT_EQ(Kestrin("recover " + Quote(img) + " --quiet --zip " + Quote(zip)).exitCode, 0);
        int err = 0;
        zip_t* archive = zip_open(zip.c_str(), ZIP_RDONLY, &err);
        ASSERT_NE(archive, nullptr);
        const auto reference = SleuthKitTimes(img);
        ASSERT_GT(reference.size(), 5u);
        const bool exfat = std::string(name).rfind("exfat", 0) == 0;
        for (const auto& [path, want] : reference) {
            const int64_t mtime = std::stoll(want[8]);
            struct stat st{};
            ASSERT_EQ(::stat((to + path).c_str(), &st), 0) << path;
            // As above: exFAT's 10 ms field may add a second the reference does not show.
            const int64_t saved = int64_t(st.st_mtime) - mtime;
            EXPECT_TRUE(saved == 0 || (exfat && saved == 1)) << path;
            // A zip entry keeps the time in two-second steps.
            zip_stat_t zs;
            ASSERT_EQ(zip_stat(archive, path.c_str() + 1, 0, &zs), 0) << path;
            const int64_t zipped = int64_t(zs.mtime) - mtime;
            EXPECT_TRUE(zipped == 0 || zipped == -1 || (exfat && zipped == 1)) << path;
        }
        zip_discard(archive);
    }
}

} // namespace
