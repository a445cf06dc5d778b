#pragma once
// Excel workbook (Office Open XML): a zip archive with parts under "xl/". Size from the shared zip
// walk.
#include "carve/scanners/family/CZipFamilyScanner.h"

namespace kestrin {

class CXLSXScanner final : public CZipFamilyScanner {
protected:
    void SeePart(std::string_view name) override;
    void Reset() override;
    bool Accepted() const override;

private:
    bool m_seen = false;
};

} // namespace kestrin
