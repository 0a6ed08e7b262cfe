#include "platform/dates.h"

#include <gtest/gtest.h>

#include <ctime>
#include <memory>

#include "support/child_process.h"

namespace qr {
namespace {

// A zone for the life of the guard; POSIX rules need no zone database.
class Zone {
 public:
  explicit Zone(const char* tz) : var_(std::make_unique<test::EnvVar>("TZ", std::string(tz))) {
    tzset();
  }
  ~Zone() {
    var_.reset();
    tzset();
  }

 private:
  std::unique_ptr<test::EnvVar> var_;
};

LocalDateTime At(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  LocalDateTime t;
  t.year = y;
  t.month = mo;
  t.day = d;
  t.hour = h;
  t.minute = mi;
  t.second = s;
  return t;
}

void ExpectFields(const LocalDateTime& t, const LocalDateTime& want) {
  EXPECT_EQ(t.year, want.year);
  EXPECT_EQ(t.month, want.month);
  EXPECT_EQ(t.day, want.day);
  EXPECT_EQ(t.hour, want.hour);
  EXPECT_EQ(t.minute, want.minute);
  EXPECT_EQ(t.second, want.second);
}

TEST(GeneralDateTest, TwelveHourClockAndNoTimeAtMidnight) {
  EXPECT_EQ(GeneralDate(At(2024, 1, 5)), "1/5/2024");
  EXPECT_EQ(GeneralDate(At(2024, 1, 5, 0, 0, 1)), "1/5/2024 12:00:01 AM");
  EXPECT_EQ(GeneralDate(At(2024, 1, 5, 1, 0, 0)), "1/5/2024 1:00:00 AM");
  EXPECT_EQ(GeneralDate(At(2024, 1, 5, 11, 59, 59)), "1/5/2024 11:59:59 AM");
  EXPECT_EQ(GeneralDate(At(2024, 1, 5, 12, 0, 0)), "1/5/2024 12:00:00 PM");
  EXPECT_EQ(GeneralDate(At(2024, 12, 31, 13, 5, 9)), "12/31/2024 1:05:09 PM");
  EXPECT_EQ(GeneralDate(At(2024, 12, 31, 23, 59, 59)), "12/31/2024 11:59:59 PM");
  EXPECT_EQ(GeneralDate(At(987, 3, 4, 0, 30, 0)), "3/4/0987 12:30:00 AM");
}

TEST(MediumDateTest, TwoDigitDayEnglishMonthTwoDigitYear) {
  EXPECT_EQ(MediumDate(At(2026, 11, 15)), "15-Nov-26");
  EXPECT_EQ(MediumDate(At(2024, 1, 5, 13, 0, 0)), "05-Jan-24");
  EXPECT_EQ(MediumDate(At(2000, 5, 31)), "31-May-00");
  EXPECT_EQ(MediumDate(At(2009, 9, 9)), "09-Sep-09");
}

TEST(SecondsBetweenTest, CalendarArithmetic) {
  EXPECT_EQ(SecondsBetween(At(2024, 1, 5, 10), At(2024, 1, 5, 10, 0, 1)), 1);
  EXPECT_EQ(SecondsBetween(At(2024, 1, 5), At(2024, 1, 4)), -86400);
  EXPECT_EQ(SecondsBetween(At(2024, 2, 28), At(2024, 3, 1)), 2 * 86400) << "leap year";
  EXPECT_EQ(SecondsBetween(At(2023, 2, 28), At(2023, 3, 1)), 86400);
  EXPECT_EQ(SecondsBetween(At(1969, 12, 31, 23, 59, 59), At(1970, 1, 1)), 1);
  EXPECT_EQ(SecondsBetween(At(1999, 12, 31), At(2000, 1, 1)), 86400);
  // A night on which the clocks change is still a calendar day.
  Zone zone("EST5EDT,M3.2.0,M11.1.0");
  EXPECT_EQ(SecondsBetween(At(2024, 3, 10), At(2024, 3, 11)), 86400);
}

TEST(LocalTimeTest, FileTimesAndTimePointsInTheLocalZone) {
  // 2024-01-05 13:14:15.9999999 UTC: the fraction is dropped, never rounded up.
  const FileTime t = FileTimeFromUnix(1704460455, 999999900);
  {
    Zone zone("UTC0");
    ExpectFields(LocalFromFileTime(t), At(2024, 1, 5, 13, 14, 15));
    ExpectFields(ToLocal(Clock::from_time_t(1704460455) + std::chrono::milliseconds(999)),
                 At(2024, 1, 5, 13, 14, 15));
  }
  {
    Zone zone("EST5EDT,M3.2.0,M11.1.0");
    ExpectFields(LocalFromFileTime(t), At(2024, 1, 5, 8, 14, 15));
    // Summer time: four hours behind.
    ExpectFields(LocalFromFileTime(FileTimeFromUnix(1720000000, 0)), At(2024, 7, 3, 5, 46, 40));
  }
  {
    Zone zone("UTC0");
    // Before 1970, a fraction still counts toward the earlier second.
    ExpectFields(ToLocal(Clock::from_time_t(-1) + std::chrono::milliseconds(500)),
                 At(1969, 12, 31, 23, 59, 59));
  }
}

}  // namespace
}  // namespace qr
