#pragma once
// From process start to an idle program: paths, device environment, switches, option start
// values, ROBOCOPY probe, settings files; and the normal way out.
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/single_instance.h"
#include "run/run_context.h"

namespace qr {

// Switches from the already split command line; unknown arguments are ignored.
StartupFlags ParseSwitches(const std::vector<std::string>& args);

struct StartupInputs {
  std::vector<std::string> args;          // without the program name
  std::string programFolder;              // empty: the running executable's folder
  std::vector<std::string> environment;   // "NAME=value" entries
  bool singleInstance = false;            // the window program holds the instance key
  std::string instanceLockFolder;         // empty: the runtime folder
  // The options dialog's load, run before the settings files are read so that they overwrite
  // what it sets. The runner has no dialog.
  std::function<void()> loadOptions;
};

struct StartupResult {
  bool endProgram = false;  // a stage failed, or another instance runs
  std::unique_ptr<SingleInstanceLock> lock;
};

StartupResult Startup(RunContext& ctx, const StartupInputs& inputs);

// The normal close: saves the settings. Not run when a run ends the program.
void SaveOnClose(RunContext& ctx);

}  // namespace qr
