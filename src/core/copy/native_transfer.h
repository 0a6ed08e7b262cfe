#pragma once
// Moving bytes with the program's own transfer.
#include <string>

namespace qr {

class RunContext;

// The plain copy of a job's companion file: overwrites, keeps the source's times on both sides.
bool CopyFilePlain(RunContext& ctx, const std::string& source, const std::string& target);

}  // namespace qr
