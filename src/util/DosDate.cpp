#include "util/DosDate.h"

#include <cstdio>

namespace kestrin {
namespace {

// Days since 1970-01-01 to civil date (Howard Hinnant's algorithm).
void CivilFromDays(int64_t z, int& y, unsigned& m, unsigned& d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = unsigned(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t yy = int64_t(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y = int(yy + (m <= 2));
}

int64_t DaysFromCivil(int y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = unsigned(y - era * 400);
    const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + int64_t(doe) - 719468;
}

} // namespace

uint16_t DosDateFromUnix(int64_t seconds) {
    int64_t days = seconds >= 0 ? seconds / 86400 : (seconds - 86399) / 86400;
    int y;
    unsigned m, d;
    CivilFromDays(days, y, m, d);
    if (y < 1980 || y > 2107) return 0;
    return uint16_t((y - 1980) << 9 | m << 5 | d);
}

uint16_t DosDateFromFileTime(uint64_t fileTime) {
    constexpr uint64_t kTicksPerSecond = 10000000ULL;
    constexpr int64_t kEpochDiff = 11644473600LL; // seconds from 1601 to 1970
    return DosDateFromUnix(int64_t(fileTime / kTicksPerSecond) - kEpochDiff);
}

std::string FormatDosDateShort(uint16_t v) {
    if (!v) return {};
    char buf[16];
    std::snprintf(buf, sizeof buf, "%02u/%02u/%02u", (v >> 5) & 15u, v & 31u, (1980u + (v >> 9)) % 100u);
    return buf;
}

std::string FormatDosDateIso(uint16_t v) {
    if (!v) return {};
    char buf[16];
    std::snprintf(buf, sizeof buf, "%04u-%02u-%02u", 1980u + (v >> 9), (v >> 5) & 15u, v & 31u);
    return buf;
}

int64_t UnixFromDosDate(uint16_t v) {
    if (!v) return 0;
    unsigned m = (v >> 5) & 15u, d = v & 31u;
    if (m < 1 || m > 12 || d < 1) return 0;
    return DaysFromCivil(1980 + (v >> 9), m, d) * 86400;
}

} // namespace kestrin
