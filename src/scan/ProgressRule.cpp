#include "scan/ProgressRule.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "util/Text.h"

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

namespace kestrin {

namespace {
// The rate is measured over about this many seconds of the stage's recent progress.
constexpr double kRateWindowSeconds = 8.0;
// The estimate is shown once the stage has run this long and its last three rates, taken a
// second apart, lie within this ratio of each other.
constexpr double kSettleSeconds = 3.0;
constexpr double kSteadyRatio = 1.25;
} // namespace

void ProgressMeter::Start(double now) {
    *this = ProgressMeter();
    m_start = now;
    m_stageStart = now;
}

void ProgressMeter::Pause(double now) {
    if (m_pausedAt < 0) m_pausedAt = now;
}

void ProgressMeter::Resume(double now) {
    if (m_pausedAt < 0) return;
    m_pausedTotal += now - m_pausedAt;
    m_pausedAt = -1;
}

double ProgressMeter::Active(double now) const {
    double paused = m_pausedTotal + (m_pausedAt >= 0 ? now - m_pausedAt : 0);
    return now - paused;
}

double ProgressMeter::Elapsed(double now) const {
    double e = Active(now) - m_start;
    return e > 0 ? e : 0;
}

void ProgressMeter::Sample(double now, int64_t done, int64_t total, uint32_t unitBytes) {
    const double at = Active(now);
    if (total != m_total || unitBytes != m_unitBytes || done < m_done) {
        m_stageStart = at;
        m_points = 0;
        m_rateCount = 0;
        m_lastRateAt = -1;
        m_rate.reset();
        m_stable = false;
    }
    m_done = done;
    m_total = total;
    m_unitBytes = unitBytes;
    if (m_pausedAt >= 0) return;

    if (m_points == 0 || at - m_window[m_points - 1].t >= 0.25) {
        if (m_points == std::size(m_window)) {
            std::copy(m_window + 1, m_window + m_points, m_window);
            --m_points;
        }
        m_window[m_points++] = {at, done};
    } else {
        m_window[m_points - 1].done = done; // the latest position, at nearly the same time
    }
    while (m_points > 2 && m_window[m_points - 1].t - m_window[1].t >= kRateWindowSeconds) {
        std::copy(m_window + 1, m_window + m_points, m_window);
        --m_points;
    }
    const Point& first = m_window[0];
    const Point& last = m_window[m_points - 1];
    if (m_points < 2 || last.t - first.t < 1.0) return;
    m_rate = double(last.done - first.done) / (last.t - first.t);

    if (m_lastRateAt < 0 || at - m_lastRateAt >= 1.0) {
        m_lastRateAt = at;
        std::copy(m_rates + 1, m_rates + std::size(m_rates), m_rates);
        m_rates[std::size(m_rates) - 1] = *m_rate;
        if (m_rateCount < std::size(m_rates)) ++m_rateCount;
    }
    if (!m_stable && at - m_stageStart >= kSettleSeconds && m_rateCount == std::size(m_rates)) {
        double lo = *std::min_element(std::begin(m_rates), std::end(m_rates));
        double hi = *std::max_element(std::begin(m_rates), std::end(m_rates));
        m_stable = lo > 0 && hi <= lo * kSteadyRatio;
    }
}

std::optional<uint64_t> ProgressMeter::SecondsLeft() const {
    if (!m_stable || !m_rate || *m_rate <= 0 || m_total <= m_done) return std::nullopt;
    return uint64_t(double(m_total - m_done) / *m_rate + 0.5);
}

std::string FormatBytesShort(uint64_t bytes) {
    static const char* kUnits[] = {"KB", "MB", "GB", "TB", "PB"};
    if (bytes < 1024) return std::to_string(bytes) + " B";
    double v = double(bytes) / 1024.0;
    size_t u = 0;
    while (v >= 1024.0 && u + 1 < std::size(kUnits)) {
        v /= 1024.0;
        ++u;
    }
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.1f %s", v, kUnits[u]);
    return buf;
}

std::string FormatAmount(int64_t done, int64_t total, uint32_t unitBytes, const ProgressWords& w) {
    uint64_t d = done > 0 ? uint64_t(done) : 0, t = total > 0 ? uint64_t(total) : 0;
    if (unitBytes) {
        // Saturate rather than wrap: the counts come from the media's size.
        auto bytes = [&](uint64_t n) { return n > UINT64_MAX / unitBytes ? UINT64_MAX : n * unitBytes; };
        std::string s = FormatBytesShort(bytes(d));
        if (t) s += " " + w.of + " " + FormatBytesShort(bytes(t));
        return s;
    }
    std::string s = WithThousands(d);
    if (t) s += " " + w.of + " " + WithThousands(t);
    return s + " " + w.records;
}

std::string FormatRate(double unitsPerSecond, uint32_t unitBytes, const ProgressWords& w) {
    if (!(unitsPerSecond > 0)) unitsPerSecond = 0;
    char buf[48];
    if (unitBytes) {
        double mb = unitsPerSecond * unitBytes / (1024.0 * 1024.0);
        std::snprintf(buf, sizeof buf, mb >= 100 ? "%.0f MB/s" : "%.1f MB/s", mb);
        return buf;
    }
    return WithThousands(uint64_t(unitsPerSecond + 0.5)) + " " + w.recordsPerSecond;
}

std::string FormatFound(uint64_t fileSystemFiles, uint64_t deleted, uint64_t carved, const ProgressWords& w) {
    return WithThousands(fileSystemFiles + carved) + " " + w.files + " (" + WithThousands(deleted) + " " + w.deleted +
           ", " + WithThousands(carved) + " " + w.carved + ")";
}

} // namespace kestrin
