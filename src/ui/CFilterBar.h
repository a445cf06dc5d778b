#pragma once
// The filter bar over the file list: a live name filter ("*" and "?", any case), the kind of
// file, a size range, a range of modified dates and "deleted only". Every change is announced
// at once; the page hands the result to its filter proxies.
#include <QWidget>
#include <functional>

#include "ui/CNodeFilter.h"

class QCheckBox;
class QComboBox;
class QDateEdit;
class QLabel;
class QLineEdit;
class QSpinBox;
class QToolButton;

namespace kestrin::ui {

class CFilterBar final : public QWidget {
    Q_OBJECT
public:
    explicit CFilterBar(QWidget* parent = nullptr);

    // The bar's choices as a filter (system folders: as `hideSystem` says).
    CNodeFilter Filter(bool hideSystem) const;
    bool DeletedOnly() const;
    // Back to "everything", without announcing it.
    void Clear();
    void Retranslate();

    // The place of the recoverability condition: `labels` become the choices of a combo shown
    // after the dates (the first one meaning "any"), `test(node, choice)` the filter for the
    // others. Without a call the combo stays hidden.
    void SetConditionChoices(const QStringList& labels, std::function<bool(const CNode&, int)> test);

signals:
    void Changed();

private:
    QLineEdit* m_text = nullptr;
    QLabel* m_kindLabel = nullptr;
    QComboBox* m_kind = nullptr;
    QLabel* m_sizeLabel = nullptr;
    QSpinBox* m_minKB = nullptr;
    QSpinBox* m_maxKB = nullptr;
    QLabel* m_dateLabel = nullptr;
    QDateEdit* m_from = nullptr;
    QDateEdit* m_to = nullptr;
    QComboBox* m_condition = nullptr;
    std::function<bool(const CNode&, int)> m_conditionTest;
    QCheckBox* m_deletedOnly = nullptr;
    QToolButton* m_clear = nullptr;
    bool m_quiet = false; // while Clear() sets the widgets
};

} // namespace kestrin::ui
