#pragma once
// The external ROBOCOPY engine, started once per file.
#include <string>
#include <vector>

namespace qr {

class RunContext;

// The tool's argument vector for one file: the two folders and the file name as they are, each
// one argument whatever characters it holds, then the flags as the command-line splitter reads
// them (quotes removed).
std::vector<std::string> RobocopyArguments(const std::string& sourceFolder,
                                           const std::string& targetFolder,
                                           const std::string& fileName, const std::string& flags);

// Starts the tool with `argv` and waits for it, pumping events, until it ends or Cancel or Skip
// is pressed; the child is never killed. `commandLine` is the same call as text, for reports.
void RunRobocopyProcess(RunContext& ctx, const std::string& commandLine,
                        const std::vector<std::string>& argv);

}  // namespace qr
