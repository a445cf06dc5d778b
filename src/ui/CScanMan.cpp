#include "ui/CScanMan.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>
#include <ctime>

#include "scan/CScanDriver.h"
#include "session/Texts.h"
#include "ui/UiText.h"

namespace kestrin::ui {

namespace {

QLabel* Row(QWidget* parent, const char* name) {
    auto* l = new QLabel(parent);
    l->setObjectName(name);
    return l;
}

} // namespace

CScanMan::CScanMan(IDesktop& desktop, QWidget* parent) : QDialog(parent), m_desktop(desktop) {
    setObjectName("CScanMan");
    setWindowTitle(Caption());
    setModal(true);
    setMinimumWidth(520);
    auto* v = new QVBoxLayout(this);
    m_status = Row(this, "status");
    m_status->setWordWrap(true);
    QFont bold = m_status->font();
    bold.setBold(true);
    m_status->setFont(bold);
    m_detail = Row(this, "detail");
    m_bar = new QProgressBar(this);
    m_bar->setObjectName("bar");
    m_bar->setRange(0, 100);
    m_bar->setTextVisible(false);
    m_total = Row(this, "total");
    m_amount = Row(this, "amount");
    m_found = Row(this, "found");
    m_start = Row(this, "start");
    m_elapsed = Row(this, "elapsed");
    m_left = Row(this, "left");
    m_skip = new QPushButton(Tx("IDS_SKIP", "Skip"), this);
    m_skip->setObjectName("skip");
    m_skip->setVisible(false);
    connect(m_skip, &QPushButton::clicked, this, [this] {
        if (!m_driver || m_ended || m_skipped) return;
        m_skipped = true;
        m_skip->setEnabled(false);
        m_driver->SkipRest();
    });
    m_cancel = new QPushButton(Tx("IDS_CANCEL", "Cancel"), this);
    m_cancel->setObjectName("cancel");
    connect(m_cancel, &QPushButton::clicked, this, &CScanMan::reject);
    v->addWidget(m_status);
    v->addWidget(m_detail);
    v->addWidget(m_bar);
    v->addWidget(m_total);
    v->addWidget(m_amount);
    v->addWidget(m_found);
    auto* times = new QHBoxLayout;
    times->addWidget(m_start);
    times->addStretch();
    times->addWidget(m_elapsed);
    v->addLayout(times);
    v->addWidget(m_left);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_skip);
    buttons->addWidget(m_cancel);
    v->addLayout(buttons);
    m_timer = new QTimer(this);
    m_timer->setInterval(100);
    connect(m_timer, &QTimer::timeout, this, &CScanMan::Refresh);

    m_words = Words();
}

ProgressWords CScanMan::Words() {
    ProgressWords w;
    w.of = Tx("IDS_PROGRESS_OF", "of").toStdString();
    w.records = Tx("IDS_PROGRESS_RECORDS", "records").toStdString();
    w.recordsPerSecond = Tx("IDS_CLI_RECORDS_PER_SEC", "records/s").toStdString();
    w.files = Tx("IDS_PROGRESS_FILES", "files").toStdString();
    w.deleted = Tx("IDS_PROGRESS_DELETED", "deleted").toStdString();
    w.carved = Tx("IDS_PROGRESS_CARVED", "carved").toStdString();
    return w;
}

CScanMan::~CScanMan() = default;

bool CScanMan::Run(CScanDriver& driver) {
    const bool first = !m_clock.isValid();
    m_driver = &driver;
    m_ended = false;
    m_rule.Reset();
    if (first) {
        m_clock.start();
        m_meter.Start(Now());
        m_start->setText(Tx("IDS_START_TIME", "Start time") + QString::fromStdString(FormatClockTime(std::time(nullptr))));
        // The status bar is emptied when an operation starts.
        if (m_statusBar) m_statusBar(QString());
    }
    {
        std::lock_guard lk(m_mutex);
        m_statusText = QString::fromStdString(TextOf(driver.StatusLine()));
    }
    m_detail->setText(QString::fromStdString(TextOf(driver.DetailRow(1))));
    m_statusBarText.clear();
    Refresh();
    m_timer->start();
    // An operation that ended before the window opened still posted its end message.
    if (!driver.Running() && m_ended) return !driver.CancelConfirmed();
    exec();
    m_timer->stop();
    driver.Wait();
    Refresh();
    return !driver.CancelConfirmed();
}

void CScanMan::OfferSkip(bool on) {
    m_skip->setVisible(on);
    m_skip->setEnabled(on);
    if (on) m_skipped = false;
}

