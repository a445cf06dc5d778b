#pragma once
// The progress window of one long operation (scan or save): bar, "Total completed: n%", status
// lines, start and elapsed time, and Cancel with the stop question while the worker is held at
// the pause gate. The worker's messages arrive through IScanEvents and are passed to the window
// thread; the bar is refreshed from the operation record by a timer, so a busy engine cannot
// flood the window.
#include <QDateTime>
#include <QDialog>
#include <QElapsedTimer>
#include <QString>
#include <QStringList>
#include <atomic>
#include <functional>
#include <mutex>
#include <string>

#include "scan/ProgressRule.h"
#include "job/ScanOperation.h"
#include "ui/Desktop.h"

class QLabel;
class QProgressBar;
class QPushButton;
class QTimer;

namespace kestrin {
class CScanDriver;
}

namespace kestrin::ui {

class CScanMan final : public QDialog, public IScanEvents {
    Q_OBJECT
public:
    explicit CScanMan(IDesktop& desktop, QWidget* parent = nullptr);
    ~CScanMan() override;

    // Shows the window until the driver's running operation ends (the driver must have been
    // made with this window as its events and started). Returns false when it was cancelled.
    bool Run(CScanDriver& driver);

    // IScanEvents (worker thread).
    void OnEnd() override;
    void OnProgress() override {}
    void OnSignatureScanStart() override;
    void OnStatus(const UserText& text) override;
    void OnNotice(const UserText& text) override;

    QStringList Notices() const;

protected:
    void reject() override; // Cancel, Escape and the close box ask the stop question

private:
    void Refresh();
    void Finish();

    IDesktop& m_desktop;
    CScanDriver* m_driver = nullptr;
    QLabel* m_status = nullptr;
    QLabel* m_detail = nullptr;
    QLabel* m_total = nullptr;
    QLabel* m_start = nullptr;
    QLabel* m_elapsed = nullptr;
    QProgressBar* m_bar = nullptr;
    QPushButton* m_cancel = nullptr;
    QTimer* m_timer = nullptr;
    QElapsedTimer m_clock;
    ProgressRule m_rule;
    bool m_ended = false;
    bool m_asking = false;
    mutable std::mutex m_mutex;
    QString m_statusText;
    QStringList m_notices;
};

} // namespace kestrin::ui
