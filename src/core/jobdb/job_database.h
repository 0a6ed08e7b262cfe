#pragma once
// The per-job SQLite database _job.sdb: the work list that survives a crash.
#include <string>

namespace qr {

class RunContext;

void CreateJobDatabase(RunContext& ctx, const std::string& path);
// True when it ran to its end; the caller ignores the result.
bool ValidateJobDatabase(RunContext& ctx, const std::string& path);

}  // namespace qr
