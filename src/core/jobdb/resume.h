#pragma once
// Continuing an interrupted job from its database.
namespace qr {

class RunContext;

// The run's counters read back from the job database, where a fresh run writes the CSV header.
void SetResumeCounts(RunContext& ctx);

}  // namespace qr
