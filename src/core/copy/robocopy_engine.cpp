#include "copy/robocopy_engine.h"

namespace qr {

// The external engine is not started yet: no target appears, so the pipeline's own transfer
// copies the file as its fallback.
void RunRobocopyProcess(RunContext&, const std::string&) {}

}  // namespace qr
