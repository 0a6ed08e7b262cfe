#pragma once
// Continuing an interrupted job: its state is the completed column of its job database.
#include <optional>
#include <string>

#include "exec/run_driver.h"

namespace qr {

class RunContext;

// The run's counters read back from the job database and the error log, where a fresh run
// writes the CSV header.
void SetResumeCounts(RunContext& ctx);

// Loads a job file and, for a job record (no job name), asks whether to continue it; a
// prepared job with a name is offered as a new run. The run's result, or nullopt when nothing
// ran.
std::optional<ExecResult> ResumeJob(RunContext& ctx, const std::string& jobFile);
// The Resume menu entry: picks the job file, then ResumeJob.
std::optional<ExecResult> ResumeClick(RunContext& ctx);

}  // namespace qr
