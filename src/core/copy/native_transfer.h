#pragma once
// Moving bytes with the program's own transfer. Each routine returns true when it reports
// success; the verification record is what proves a copy.
#include <string>

namespace qr {

class RunContext;
struct FileTimes;

// The main transfer: opens the source first (a source that can't be opened leaves no target),
// then copies in chunks with copy_file_range (read/write where that can't be used), reporting
// progress and pumping events per chunk; overwrites an existing target unless it has no write
// bit; the target ends with the source's mode and times, the source as it was.
bool CopyFileWithProgress(RunContext& ctx, const std::string& source, const std::string& target);
// The same for a caller that has just read the source's times: they are the ones put back.
bool CopyFileWithProgressAfterTimes(RunContext& ctx, const std::string& source,
                                    const std::string& target,
                                    const FileTimes& sourceTimesJustRead);
// The read/write loop of 4 MiB chunks with a flush after each, used only as the fallback after
// the external engine left no target. Its size is a signed 32-bit number, as it always was, so a
// file of 2 GiB or more copies nothing.
bool CopyFileManual(RunContext& ctx, const std::string& source, const std::string& target);
// The plain copy of a job's companion file: overwrites, keeps the source's times on both sides.
bool CopyFilePlain(RunContext& ctx, const std::string& source, const std::string& target);

}  // namespace qr
