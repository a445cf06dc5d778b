#pragma once
// How progress is shown: done ÷ total × 100 truncated, 99 or more shown as 100, repainted only
// when the shown value changes; start and elapsed times as " : %H:%M:%S"; the amount done, the
// rate, the time left and what was found so far.
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

namespace kestrin {

// The percentage shown for done/total; a total of 0 (or less) shows 0.
unsigned ShownPercent(int64_t done, int64_t total);

// Remembers the last value shown; Update returns the new value only when it differs.
class ProgressRule {
public:
    std::optional<unsigned> Update(int64_t done, int64_t total);
    std::optional<unsigned> Last() const { return m_last; }
    void Reset() { m_last.reset(); }

private:
    std::optional<unsigned> m_last;
};

// `totalCompleted` (the "IDS_TOTAL_COMPLETED" text) followed by ": %u%%" for the window, or
// ": %02u%%" for the status bar.
std::string FormatTotalCompleted(const std::string& totalCompleted, unsigned percent, bool statusBar = false);
// " : %H:%M:%S" of a local clock time (the start time).
std::string FormatClockTime(std::time_t t);
// " : %H:%M:%S" of a duration; hours go past 23 rather than wrap.
std::string FormatElapsed(uint64_t seconds);

// Timing of one operation and of its current stage: elapsed time without the time a question
// was open, the stage's rate, and an estimate of the time left once the rate has settled.
// Times are seconds on any steady clock, handed in so that the rule can be tested.
class ProgressMeter {
public:
    void Start(double now);
    // Time between Pause and Resume (a question was open) counts nowhere.
    void Pause(double now);
    void Resume(double now);
    bool Paused() const { return m_pausedAt >= 0; }
    // The operation's elapsed time, without pauses.
    double Elapsed(double now) const;
    // Feeds the current stage's progress. A new stage (another total or unit, or done going
    // back) starts its rate and estimate afresh.
    void Sample(double now, int64_t done, int64_t total, uint32_t unitBytes);
    // Units per second over the last few seconds; none until the stage has run a moment.
    std::optional<double> Rate() const { return m_rate; }
    // Seconds left, only once the stage has run a few seconds at a steady rate; stays shown
    // from then on until the stage ends.
    std::optional<uint64_t> SecondsLeft() const;

private:
    double Active(double now) const;
    struct Point {
        double t;
        int64_t done;
    };
    double m_start = 0;
    double m_pausedTotal = 0;
    double m_pausedAt = -1;
    double m_stageStart = 0;
    int64_t m_done = 0, m_total = 0;
    uint32_t m_unitBytes = 0;
    Point m_window[16]{};
    size_t m_points = 0;
    double m_rates[3]{};
    size_t m_rateCount = 0;
    double m_lastRateAt = -1;
    std::optional<double> m_rate;
    bool m_stable = false;
};

// The words the progress lines are made of, in the user's language.
struct ProgressWords {
    std::string of = "of";
    std::string records = "records";
    std::string recordsPerSecond = "records/s";
    std::string files = "files";
    std::string deleted = "deleted";
    std::string carved = "carved";
};

// A byte count for people: "512 bytes" as "512 B", then KB, MB, GB, TB with one decimal.
std::string FormatBytesShort(uint64_t bytes);
// How far the stage is: "1.2 GB of 4.0 GB" for bytes, "12,345 of 100,000 records" for items.
std::string FormatAmount(int64_t done, int64_t total, uint32_t unitBytes, const ProgressWords& w);
// The rate: "123.4 MB/s" for bytes, "5,432 records/s" for items (never with a prefix).
std::string FormatRate(double unitsPerSecond, uint32_t unitBytes, const ProgressWords& w);
// "1,312 files (56 deleted, 78 carved)": every file found, and which of them are deleted or carved.
std::string FormatFound(uint64_t fileSystemFiles, uint64_t deleted, uint64_t carved, const ProgressWords& w);

} // namespace kestrin
