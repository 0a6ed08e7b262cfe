#include "platform/logs.h"

#include "platform/errors.h"
#include "platform/plain_text.h"
#include "platform/text.h"

namespace qr {

std::string BesideErrorLog(const std::string& errorLogPath, std::string_view fileName) {
  return ReplaceAll(errorLogPath, "_errors.log", fileName);
}

void WriteSilentLog(const std::string& errorLogPath, const std::string& text) {
  int err = 0;
  if (!AppendLine(BesideErrorLog(errorLogPath, "_silent.log"), text, &err)) throw SystemError(err);
}

}  // namespace qr
