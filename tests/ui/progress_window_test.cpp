#include "ui/progress_window.h"

#include <gtest/gtest.h>

#include <ctime>
#include <memory>

#include "support/child_process.h"
#include "support/fake_dialogs.h"

namespace qr {
namespace {

using std::chrono::seconds;

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

TimePoint Utc(int y, int mo, int d, int h, int mi, int s) {
  std::tm tm{};
  tm.tm_year = y - 1900;
  tm.tm_mon = mo - 1;
  tm.tm_mday = d;
  tm.tm_hour = h;
  tm.tm_min = mi;
  tm.tm_sec = s;
  return Clock::from_time_t(timegm(&tm));
}

TEST(ElapsedSecondsRule, CountsFromTimeOfDayToTimeOfDayAcrossOneMidnightAtMost) {
  Zone utc("UTC0");
  const TimePoint evening = Utc(2026, 3, 10, 23, 59, 50);
  EXPECT_EQ(ElapsedSeconds(evening, evening), 0);
  EXPECT_EQ(ElapsedSeconds(evening, evening + seconds(9)), 9);
  EXPECT_EQ(ElapsedSeconds(evening, evening + seconds(20)), 20) << "across midnight";
  // The dates play no part: two days and five seconds later is five seconds.
  EXPECT_EQ(ElapsedSeconds(Utc(2026, 3, 10, 10, 0, 0), Utc(2026, 3, 12, 10, 0, 5)), 5);
  // An end earlier in its day than the start counts as the next day.
  EXPECT_EQ(ElapsedSeconds(Utc(2026, 3, 10, 12, 0, 0), Utc(2026, 3, 11, 11, 0, 0)), 82800);
  // Fractions of a second are dropped on both sides.
  EXPECT_EQ(ElapsedSeconds(evening + std::chrono::milliseconds(900),
                           evening + std::chrono::milliseconds(1100)),
            1);
}

TEST(ElapsedSecondsRule, ReadsTheClockOnTheWallNotTheSecondsThatPassed) {
  // Central Europe moves its clocks from 02:00 to 03:00 on 29 March 2026 (01:00 UTC).
  Zone berlin("CET-1CEST,M3.5.0,M10.5.0/3");
  const TimePoint before = Utc(2026, 3, 29, 0, 59, 59);  // 01:59:59 local
  EXPECT_EQ(ElapsedSeconds(before, before + seconds(1)), 3601);
  // And back on 25 October (01:00 UTC): 02:59:59 summer time, one second later 02:00:00.
  const TimePoint autumn = Utc(2026, 10, 25, 0, 59, 59);
  EXPECT_EQ(ElapsedSeconds(autumn, autumn + seconds(1)), 82801);
}

class ProgressTimer : public ::testing::Test {
 protected:
  test::FakeDialogs dialogs;
  test::FakePump pump;
  RunContext ctx{dialogs, pump};
  RunCounters& c = ctx.counters;
  ProgressPane& p = ctx.progress;
  const TimePoint now = Utc(2026, 6, 1, 12, 0, 0);

