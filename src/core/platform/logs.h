#pragma once
// The side logs of a run and the debug hook.
#include <string>
#include <string_view>

namespace qr {

// A log that lies beside the error log: "_errors.log" in `errorLogPath` replaced by `fileName`.
std::string BesideErrorLog(const std::string& errorLogPath, std::string_view fileName);
// One line appended to _silent.log beside the error log. Throws RunError when it can't be
// opened, so the failure passes to the caller's handler.
void WriteSilentLog(const std::string& errorLogPath, const std::string& text);
// The hook that receives progress notes; it discards them.
inline void GoDebug(std::string_view /*text*/) {}

}  // namespace qr
