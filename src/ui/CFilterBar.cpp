#include "ui/CFilterBar.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QToolButton>
#include <QVBoxLayout>

#include "ui/UiText.h"

namespace kestrin::ui {

namespace {

// The dates' "any" value sits one day before the first date a DOS date can hold.
const QDate kNoDate(1979, 12, 31);

uint16_t DosDateOf(const QDate& d) {
    if (!d.isValid() || d <= kNoDate) return 0;
    int year = std::min(d.year(), 2107);
    return uint16_t(((year - 1980) << 9) | (d.month() << 5) | d.day());
}

QDateEdit* DateEdit(const char* name) {
    auto* e = new QDateEdit;
    e->setObjectName(name);
    e->setCalendarPopup(true);
    e->setDateRange(kNoDate, QDate(2107, 12, 31));
    e->setDate(kNoDate);
    e->setDisplayFormat("yyyy-MM-dd");
    return e;
}

QSpinBox* KBBox(const char* name) {
    auto* b = new QSpinBox;
    b->setObjectName(name);
    b->setRange(0, 2000000000);
    b->setSingleStep(100);
    b->setAccelerated(true);
    b->setSuffix(" KB");
    b->setMaximumWidth(b->fontMetrics().horizontalAdvance("0000000000 KB") + 30);
    return b;
}

} // namespace

CFilterBar::CFilterBar(QWidget* parent) : QWidget(parent) {
    // Two rows, so the bar fits the window's narrowest width without cutting a label.
    auto* rows = new QVBoxLayout(this);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(4);
    auto* h = new QHBoxLayout;
    auto* h2 = new QHBoxLayout;
    rows->addLayout(h);
    rows->addLayout(h2);
    m_text = new QLineEdit;
    m_text->setObjectName("filterText");
    m_text->setClearButtonEnabled(true);
    m_text->setMinimumWidth(160);
    m_kindLabel = new QLabel;
    m_kind = new QComboBox;
    m_kind->setObjectName("filterKind");
    m_kind->setSizeAdjustPolicy(QComboBox::AdjustToContents); // the language may change the labels
    m_sizeLabel = new QLabel;
    m_minKB = KBBox("filterMinSize");
    m_maxKB = KBBox("filterMaxSize");
    m_dateLabel = new QLabel;
    m_from = DateEdit("filterFrom");
    m_to = DateEdit("filterTo");
    m_condition = new QComboBox;
    m_condition->setObjectName("filterCondition");
    m_condition->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    m_condition->setVisible(false);
    m_deletedOnly = new QCheckBox;
    m_deletedOnly->setObjectName("deletedOnly");
    m_clear = new QToolButton;
    m_clear->setObjectName("clearFilters");
    h->addWidget(m_text, 1);
    h->addWidget(m_kindLabel);
    h->addWidget(m_kind);
    h->addWidget(m_sizeLabel);
    h->addWidget(m_minKB);
    h->addWidget(new QLabel(QString::fromUtf8("\xE2\x80\x93")));
    h->addWidget(m_maxKB);
    // The first row's name field gives way; the second row is full in the longer languages.
    h->addWidget(m_clear);
    h2->addWidget(m_dateLabel);
    h2->addWidget(m_from);
    h2->addWidget(new QLabel(QString::fromUtf8("\xE2\x80\x93")));
    h2->addWidget(m_to);
    h2->addWidget(m_condition);
    h2->addSpacing(12);
    h2->addWidget(m_deletedOnly);
    h2->addStretch(1);

    auto changed = [this] {
        if (!m_quiet) emit Changed();
    };
    connect(m_text, &QLineEdit::textChanged, this, changed);
    connect(m_kind, &QComboBox::currentIndexChanged, this, changed);
    connect(m_minKB, &QSpinBox::valueChanged, this, changed);
    connect(m_maxKB, &QSpinBox::valueChanged, this, changed);
    connect(m_from, &QDateEdit::dateChanged, this, changed);
    connect(m_to, &QDateEdit::dateChanged, this, changed);
    connect(m_condition, &QComboBox::currentIndexChanged, this, changed);
    connect(m_deletedOnly, &QCheckBox::toggled, this, changed);
    connect(m_clear, &QToolButton::clicked, this, [this] {
        Clear();
        emit Changed();
    });
}

CNodeFilter CFilterBar::Filter(bool hideSystem) const {
    CNodeFilter f;
    f.SetPattern(m_text->text().trimmed());
    f.SetKind(FileKind(std::max(0, m_kind->currentIndex())));
    uint64_t max = m_maxKB->value() ? uint64_t(m_maxKB->value()) * 1024 + 1023 : UINT64_MAX;
    f.SetSizeRange(uint64_t(m_minKB->value()) * 1024, max);
    f.SetDateRange(DosDateOf(m_from->date()), DosDateOf(m_to->date()));
    f.SetDeletedOnly(m_deletedOnly->isChecked());
    f.SetHideSystem(hideSystem);
    if (int choice = m_condition->currentIndex(); choice > 0 && m_conditionTest)
        f.SetCondition([test = m_conditionTest, choice](const CNode& n) { return test(n, choice); });
    return f;
}

bool CFilterBar::DeletedOnly() const { return m_deletedOnly->isChecked(); }

void CFilterBar::Clear() {
    // Not by blocking signals: the widgets' own reactions (the name box's clear button) must run.
    m_quiet = true;
    m_text->clear();
    m_kind->setCurrentIndex(0);
    m_minKB->setValue(0);
    m_maxKB->setValue(0);
    m_from->setDate(kNoDate);
    m_to->setDate(kNoDate);
    m_condition->setCurrentIndex(0);
    m_deletedOnly->setChecked(false);
    m_quiet = false;
}

void CFilterBar::SetConditionChoices(const QStringList& labels, std::function<bool(const CNode&, int)> test) {
    const QSignalBlocker block(m_condition);
    int kept = m_condition->currentIndex(); // a change of language keeps the choice
    m_condition->clear();
    m_condition->addItems(labels);
    m_condition->setCurrentIndex(kept > 0 && kept < int(labels.size()) ? kept : 0);
    m_conditionTest = std::move(test);
    m_condition->setVisible(labels.size() > 1);
}

void CFilterBar::Retranslate() {
    m_text->setPlaceholderText(Tx("IDS_UI_FILTER_NAMES", "Filter names (* and ?)"));
    m_kindLabel->setText(Tx("IDS_UI_FILTER_TYPE", "Type:"));
    {
        const QSignalBlocker block(m_kind);
        int k = m_kind->currentIndex();
        m_kind->clear();
        // In FileKind order.
        m_kind->addItems({Tx("IDS_UI_KIND_ANY", "All types"), Tx("IDS_UI_KIND_PICTURES", "Pictures"),
                          Tx("IDS_UI_KIND_DOCUMENTS", "Documents"), Tx("IDS_UI_KIND_AUDIO", "Audio"),
                          Tx("IDS_UI_KIND_VIDEO", "Video"), Tx("IDS_UI_KIND_ARCHIVES", "Archives"),
                          Tx("IDS_UI_KIND_OTHER", "Other")});
        m_kind->setCurrentIndex(std::max(0, k));
    }
    m_sizeLabel->setText(Tx("IDS_UI_FILTER_SIZE", "Size:"));
    QString any = Tx("IDS_UI_FILTER_ANY", "any");
    m_minKB->setSpecialValueText(any);
    m_maxKB->setSpecialValueText(any);
    m_from->setSpecialValueText(any);
    m_to->setSpecialValueText(any);
    m_dateLabel->setText(Tx("IDS_UI_FILTER_MODIFIED", "Modified:"));
    m_deletedOnly->setText(Tx("IDS_UI_SHOW_DELETED_ONLY", "Show deleted only"));
    m_clear->setText(Tx("IDS_UI_FILTER_CLEAR", "Clear filters"));
}

} // namespace kestrin::ui
