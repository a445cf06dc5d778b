#pragma once
// Zip archive: any archive the walk gets through. Size from the shared zip walk.
#include "carve/scanners/family/CZipFamilyScanner.h"

namespace kestrin {

class CZipScanner final : public CZipFamilyScanner {
protected:
    void SeePart(std::string_view name) override;
    void Reset() override;
    bool Accepted() const override;
};

} // namespace kestrin
