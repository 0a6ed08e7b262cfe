#include "platform/report.h"

namespace qr {

void ReportFailure(Reporter& reporter, const std::string& boxText, Icon icon,
                   const std::string& silentText) {
  if (!reporter.SilentOption()) {
    reporter.ShowMessage(boxText, icon);
  } else {
    reporter.WriteSilentLog(silentText);
  }
}

}  // namespace qr
