// The job manager's reader of prepared jobs over any bytes.
#include "fuzz_support.h"
#include "jobdef/job_file.h"
#include "platform/errors.h"
#include "run/job_settings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = qr::fuzz::WriteInput("job.lsw", data, size);
  qr::PreparedJob job;
  qr::JobSettings options;
  try {
    qr::LoadFromFile(path, job, options);
  } catch (const qr::RunError&) {
  }
  return 0;
}
