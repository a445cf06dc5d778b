#include "ui/CSignatureExplorer.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <cstdio>

#include "carve/SignatureFile.h"
#include "carve/SignatureList.h"
#include "ui/CQtMessages.h"
#include "ui/CSignatureAddDlg.h"
#include "ui/CSignaturesDlg.h"
#include "ui/UiText.h"

namespace kestrin::ui {

namespace {

// Identifies a record across a reload: every stored field, texts with their lengths.
std::string RecordKey(const SignatureRecord& r) {
    std::string k;
    auto text = [&k](const std::string& s) { k += std::to_string(s.size()) + ':' + s + '|'; };
    text(std::string(r.header.begin(), r.header.end()));
    text(r.extension);
    text(r.description);
    for (uint64_t v : {uint64_t(r.headerOffset), uint64_t(r.secondValue), r.fixedSize, uint64_t(r.typeId),
                       uint64_t(r.userDefined), uint64_t(r.category)})
        k += std::to_string(v) + '|';
    return k;
}

QString HexText(const std::vector<uint8_t>& bytes) {
    QString s;
    for (uint8_t b : bytes) s += QString::asprintf("%02X ", b);
    return s.trimmed();
}

} // namespace

CSignatureExplorer::CSignatureExplorer(RecoveryMode mode, const std::string& folder, const std::vector<SignatureRecord>& rows,
                                       const std::vector<bool>& ticked, IDesktop& desktop, QWidget* parent)
    : QDialog(parent), m_mode(mode), m_folder(folder), m_desktop(desktop) {
    setObjectName("CSignatureExplorer");
    setWindowTitle(Tx("IDS_UI_FILE_TYPES_TO_SEARCH", "File types to search"));
    resize(640, 520);
    auto* v = new QVBoxLayout(this);

    auto button = [this](const char* name, const char* id) {
        auto* b = new QPushButton(Tx(id), this);
        b->setObjectName(name);
        b->setAutoDefault(false);
        return b;
    };
    auto* add = button("add", "IDS_ADD_FILE_TYPE");
    m_edit = button("edit", "IDS_EDIT_FILE_TYPE");
    auto* del = button("delete", "IDS_DELETE_FILE_TYPE");
    auto* mark = button("markAll", "IDS_MARK_ALL");
    auto* unmark = button("unmarkAll", "IDS_UNMARK_ALL");
    connect(add, &QPushButton::clicked, this, &CSignatureExplorer::AddFileType);
    connect(m_edit, &QPushButton::clicked, this, &CSignatureExplorer::EditFileType);
    connect(del, &QPushButton::clicked, this, &CSignatureExplorer::DeleteFileType);
    connect(mark, &QPushButton::clicked, this, [this] { MarkAll(true); });
    connect(unmark, &QPushButton::clicked, this, [this] { MarkAll(false); });
    auto* commands = new QHBoxLayout;
    for (QPushButton* b : {add, m_edit, del, mark, unmark}) commands->addWidget(b);
    commands->addStretch();

    m_find = new QLineEdit(this);
    m_find->setObjectName("findText");
    m_find->setPlaceholderText(Tx("IDS_ENTER_FILE_TYPE") + " e.g. jpg");
    auto* find = button("find", "IDS_FIND");
    connect(find, &QPushButton::clicked, this, &CSignatureExplorer::FindFromField);
    connect(m_find, &QLineEdit::returnPressed, this, &CSignatureExplorer::FindFromField);
    auto* findRow = new QHBoxLayout;
    findRow->addWidget(m_find, 1);
    findRow->addWidget(find);

    m_list = new QTreeWidget(this);
    m_list->setObjectName("signatures");
    m_list->setRootIsDecorated(false);
    m_list->setUniformRowHeights(true);
    m_list->setHeaderLabels({Tx("IDS_UI_EXTENSION", "Extension"), Tx("IDS_FE"), Tx("IDS_FSINHEX")});
    m_list->header()->setSectionResizeMode(1, QHeaderView::Stretch);
    m_list->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_list, &QTreeWidget::customContextMenuRequested, this, &CSignatureExplorer::ShowContextMenu);
    connect(m_list, &QTreeWidget::currentItemChanged, this, &CSignatureExplorer::UpdateCommands);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok, this);
    buttons->button(QDialogButtonBox::Ok)->setObjectName("ok");
    auto* skip = buttons->addButton(Tx("IDS_SKIP"), QDialogButtonBox::RejectRole);
    skip->setObjectName("skip");
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    v->addLayout(commands);
    v->addLayout(findRow);
    v->addWidget(m_list, 1);
    v->addWidget(buttons);

    for (size_t i = 0; i < rows.size(); ++i) m_entryTicks[RecordKey(rows[i])].push_back(i >= ticked.size() || ticked[i]);
    Load(m_entryTicks);
}

