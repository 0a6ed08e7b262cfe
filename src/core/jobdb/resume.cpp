#include "jobdb/resume.h"

namespace qr {

// Without a job database there is nothing to count back.
void SetResumeCounts(RunContext&) {}

}  // namespace qr
