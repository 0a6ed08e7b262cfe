#pragma once
// What most tests of a run need: a fresh temporary folder, scripted boxes, a pump that does
// nothing, and a context whose log folder (with the run's files in it) is that folder. Use it
// as a base of a test fixture, or as a member.
#include "run/job_settings.h"
#include "run/run_context.h"
#include "support/fake_dialogs.h"
#include "support/temp_dir.h"

namespace qr::test {

struct RunFixture {
  TempDir dir;
  FakeDialogs dialogs;
  FakePump pump;
  RunContext ctx{dialogs, pump};

  RunFixture() {
    ctx.settings.LogPath = dir.path();
    ctx.paths = ComputeRunPaths(dir.path());
  }
};

}  // namespace qr::test