void CSignatureExplorer::Load(const TickQueues& ticks) {
    SignatureLoad load = LoadSignatureFile(m_folder);
    // What could be read is listed; the reason for a short file goes to the console output.
    if (load.status == SignatureLoadStatus::kShortRead) std::fprintf(stderr, "%s\n", load.systemText.c_str());
    m_all = std::move(load.records);
    m_fileIndex.clear();
    m_rows.clear();
    for (size_t i = 0; i < m_all.size(); ++i)
        if (ListedInMode(m_all[i], m_mode)) {
            m_fileIndex.push_back(i);
            m_rows.push_back(m_all[i]);
        }

    TickQueues left = ticks;
    m_list->clear();
    QList<QTreeWidgetItem*> items;
    for (const SignatureRecord& r : m_rows) {
        bool tick = true;
        auto it = left.find(RecordKey(r));
        if (it != left.end() && !it->second.empty()) {
            tick = it->second.front();
            it->second.pop_front();
        }
        auto* item = new QTreeWidgetItem({QString::fromStdString(r.extension), QString::fromStdString(r.description),
                                          HexText(r.header)});
        item->setCheckState(0, tick ? Qt::Checked : Qt::Unchecked);
        if (r.userDefined == 1) {
            // The user's own types, the only ones that can be edited or deleted, stand out.
            QFont f = item->font(0);
            f.setItalic(true);
            for (int c = 0; c < 3; ++c) item->setFont(c, f);
        }
        items << item;
    }
    m_list->addTopLevelItems(items);
    UpdateCommands();
}

CSignatureExplorer::TickQueues CSignatureExplorer::CurrentTicks(int skip) const {
    TickQueues t;
    for (int i = 0; i < m_list->topLevelItemCount() && size_t(i) < m_rows.size(); ++i)
        if (i != skip) t[RecordKey(m_rows[size_t(i)])].push_back(m_list->topLevelItem(i)->checkState(0) == Qt::Checked);
    return t;
}

std::vector<bool> CSignatureExplorer::Ticked() const {
    std::vector<bool> t;
    for (int i = 0; i < m_list->topLevelItemCount(); ++i) t.push_back(m_list->topLevelItem(i)->checkState(0) == Qt::Checked);
    return t;
}

std::vector<bool> CSignatureExplorer::EntryTicks() const {
    TickQueues left = m_entryTicks;
    std::vector<bool> t;
    for (const SignatureRecord& r : m_rows) {
        auto it = left.find(RecordKey(r));
        if (it == left.end() || it->second.empty()) {
            t.push_back(true);
            continue;
        }
        t.push_back(it->second.front());
        it->second.pop_front();
    }
    return t;
}

int CSignatureExplorer::CurrentRow() const {
    QTreeWidgetItem* it = m_list->currentItem();
    return it ? m_list->indexOfTopLevelItem(it) : -1;
}

void CSignatureExplorer::SelectRow(int row) {
    if (QTreeWidgetItem* it = m_list->topLevelItem(row)) {
        m_list->setCurrentItem(it);
        m_list->scrollToItem(it);
    }
}

