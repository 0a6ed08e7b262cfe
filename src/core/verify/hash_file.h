#pragma once
// The MD5 of one file, leaving the file's times as they were found.
#include <string>

namespace qr {

class RunContext;

// The digest as lower-case hexadecimal text, or an empty text when the file could not be hashed
// (every caller reads that as "Unable to hash"). A file that can't be opened gives no message.
std::string HashFile(RunContext& ctx, const std::string& path);

}  // namespace qr
