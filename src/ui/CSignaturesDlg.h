#pragma once
// The dialog that edits a user-defined file type: the add dialog's fields filled from the record,
// with the size in bytes. OK with a faulty field names it and stores nothing, as adding does;
// otherwise the record is changed in place, the list is saved and the dialog closes.
#include "ui/CSignatureAddDlg.h"

namespace kestrin::ui {

class CSignaturesDlg final : public CSignatureAddDlg {
    Q_OBJECT
public:
    // `row` indexes `records`, the whole signature file; it must be a user-defined record.
    CSignaturesDlg(std::vector<SignatureRecord>& records, size_t row, const std::string& folder, IDesktop& desktop,
                   QWidget* parent = nullptr);

protected:
    SignatureEditResult Apply(const SignatureFields& fields) override;

private:
    size_t m_row;
};

} // namespace kestrin::ui
