#pragma once
// The dialog that adds a user-defined file type: fixed size with its unit, file signature in
// hex, extension, offset of the signature in the first sector, type group and description. OK
// with a faulty field (empty ones included) names it in a message box and stores nothing;
// otherwise the record is appended, the list is saved to the signature file and the dialog closes.
#include <QDialog>
#include <string>
#include <vector>

#include "carve/SignatureFile.h"
#include "carve/SignatureRecord.h"
#include "ui/Desktop.h"

class QComboBox;
class QLineEdit;

namespace kestrin::ui {

class CSignatureAddDlg : public QDialog {
    Q_OBJECT
public:
    // `records` is the whole signature file (every mode's rows); `folder` holds "slt.dat".
    CSignatureAddDlg(std::vector<SignatureRecord>& records, const std::string& folder, IDesktop& desktop,
                     QWidget* parent = nullptr);

    // The fields as typed, in the form the signature rules take them.
    SignatureFields Fields() const;
    // The OK command (also the OK button).
    void Confirm();

protected:
    // Applies the typed fields to `m_records`; kDone lets the dialog save and close.
    virtual SignatureEditResult Apply(const SignatureFields& fields);
    // Fills the fields from `record` (the edit dialog); the size is shown in bytes.
    void ShowRecord(const SignatureRecord& record);
    // Names the faulty field and why in a message box, and selects that field.
    void RejectField(const SignatureCheck& check);

    std::vector<SignatureRecord>& m_records;
    std::string m_folder;
    IDesktop& m_desktop;
    QLineEdit* m_size = nullptr;
    QComboBox* m_unit = nullptr;
    QLineEdit* m_header = nullptr;
    QLineEdit* m_extension = nullptr;
    QLineEdit* m_offset = nullptr;
    QComboBox* m_type = nullptr;
    QLineEdit* m_description = nullptr;
};

// Saves `records` as the signature file in `folder` and says how it went in an information box
// captioned "IDS_INFORMATION": `successId` when saved, `failureId` when the new file could not
// take the old one's place. True when saved.
bool SaveSignaturesAndTell(QWidget* parent, IDesktop& desktop, const std::string& folder, const std::vector<SignatureRecord>& records,
                           const char* successId, const char* failureId);

} // namespace kestrin::ui
