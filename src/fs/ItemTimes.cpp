#include "fs/ItemTimes.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <stdexcept>

#include "fs/CNode.h"

namespace kestrin {

namespace {

constexpr int64_t kTicksPerSecond = 10'000'000;
// Seconds from 1601-01-01 to 1970-01-01.
constexpr int64_t kUnixEpochSeconds = 11'644'473'600;

// Days from 1970-01-01 to the given civil date (proleptic Gregorian calendar).
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = unsigned(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + int64_t(doe) - 719468;
}

void CivilFromDays(int64_t z, int64_t& y, unsigned& m, unsigned& d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = unsigned(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y = int64_t(yoe) + era * 400 + (m <= 2);
}

int64_t FloorDiv(int64_t a, int64_t b) { return a / b - (a % b != 0 && (a < 0) != (b < 0)); }

} // namespace

FileTime FromNtfsTime(uint64_t ticks) {
    return ticks == 0 || ticks > uint64_t(INT64_MAX) ? kNoTime : FileTime(ticks);
}

FileTime FromDosDateTime(uint16_t date, uint16_t time, uint8_t tenMs) {
    const unsigned day = date & 0x1F, month = (date >> 5) & 0x0F, year = 1980 + (date >> 9);
    const unsigned seconds = (time & 0x1F) * 2, minutes = (time >> 5) & 0x3F, hours = time >> 11;
    if (date == 0 || day == 0 || month == 0 || month > 12 || hours > 23 || minutes > 59 || seconds > 59 || tenMs > 199)
        return kNoTime;
    const int64_t unix = DaysFromCivil(year, month, day) * 86400 + hours * 3600 + minutes * 60 + seconds;
    return (unix + kUnixEpochSeconds) * kTicksPerSecond + int64_t(tenMs) * 100'000;
}

FileTime FromExFatTime(uint32_t timestamp, uint8_t tenMs, uint8_t utcOffset) {
    FileTime t = FromDosDateTime(uint16_t(timestamp >> 16), uint16_t(timestamp & 0xFFFF), tenMs);
    if (t == kNoTime || !(utcOffset & 0x80)) return t;
    // Seven-bit two's complement, in quarter hours east of UTC.
    const int quarters = (utcOffset & 0x40) ? int(utcOffset & 0x7F) - 128 : int(utcOffset & 0x7F);
    return t - int64_t(quarters) * 15 * 60 * kTicksPerSecond;
}

void KeptTimes::LimitRecords(uint64_t count) {
    // Room for every record at once, so that growing never moves what was kept; the memory is
    // only touched as the records come.
    try {
        m_byRecord.clear();
        m_byRecord.reserve(size_t(count));
        m_recordLimit = count;
    } catch (const std::exception&) {
        m_recordLimit = 0;
    }
}

void KeptTimes::SetRecord(uint32_t record, const ItemTimes& times) {
    if (record >= m_recordLimit) return;
    if (record >= m_byRecord.size()) m_byRecord.resize(size_t(record) + 1);
    m_byRecord[record] = times;
}

void KeptTimes::Add(const CNode* node, const ItemTimes& times) {
    m_byNode.emplace_back(node, times);
    m_sealed = false;
}

void KeptTimes::Drop(const CNode* node) {
    if (!m_byNode.empty() && m_byNode.back().first == node) m_byNode.pop_back();
}

void KeptTimes::Move(const CNode* to, const CNode* from) {
    // The entry moved is the newest for `to`: Seal keeps the newest of equal nodes.
    if (!m_byNode.empty() && m_byNode.back().first == from) {
        m_byNode.back().first = to;
        m_sealed = false;
    }
}

void KeptTimes::Seal() {
    if (m_sealed) return;
    auto less = [](const auto& a, const auto& b) { return std::less<const CNode*>()(a.first, b.first); };
    std::stable_sort(m_byNode.begin(), m_byNode.end(), less);
    // Of entries for the same node the last added counts.
    size_t out = 0;
    for (size_t i = 0; i < m_byNode.size(); ++i) {
        if (i + 1 < m_byNode.size() && m_byNode[i + 1].first == m_byNode[i].first) continue;
        m_byNode[out++] = m_byNode[i];
    }
    m_byNode.resize(out);
    m_sealed = true;
}

bool KeptTimes::Find(const CNode& node, ItemTimes& out) const {
    if (node.carved) return false;
    if (!m_byRecord.empty() && node.location != 0 && node.startOffset == 0 && node.recordId < m_byRecord.size() &&
        m_byRecord[node.recordId].Any()) {
        out = m_byRecord[node.recordId];
        return true;
    }
    if (m_byNode.empty() || !m_sealed) return false;
    auto it = std::lower_bound(m_byNode.begin(), m_byNode.end(), &node, [](const auto& e, const CNode* n) {
        return std::less<const CNode*>()(e.first, n);
    });
    if (it == m_byNode.end() || it->first != &node) return false;
    out = it->second;
    return true;
}

int64_t UnixSeconds(FileTime t) { return FloorDiv(t, kTicksPerSecond) - kUnixEpochSeconds; }

timespec ToTimespec(FileTime t) {
    timespec ts{};
    ts.tv_sec = time_t(UnixSeconds(t));
    ts.tv_nsec = long((t - FloorDiv(t, kTicksPerSecond) * kTicksPerSecond) * 100);
    return ts;
}

std::string FormatIso8601(FileTime t) {
    if (t == kNoTime) return {};
    const int64_t secs = FloorDiv(t, kTicksPerSecond);
    const int64_t ticks = t - secs * kTicksPerSecond;
    const int64_t days = FloorDiv(secs - kUnixEpochSeconds, 86400);
    const int64_t inDay = secs - kUnixEpochSeconds - days * 86400;
    int64_t y = 0;
    unsigned m = 0, d = 0;
    CivilFromDays(days, y, m, d);
    char buf[64];
    int n = std::snprintf(buf, sizeof buf, "%04lld-%02u-%02uT%02lld:%02lld:%02lld", (long long)y, m, d,
                          (long long)(inDay / 3600), (long long)(inDay / 60 % 60), (long long)(inDay % 60));
    if (ticks) {
        char frac[16];
        std::snprintf(frac, sizeof frac, "%07lld", (long long)ticks);
        int len = 7;
        while (len > 0 && frac[len - 1] == '0') --len;
        n += std::snprintf(buf + n, sizeof buf - size_t(n), ".%.*s", len, frac);
    }
    std::snprintf(buf + n, sizeof buf - size_t(n), "Z");
    return buf;
}

} // namespace kestrin
