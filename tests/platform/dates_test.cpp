#include "platform/dates.h"

#include <gtest/gtest.h>

#include <ctime>

#include "support/child_process.h"

namespace qr {
namespace {

// A zone for the life of the guard; POSIX rules need no zone database. `reset` is destroyed
// last, so the library rereads TZ after the variable is restored.
struct Zone {
  struct Reset { ~Reset() { tzset(); } } reset;
  test::EnvVar tz;
  explicit Zone(const char* rule) : tz("TZ", std::string(rule)) { tzset(); }
};

LocalDateTime At(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  return LocalDateTime{y, mo, d, h, mi, s};
}

// An ordinary afternoon in a zone behind UTC is checked by the verification record's tests.
TEST(DateTextTest, NoTimeAtMidnightTwelveOClockAndTheMediumForm) {
  const std::pair<LocalDateTime, const char*> cases[] = {
      {At(2024, 1, 5), "1/5/2024"}, {At(2024, 1, 5, 0, 0, 1), "1/5/2024 12:00:01 AM"},
      {At(2024, 1, 5, 12, 0, 0), "1/5/2024 12:00:00 PM"},
      {At(987, 3, 4, 11, 30, 0), "3/4/0987 11:30:00 AM"}};
  for (const auto& [t, text] : cases) EXPECT_EQ(GeneralDate(t), text);
  EXPECT_EQ(MediumDate(At(2024, 1, 5, 13, 0, 0)), "05-Jan-24");
}

TEST(DateArithmeticTest, CalendarSecondsAndLocalTimesAcrossAClockChange) {
  EXPECT_EQ(SecondsBetween(At(2024, 1, 5), At(2024, 1, 4, 0, 0, 1)), -86399);
  EXPECT_EQ(SecondsBetween(At(2024, 2, 28), At(2024, 3, 1)), 2 * 86400) << "leap year";
  EXPECT_EQ(SecondsBetween(At(1969, 12, 31, 23, 59, 59), At(1970, 1, 1)), 1);
  auto fields = [](const LocalDateTime& l) {
    return std::to_string(l.year) + "-" + std::to_string(l.month) + "-" + std::to_string(l.day) +
           " " + std::to_string(l.hour) + ":" + std::to_string(l.minute) + ":" +
           std::to_string(l.second);
  };
  {
    Zone zone("UTC0");
    // Before 1970, a fraction still counts toward the earlier second.
    EXPECT_EQ(fields(ToLocal(Clock::from_time_t(-1) + std::chrono::milliseconds(500))),
              "1969-12-31 23:59:59");
  }
  Zone zone("EST5EDT,M3.2.0,M11.1.0");
  // A night on which the clocks change is still a calendar day; summer time is an hour less.
  EXPECT_EQ(SecondsBetween(At(2024, 3, 10), At(2024, 3, 11)), 86400);
  EXPECT_EQ(fields(LocalFromFileTime(FileTimeFromUnix(1720000000, 0))), "2024-7-3 5:46:40");
}

}  // namespace
}  // namespace qr
