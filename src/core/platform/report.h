#pragma once
// The one shape of an error handler: with the Silent option off a message box, with it on the
// same facts on one line in the silent log; then the routine leaves with a neutral result.
#include <string>

#include "platform/dialogs.h"

namespace qr {

class Reporter {
 public:
  virtual ~Reporter() = default;
  // The "Run in Silent Mode" option of the job (not the -silent switch).
  virtual bool SilentOption() const = 0;
  // A message box with an OK button, titled with the program's title.
  virtual void ShowMessage(const std::string& text, Icon icon) = 0;
  // One line appended to _silent.log beside the run's error log.
  virtual void WriteSilentLog(const std::string& text) = 0;
};

// The common handler shape.
void ReportFailure(Reporter& reporter, const std::string& boxText, Icon icon,
                   const std::string& silentText);

}  // namespace qr
