#include "scan/ProgressRule.h"

#include <cstdio>

namespace kestrin {

unsigned ShownPercent(int64_t done, int64_t total) {
    if (total <= 0 || done <= 0) return 0;
    double p = double(done) / double(total) * 100.0;
    // Truncated like the conversion to an unsigned integer; anything past 99 reads as done.
    if (p >= 99.0) return 100;
    return unsigned(p);
}

std::optional<unsigned> ProgressRule::Update(int64_t done, int64_t total) {
    unsigned p = ShownPercent(done, total);
    if (m_last && *m_last == p) return std::nullopt;
    m_last = p;
    return p;
}

std::string FormatTotalCompleted(const std::string& totalCompleted, unsigned percent, bool statusBar) {
    char buf[32];
    std::snprintf(buf, sizeof buf, statusBar ? ": %02u%%" : ": %u%%", percent);
    return totalCompleted + buf;
}

std::string FormatClockTime(std::time_t t) {
    std::tm tm{};
#ifdef _WIN32
    localtime_s(&tm, &t);
#else
    localtime_r(&t, &tm);
#endif
    char buf[32];
    if (std::strftime(buf, sizeof buf, " : %H:%M:%S", &tm) == 0) return {};
    return buf;
}

std::string FormatElapsed(uint64_t seconds) {
    char buf[48];
    std::snprintf(buf, sizeof buf, " : %02llu:%02llu:%02llu", (unsigned long long)(seconds / 3600),
                  (unsigned long long)(seconds / 60 % 60), (unsigned long long)(seconds % 60));
    return buf;
}

} // namespace kestrin
