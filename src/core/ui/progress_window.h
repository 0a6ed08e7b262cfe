#pragma once
// The logic of the progress window that is not drawing: its timer, which refreshes the elapsed
// and remaining time labels while a run works.
#include <cstdint>

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

}  // namespace qr
