#include "run/run_context.h"

#include "platform/logs.h"

namespace qr {

Answer RunContext::Message(const std::string& text, Icon icon, Buttons buttons) {
  return dialogs.MessageBox(text, program.titleText, icon, buttons);
}

void RunContext::ShowMessage(const std::string& text, Icon icon) {
  failures.boxShown = true;
  Message(text, icon);
}

void RunContext::WriteSilentLog(const std::string& text) {
  failures.silentLogPath = BesideErrorLog(paths.ErrorLogPath, "_silent.log");
  qr::WriteSilentLog(paths.ErrorLogPath, text);
}

}  // namespace qr
