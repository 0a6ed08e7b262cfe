#include "jobdef/path_variables.h"

#include "platform/dates.h"
#include "platform/machine.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "run/run_context.h"

namespace qr {

std::string ExpandVariables(const RunContext& ctx, const std::string& text) {
  std::string drive = ProgramDrive(WithoutTrailingSep(ctx.program.app.programFolder));
  std::string out = ReplaceAll(text, "[RoverDrive]", drive);
  out = ReplaceAll(out, "[RVDrive]", drive);
  out = ReplaceAll(out, "[JobName]", ctx.job.JobName);
  out = ReplaceAll(out, "[CName]", ComputerName());
  out = ReplaceAll(out, "[UName]", UserName());
  out = ReplaceAll(out, "[Date]", MediumDate(ToLocal(Clock::now())));
  return out;
}

}  // namespace qr
