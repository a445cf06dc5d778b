#include "ui/CSignatureDialog.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "ui/CQtMessages.h"
#include "ui/UiText.h"

namespace kestrin::ui {

CSignatureDialog::CSignatureDialog(const std::vector<SignatureRecord>& rows, const std::vector<bool>& ticked,
                                   QWidget* parent)
    : QDialog(parent) {
    setObjectName("CSignatureDialog");
    setWindowTitle(Tx("IDS_UI_FILE_TYPES_TO_SEARCH", "File types to search"));
    resize(520, 480);
    auto* v = new QVBoxLayout(this);
    m_list = new QTreeWidget;
    m_list->setRootIsDecorated(false);
    m_list->setHeaderLabels({Tx("IDS_UI_EXTENSION", "Extension"), Tx("IDS_FE", "Description")});
    m_list->header()->setSectionResizeMode(1, QHeaderView::Stretch);
    for (size_t i = 0; i < rows.size(); ++i) {
        auto* it = new QTreeWidgetItem(m_list, {QString::fromStdString(rows[i].extension),
                                                QString::fromStdString(rows[i].description)});
        it->setCheckState(0, i < ticked.size() && ticked[i] ? Qt::Checked : Qt::Unchecked);
    }
    auto* bar = new QHBoxLayout;
    auto* mark = new QPushButton(Tx("IDS_MARK_ALL", "Mark All"));
    auto* unmark = new QPushButton(Tx("IDS_UNMARK_ALL", "Unmark All"));
    auto* find = new QPushButton(Tx("IDS_FIND", "Find"));
    auto setAll = [this](Qt::CheckState s) {
        for (int i = 0; i < m_list->topLevelItemCount(); ++i) m_list->topLevelItem(i)->setCheckState(0, s);
    };
    connect(mark, &QPushButton::clicked, this, [setAll] { setAll(Qt::Checked); });
    connect(unmark, &QPushButton::clicked, this, [setAll] { setAll(Qt::Unchecked); });
    connect(find, &QPushButton::clicked, this, [this] {
        bool ok = false;
        QString text = QInputDialog::getText(this, Tx("IDS_FIND", "Find"), Tx("IDS_UI_EXTENSION", "Extension"),
                                             QLineEdit::Normal, QString(), &ok);
        if (ok && !text.isEmpty() && !FindNext(text))
            CQtMessages::Inform(this, Tx("IDS_UI_NOT_FOUND", "No item with this name was found."));
    });
    bar->addWidget(mark);
    bar->addWidget(unmark);
    bar->addWidget(find);
    bar->addStretch();
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    v->addLayout(bar);
    v->addWidget(m_list, 1);
    v->addWidget(buttons);
}

std::vector<bool> CSignatureDialog::Ticked() const {
    std::vector<bool> t;
    for (int i = 0; i < m_list->topLevelItemCount(); ++i) t.push_back(m_list->topLevelItem(i)->checkState(0) == Qt::Checked);
    return t;
}

bool CSignatureDialog::FindNext(const QString& text) {
    int n = m_list->topLevelItemCount();
    int start = m_list->currentItem() ? m_list->indexOfTopLevelItem(m_list->currentItem()) + 1 : 0;
    for (int k = 0; k < n; ++k) {
        QTreeWidgetItem* it = m_list->topLevelItem((start + k) % n);
        if (it->text(0).contains(text, Qt::CaseInsensitive) || it->text(1).contains(text, Qt::CaseInsensitive)) {
            m_list->setCurrentItem(it);
            m_list->scrollToItem(it);
            return true;
        }
    }
    return false;
}

} // namespace kestrin::ui
