#pragma once
// The walk shared by the RIFF members (AVI, DivX and XviD AVI, Wave): the size is the RIFF
// chunk's length plus its 8-byte header; an AVI larger than 1 GiB continues in "RIFF" "AVIX"
// chunks that follow directly, and those are added. A member checks the form type and what it
// needs from the first bytes of the file.
//
// Bounds: at most kMaxContinuations AVIX chunks; a length running past the media refuses.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CRiffScanner : public CFamilyScanner {
public:
    static constexpr int kMaxContinuations = 4096;
    // Bytes of the file start a member may look at.
    static constexpr uint32_t kHeadBytes = 16384;

    // True when one of `tags` (four bytes each) occurs in `head`.
    static bool Contains(std::span<const uint8_t> head, std::initializer_list<const char*> tags);

protected:
    CRiffScanner(const char* formType, bool continuations) : m_form(formType), m_continuations(continuations) {}
    uint64_t Walk(std::span<const uint8_t> sector) override;
    // `head` is up to kHeadBytes bytes from the start of the file.
    virtual bool Accepts(std::span<const uint8_t> head) const = 0;

private:
    const char* m_form;
    bool m_continuations;
};

} // namespace kestrin
