#pragma once
// ExecCopy: the one procedure that carries out a job, from validation to the close-down.
#include "run/run_context.h"

namespace qr {

enum class ExecOutcome {
  Refused,    // a validation test, the database warning or the job notice stopped it
  Completed,  // ran to its end
  Cancelled,  // ran to its end after a cancel request
  Aborted,    // a handler ended it at once ("Exec Error", "Could not create the file/directory")
};

struct ExecResult {
  ExecOutcome outcome = ExecOutcome::Refused;
  // -silent or -q: the program ends now, without saving its settings.
  bool endProgram = false;
};

ExecResult ExecCopy(RunContext& ctx);

}  // namespace qr
