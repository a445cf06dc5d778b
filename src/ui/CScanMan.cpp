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

CScanMan::CScanMan(IDesktop& desktop, QWidget* parent) : QDialog(parent), m_desktop(desktop) {
    setObjectName("CScanMan");
    setWindowTitle(Caption());
    setModal(true);
    setMinimumWidth(460);
    auto* v = new QVBoxLayout(this);
    m_status = new QLabel(this);
    m_status->setWordWrap(true);
    QFont bold = m_status->font();
    bold.setBold(true);
    m_status->setFont(bold);
    m_detail = new QLabel(this);
    m_bar = new QProgressBar(this);
    m_bar->setRange(0, 100);
    m_bar->setTextVisible(false);
    m_total = new QLabel(this);
    m_start = new QLabel(this);
    m_elapsed = new QLabel(this);
    m_cancel = new QPushButton(Tx("IDS_CANCEL", "Cancel"), this);
    m_cancel->setObjectName("cancel");
    connect(m_cancel, &QPushButton::clicked, this, &CScanMan::reject);
    v->addWidget(m_status);
    v->addWidget(m_detail);
    v->addWidget(m_bar);
    v->addWidget(m_total);
    auto* times = new QHBoxLayout;
    times->addWidget(m_start);
    times->addStretch();
    times->addWidget(m_elapsed);
    v->addLayout(times);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_cancel);
    v->addLayout(buttons);
    m_timer = new QTimer(this);
    m_timer->setInterval(100);
    connect(m_timer, &QTimer::timeout, this, &CScanMan::Refresh);
}

CScanMan::~CScanMan() = default;

bool CScanMan::Run(CScanDriver& driver) {
    m_driver = &driver;
    m_ended = false;
    m_rule.Reset();
    m_clock.start();
    {
        std::lock_guard lk(m_mutex);
        m_statusText = QString::fromStdString(TextOf(driver.StatusLine()));
    }
    m_detail->setText(QString::fromStdString(TextOf(driver.DetailRow(1))));
    m_start->setText(Tx("IDS_START_TIME", "Start time") + QString::fromStdString(FormatClockTime(std::time(nullptr))));
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

void CScanMan::Refresh() {
    if (!m_driver) return;
    ScanOperation& op = m_driver->Operation();
    int64_t done = op.done.load(), total = op.total.load();
    if (total <= 0) {
        if (m_bar->maximum() != 0) m_bar->setRange(0, 0); // marquee until the engine knows its total
    } else {
        if (m_bar->maximum() == 0) m_bar->setRange(0, 100);
        if (auto p = m_rule.Update(done, total)) m_bar->setValue(int(*p));
    }
    unsigned percent = total > 0 ? ShownPercent(done, total) : 0;
    m_total->setText(QString::fromStdString(
        FormatTotalCompleted(Tx("IDS_TOTAL_COMPLETED", "Total completed").toStdString(), percent)));
    m_elapsed->setText(Tx("IDS_ELAPSED_TIME", "Elapsed time") +
                       QString::fromStdString(FormatElapsed(uint64_t(m_clock.elapsed() / 1000))));
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
    // The worker stops at its next state poll while the question is open.
    m_driver->BeginCancelQuestion();
    bool yes = m_desktop.Ask(this, Tx("IDS_STOP_THIS_PROCESS", "Do you want to stop this process?"), false);
    m_driver->AnswerCancelQuestion(yes);
    m_asking = false;
    if (m_ended) accept();
}

} // namespace kestrin::ui
