#pragma once
// What one member of a scanner family is, kept in the family's table next to its rule: the
// record that selects it (type id and extension as the class table knows them; type id 0 when no
// type id selects the class), the header that record carries, the category the shipped record
// lists it under, and how its scanner is made. The fuzz target and the shipped-table test read
// the members from here, so a member is added in one row.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "carve/CScanner.h"

namespace kestrin {

struct FamilyMember {
    uint32_t typeId;
    std::string_view extension;
    std::string_view header; // the magic bytes at headerOffset of the file's first sector
    uint32_t headerOffset;
    uint8_t category;
    std::unique_ptr<CScanner> (*make)();
    // The size is a header field taken as it stands (capped or not), so it may run past the
    // source; every other member's size ends within it.
    bool sizeFromHeader = false;
};

template <class T>
std::unique_ptr<CScanner> MakeMember() {
    return std::make_unique<T>();
}

// True when the rows of a family table stand in the order of its member enum (so that a member's
// rule is the row its enum value names).
template <class Row, size_t N>
constexpr bool InMemberOrder(const Row (&rows)[N]) {
    for (size_t i = 0; i < N; ++i)
        if (size_t(rows[i].member) != i) return false;
    return true;
}

// What the rows of a family table say about their members, in row order.
template <class Row, size_t N>
std::vector<FamilyMember> FactsOf(const Row (&rows)[N]) {
    std::vector<FamilyMember> out;
    out.reserve(N);
    for (const Row& row : rows) out.push_back(row.facts);
    return out;
}

// The members of every family table, table by table in row order.
std::vector<FamilyMember> FamilyMembers();

} // namespace kestrin
