#include "platform/dates.h"

#include <ctime>

namespace qr {

namespace {

LocalDateTime FromTimeT(time_t t) {
  struct tm parts {};
  if (localtime_r(&t, &parts) == nullptr) return {};
  LocalDateTime d;
  d.year = parts.tm_year + 1900;
  d.month = parts.tm_mon + 1;
  d.day = parts.tm_mday;
  d.hour = parts.tm_hour;
  d.minute = parts.tm_min;
  d.second = parts.tm_sec;
  return d;
}

std::string TwoDigits(int n) {
  std::string s = std::to_string(n);
  return s.size() < 2 ? "0" + s : s;
}

std::string FourDigits(int n) {
  std::string s = std::to_string(n);
  while (s.size() < 4) s.insert(s.begin(), '0');
  return s;
}

}  // namespace

LocalDateTime ToLocal(TimePoint t) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(t.time_since_epoch()).count();
  return FromTimeT(static_cast<time_t>(seconds));
}

LocalDateTime LocalFromFileTime(FileTime t) {
  int64_t seconds = 0;
  uint32_t nanoseconds = 0;
  UnixFromFileTime(t, seconds, nanoseconds);
  return FromTimeT(static_cast<time_t>(seconds));
}

std::string GeneralDate(const LocalDateTime& d) {
  std::string out =
      std::to_string(d.month) + "/" + std::to_string(d.day) + "/" + FourDigits(d.year);
  if (d.hour == 0 && d.minute == 0 && d.second == 0) return out;
  const int hour12 = d.hour % 12 == 0 ? 12 : d.hour % 12;
  out += " " + std::to_string(hour12) + ":" + TwoDigits(d.minute) + ":" + TwoDigits(d.second) +
         (d.hour < 12 ? " AM" : " PM");
  return out;
}

std::string MediumDate(const LocalDateTime& d) {
  static const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const char* month = d.month >= 1 && d.month <= 12 ? kMonths[d.month - 1] : "???";
  const int yy = ((d.year % 100) + 100) % 100;
  return TwoDigits(d.day) + "-" + month + "-" + TwoDigits(yy);
}

int64_t SecondsBetween(const LocalDateTime& a, const LocalDateTime& b) {
  // Both sides read as UTC: the difference is then pure calendar arithmetic, untouched by any
  // clock change of the local zone in between.
  auto seconds = [](const LocalDateTime& d) {
    struct tm parts {};
    parts.tm_year = d.year - 1900;
    parts.tm_mon = d.month - 1;
    parts.tm_mday = d.day;
    parts.tm_hour = d.hour;
    parts.tm_min = d.minute;
    parts.tm_sec = d.second;
    return static_cast<int64_t>(timegm(&parts));
  };
  return seconds(b) - seconds(a);
}

}  // namespace qr
