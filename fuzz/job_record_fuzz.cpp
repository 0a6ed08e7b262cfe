// The main window's reader of job files, of either kind, over any bytes.
#include "fuzz_support.h"
#include "platform/quiet_seams.h"
#include "jobdef/job_file.h"
#include "platform/errors.h"
#include "run/run_context.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qr::AffirmativeDialogs dialogs;
  qr::NoPump pump;
  qr::RunContext ctx(dialogs, pump);
  const std::string path = qr::fuzz::WriteInput("job.rvj", data, size);
  try {
    qr::ReadRVFile(ctx, path);
  } catch (const qr::RunError&) {
    // "Type mismatch" and the like: the caller's handler shows them.
  }
  return 0;
}
