#pragma once
// The external ROBOCOPY engine, started once per file.
#include <string>

namespace qr {

class RunContext;

// Starts the command and waits for it, pumping events, until it ends or Cancel or Skip is
// pressed; the child is never killed.
void RunRobocopyProcess(RunContext& ctx, const std::string& commandLine);

}  // namespace qr
