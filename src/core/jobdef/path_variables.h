#pragma once
// Path variables: bracketed words replaced at the last moment.
#include <string>

namespace qr {

class RunContext;

// The end command with [RoverDrive], [RVDrive], [JobName], [CName], [UName] and [Date] replaced,
// each value quoted for /bin/sh as its place in the command needs (outside quotes, inside single
// or inside double quotes), so that a value is always data. A variable escaped with a backslash
// stays as written.
std::string ExpandVariables(const RunContext& ctx, const std::string& text);

}  // namespace qr
