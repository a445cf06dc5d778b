#include "output/Report.h"

#include <algorithm>
#include <cstdio>

#include "fs/CNode.h"
#include "fs/Condition.h"
#include "fs/VolumeHandle.h"
#include "output/ContentCopy.h"
#include "output/NodeTimes.h"
#include "util/Digest.h"
#include "storage/CPhysicalDisk.h"
#include "storage/SourceLayout.h"
#include "util/Text.h"

namespace kestrin {

std::optional<ReportFormat> ParseReportFormat(std::string_view name) {
    if (name == "dfxml") return ReportFormat::Dfxml;
    if (name == "bodyfile") return ReportFormat::Bodyfile;
    if (name == "csv") return ReportFormat::Csv;
    return std::nullopt;
}

bool ParseReportDigests(std::string_view list, ReportDigests& out) {
    out = {};
    for (;;) {
        const size_t comma = list.find(',');
        const std::string_view name = list.substr(0, comma);
        if (name == "md5") out.md5 = true;
        else if (name == "sha1") out.sha1 = true;
        else if (name == "sha256") out.sha256 = true;
        else return false;
        if (comma == std::string_view::npos) return true;
        list.remove_prefix(comma + 1);
    }
}

namespace {

// A piece of the content: `len` bytes from `fileOffset` of the content at `imageOffset` of the source.
struct ByteRun {
    uint64_t fileOffset = 0, imageOffset = 0, len = 0;
};

// Everything one line or element of the report says about an item.
struct ReportItem {
    const CNode* node = nullptr;
    std::string path; // below the volume root, '/'-joined, UTF-8
    const VolumeHandle* volume = nullptr;
    int partition = 0;
    ItemTimes times;
    bool read = false;        // the content was read for its digests
    uint64_t unreadable = 0;  // of the bytes read
    std::string md5, sha1, sha256;
    std::vector<ByteRun> runs;
};

// Follows the content through its engine, noting where each run lies on the source (the byte
// runs), and, when digests are asked for, reads it once to feed them. Without digests nothing is
// read that lies on the source: the engine is told each run is taken care of. Runs are kept only
// when every byte of the content was accounted for.
void ReadContent(CPhysicalDisk& media, ReportItem& item, const ReportDigests& want) {
    const bool digests = want.Any();
    Md5 md5;
    Sha1 sha1;
    Sha256 sha256;
    uint64_t position = 0;
    auto write = [&](const uint8_t* data, size_t len) {
        if (want.md5) md5.Update(data, len);
        if (want.sha1) sha1.Update(data, len);
        if (want.sha256) sha256.Update(data, len);
        position += len;
        return true;
    };
    auto place = [&](ByteSource&, uint64_t offset, size_t len) {
        ByteRun* last = item.runs.empty() ? nullptr : &item.runs.back();
        if (last && last->fileOffset + last->len == position && last->imageOffset + last->len == offset)
            last->len += len;
        else
            item.runs.push_back({position, offset, len});
        // With digests the engine reads the run and hands its bytes to `write`.
        if (digests) return ContentSink::Copy::NotDone;
        position += len;
        return ContentSink::Copy::Done;
    };
    const ContentResult r = WriteNodeContent(media, *item.node, ContentSink(write, place, true));
    uint64_t unreadable = r.unreadable + r.beyondVolume;
    // Nothing read and nothing missing: no engine of this build reads the item.
    if (!r.ok && unreadable == 0) unreadable = std::max<uint64_t>(item.node->size, 1);
    if (!r.ok || unreadable) item.runs.clear();
    if (!digests) return;
    item.read = true;
    item.unreadable = unreadable;
    if (unreadable) return;
    if (want.md5) item.md5 = ToHex(md5.Finish());
    if (want.sha1) item.sha1 = ToHex(sha1.Finish());
    if (want.sha256) item.sha256 = ToHex(sha256.Finish());
}

std::string Utf8Name(const CNode& n) { return ToUtf8(n.name.view()); }

std::string FsName(const VolumeHandle* v) {
    if (!v) return "";
    const char* s = FsKindName(v->fsKind);
    return s ? s : "";
}

std::string Number(uint64_t v) { return std::to_string(v); }

// --- DFXML ---------------------------------------------------------------------------------------

// Text for an XML 1.0 document: markup characters escaped, characters XML cannot hold replaced.
std::string Xml(std::string_view utf8) {
    const std::u16string units = ToUtf16(std::string(utf8));
    std::string o;
    o.reserve(utf8.size());
    std::u16string one;
    for (size_t i = 0; i < units.size(); ++i) {
        const char16_t c = units[i];
        switch (c) {
        case u'&': o += "&amp;"; continue;
        case u'<': o += "&lt;"; continue;
        case u'>': o += "&gt;"; continue;
        case u'"': o += "&quot;"; continue;
        case u'\'': o += "&apos;"; continue;
        default: break;
        }
        const bool allowedControl = c == u'\t' || c == u'\n' || c == u'\r';
        if ((c < 0x20 && !allowedControl) || c == 0xFFFE || c == 0xFFFF) {
            o += "\xEF\xBF\xBD";
            continue;
        }
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF) {
            one.assign(units, i, 2);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            o += "\xEF\xBF\xBD";
            continue;
        } else {
            one.assign(1, c);
        }
        o += ToUtf8(one);
    }
    return o;
}

void XmlElement(std::ostream& out, const char* indent, const char* name, const std::string& text) {
    if (text.empty()) return;
    out << indent << '<' << name << '>' << Xml(text) << "</" << name << ">\n";
}

class DfxmlWriter {
public:
    DfxmlWriter(std::ostream& out, const ReportOptions& o) : m_out(out) {
        m_out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                 "<dfxml xmlns=\"http://www.forensicswiki.org/wiki/Category:Digital_Forensics_XML\"\n"
                 "       xmlns:dc=\"http://purl.org/dc/elements/1.1/\"\n"
                 "       xmlns:kestrin=\"urn:kestrin:report\" version=\"1.1.0\">\n"
                 "  <metadata>\n    <dc:type>Recovered file list</dc:type>\n  </metadata>\n"
                 "  <creator>\n    <program>kestrin</program>\n";
        XmlElement(m_out, "    ", "version", o.version);
        m_out << "  </creator>\n  <source>\n";
        XmlElement(m_out, "    ", "image_filename", o.sourcePath);
        m_out << "  </source>\n";
    }
    void Volume(const VolumeHandle* v) {
        Close();
        if (!v) return;
        // The schema's order: partition offset (only when not 0), sector size, file system.
        const uint64_t offset = v->firstSector * v->sectorSize;
        m_out << "  <volume offset=\"" << offset << "\">\n";
        if (offset) m_out << "    <partition_offset>" << offset << "</partition_offset>\n";
        if (v->sectorSize) m_out << "    <sector_size>" << v->sectorSize << "</sector_size>\n";
        XmlElement(m_out, "    ", "ftype_str", FsName(v));
        m_open = true;
    }
    // The fields in the order the schema gives them; what the schema has no element for follows
    // in this program's own namespace.
    void Item(const ReportItem& it) {
        const CNode& n = *it.node;
        const char* in = m_open ? "      " : "    ";
        m_out << (m_open ? "    " : "  ") << "<fileobject>\n";
        XmlElement(m_out, in, "filename", it.path);
        if (it.partition > 0) m_out << in << "<partition>" << it.partition << "</partition>\n";
        m_out << in << "<name_type>" << (n.IsFolder() ? 'd' : 'r') << "</name_type>\n";
        m_out << in << "<filesize>" << (n.IsFolder() ? 0 : n.size) << "</filesize>\n";
        m_out << in << "<alloc>" << (n.IsDeleted() ? 0 : 1) << "</alloc>\n";
        if (!n.carved) m_out << in << "<inode>" << n.recordId << "</inode>\n";
        m_out << in << "<meta_type>" << (n.IsFolder() ? 2 : 1) << "</meta_type>\n";
        XmlElement(m_out, in, "mtime", FormatIso8601(it.times.modified));
        XmlElement(m_out, in, "ctime", FormatIso8601(it.times.changed));
        XmlElement(m_out, in, "atime", FormatIso8601(it.times.accessed));
        XmlElement(m_out, in, "crtime", FormatIso8601(it.times.created));
        if (!it.runs.empty()) {
            m_out << in << "<byte_runs>\n";
            for (const ByteRun& r : it.runs)
                m_out << in << "  <byte_run file_offset=\"" << r.fileOffset << "\" img_offset=\"" << r.imageOffset
                      << "\" len=\"" << r.len << "\"/>\n";
            m_out << in << "</byte_runs>\n";
        }
        Digest(in, "md5", it.md5);
        Digest(in, "sha1", it.sha1);
        Digest(in, "sha256", it.sha256);
        if (TakesCondition(n)) XmlElement(m_out, in, "kestrin:condition", std::string(ConditionName(ConditionOf(n))));
        m_out << in << "<kestrin:location>" << n.location << "</kestrin:location>\n";
        if (n.carved) m_out << in << "<kestrin:carved>1</kestrin:carved>\n";
        if (it.read && it.unreadable)
            m_out << in << "<kestrin:unreadable_bytes>" << it.unreadable << "</kestrin:unreadable_bytes>\n";
        m_out << (m_open ? "    " : "  ") << "</fileobject>\n";
    }
    void Finish() {
        Close();
        m_out << "</dfxml>\n";
    }

private:
    void Close() {
        if (m_open) m_out << "  </volume>\n";
        m_open = false;
    }
    void Digest(const char* in, const char* type, const std::string& hex) {
        if (!hex.empty()) m_out << in << "<hashdigest type=\"" << type << "\">" << hex << "</hashdigest>\n";
    }
    std::ostream& m_out;
    bool m_open = false;
};

// --- Body file -------------------------------------------------------------------------------------

// A field of a body file: the separator and line ends cannot appear in it.
std::string BodyField(std::string s) {
    for (char& c : s)
        if (c == '|' || c == '\n' || c == '\r') c = '?';
    return s;
}

int64_t BodyTime(FileTime t) { return t == kNoTime ? 0 : UnixSeconds(t); }

void BodyLine(std::ostream& out, const ReportItem& it, bool prefixPartition) {
    const CNode& n = *it.node;
    std::string name = "/";
    if (prefixPartition && it.partition) name += "Partition " + std::to_string(it.partition) + "/";
    name += it.path;
    if (n.IsDeleted()) name += " (deleted)";
    out << (it.md5.empty() ? "0" : it.md5) << '|' << BodyField(name) << '|' << (n.carved ? 0 : n.recordId) << '|'
        << (n.IsFolder() ? "d/drwxrwxrwx" : "r/rrwxrwxrwx") << "|0|0|" << (n.IsFolder() ? 0 : n.size) << '|'
        << BodyTime(it.times.accessed) << '|' << BodyTime(it.times.modified) << '|' << BodyTime(it.times.changed)
        << '|' << BodyTime(it.times.created) << '\n';
}

// --- CSV -----------------------------------------------------------------------------------------------

std::string CsvField(const std::string& s) {
    if (s.find_first_of(",\"\r\n") == std::string::npos) return s;
    std::string o = "\"";
    for (char c : s) {
        if (c == '"') o += '"';
        o += c;
    }
    return o + '"';
}

constexpr const char* kCsvHeader = "partition,volume_offset,file_system,path,type,deleted,carved,size,condition,location,"
                                   "record,first_sector,created,modified,accessed,changed,md5,sha1,sha256,"
                                   "unreadable_bytes,byte_runs\r\n";

// The byte runs as "file_offset:img_offset:len" triples joined by ';'.
std::string CsvRuns(const std::vector<ByteRun>& runs) {
    std::string o;
    for (const ByteRun& r : runs) {
        if (!o.empty()) o += ';';
        o += Number(r.fileOffset) + ':' + Number(r.imageOffset) + ':' + Number(r.len);
    }
    return o;
}

void CsvLine(std::ostream& out, const ReportItem& it, uint32_t sectorSize) {
    const CNode& n = *it.node;
    const VolumeHandle* v = it.volume;
    std::string firstSector;
    if (!it.runs.empty() && sectorSize) firstSector = Number(it.runs.front().imageOffset / sectorSize);
    const std::string fields[] = {
        it.partition ? Number(uint64_t(it.partition)) : "",
        v ? Number(v->firstSector * v->sectorSize) : "",
        FsName(v),
        it.path,
        n.IsFolder() ? "folder" : "file",
        n.IsDeleted() ? "1" : "0",
        n.carved ? "1" : "0",
        Number(n.IsFolder() ? 0 : n.size),
        TakesCondition(n) ? std::string(ConditionName(ConditionOf(n))) : "",
        Number(n.location),
        n.carved ? "" : Number(n.recordId),
        firstSector,
        FormatIso8601(it.times.created),
        FormatIso8601(it.times.modified),
        FormatIso8601(it.times.accessed),
        FormatIso8601(it.times.changed),
        it.md5,
        it.sha1,
        it.sha256,
        it.read && it.unreadable ? Number(it.unreadable) : "",
        CsvRuns(it.runs),
    };
    bool first = true;
    for (const std::string& f : fields) {
        if (!first) out << ',';
        first = false;
        out << CsvField(f);
    }
    out << "\r\n";
}

// Calls `f(node, path)` for every node below `top` in tree order, the volume roots' trees first.
// Items below a volume root "." are named from it (docs/a.txt); other groups (the signature
// scan's) from their own name.
template <class F>
bool WalkWithPaths(const CNode* top, F&& f) {
    struct Frame {
        const CNode* node;
        std::string path;
    };
    std::vector<Frame> stack;
    std::vector<const CNode*> children;
    auto pushChildren = [&](const CNode* parent, const std::string& prefix) {
        children.clear();
        for (const CNode* c = parent->firstChild; c; c = c->nextSibling) children.push_back(c);
        for (auto it = children.rbegin(); it != children.rend(); ++it)
            stack.push_back({*it, prefix.empty() ? Utf8Name(**it) : prefix + "/" + Utf8Name(**it)});
    };
    // The volumes first, then the rest (a list of items outside any volume ends the document).
    for (const bool volumes : {true, false}) {
        for (const CNode* c = top ? top->firstChild : nullptr; c; c = c->nextSibling) {
            const bool volumeRoot = c->IsFolder() && c->name == u".";
            if (volumeRoot != volumes) continue;
            if (volumeRoot)
                pushChildren(c, "");
            else
                stack.push_back({c, Utf8Name(*c)});
            while (!stack.empty()) {
                Frame fr = std::move(stack.back());
                stack.pop_back();
                if (!f(fr.node, fr.path)) return false;
                if (fr.node->firstChild) pushChildren(fr.node, fr.path);
            }
        }
    }
    return true;
}

} // namespace

