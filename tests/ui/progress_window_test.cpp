#include "ui/progress_window.h"

#include <gtest/gtest.h>

#include <ctime>

#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

using std::chrono::seconds;

// A zone for the life of the guard; POSIX rules need no zone database. `reset` is destroyed
// last, so the library rereads TZ after the variable is restored.
struct Zone {
  struct Reset { ~Reset() { tzset(); } } reset;
  test::EnvVar tz;
  explicit Zone(const char* rule) : tz("TZ", std::string(rule)) { tzset(); }
};

TimePoint Utc(int y, int mo, int d, int h, int mi, int s) {
  std::tm tm{s, mi, h, d, mo - 1, y - 1900, 0, 0, 0, 0, nullptr};
  return Clock::from_time_t(timegm(&tm));
}

TEST(ElapsedSecondsRule, CountsFromTimeOfDayToTimeOfDayAcrossOneMidnightAtMost) {
  Zone utc("UTC0");
  const TimePoint evening = Utc(2026, 3, 10, 23, 59, 50);
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

TEST(ProgressTimer, LabelsOfOneTick) {
  const TimePoint now = Utc(2026, 6, 1, 12, 0, 0);
  const int64_t dayHourMinuteSecond = 86400 + 3600 + 60 + 1;
  const struct {
    const char* what;
    bool running;
    int64_t copying;  // seconds since copying began; 0 before copying
    int64_t run;      // seconds since the run began
    int64_t done, total, resumeBase;
    const char* elapsed;    // what follows "Elapsed Time:"
    const char* remaining;  // what follows "Estimated Time Remaining: "
  } cases[] = {
      {"outside a run the labels keep their texts", false, 0, 0, 10, 100, 0, "", ""},
      {"before copying only the elapsed time moves", true, 0, 65, 10, 100, 0, " 00:00:01:05", ""},
      {"the rate so far projected onto the rest", true, 10, 70, 250, 1000, 0, " 00:00:01:10",
       "00:00:30"},
      // 100 × (10000 − 4000) ÷ 5000 − 100 = 20; without the base it would be 100.
      {"a resumed run estimates only its own bytes", true, 100, 100, 5000, 10000, 4000,
       " 00:00:01:40", "00:00:20"},
      {"1 × 10 ÷ 3 = 3.33 rounds to 3", true, 1, 1, 3, 10, 0, " 00:00:00:01", "00:00:02"},
      {"1 × 11 ÷ 3 = 3.67 rounds to 4", true, 1, 1, 3, 11, 0, " 00:00:00:01", "00:00:03"},
      {"days in the elapsed time, not in the estimate", true, 10, dayHourMinuteSecond, 10,
       10 + dayHourMinuteSecond, 0, " 01:01:01:01", "01:01:01"},
      // 100000 × 4 PB overflows 64 bits; 27:46:40 to go.
      {"byte counts too big to multiply", true, 100000, 100000, int64_t{2} * 1000000000000000,
       int64_t{4} * 1000000000000000, 0, " 01:03:46:40", "03:46:40"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    test::RunFixture run;
    RunContext& ctx = run.ctx;
    ctx.counters.RunActive = c.running;
    ctx.counters.CopyPhaseActive = c.copying > 0;
    ctx.counters.StartTime = now - seconds(c.run);
    ctx.counters.CopyStartTime = now - seconds(c.copying);
    ctx.counters.BytesProcessed = c.done;
    ctx.counters.TotalBytes = c.total;
    ctx.counters.ResumeBaseBytes = c.resumeBase;
    ProgressTimerTick(ctx, now);
    EXPECT_EQ(ctx.progress.lblElapsedTime, std::string("Elapsed Time:") + c.elapsed);
    EXPECT_EQ(ctx.progress.lblTimeRemaining, std::string("Estimated Time Remaining: ") + c.remaining);
  }
}

TEST(ProgressTimer, WithNoByteDoneOrNoneLeftTheLastEstimateStays) {
  test::RunFixture run;
  RunContext& ctx = run.ctx;
  const TimePoint now = Utc(2026, 6, 1, 12, 0, 0);
  RunCounters& c = ctx.counters;
  c.RunActive = c.CopyPhaseActive = true;
  c.StartTime = now - seconds(70);
  c.CopyStartTime = now - seconds(10);
  c.TotalBytes = 1000;
  c.BytesProcessed = 250;
  ProgressTimerTick(ctx, now);
  ASSERT_EQ(ctx.progress.lblTimeRemaining, "Estimated Time Remaining: 00:00:30");
  c.BytesProcessed = 0;
  ProgressTimerTick(ctx, now + seconds(5));
  EXPECT_EQ(ctx.progress.lblTimeRemaining, "Estimated Time Remaining: 00:00:30");
  EXPECT_EQ(ctx.progress.lblElapsedTime, "Elapsed Time: 00:00:01:15");
  c.BytesProcessed = 1000;
  ProgressTimerTick(ctx, now);
  EXPECT_EQ(ctx.progress.lblTimeRemaining, "Estimated Time Remaining: 00:00:30");
}

}  // namespace
}  // namespace qr
