#include "platform/logs.h"

#include "platform/errors.h"
#include "platform/paths.h"
#include "platform/plain_text.h"
#include "platform/text.h"

namespace qr {

std::string SideLogPath(const std::string& errorLogPath, std::string_view from,
                        std::string_view to) {
  const size_t name = errorLogPath.rfind(kSep) == std::string::npos
                          ? 0
                          : errorLogPath.rfind(kSep) + 1;
  return errorLogPath.substr(0, name) + ReplaceAll(errorLogPath.substr(name), from, to);
}

std::string BesideErrorLog(const std::string& errorLogPath, std::string_view fileName) {
  return SideLogPath(errorLogPath, "_errors.log", fileName);
}

void WriteSilentLog(const std::string& errorLogPath, const std::string& text) {
  int err = 0;
  if (!AppendLine(BesideErrorLog(errorLogPath, "_silent.log"), text, &err)) throw SystemError(err);
}

}  // namespace qr
