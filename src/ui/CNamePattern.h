#pragma once
// A name pattern as Find and the filter bar take it: "*" stands for any run of characters, "?"
// for one, letters match in any case.
#include <QString>
#include <string>
#include <string_view>

namespace kestrin::ui {

class CNamePattern {
public:
    CNamePattern() = default;
    // `whole`: the pattern must cover the whole name. Otherwise a pattern without "*" or "?"
    // matches any name that contains it (the live filter), one with them the whole name.
    explicit CNamePattern(const QString& pattern, bool whole = true);
    bool IsEmpty() const { return m_folded.empty(); }
    bool Matches(std::u16string_view name) const;

private:
    std::u16string m_folded;
};

// Orders names as people count: digit runs by their value ("file2" before "file10"), letters in
// any case; names equal that way are ordered by their code units so the order is total.
int NaturalCompare(std::u16string_view a, std::u16string_view b);
inline bool NaturalLess(std::u16string_view a, std::u16string_view b) { return NaturalCompare(a, b) < 0; }

} // namespace kestrin::ui
