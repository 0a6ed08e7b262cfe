#pragma once
// The whole life of one file: transfer, verification record, every time stamp put back, and the
// progress window's captions.
#include <cstdint>
#include <string>

namespace qr {

class RunContext;

// The text in double quotes when it holds a blank, else unchanged.
std::string QuoteIfSpaces(const std::string& text);
// A rename that never replaces an existing file; its result is not looked at.
void ShellRenameFile(const std::string& from, const std::string& to);

// One row of the work queue. `targetPath` may be changed (collision rename); the queue ignores
// what comes back. Never throws: a bad file never ends the run.
void ProcessFileRow(RunContext& ctx, std::string& sourcePath, std::string& targetPath,
                    int64_t& size, int64_t key);

}  // namespace qr
