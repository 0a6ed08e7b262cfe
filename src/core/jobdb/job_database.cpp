#include "jobdb/job_database.h"

namespace qr {

// The job database is not kept yet: a run's work list lives only in its passes.
void CreateJobDatabase(RunContext&, const std::string&) {}

bool ValidateJobDatabase(RunContext&, const std::string&) { return true; }

}  // namespace qr
