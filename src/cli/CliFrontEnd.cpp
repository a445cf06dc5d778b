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

std::string Rate(double perSecond, const char* unit) {
    char b[48];
    if (perSecond >= 1e9)
        std::snprintf(b, sizeof b, "%.1f G%s", perSecond / 1e9, unit);
    else if (perSecond >= 1e6)
        std::snprintf(b, sizeof b, "%.1f M%s", perSecond / 1e6, unit);
    else if (perSecond >= 1e3)
        std::snprintf(b, sizeof b, "%.1f k%s", perSecond / 1e3, unit);
    else
        std::snprintf(b, sizeof b, "%.0f %s", perSecond, unit);
    return b;
}

// Display text is UTF-8: count code points, not bytes, when fitting it to the terminal.
size_t DisplayWidth(const std::string& s) {
    size_t n = 0;
    for (unsigned char c : s)
        if ((c & 0xC0) != 0x80) ++n;
    return n;
}

std::string CutToWidth(const std::string& s, size_t width) {
    size_t n = 0;
    for (size_t i = 0; i < s.size(); ++i) {
        if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) {
            if (n == width) return s.substr(0, i);
            ++n;
        }
    }
    return s;
}

} // namespace

CliFrontEnd::CliFrontEnd(bool quiet, uint32_t sectorSize)
    : m_quiet(quiet), m_bar(!quiet && platform::IsTerminal(STDERR_FILENO)), m_sectorSize(sectorSize ? sectorSize : 512) {
    m_start = m_stageStart = m_lastPaint = std::chrono::steady_clock::now();
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
    m_stageStart = std::chrono::steady_clock::now();
    while (!driver.WaitFor(100)) {
        if (g_interrupts) {
            g_interrupts = 0;
            if (terminal) {
                // The worker waits at its next state poll while the question is open.
                driver.BeginCancelQuestion();
                m_questionOpen = true;
                auto asked = std::chrono::steady_clock::now();
                bool yes = Ask(T("IDS_STOP_THIS_PROCESS"));
                // The time under the question is not time the stage worked: keep the rate true.
                m_stageStart += std::chrono::steady_clock::now() - asked;
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

void CliFrontEnd::Paint(CScanDriver& driver, bool force) {
    if (m_quiet || m_questionOpen) return;
    ScanOperation& op = driver.Operation();
    auto now = std::chrono::steady_clock::now();
    bool signature = m_signatureStage.load();
    if (signature != m_paintedSignatureStage) {
        // A new stage: its own rate and estimate, and a fresh percentage.
        m_paintedSignatureStage = signature;
        m_stageStart = now;
        m_rule.Reset();
    }
    int64_t done = op.done.load(), total = op.total.load();
    if (signature && op.endSector.load() > 0) {
        // The signature loop publishes the sector it is at and the end of its range.
        uint64_t end = op.endSector.load(), cur = op.currentSector.load(), first = driver.FirstSector();
        done = cur > first ? int64_t(cur - first) : 0;
        total = end > first ? int64_t(end - first) : 0;
    }
    auto changed = m_rule.Update(done, total);
    double sinceLast = std::chrono::duration<double>(now - m_lastPaint).count();
    // The bar repaints when the shown percentage changes, and each second for the clock; plain
    // lines (no terminal) come every ten seconds.
    if (!force && (m_bar ? !changed && sinceLast < 1.0 : sinceLast < 10.0)) return;
    m_lastPaint = now;
    unsigned pct = m_rule.Last().value_or(0);
    double elapsed = std::chrono::duration<double>(now - m_start).count();
    double stageElapsed = std::chrono::duration<double>(now - m_stageStart).count();

    std::string status;
    {
        std::lock_guard lk(m_mutex);
        status = m_status;
    }
    std::string rate, left;
    if (stageElapsed > 0.5 && done > 0) {
        double perSec = double(done) / stageElapsed;
        rate = signature ? Rate(perSec * m_sectorSize, "B/s") : Rate(perSec, "") + T("IDS_CLI_RECORDS_PER_SEC");
        if (total > done) {
            double rest = double(total - done) / perSec;
            left = FormatElapsed(uint64_t(rest)).substr(3) + " " + T("IDS_CLI_REMAINING");
        }
    }
    std::string pctText = FormatTotalCompleted(T("IDS_TOTAL_COMPLETED"), pct);
    std::string el = T("IDS_ELAPSED_TIME") + FormatElapsed(uint64_t(elapsed));
    if (m_bar) {
        size_t width = TerminalWidth();
        const size_t barCells = 20;
        std::string bar = "[";
        for (size_t i = 0; i < barCells; ++i) bar += i * 100 < pct * barCells ? "#" : ".";
        bar += "] ";
        std::string line = bar + pctText + "  " + status;
        if (!rate.empty()) line += "  " + rate;
        line += "  " + el;
        if (!left.empty()) line += "  " + left;
        line = CutToWidth(line, width - 1);
        std::fprintf(stderr, "\r%s\x1b[K", line.c_str());
        std::fflush(stderr);
        m_painted = true;
        m_lastWidth = DisplayWidth(line);
    } else {
        std::string line = "kestrin: " + pctText + "  " + status;
        if (!rate.empty()) line += "  " + rate;
        line += "  " + el;
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

double CliFrontEnd::ElapsedSeconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
}

void CliFrontEnd::OnEnd() {}

// Progress arrives from the worker; the display is repainted by the front end's own loop, which
// applies the percentage rule, so the worker never waits on the terminal.
void CliFrontEnd::OnProgress() {}

void CliFrontEnd::OnSignatureScanStart() { m_signatureStage = true; }

void CliFrontEnd::OnStatus(const UserText& text) {
    std::string line = TextOf(text);
    std::lock_guard lk(m_mutex);
    m_status = std::move(line);
    m_signatureStage = false;
}

void CliFrontEnd::OnNotice(const UserText& text) {
    std::string line = TextOf(text);
    std::lock_guard lk(m_mutex);
    m_notices.push_back(std::move(line));
}

} // namespace kestrin::cli
