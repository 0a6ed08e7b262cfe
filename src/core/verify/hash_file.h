#pragma once
// The MD5 of one file, leaving the file's times as they were found.
#include <string>

namespace qr {

class RunContext;
struct FileTimes;

// The digest as lower-case hexadecimal text, or an empty text when the file could not be hashed
// (every caller reads that as "Unable to hash"). A file that can't be opened gives no message.
std::string HashFile(RunContext& ctx, const std::string& path);
// The same for a caller that has just read the file's times: they are the ones put back.
std::string HashFileAfterTimes(RunContext& ctx, const std::string& path,
                               const FileTimes& timesJustRead);

}  // namespace qr
