#pragma once
// Path variables: bracketed words replaced at the last moment.
#include <string>

namespace qr {

class RunContext;

// [RoverDrive], [RVDrive], [JobName], [CName], [UName], [Date], in that order.
std::string ExpandVariables(const RunContext& ctx, const std::string& text);

}  // namespace qr
