#include "ui/CSignaturesDlg.h"

#include <QComboBox>

#include "ui/UiText.h"

namespace kestrin::ui {

CSignaturesDlg::CSignaturesDlg(std::vector<SignatureRecord>& records, size_t row, const std::string& folder,
                               IDesktop& desktop, QWidget* parent)
    : CSignatureAddDlg(records, folder, desktop, parent), m_row(row) {
    setObjectName("CSignaturesDlg");
    setWindowTitle(Tx("IDS_EDIT_FILE_TYPe"));
    // The record holds its size in bytes, so that is the only unit offered here.
    m_unit->clear();
    m_unit->addItem(Tx("IDS_BYTE"), -1);
    if (m_row < m_records.size()) ShowRecord(m_records[m_row]);
}

SignatureEditResult CSignaturesDlg::Apply(const SignatureFields& fields) {
    SignatureFields f = fields;
    // The dialog has no field for the modes that list the record: it keeps its own.
    if (m_row < m_records.size()) f.category = m_records[m_row].category;
    return EditUserSignature(m_records, m_row, f);
}

} // namespace kestrin::ui
