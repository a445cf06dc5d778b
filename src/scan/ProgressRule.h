#pragma once
// How progress is shown: done ÷ total × 100 truncated, 99 or more shown as 100, repainted only
// when the shown value changes; start and elapsed times as " : %H:%M:%S".
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

} // namespace kestrin
