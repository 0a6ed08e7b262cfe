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

// From time of day to time of day on the wall clock, across one midnight at most.
TEST(ElapsedSecondsRule, ReadsTheClockOnTheWallAcrossOneMidnightAtMost) {
  const TimePoint evening = Utc(2026, 3, 10, 23, 59, 50);
  const std::chrono::milliseconds ms(1);
  const struct {
    const char* what;
    const char* zone;
    TimePoint from, to;
    int64_t seconds;
  } cases[] = {
      {"across midnight", "UTC0", evening, evening + seconds(20), 20},
      {"the dates play no part", "UTC0", Utc(2026, 3, 10, 10, 0, 0), Utc(2026, 3, 12, 10, 0, 5), 5},
      {"earlier in its day: the next day", "UTC0", Utc(2026, 3, 10, 12, 0, 0),
       Utc(2026, 3, 11, 11, 0, 0), 82800},
      {"fractions dropped on both sides", "UTC0", evening + 900 * ms, evening + 1100 * ms, 1},
      // Central Europe's clocks go from 02:00 to 03:00 on 29 March 2026 and back on 25 October.
      {"spring forward", "CET-1CEST,M3.5.0,M10.5.0/3", Utc(2026, 3, 29, 0, 59, 59),
       Utc(2026, 3, 29, 1, 0, 0), 3601},
      {"fall back", "CET-1CEST,M3.5.0,M10.5.0/3", Utc(2026, 10, 25, 0, 59, 59),
       Utc(2026, 10, 25, 1, 0, 0), 82801},
  };
  for (const auto& c : cases) {
    Zone zone(c.zone);
    EXPECT_EQ(ElapsedSeconds(c.from, c.to), c.seconds) << c.what;
  }
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
    RunCounters& n = run.ctx.counters;
    n.RunActive = c.running;
    n.CopyPhaseActive = c.copying > 0;
    n.StartTime = now - seconds(c.run);
    n.CopyStartTime = now - seconds(c.copying);
    n.BytesProcessed = c.done;
    n.TotalBytes = c.total;
    n.ResumeBaseBytes = c.resumeBase;
    ProgressTimerTick(run.ctx, now);
    EXPECT_EQ(run.ctx.progress.lblElapsedTime, std::string("Elapsed Time:") + c.elapsed);
    EXPECT_EQ(run.ctx.progress.lblTimeRemaining,
              std::string("Estimated Time Remaining: ") + c.remaining);
  }
}

TEST(ProgressTimer, WithNoByteDoneOrNoneLeftTheLastEstimateStays) {
  test::RunFixture run;
  const TimePoint now = Utc(2026, 6, 1, 12, 0, 0);
  RunCounters& c = run.ctx.counters;
  c.RunActive = c.CopyPhaseActive = true;
  c.StartTime = now - seconds(70);
  c.CopyStartTime = now - seconds(10);
  c.TotalBytes = 1000;
  for (const int64_t done : {250, 0, 1000}) {
    c.BytesProcessed = done;
    ProgressTimerTick(run.ctx, now);
    EXPECT_EQ(run.ctx.progress.lblTimeRemaining, "Estimated Time Remaining: 00:00:30") << done;
  }
}

}  // namespace
}  // namespace qr
