#include "cli/CliFrontEnd.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "app/Language.h"
#include "session/Texts.h"
#include "platform/Platform.h"
#include "scan/CScanDriver.h"

namespace kestrin::cli {

namespace {

volatile std::sig_atomic_t g_interrupts = 0;

void OnInterrupt(int) { g_interrupts = g_interrupts + 1; }

// Installs the Ctrl-C handler for the life of one operation; the previous one comes back after.
class InterruptScope {
public:
    InterruptScope() {
        struct sigaction sa {};
        sa.sa_handler = OnInterrupt;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = 0; // no restart: a Ctrl-C must interrupt the read of an answer
        sigaction(SIGINT, &sa, &m_oldInt);
        sigaction(SIGTERM, &sa, &m_oldTerm);
        g_interrupts = 0;
    }
    ~InterruptScope() {
        sigaction(SIGINT, &m_oldInt, nullptr);
        sigaction(SIGTERM, &m_oldTerm, nullptr);
    }
    // After a cancel without a terminal a second Ctrl-C ends the program the usual way.
    void RestoreDefault() {
        sigaction(SIGINT, &m_oldInt, nullptr);
        sigaction(SIGTERM, &m_oldTerm, nullptr);
    }

private:
    struct sigaction m_oldInt {};
    struct sigaction m_oldTerm {};
};

size_t TerminalWidth() {
    winsize ws{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_col >= 20) return ws.ws_col;
    return 80;
}

// Display text is UTF-8: count code points, not bytes, when fitting it to the terminal.
size_t DisplayWidth(const std::string& s) {
    size_t n = 0;
    for (unsigned char c : s)
        if ((c & 0xC0) != 0x80) ++n;
    return n;
}

// " mm:ss" below an hour, "h:mm:ss" from then on: the short form for the progress line.
std::string ShortDuration(uint64_t seconds) {
    char b[32];
    if (seconds < 3600)
        std::snprintf(b, sizeof b, "%02llu:%02llu", (unsigned long long)(seconds / 60), (unsigned long long)(seconds % 60));
    else
        std::snprintf(b, sizeof b, "%llu:%02llu:%02llu", (unsigned long long)(seconds / 3600),
                      (unsigned long long)(seconds / 60 % 60), (unsigned long long)(seconds % 60));
    return b;
}

double SteadySeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

} // namespace

std::string FitFields(const std::vector<std::string>& fields, size_t width) {
    std::string line;
    size_t used = 0;
    for (const std::string& f : fields) {
        if (f.empty()) continue;
        size_t w = DisplayWidth(f) + (line.empty() ? 0 : 2);
        if (used + w > width) break; // this field and every one after it are left out
        if (!line.empty()) line += "  ";
        line += f;
        used += w;
    }
    return line;
}

CliFrontEnd::CliFrontEnd(bool quiet)
    : m_quiet(quiet), m_bar(!quiet && platform::IsTerminal(STDERR_FILENO)) {
    m_lastPaint = SteadySeconds();
    m_meter.Start(m_lastPaint);
    m_words.of = T("IDS_PROGRESS_OF", "of");
    m_words.records = T("IDS_PROGRESS_RECORDS", "records");
    m_words.recordsPerSecond = T("IDS_CLI_RECORDS_PER_SEC", "records/s");
    m_words.files = T("IDS_PROGRESS_FILES", "files");
    m_words.deleted = T("IDS_PROGRESS_DELETED", "deleted");
    m_words.carved = T("IDS_PROGRESS_CARVED", "carved");
}

CliFrontEnd::~CliFrontEnd() { ClearLine(); }

bool CliFrontEnd::HaveTerminal() {
    return platform::IsTerminal(STDIN_FILENO) && platform::IsTerminal(STDERR_FILENO);
}

bool CliFrontEnd::Ask(const std::string& question) {
    if (!HaveTerminal()) return false;
    ClearLine();
    std::fprintf(stderr, "%s%s", question.c_str(), T("IDS_CLI_YES_NO").c_str());
    std::fflush(stderr);
    char buf[64];
    size_t n = 0;
    bool interrupted = false;
    // Read the answer straight from the descriptor so that a Ctrl-C (EINTR) is seen at once.
    for (;;) {
        char c;
        ssize_t r = ::read(STDIN_FILENO, &c, 1);
        if (r < 0 && errno == EINTR) {
            interrupted = true;
            break;
        }
        if (r <= 0 || c == '\n') break;
        if (n < sizeof buf - 1) buf[n++] = c;
    }
    buf[n] = 0;
    if (interrupted) {
        g_interrupts = 0;
        std::fputc('\n', stderr);
        return true;
    }
    // "y", or the yes-letter of the current language ("j" in German).
    return app::IsYesAnswer(std::string_view(buf, n));
}

void CliFrontEnd::RunToEnd(CScanDriver& driver) {
    InterruptScope scope;
    bool terminal = HaveTerminal();
    while (!driver.WaitFor(100)) {
        if (g_interrupts) {
            g_interrupts = 0;
            if (terminal) {
                // The worker waits at its next state poll while the question is open.
                driver.BeginCancelQuestion();
                m_questionOpen = true;
                // The time under the question is not time the operation worked: neither the
                // elapsed time nor the rate counts it.
                m_meter.Pause(SteadySeconds());
                bool yes = Ask(T("IDS_STOP_THIS_PROCESS"));
                m_meter.Resume(SteadySeconds());
                m_questionOpen = false;
                driver.AnswerCancelQuestion(yes);
                m_painted = false;
            } else {
                driver.RequestCancel();
                scope.RestoreDefault();
            }
        }
        Paint(driver, false);
    }
    Paint(driver, true);
    ClearLine();
}

std::vector<std::string> CliFrontEnd::Fields(CScanDriver& driver, const std::string& status, bool withBar) {
    ScanOperation& op = driver.Operation();
    const int64_t done = op.done.load(), total = op.total.load();
    const uint32_t unit = op.unitBytes.load();
    const unsigned pct = m_rule.Last().value_or(0);
    std::vector<std::string> f;
    if (withBar) {
        const unsigned cells = 10;
        std::string bar = "[";
        for (unsigned i = 0; i < cells; ++i) bar += i * 100 < pct * cells ? "#" : ".";
        f.push_back(bar + "] " + std::to_string(pct) + "%");
    } else {
        f.push_back(FormatTotalCompleted(T("IDS_TOTAL_COMPLETED"), pct));
        f.push_back(status);
    }
    // Most wanted first: a narrow terminal drops fields from the right.
    auto rate = m_meter.Rate();
    f.push_back(rate && done > 0 ? FormatRate(*rate, unit, m_words) : std::string());
    auto left = m_meter.SecondsLeft();
    f.push_back(left ? ShortDuration(*left) + " " + T("IDS_CLI_REMAINING") : std::string());
    const FoundCounts& found = op.found;
    const bool scan = driver.Kind() != OperationKind::Save && driver.Kind() != OperationKind::CreateImage;
    f.push_back(scan ? FormatFound(found.files.load(), found.deleted.load(), found.carved.load(), m_words) : std::string());
    f.push_back(T("IDS_ELAPSED_TIME") + FormatElapsed(uint64_t(m_meter.Elapsed(SteadySeconds()))));
    f.push_back(total > 0 || done > 0 ? FormatAmount(done, total, unit, m_words) : std::string());
    return f;
}

void CliFrontEnd::Paint(CScanDriver& driver, bool force) {
    if (m_quiet || m_questionOpen) return;
    ScanOperation& op = driver.Operation();
    const double now = SteadySeconds();
    const int64_t done = op.done.load(), total = op.total.load();
    m_meter.Sample(now, done, total, op.unitBytes.load());
    auto changed = m_rule.Update(done, total);
    std::string status;
    {
        std::lock_guard lk(m_mutex);
        status = m_status;
    }
    // A new stage names itself on a line of its own above the bar.
    bool newTitle = m_bar && status != m_paintedStatus;
    // The bar repaints when the shown percentage changes, and each second for the clock; plain
    // lines (no terminal) come every ten seconds.
    double sinceLast = now - m_lastPaint;
    if (!force && !newTitle && (m_bar ? !changed && sinceLast < 1.0 : sinceLast < 10.0)) return;
    m_lastPaint = now;
    if (m_bar) {
        if (newTitle) {
            ClearLine();
            m_paintedStatus = status;
            if (!status.empty()) std::fprintf(stderr, "%s\n", status.c_str());
        }
        std::string line = FitFields(Fields(driver, status, true), TerminalWidth() - 1);
        std::fprintf(stderr, "\r%s\x1b[K", line.c_str());
        std::fflush(stderr);
        m_painted = true;
    } else {
        std::string line = "kestrin:";
        for (const std::string& f : Fields(driver, status, false))
            if (!f.empty()) line += "  " + f;
        std::fprintf(stderr, "%s\n", line.c_str());
        std::fflush(stderr);
    }
}

void CliFrontEnd::ClearLine() {
    if (m_bar && m_painted) {
        std::fprintf(stderr, "\r\x1b[K");
        std::fflush(stderr);
        m_painted = false;
    }
}

std::vector<std::string> CliFrontEnd::Notices() {
    std::lock_guard lk(m_mutex);
    return m_notices;
}

double CliFrontEnd::ElapsedSeconds() const { return m_meter.Elapsed(SteadySeconds()); }

void CliFrontEnd::OnEnd() {}

// Progress arrives from the worker; the display is repainted by the front end's own loop, which
// applies the percentage rule, so the worker never waits on the terminal.
void CliFrontEnd::OnProgress() {}

void CliFrontEnd::OnSignatureScanStart() {}

void CliFrontEnd::OnStatus(const UserText& text) {
    std::string line = TextOf(text);
    std::lock_guard lk(m_mutex);
    m_status = std::move(line);
}

void CliFrontEnd::OnNotice(const UserText& text) {
    std::string line = TextOf(text);
    std::lock_guard lk(m_mutex);
    m_notices.push_back(std::move(line));
}

} // namespace kestrin::cli
