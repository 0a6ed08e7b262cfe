#pragma once
// The side logs of a run and the debug hook.
#include <string>
#include <string_view>

namespace qr {

// A log that lies beside the error log: "_errors.log" in its file name replaced by `fileName`.
std::string BesideErrorLog(const std::string& errorLogPath, std::string_view fileName);
// A side log of the walk: every `from` in the error log's file name replaced by `to`, so that
// "_errors.log" gives "_symlinkss.log" and "_errors_2.log" "_symlinkss_2.log". Only the file
// name: a folder whose name holds the word is never renamed.
std::string SideLogPath(const std::string& errorLogPath, std::string_view from,
                        std::string_view to);
// One line appended to _silent.log beside the error log. Throws RunError when it can't be
// opened, so the failure passes to the caller's handler.
void WriteSilentLog(const std::string& errorLogPath, const std::string& text);
// The hook that receives progress notes; it discards them.
inline void GoDebug(std::string_view /*text*/) {}

}  // namespace qr
