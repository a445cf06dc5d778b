#pragma once
// The progress window of one long operation (scan or save): bar, "Total completed: n%", status
// lines, how much was read and how fast, what was found so far, start, elapsed and estimated
// time left, and Cancel with the stop question while the worker is held at the pause gate. The
// worker's messages arrive through IScanEvents and are passed to the window thread; the rows
// are refreshed from the operation record by a timer, so a busy engine cannot flood the window.
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
    // A second run (an operation that goes on as another kind) keeps counting the time.
    bool Run(CScanDriver& driver);

    // Receives the status-bar form of the progress ("Total completed: 05%", or the wait text
    // while no total is known); an empty text when the operation starts.
    void SetStatusBarSink(std::function<void(const QString&)> sink) { m_statusBar = std::move(sink); }
    // Shows the Skip button, which ends the running search early and keeps what it found.
    void OfferSkip(bool on);
    bool Skipped() const { return m_skipped; }
    // Elapsed time of the operation without the time the stop question was open.
    double ElapsedSeconds() const;

    // IScanEvents (worker thread).
    void OnEnd() override;
    void OnProgress() override {}
    void OnSignatureScanStart() override;
    void OnStatus(const UserText& text) override;
    void OnNotice(const UserText& text) override;

    QStringList Notices() const;
    // The words of the progress rows in the current language.
    static ProgressWords Words();

protected:
    void reject() override; // Cancel, Escape and the close box ask the stop question

private:
    void Refresh();
    void Finish();
    double Now() const { return double(m_clock.nsecsElapsed()) / 1e9; }

    IDesktop& m_desktop;
    CScanDriver* m_driver = nullptr;
    QLabel* m_status = nullptr;
    QLabel* m_detail = nullptr;
    QLabel* m_total = nullptr;
    QLabel* m_amount = nullptr;
    QLabel* m_found = nullptr;
    QLabel* m_start = nullptr;
    QLabel* m_elapsed = nullptr;
    QLabel* m_left = nullptr;
    QProgressBar* m_bar = nullptr;
    QPushButton* m_skip = nullptr;
    QPushButton* m_cancel = nullptr;
    QTimer* m_timer = nullptr;
    QElapsedTimer m_clock;
    ProgressMeter m_meter;
    ProgressWords m_words;
    ProgressRule m_rule;
    std::function<void(const QString&)> m_statusBar;
    QString m_statusBarText;
    bool m_ended = false;
    bool m_asking = false;
    bool m_skipped = false;
    mutable std::mutex m_mutex;
    QString m_statusText;
    QStringList m_notices;
};

} // namespace kestrin::ui
