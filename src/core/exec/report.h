#pragma once
// The end-of-run report, tally.txt and the activity log shared by jobs.
#include <string>

#include "run/run_context.h"

namespace qr {

// dd:hh:mm:ss of the whole seconds between start and end.
std::string ElapsedTime(TimePoint start, TimePoint end);
std::string BuildReportText(const RunCounters& c, bool cancelled);
// One line: general date, tab, computer name, tab, text, in CommonLogPath/ActivityLog.txt.
void ActivityLog(RunContext& ctx, const std::string& text);
// Where the failures of the run just ended were recorded, as one line for the headless runner:
// the error log, the timestamp log, the silent log, the message boxes, and the job database
// while it holds files not finished. Empty when every row was finished without an error and no
// handler reported anything.
std::string WhereFailuresWereRecorded(RunContext& ctx);
// Phase 14 of the run: report, tally, activity log, completion copy, error instructions.
void FinishRunReport(RunContext& ctx);

}  // namespace qr
