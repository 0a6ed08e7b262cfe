#pragma once
// Job files: the job record _jobfile.rvj that a run writes of itself.
#include <string>

namespace qr {

class RunContext;

// Writes the job record anew in its fixed line order. Normalises Extensions in place first.
// False when the file can't be written.
bool WriteJobRecord(RunContext& ctx);
// Appends one ready-made line to the job record of the current log folder; a failed append is
// silently lost and never stops the run.
void AddJobFileEntry(RunContext& ctx, const std::string& line);

}  // namespace qr
