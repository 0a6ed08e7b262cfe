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

std::string Fields(const LocalDateTime& t) {
  return std::to_string(t.year) + "-" + std::to_string(t.month) + "-" + std::to_string(t.day) +
         " " + std::to_string(t.hour) + ":" + std::to_string(t.minute) + ":" +
         std::to_string(t.second);
}

TEST(DateTextTest, TwelveHourClockNoTimeAtMidnightAndTheMediumForm) {
  EXPECT_EQ(GeneralDate(At(2024, 1, 5)), "1/5/2024");
  EXPECT_EQ(GeneralDate(At(2024, 1, 5, 0, 0, 1)), "1/5/2024 12:00:01 AM");
  EXPECT_EQ(GeneralDate(At(2024, 1, 5, 11, 59, 59)), "1/5/2024 11:59:59 AM");
  EXPECT_EQ(GeneralDate(At(2024, 1, 5, 12, 0, 0)), "1/5/2024 12:00:00 PM");
  EXPECT_EQ(GeneralDate(At(2024, 12, 31, 13, 5, 9)), "12/31/2024 1:05:09 PM");
  EXPECT_EQ(GeneralDate(At(987, 3, 4, 0, 30, 0)), "3/4/0987 12:30:00 AM");
  // The medium form: two-digit day, English month, two-digit year.
  EXPECT_EQ(MediumDate(At(2026, 11, 15)), "15-Nov-26");
  EXPECT_EQ(MediumDate(At(2024, 1, 5, 13, 0, 0)), "05-Jan-24");
  EXPECT_EQ(MediumDate(At(2000, 5, 31)), "31-May-00");
}

TEST(SecondsBetweenTest, CalendarArithmetic) {
  EXPECT_EQ(SecondsBetween(At(2024, 1, 5, 10), At(2024, 1, 5, 10, 0, 1)), 1);
  EXPECT_EQ(SecondsBetween(At(2024, 1, 5), At(2024, 1, 4)), -86400);
  EXPECT_EQ(SecondsBetween(At(2024, 2, 28), At(2024, 3, 1)), 2 * 86400) << "leap year";
  EXPECT_EQ(SecondsBetween(At(2023, 2, 28), At(2023, 3, 1)), 86400);
  EXPECT_EQ(SecondsBetween(At(1969, 12, 31, 23, 59, 59), At(1970, 1, 1)), 1);
  // A night on which the clocks change is still a calendar day.
  Zone zone("EST5EDT,M3.2.0,M11.1.0");
  EXPECT_EQ(SecondsBetween(At(2024, 3, 10), At(2024, 3, 11)), 86400);
}

TEST(LocalTimeTest, FileTimesAndTimePointsInTheLocalZone) {
  // 2024-01-05 13:14:15.9999999 UTC: the fraction is dropped, never rounded up.
  const FileTime t = FileTimeFromUnix(1704460455, 999999900);
  {
    Zone zone("UTC0");
    EXPECT_EQ(Fields(LocalFromFileTime(t)), "2024-1-5 13:14:15");
    EXPECT_EQ(Fields(ToLocal(Clock::from_time_t(1704460455) + std::chrono::milliseconds(999))),
              "2024-1-5 13:14:15");
    // Before 1970, a fraction still counts toward the earlier second.
    EXPECT_EQ(Fields(ToLocal(Clock::from_time_t(-1) + std::chrono::milliseconds(500))),
              "1969-12-31 23:59:59");
  }
  Zone zone("EST5EDT,M3.2.0,M11.1.0");
  EXPECT_EQ(Fields(LocalFromFileTime(t)), "2024-1-5 8:14:15");
  // Summer time: four hours behind.
  EXPECT_EQ(Fields(LocalFromFileTime(FileTimeFromUnix(1720000000, 0))), "2024-7-3 5:46:40");
}

}  // namespace
}  // namespace qr
