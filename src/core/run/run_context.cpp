#include "run/run_context.h"

#include "platform/logs.h"

namespace qr {

Answer RunContext::Message(const std::string& text, Icon icon, Buttons buttons) {
  return dialogs.MessageBox(text, program.titleText, icon, buttons);
}

void RunContext::ShowMessage(const std::string& text, Icon icon) { Message(text, icon); }

void RunContext::WriteSilentLog(const std::string& text) {
  qr::WriteSilentLog(paths.ErrorLogPath, text);
}

}  // namespace qr