void CSignatureExplorer::AddFileType() {
    TickQueues ticks = CurrentTicks();
    CSignatureAddDlg dlg(m_all, m_folder, m_desktop, this);
    if (dlg.exec() != QDialog::Accepted) return;
    Load(ticks);
    SelectRow(m_list->topLevelItemCount() - 1);
}

void CSignatureExplorer::EditFileType() {
    int row = CurrentRow();
    if (row < 0 || size_t(row) >= m_rows.size() || m_rows[size_t(row)].userDefined != 1) return;
    TickQueues ticks = CurrentTicks(row);
    bool tick = m_list->topLevelItem(row)->checkState(0) == Qt::Checked;
    size_t index = m_fileIndex[size_t(row)];
    CSignaturesDlg dlg(m_all, index, m_folder, m_desktop, this);
    if (dlg.exec() != QDialog::Accepted) return;
    // The changed record keeps its row's tick.
    if (index < m_all.size()) ticks[RecordKey(m_all[index])].push_front(tick);
    Load(ticks);
    SelectRow(row);
}

void CSignatureExplorer::DeleteFileType() {
    int row = CurrentRow();
    if (row < 0 || size_t(row) >= m_rows.size() || m_rows[size_t(row)].userDefined != 1) {
        CQtMessages(this, m_desktop).Show(InformationOf("IDS_SELECT_USER_DEF"));
        return;
    }
    TickQueues ticks = CurrentTicks(row);
    if (DeleteUserSignature(m_all, m_fileIndex[size_t(row)]) != SignatureEditResult::kDone) {
        CQtMessages(this, m_desktop).Show(InformationOf("IDS_DELETION_FAILED"));
        return;
    }
    SaveSignaturesAndTell(this, m_desktop, m_folder, m_all, "IDS_DEL_SUCCESSFUL", "IDS_FAILED_TO_SAVE");
    Load(ticks);
    SelectRow(std::min(row, m_list->topLevelItemCount() - 1));
}

void CSignatureExplorer::MarkAll(bool ticked) {
    for (int i = 0; i < m_list->topLevelItemCount(); ++i)
        m_list->topLevelItem(i)->setCheckState(0, ticked ? Qt::Checked : Qt::Unchecked);
}

bool CSignatureExplorer::FindNext(const QString& text) {
    QString wanted = text.trimmed();
    while (wanted.startsWith('.')) wanted.remove(0, 1);
    int n = m_list->topLevelItemCount();
    if (wanted.isEmpty() || n == 0) return false;
    int start = CurrentRow() + 1;
    for (int k = 0; k < n; ++k) {
        int row = (start + k) % n;
        QTreeWidgetItem* it = m_list->topLevelItem(row);
        if (it->text(0).contains(wanted, Qt::CaseInsensitive) || it->text(1).contains(wanted, Qt::CaseInsensitive)) {
            SelectRow(row);
            return true;
        }
    }
    return false;
}

void CSignatureExplorer::FindFromField() {
    if (m_find->text().trimmed().isEmpty()) return;
    if (!FindNext(m_find->text())) m_desktop.Inform(this, Tx("IDS_UI_NOT_FOUND", "No item with this name was found."));
}

void CSignatureExplorer::UpdateCommands() {
    int row = CurrentRow();
    m_edit->setEnabled(row >= 0 && size_t(row) < m_rows.size() && m_rows[size_t(row)].userDefined == 1);
}

void CSignatureExplorer::ShowContextMenu(const QPoint& at) {
    if (QTreeWidgetItem* it = m_list->itemAt(at)) m_list->setCurrentItem(it);
    QMenu menu(this);
    menu.addAction(Tx("IDS_ADD_FILE_TYPE"), this, &CSignatureExplorer::AddFileType);
    menu.addAction(Tx("IDS_EDIT_FILE_TYPE"), this, &CSignatureExplorer::EditFileType)->setEnabled(m_edit->isEnabled());
    menu.addAction(Tx("IDS_DELETE_FILE_TYPE"), this, &CSignatureExplorer::DeleteFileType);
    menu.exec(m_list->viewport()->mapToGlobal(at));
}

} // namespace kestrin::ui
