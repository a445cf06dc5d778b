#include "ui/CNodeFilter.h"

#include <array>
#include <string>

#include "fs/SystemFolders.h"
#include "scan/MediaTypes.h"

namespace kestrin::ui {

namespace {

// Documents: the office, text and page formats, the carver's document types among them.
constexpr std::array<std::u16string_view, 33> kDocuments{
    u"doc", u"docx", u"docm", u"dot", u"dotx", u"rtf", u"odt", u"ott", u"txt", u"pdf", u"xls", u"xlsx", u"xlsm",
    u"xla", u"xlt", u"csv", u"ods", u"ppt", u"pptx", u"pps", u"ppsx", u"odp", u"wpd", u"wps", u"pub", u"indd",
    u"indb", u"indt", u"htm", u"html", u"xml", u"epub", u"md"};
// Archives: packed files, disc images and mail stores (the carver's container types).
constexpr std::array<std::u16string_view, 20> kArchives{u"zip", u"7z", u"rar", u"arj", u"cab", u"gz", u"tgz",
                                                        u"bz2", u"xz", u"zst", u"tar", u"lzh", u"lha", u"z",
                                                        u"iso", u"jar", u"pst", u"ost", u"dmg", u"cpio"};

std::u16string LowerExtension(std::u16string_view name) {
    size_t dot = name.rfind(u'.');
    if (dot == std::u16string_view::npos || dot == 0 || name.size() - dot - 1 > 8) return {};
    std::u16string ext(name.substr(dot + 1));
    for (auto& c : ext)
        if (c >= u'A' && c <= u'Z') c = char16_t(c + 32);
    return ext;
}

template <size_t N>
bool Listed(const std::array<std::u16string_view, N>& list, const std::u16string& ext) {
    for (auto e : list)
        if (e == ext) return true;
    return false;
}

} // namespace

FileKind FileKindOfName(std::u16string_view name) {
    switch (MediaClassOfName(name)) {
    case MediaClass::Photo:
    case MediaClass::CameraRaw: return FileKind::Pictures;
    case MediaClass::Audio: return FileKind::Audio;
    case MediaClass::Video: return FileKind::Video;
    case MediaClass::None: break;
    }
    std::u16string ext = LowerExtension(name);
    if (ext.empty()) return FileKind::Other;
    if (Listed(kDocuments, ext)) return FileKind::Documents;
    if (Listed(kArchives, ext)) return FileKind::Archives;
    return FileKind::Other;
}

bool CNodeFilter::NarrowsFiles() const {
    return !m_pattern.IsEmpty() || m_kind != FileKind::Any || m_minSize > 0 || m_maxSize != UINT64_MAX ||
           m_fromDate || m_toDate || m_condition;
}

bool CNodeFilter::HiddenSystem(const CNode* n) const {
    return m_hideSystem && (IsExtendFolder(n) || (IsLostFolder(n) && !n->firstChild));
}

bool CNodeFilter::KeepsFolder(const CNode* folder) const {
    if (!folder->parent) return true; // the top
    if (m_deletedOnly && !folder->inDeletedView) return false;
    return !HiddenSystem(folder);
}

bool CNodeFilter::Accepts(const CNode* n) const {
    if (n->IsFolder()) {
        if (!KeepsFolder(n)) return false;
        if (!NarrowsFiles()) return true;
        bool nameOnly = m_kind == FileKind::Any && m_minSize == 0 && m_maxSize == UINT64_MAX && !m_fromDate &&
                        !m_toDate && !m_condition;
        return nameOnly && m_pattern.Matches(n->name);
    }
    if (m_deletedOnly && !n->IsDeleted()) return false;
    if (n->size < m_minSize || n->size > m_maxSize) return false;
    if ((m_fromDate || m_toDate) &&
        (!n->modifiedDate || (m_fromDate && n->modifiedDate < m_fromDate) || (m_toDate && n->modifiedDate > m_toDate)))
        return false;
    if (m_kind != FileKind::Any && FileKindOfName(n->name) != m_kind) return false;
    if (!m_pattern.IsEmpty() && !m_pattern.Matches(n->name)) return false;
    return !m_condition || m_condition(*n);
}

} // namespace kestrin::ui
