#pragma once
// What the filter bar asks of a found item, as a plain predicate the proxies and Find share:
// a name pattern, a kind of file, a size range, a range of modified dates, deleted items only,
// and the hiding of system folders. Unset parts let everything through.
#include <QString>
#include <cstdint>
#include <functional>
#include <string_view>

#include "fs/CNode.h"
#include "ui/CNamePattern.h"

namespace kestrin::ui {

// The kinds the type filter offers, by the name's extension. Pictures, audio and video are the
// media classes of the photo modes (camera raw files count as pictures).
enum class FileKind : uint8_t { Any, Pictures, Documents, Audio, Video, Archives, Other };
FileKind FileKindOfName(std::u16string_view name);

class CNodeFilter {
public:
    void SetPattern(const QString& text) { m_pattern = CNamePattern(text, false); }
    void SetKind(FileKind k) { m_kind = k; }
    // Bytes, both ends included; 0 and UINT64_MAX leave an end open.
    void SetSizeRange(uint64_t min, uint64_t max) { m_minSize = min, m_maxSize = max; }
    // DOS dates (as CNode keeps them), both ends included; 0 leaves an end open. Items without
    // a modified date never pass a date range.
    void SetDateRange(uint16_t from, uint16_t to) { m_fromDate = from, m_toDate = to; }
    // Deleted items and the folders leading to them; relies on the deleted-view marks
    // (MarkDeletedView), which CResultsState keeps while the switch is on.
    void SetDeletedOnly(bool on) { m_deletedOnly = on; }
    void SetHideSystem(bool on) { m_hideSystem = on; }
    // The recoverability condition's hook: unset, or a test every listed file must pass.
    void SetCondition(std::function<bool(const CNode&)> test) { m_condition = std::move(test); }

    bool DeletedOnly() const { return m_deletedOnly; }
    bool HideSystem() const { return m_hideSystem; }
    // Whether any part narrows the list beyond the folder tree's own filtering.
    bool NarrowsFiles() const;

    // The folder tree: a folder stays when the deleted view keeps it and it is no hidden system
    // folder ("$Extend" always, "Lost" while it holds nothing).
    bool KeepsFolder(const CNode* folder) const;
    // The file list: files pass every part; folders pass the tree's test and, while a name,
    // kind, size, date or condition narrows the list, are kept only for a name filter alone
    // that matches them.
    bool Accepts(const CNode* n) const;

private:
    bool HiddenSystem(const CNode* n) const;

    CNamePattern m_pattern;
    FileKind m_kind = FileKind::Any;
    uint64_t m_minSize = 0, m_maxSize = UINT64_MAX;
    uint16_t m_fromDate = 0, m_toDate = 0;
    bool m_deletedOnly = false;
    bool m_hideSystem = true;
    std::function<bool(const CNode&)> m_condition;
};

} // namespace kestrin::ui
