#include "ui/progress_window.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>

#include "exec/report.h"

namespace qr {

namespace {

int64_t SecondOfDay(TimePoint t) {
  LocalDateTime d = ToLocal(t);
  return int64_t{d.hour} * 3600 + int64_t{d.minute} * 60 + d.second;
}

// hh:mm:ss; the hours wrap at a day, as the window has no room for days in its estimate.
std::string ClockText(int64_t seconds) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%02lld:%02lld:%02lld",
                static_cast<long long>((seconds / 3600) % 24),
                static_cast<long long>((seconds / 60) % 60), static_cast<long long>(seconds % 60));
  return buf;
}

}  // namespace

int64_t ElapsedSeconds(TimePoint start, TimePoint end) {
  const int64_t s = SecondOfDay(start);
  const int64_t e = SecondOfDay(end);
  return e - s + (e < s ? 86400 : 0);
}

void ProgressTimerTick(RunContext& ctx, TimePoint now) {
  const RunCounters& c = ctx.counters;
  ProgressPane& p = ctx.progress;
  const int64_t netTotal = c.TotalBytes - c.ResumeBaseBytes;

  if (c.RunActive) p.lblElapsedTime = "Elapsed Time: " + ElapsedTime(c.StartTime, now);

  if (!c.CopyPhaseActive || c.BytesProcessed < 1) return;
  const int64_t e = std::chrono::duration_cast<std::chrono::seconds>(now - c.CopyStartTime).count();
  // The rate is taken over all bytes processed, the estimate over the bytes of this run; long
  // double keeps the product of seconds and a large byte count exact enough. Halves round to
  // even, as the system's whole-number conversion does.
  const long double projected = static_cast<long double>(e) * static_cast<long double>(netTotal) /
                                static_cast<long double>(c.BytesProcessed);
  // An estimate beyond any clock (a byte count gone wrong) is an error, and the timer ignores
  // its errors: the label keeps its text.
  if (!(std::fabs(projected) < 1e18L)) return;
  const int64_t remaining = static_cast<int64_t>(std::nearbyintl(projected)) - e;
  if (remaining > 0) p.lblTimeRemaining = "Estimated Time Remaining: " + ClockText(remaining);
}

void frmProgress_Load(RunContext& ctx, ProgressForm& f) {
  f.caption = ctx.program.titleText + " - Progress";
  f.cmdShowErrors = "Show Errors >>";
  f.listErrorsVisible = false;
  f.heightTwips = kProgressHeightTwips;
  ctx.progress.Progress1_Set(30);
}

void cmdShowErrors_Click(ProgressForm& f) {
  if (f.listErrorsVisible) {
    f.cmdShowErrors = "Show Errors >>";
    f.heightTwips = kProgressHeightTwips;
    f.listErrorsVisible = false;
  } else {
    f.cmdShowErrors = "<< Hide Errors";
    f.heightTwips = kProgressErrorsHeightTwips;
    f.listErrorsVisible = true;
  }
}

void cmdSkip_Click(RunContext& ctx) { ctx.counters.SkipRequested = true; }

void cmdCancel_Click(RunContext& ctx) { ctx.counters.CancelRequested = true; }

bool frmProgress_QueryUnload(RunContext& ctx) {
  ctx.counters.CancelRequested = true;
  return !ctx.counters.RunActive;
}

}  // namespace qr
