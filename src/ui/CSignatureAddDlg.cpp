#include "ui/CSignatureAddDlg.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/CQtMessages.h"
#include "ui/UiText.h"

namespace kestrin::ui {

namespace {

// The type list: the item data of each entry becomes the record's second value, the type group
// the shipped table gives its records too.
struct TypeEntry {
    uint32_t value;
    const char* id;
    const char* fallback;
};
constexpr TypeEntry kTypes[] = {
    {1, "IDS_UI_SIG_TYPE_PICTURE", "Picture"},   {2, "IDS_UI_SIG_TYPE_RAW", "Camera raw image"},
    {3, "IDS_UI_SIG_TYPE_AUDIO", "Audio"},       {4, "IDS_UI_SIG_TYPE_VIDEO", "Video"},
    {5, "IDS_UI_SIG_TYPE_DOCUMENT", "Document"}, {6, "IDS_UI_SIG_TYPE_ARCHIVE", "Archive"},
    {7, "IDS_UI_SIG_TYPE_OTHER", "Other data"},
};
constexpr uint32_t kDefaultType = 7;

QString HexText(const std::vector<uint8_t>& bytes) {
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(bytes.data()), qsizetype(bytes.size())).toHex().toUpper());
}

} // namespace

CSignatureAddDlg::CSignatureAddDlg(std::vector<SignatureRecord>& records, const std::string& folder, IDesktop& desktop,
                                   QWidget* parent)
    : QDialog(parent), m_records(records), m_folder(folder), m_desktop(desktop) {
    setObjectName("CSignatureAddDlg");
    setWindowTitle(Tx("IDS_ADD_FILE_TYPE"));
    auto* v = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    auto edit = [this](const char* name) {
        auto* e = new QLineEdit(this);
        e->setObjectName(name);
        return e;
    };
    m_size = edit("size");
    m_size->setMaxLength(20);
    m_unit = new QComboBox(this);
    m_unit->setObjectName("unit");
    // Item data: the unit index of the signature rules (0 kilobytes, 1 megabytes).
    m_unit->addItem(Tx("IDS_KB"), 0);
    m_unit->addItem(Tx("IDS_MB"), 1);
    auto* sizeRow = new QHBoxLayout;
    sizeRow->addWidget(m_size, 1);
    sizeRow->addWidget(m_unit);
    m_header = edit("header");
    // Two characters per byte, and the record keeps at most 255 bytes.
    m_header->setMaxLength(510);
    m_extension = edit("extension");
    m_offset = edit("offset");
    m_offset->setMaxLength(10);
    m_type = new QComboBox(this);
    m_type->setObjectName("type");
    for (const TypeEntry& t : kTypes) m_type->addItem(Tx(t.id, t.fallback), t.value);
    m_type->setCurrentIndex(m_type->findData(kDefaultType));
    m_description = edit("description");
    form->addRow(Tx("IDS_UI_SIZE", "Size"), sizeRow);
    form->addRow(Tx("IDS_FSINHEX"), m_header);
    form->addRow(Tx("IDS_UI_EXTENSION", "Extension"), m_extension);
    form->addRow(Tx("IDS_UI_SIG_OFFSET", "Offset in the first sector"), m_offset);
    form->addRow(Tx("IDS_UI_SIG_TYPE", "Type"), m_type);
    form->addRow(Tx("IDS_FE"), m_description);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Ok)->setObjectName("ok");
    buttons->button(QDialogButtonBox::Cancel)->setText(Tx("IDS_CANCEL", "Cancel"));
    connect(buttons, &QDialogButtonBox::accepted, this, &CSignatureAddDlg::Confirm);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    v->addLayout(form);
    v->addWidget(buttons);
    resize(460, sizeHint().height());
}

SignatureFields CSignatureAddDlg::Fields() const {
    SignatureFields f;
    f.size = m_size->text().trimmed().toStdString();
    f.unitIndex = m_unit->currentData().toInt();
    f.header = m_header->text().trimmed().toStdString();
    f.extension = m_extension->text().trimmed().toStdString();
    f.offset = m_offset->text().trimmed().toStdString();
    f.secondValue = m_type->currentData().toUInt();
    f.description = m_description->text().toStdString();
    return f;
}

SignatureEditResult CSignatureAddDlg::Apply(const SignatureFields& fields) { return AddUserSignature(m_records, fields); }

void CSignatureAddDlg::Confirm() {
    // A faulty field is named in a message box; nothing is stored and the dialog stays open with
    // that field selected for correcting.
    SignatureFields fields = Fields();
    SignatureCheck check = ValidateUserSignature(fields);
    if (!check.Ok()) {
        RejectField(check);
        return;
    }
    if (Apply(fields) != SignatureEditResult::kDone) return;
    for (QLineEdit* e : {m_size, m_header, m_extension, m_offset, m_description}) e->clear();
    SaveSignaturesAndTell(this, m_desktop, m_folder, m_records, "IDS_SIG_SAVED", "IDS_UNABLE_TO_SAVE");
    accept();
}

void CSignatureAddDlg::RejectField(const SignatureCheck& check) {
    struct Named {
        QLineEdit* edit;
        QString name;
    };
    Named field{};
    switch (check.field) {
    case SignatureField::kSize: field = {m_size, Tx("IDS_UI_SIZE", "Size")}; break;
    case SignatureField::kHeader: field = {m_header, Tx("IDS_FSINHEX")}; break;
    case SignatureField::kExtension: field = {m_extension, Tx("IDS_UI_EXTENSION", "Extension")}; break;
    case SignatureField::kOffset: field = {m_offset, Tx("IDS_UI_SIG_OFFSET", "Offset in the first sector")}; break;
    case SignatureField::kDescription: field = {m_description, Tx("IDS_FE")}; break;
    case SignatureField::kNone: return;
    }
    m_desktop.Inform(this, field.name + ": " + Tx(SignatureProblemTextId(check.problem)));
    field.edit->setFocus();
    field.edit->selectAll();
}

void CSignatureAddDlg::ShowRecord(const SignatureRecord& record) {
    m_size->setText(QString::number(record.fixedSize));
    m_header->setText(HexText(record.header));
    m_extension->setText(QString::fromStdString(record.extension));
    m_offset->setText(QString::number(record.headerOffset));
    int type = m_type->findData(record.secondValue);
    if (type < 0) {
        // A value outside the list is kept as it is.
        m_type->addItem(QString::number(record.secondValue), record.secondValue);
        type = m_type->count() - 1;
    }
    m_type->setCurrentIndex(type);
    m_description->setText(QString::fromStdString(record.description));
}

bool SaveSignaturesAndTell(QWidget* parent, IDesktop& desktop, const std::string& folder, const std::vector<SignatureRecord>& records,
                           const char* successId, const char* failureId) {
    bool saved = SaveSignatureFile(folder, records) == SignatureSaveStatus::kSaved;
    const char* id = saved ? successId : failureId;
    CQtMessages(parent, desktop).Show(InformationOf(id));
    return saved;
}

} // namespace kestrin::ui
