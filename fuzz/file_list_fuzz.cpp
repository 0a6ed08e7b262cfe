// The file-list readers (plain text and UTF-16, told apart by the file's mark) over any bytes.
// Folders a list names are listed one level only, so a line "/" costs one listing.
#include <filesystem>

#include "enumerate/source_walk.h"
#include "fuzz_support.h"
#include "platform/quiet_seams.h"
#include "platform/errors.h"
#include "run/job_connection.h"
#include "run/run_context.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  namespace fs = std::filesystem;
  const fs::path logs = qr::fuzz::Scratch() / "logs";
  // One job database for the whole session: rows pile up as in a long list.
  fs::create_directories(logs);
  const std::string list = qr::fuzz::WriteInput("list.txt", data, size);

  qr::AffirmativeDialogs dialogs;
  qr::NoPump pump;
  qr::RunContext ctx(dialogs, pump);
  ctx.settings.CopySubs = false;
  ctx.settings.LogPath = logs.string();
  ctx.settings.TargetPath = (qr::fuzz::Scratch() / "target").string();
  ctx.paths = qr::ComputeRunPaths(logs.string());
  if (!fs::exists(ctx.paths.DatabasePath)) qr::CreateJobDatabase(ctx, ctx.paths.DatabasePath);
  try {
    qr::TallyFileList(ctx, "[File List] " + list);
  } catch (const qr::RunError&) {
  }
  return 0;
}
