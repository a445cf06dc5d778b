#pragma once
// The signature list of the current mode: one row per searchable file type, ticked rows are
// searched by the signature scan. Mark all, unmark all and find by extension.
#include <QDialog>
#include <vector>

#include "carve/SignatureRecord.h"

class QTreeWidget;

namespace kestrin::ui {

class CSignatureDialog final : public QDialog {
    Q_OBJECT
public:
    // `rows` are the records the mode lists; `ticked[i]` says whether row i is searched.
    CSignatureDialog(const std::vector<SignatureRecord>& rows, const std::vector<bool>& ticked, QWidget* parent = nullptr);
    std::vector<bool> Ticked() const;
    // Selects the next row whose extension or description contains `text` (any case).
    bool FindNext(const QString& text);

private:
    QTreeWidget* m_list = nullptr;
};

} // namespace kestrin::ui
