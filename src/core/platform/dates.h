#pragma once
// Dates as the program shows them: one "General Date" form and one "Medium Date" form for the
// whole program, in local time.
#include <chrono>
#include <cstdint>
#include <string>

#include "platform/find_data.h"

namespace qr {

using Clock = std::chrono::system_clock;
using TimePoint = Clock::time_point;

struct LocalDateTime {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};

LocalDateTime ToLocal(TimePoint t);
// A file time in local time, milliseconds dropped.
LocalDateTime LocalFromFileTime(FileTime t);
// M/D/YYYY h:mm:ss AM (US English); the time is left out at exact midnight.
std::string GeneralDate(const LocalDateTime& d);
// DD-Mon-YY, for example 15-Nov-26.
std::string MediumDate(const LocalDateTime& d);
// Whole seconds from a to b (negative when b is earlier), as calendar-time arithmetic.
int64_t SecondsBetween(const LocalDateTime& a, const LocalDateTime& b);

}  // namespace qr
