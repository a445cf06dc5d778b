#pragma once
// The command line's side of a running operation: the progress display on stderr (a bar on a
// terminal, periodic plain lines otherwise, nothing when quiet), Ctrl-C, and the Yes/No
// questions. It plays the part of the progress window for the scan driver.
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "scan/ProgressRule.h"
#include "job/ScanOperation.h"

namespace kestrin {
class CScanDriver;
}

namespace kestrin::cli {

class CliFrontEnd final : public IScanEvents {
public:
    explicit CliFrontEnd(bool quiet);
    ~CliFrontEnd() override;

    // True when questions can be asked: standard input and standard error are a terminal.
    static bool HaveTerminal();
    // Asks `question` with " (y/N) " on the terminal; false on anything but yes, on end of input
    // and when there is no terminal. A Ctrl-C while asked counts as yes.
    bool Ask(const std::string& question);

    // Runs the started operation of `driver` to its end: repaints the display, turns Ctrl-C into
    // the cancel question (terminal) or an immediate cancel (no terminal).
    void RunToEnd(CScanDriver& driver);
    // Clears the bar line (before other output).
    void ClearLine();
    // Remarks collected during the run (stages not available and the like).
    std::vector<std::string> Notices();
    double ElapsedSeconds() const;

    void OnEnd() override;
    void OnProgress() override;
    void OnSignatureScanStart() override;
    void OnStatus(const UserText& text) override;
    void OnNotice(const UserText& text) override;

private:
    void Paint(CScanDriver& driver, bool force);
    // The fields of the progress line, most wanted first; empty ones are not shown yet.
    std::vector<std::string> Fields(CScanDriver& driver, const std::string& status, bool withBar);

    bool m_quiet;
    bool m_bar;
    std::mutex m_mutex;
    std::string m_status;
    std::string m_paintedStatus;
    std::vector<std::string> m_notices;
    std::atomic<bool> m_questionOpen{false};
    ProgressRule m_rule;
    ProgressMeter m_meter;
    ProgressWords m_words;
    double m_lastPaint = 0;
    bool m_painted = false;
};

// Joins `fields` with two spaces, leaving out every field from the first one that would make the
// line wider than `width` columns (code points): fields are dropped whole from the right, never
// cut. Empty fields are skipped.
std::string FitFields(const std::vector<std::string>& fields, size_t width);

} // namespace kestrin::cli
