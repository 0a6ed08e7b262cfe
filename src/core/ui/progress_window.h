#pragma once
// The logic of the progress window that is not drawing: its timer, which refreshes the elapsed
// and remaining time labels while a run works, the error list's button, and the requests that
// Skip, Cancel and closing make. The labels, bars and list themselves are the ProgressPane.
#include <cstdint>
#include <string>

#include "platform/dates.h"
#include "run/run_context.h"

namespace qr {

// Seconds from the start's time of day to the end's, in local time, taken forward across one
// midnight at most: 23:59:50 to 00:00:10 is 20 whatever the dates.
int64_t ElapsedSeconds(TimePoint start, TimePoint end);

// One tick of the window's timer at `now`: the elapsed time while the run is active, and, once
// copying has started and a byte is done, the estimate of the time left. A label the tick can't
// compute keeps its text.
void ProgressTimerTick(RunContext& ctx, TimePoint now);

// Window heights without and with the error list.
inline constexpr int kProgressHeightTwips = 3240;
inline constexpr int kProgressErrorsHeightTwips = 8265;

// What the window holds besides the pane.
struct ProgressForm {
  std::string caption;
  std::string cmdShowErrors = "Show Errors >>";
  bool listErrorsVisible = false;
  int heightTwips = kProgressHeightTwips;
};

// Caption, error list hidden, and the byte bar's start width.
void frmProgress_Load(RunContext& ctx, ProgressForm& f);
// Shows the error list and makes room for it, or hides it again.
void cmdShowErrors_Click(ProgressForm& f);
void cmdSkip_Click(RunContext& ctx);
void cmdCancel_Click(RunContext& ctx);
// Closing the window asks the run to stop; while the run lasts the window stays, to show how
// it ends. True when the window may go.
bool frmProgress_QueryUnload(RunContext& ctx);

}  // namespace qr
