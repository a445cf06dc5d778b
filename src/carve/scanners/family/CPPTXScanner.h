#pragma once
// PowerPoint presentation (Office Open XML): a zip archive with parts under "ppt/". Size from the
// shared zip walk.
#include "carve/scanners/family/CZipFamilyScanner.h"

namespace kestrin {

class CPPTXScanner final : public CZipFamilyScanner {
protected:
    void SeePart(std::string_view name) override;
    void Reset() override;
    bool Accepted() const override;

private:
    bool m_seen = false;
};

} // namespace kestrin
