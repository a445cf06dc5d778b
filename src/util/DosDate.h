#pragma once
// MS-DOS dates (day in bits 0-4, month in 5-8, years since 1980 in 9-15); 0 means unknown.
#include <cstdint>
#include <string>

namespace kestrin {

// From a Windows FILETIME (100 ns ticks since 1601-01-01, UTC). Dates before 1980 or after 2107
// cannot be expressed and give 0.
uint16_t DosDateFromFileTime(uint64_t fileTime);
// From seconds since the Unix epoch (UTC).
uint16_t DosDateFromUnix(int64_t seconds);
// "%m/%d/%y", empty for 0.
std::string FormatDosDateShort(uint16_t dosDate);
// "YYYY-MM-DD", empty for 0.
std::string FormatDosDateIso(uint16_t dosDate);
// Midnight UTC of the date as Unix seconds; 0 for date 0.
int64_t UnixFromDosDate(uint16_t dosDate);

} // namespace kestrin