bool WriteReport(std::ostream& out, const ReportOptions& options, const std::vector<ReportVolume>& volumes,
                 ReportTotals& totals) {
    totals = {};
    std::optional<DfxmlWriter> dfxml;
    if (options.format == ReportFormat::Dfxml) dfxml.emplace(out, options);
    if (options.format == ReportFormat::Csv) out << kCsvHeader;
    const bool prefixPartition = volumes.size() > 1;
    for (const ReportVolume& rv : volumes) {
        if (!rv.top || !rv.media) continue;
        const uint32_t sectorSize = rv.media->GetSectorSize();
        const VolumeHandle* current = nullptr;
        bool started = false;
        NodeTimesReader times(*rv.media);
        ReportItem it;
        WalkWithPaths(rv.top, [&](const CNode* n, const std::string& path) {
            if (options.stop && options.stop()) {
                totals.stopped = true;
                return false;
            }
            it = {};
            it.node = n;
            it.path = path;
            it.partition = rv.partition;
            it.volume = n->carved ? nullptr : VolumeOf(*n);
            if (dfxml && (!started || it.volume != current)) {
                dfxml->Volume(it.volume);
                current = it.volume;
                started = true;
            }
            times.Read(*n, it.times);
            if (!n->IsFolder()) {
                // A body file has no place for runs: its content is followed only for digests.
                if (options.digests.Any() || (options.format != ReportFormat::Bodyfile && !n->carved)) {
                    ReadContent(*rv.media, it, options.digests);
                    if (it.read) {
                        if (it.unreadable) ++totals.unreadableFiles;
                        else ++totals.hashed;
                    }
                }
                // A carved file is one run from its first byte, whether or not it was read.
                if (n->carved && it.runs.empty() && n->size && !(it.read && it.unreadable))
                    it.runs.push_back({0, n->location * sectorSize + n->startOffset, n->size});
            }
            switch (options.format) {
            case ReportFormat::Dfxml: dfxml->Item(it); break;
            case ReportFormat::Bodyfile: BodyLine(out, it, prefixPartition); break;
            case ReportFormat::Csv: CsvLine(out, it, sectorSize); break;
            }
            ++totals.items;
            return bool(out);
        });
        if (!out || totals.stopped) break;
    }
    if (dfxml) dfxml->Finish();
    out.flush();
    return bool(out);
}

} // namespace kestrin