double CScanMan::ElapsedSeconds() const { return m_clock.isValid() ? m_meter.Elapsed(Now()) : 0; }

void CScanMan::Refresh() {
    if (!m_driver) return;
    ScanOperation& op = m_driver->Operation();
    const int64_t done = op.done.load(), total = op.total.load();
    const uint32_t unit = op.unitBytes.load();
    const double now = Now();
    m_meter.Sample(now, done, total, unit);
    QString statusBar;
    if (total <= 0) {
        if (m_bar->maximum() != 0) m_bar->setRange(0, 0); // marquee until the engine knows its total
        statusBar = Tx("IDS_WAIT_PROCESSING", "Please wait, processing...");
    } else {
        if (m_bar->maximum() == 0) m_bar->setRange(0, 100);
        if (auto p = m_rule.Update(done, total)) m_bar->setValue(int(*p));
        statusBar = QString::fromStdString(FormatTotalCompleted(
            Tx("IDS_TOTAL_COMPLETED", "Total completed").toStdString(), m_rule.Last().value_or(0), true));
    }
    if (m_statusBar && statusBar != m_statusBarText) {
        m_statusBarText = statusBar;
        m_statusBar(statusBar);
    }
    unsigned percent = total > 0 ? ShownPercent(done, total) : 0;
    m_total->setText(QString::fromStdString(
        FormatTotalCompleted(Tx("IDS_TOTAL_COMPLETED", "Total completed").toStdString(), percent)));

    const bool saving = m_driver->Kind() == OperationKind::Save;
    QString amount;
    if (total > 0 || done > 0) {
        amount = (saving ? Tx("IDS_PROGRESS_SAVED", "Saved") : Tx("IDS_PROGRESS_SCANNED", "Scanned")) + ": " +
                 QString::fromStdString(FormatAmount(done, total, unit, m_words));
        if (auto rate = m_meter.Rate()) amount += "  (" + QString::fromStdString(FormatRate(*rate, unit, m_words)) + ")";
    }
    m_amount->setText(amount);
    if (!saving) {
        const FoundCounts& f = op.found;
        m_found->setText(Tx("IDS_PROGRESS_FOUND", "Found so far") + ": " +
                         QString::fromStdString(FormatFound(f.files.load(), f.deleted.load(), f.carved.load(), m_words)));
    }
    m_found->setVisible(!saving);
    m_elapsed->setText(Tx("IDS_ELAPSED_TIME", "Elapsed time") +
                       QString::fromStdString(FormatElapsed(uint64_t(m_meter.Elapsed(now)))));
    auto left = m_meter.SecondsLeft();
    m_left->setText(left ? Tx("IDS_PROGRESS_TIME_LEFT", "Time left (estimated)") + QString::fromStdString(FormatElapsed(*left))
                         : QString());
    std::lock_guard lk(m_mutex);
    m_status->setText(m_statusText);
}

void CScanMan::OnEnd() {
    QMetaObject::invokeMethod(this, [this] { Finish(); }, Qt::QueuedConnection);
}

void CScanMan::Finish() {
    m_ended = true;
    if (!m_asking && isVisible()) accept();
}

void CScanMan::OnSignatureScanStart() {
    QMetaObject::invokeMethod(this, [this] { m_rule.Reset(); }, Qt::QueuedConnection);
}

void CScanMan::OnStatus(const UserText& text) {
    QString line = QString::fromStdString(TextOf(text));
    std::lock_guard lk(m_mutex);
    m_statusText = line;
}

void CScanMan::OnNotice(const UserText& text) {
    QString line = QString::fromStdString(TextOf(text));
    std::lock_guard lk(m_mutex);
    m_notices << line;
    m_statusText = line;
}

QStringList CScanMan::Notices() const {
    std::lock_guard lk(m_mutex);
    return m_notices;
}

void CScanMan::reject() {
    if (!m_driver || m_asking) return;
    if (m_ended) {
        accept();
        return;
    }
    m_asking = true;
    // The worker stops at its next state poll while the question is open, and the clock with it.
    m_driver->BeginCancelQuestion();
    m_meter.Pause(Now());
    bool yes = m_desktop.Ask(this, Tx("IDS_STOP_THIS_PROCESS", "Do you want to stop this process?"), false);
    m_meter.Resume(Now());
    m_driver->AnswerCancelQuestion(yes);
    m_asking = false;
    if (m_ended) accept();
}

} // namespace kestrin::ui