  // Copying began `e` seconds ago, the run `run` seconds ago.
  void Copying(int64_t e, int64_t run) {
    c.RunActive = true;
    c.CopyPhaseActive = true;
    c.StartTime = now - seconds(run);
    c.CopyStartTime = now - seconds(e);
  }
};

TEST_F(ProgressTimer, OutsideARunTheLabelsKeepTheirTexts) {
  c.BytesProcessed = 10;
  c.TotalBytes = 100;
  ProgressTimerTick(ctx, now);
  EXPECT_EQ(p.lblElapsedTime, "Elapsed Time:");
  EXPECT_EQ(p.lblTimeRemaining, "Estimated Time Remaining: ");
}

TEST_F(ProgressTimer, BeforeCopyingOnlyTheElapsedTimeMoves) {
  c.RunActive = true;
  c.StartTime = now - seconds(65);
  c.BytesProcessed = 10;
  c.TotalBytes = 100;
  ProgressTimerTick(ctx, now);
  EXPECT_EQ(p.lblElapsedTime, "Elapsed Time: 00:00:01:05");
  EXPECT_EQ(p.lblTimeRemaining, "Estimated Time Remaining: ");
}

TEST_F(ProgressTimer, TheEstimateProjectsTheRateSoFarOntoTheRest) {
  Copying(10, 70);
  c.TotalBytes = 1000;
  c.BytesProcessed = 250;  // 10 s for a quarter: 30 s to go
  ProgressTimerTick(ctx, now);
  EXPECT_EQ(p.lblElapsedTime, "Elapsed Time: 00:00:01:10");
  EXPECT_EQ(p.lblTimeRemaining, "Estimated Time Remaining: 00:00:30");

  // Until a byte is done nothing is estimated, and the last estimate stays.
  c.BytesProcessed = 0;
  ProgressTimerTick(ctx, now + seconds(5));
  EXPECT_EQ(p.lblTimeRemaining, "Estimated Time Remaining: 00:00:30");
  EXPECT_EQ(p.lblElapsedTime, "Elapsed Time: 00:00:01:15");

  // Done, or ahead of the estimate: nothing left to show, the label stays as it was.
  c.BytesProcessed = 1000;
  ProgressTimerTick(ctx, now);
  EXPECT_EQ(p.lblTimeRemaining, "Estimated Time Remaining: 00:00:30");
}

TEST_F(ProgressTimer, AResumedRunEstimatesOnlyTheBytesOfThisRun) {
  Copying(100, 100);
  c.TotalBytes = 10000;
  c.ResumeBaseBytes = 4000;  // done before the resume
  c.BytesProcessed = 5000;
  // 100 × (10000 − 4000) ÷ 5000 − 100 = 20; without the base it would be 100.
  ProgressTimerTick(ctx, now);
  EXPECT_EQ(p.lblTimeRemaining, "Estimated Time Remaining: 00:00:20");
}

TEST_F(ProgressTimer, TheProjectionIsRoundedToAWholeSecond) {
  Copying(1, 1);
  c.BytesProcessed = 3;
  c.TotalBytes = 10;  // 1 × 10 ÷ 3 = 3.33, rounds to 3: 2 s left
  ProgressTimerTick(ctx, now);
  EXPECT_EQ(p.lblTimeRemaining, "Estimated Time Remaining: 00:00:02");
  c.TotalBytes = 11;  // 3.67, rounds to 4: 3 s left
  ProgressTimerTick(ctx, now);
  EXPECT_EQ(p.lblTimeRemaining, "Estimated Time Remaining: 00:00:03");
}

TEST_F(ProgressTimer, MoreThanADayShowsDaysInTheElapsedTimeButNotInTheEstimate) {
  // A day, an hour, a minute and a second, elapsed and to go.
  const int64_t long_ = 86400 + 3600 + 60 + 1;
  Copying(10, long_);
  c.BytesProcessed = 10;
  c.TotalBytes = 10 + long_;  // a byte a second
  ProgressTimerTick(ctx, now);
  EXPECT_EQ(p.lblElapsedTime, "Elapsed Time: 01:01:01:01");
  EXPECT_EQ(p.lblTimeRemaining, "Estimated Time Remaining: 01:01:01");
}

TEST_F(ProgressTimer, ByteCountsBeyondWhatSixtyFourBitsMultiplyStillEstimate) {
  Copying(100000, 100000);
  c.TotalBytes = int64_t{4} * 1000 * 1000 * 1000 * 1000 * 1000;  // 4 PB: 100000 × this overflows
  c.BytesProcessed = c.TotalBytes / 2;
  ProgressTimerTick(ctx, now);
  EXPECT_EQ(p.lblTimeRemaining, "Estimated Time Remaining: 03:46:40");  // 27:46:40
}

}  // namespace
}  // namespace qr
