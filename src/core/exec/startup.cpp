#include "exec/startup.h"

#include <filesystem>

#include "jobdef/settings_files.h"
#include "platform/errors.h"
#include "platform/machine.h"
#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "platform/text.h"

#ifndef RAVELIN_VERSION_TEXT
#define RAVELIN_VERSION_TEXT "0.0.0"
#endif

namespace qr {

StartupFlags ParseSwitches(const std::vector<std::string>& args) {
  StartupFlags f;
  bool resumeSwitch = false;
  for (const auto& a : args) {
    if (a == "-q") f.quit = true;
    if (a == "-silent") f.silent = true;
    if (a == "-as") f.autoStart = true;
    if (a == "-stop") f.stop = true;
    if (a == "-resume") resumeSwitch = true;
    if (a.substr(0, 5) == "-lsw=") f.lswPath = Trim(ReplaceAll(a.substr(5), "\"", ""));
  }
  f.resume = resumeSwitch && !f.lswPath.empty();
  return f;
}

namespace {

// The settings folder: the device's application data folder on a portable device; otherwise the
// program's own folder when it is writable, so settings travel with the program; otherwise the
// user's configuration folder, for a program installed system-wide.
std::string ChooseAppPath(const RunContext& ctx, const std::string& programFolder) {
  if (ctx.program.device.onDevice) return WithoutTrailingSep(ctx.program.device.U3_APP_DATA_PATH);
  if (IsWritableFolder(programFolder)) return programFolder;
  std::string config = ConfigHome() + "/quillon-ravelin";
  std::error_code ec;
  std::filesystem::create_directories(config, ec);
  return config;
}

// What the main window's load does: option start values, single instance, ROBOCOPY probe and
// the settings files, in that order. A failure here is shown and start-up goes on.
void LoadMainWindow(RunContext& ctx, const StartupInputs& inputs, StartupResult& result) {
  JobSettings& s = ctx.settings;
  try {
    ctx.program.app.appPath = WithoutTrailingSep(ctx.program.app.appPath);
    if (inputs.loadOptions) inputs.loadOptions();
    ctx.program.robocopyAvailable = false;

    s.Ravelin = s.CopyEmpties = s.CreateLog = s.HashDest = s.HashSource = true;
    s.CopySubs = s.CopyData = s.CopyAttributes = s.CopyTimestamps = s.CopyZB = true;

    ctx.program.titleText = kTitleText;
    ctx.program.versionText = RAVELIN_VERSION_TEXT;
    ctx.program.app.helpPath = ctx.program.app.programFolder + "RavelinHelp.html";
    ctx.view.mainCaption = ctx.program.titleText;

    if (inputs.singleInstance) {
      result.lock = std::make_unique<SingleInstanceLock>(kInstanceKey, inputs.instanceLockFolder);
      if (!result.lock->acquired()) {
        ctx.Message("Another instance of this application is already running.", Icon::Information);
        result.endProgram = true;
        return;
      }
    }

    if (ProbeProgram({"ROBOCOPY", "/?"})) {
      ctx.program.robocopyAvailable = true;
    } else {
      s.Robocopy = false;
      s.enabled.Robocopy = false;
    }

    if (FileExists(ctx.program.app.appPath + "/robocopy_settings.ini")) {
      GetINIVals(ctx);
    } else {
      s.CopySubs = true;
      s.CopyBackup = true;
      SetINIVals(ctx);
    }
    LoadLogProcesses(ctx);

    // Whatever the file said, these are on.
    s.CopyAttributes = s.CopyData = s.CopyTimestamps = s.CopySubs = s.CopyZB = true;
    s.HashDest = s.HashSource = s.CreateLog = true;

    GetDefaults(ctx);
  } catch (const RunError& e) {
    ctx.Message("FL Error\r\n" + IntText(e.number()) + " : " + e.description(), Icon::None);
  }
}

}  // namespace

StartupResult Startup(RunContext& ctx, const StartupInputs& inputs) {
  StartupResult result;
  std::string stage;
  try {
    stage = "Setting default values";
    ctx.program.flags = StartupFlags{};

    stage = "Determining relative paths";
    std::string folder = WithoutTrailingSep(
        inputs.programFolder.empty() ? ProgramFolder() : inputs.programFolder);
    ctx.program.app.programFolder = WithTrailingSep(folder);

    stage = "Setting environment";
    ctx.program.device = ReadDeviceEnvironment(inputs.environment,
                                       DeviceDefaults{folder, ProgramDrive(folder), MachineId()});
    ctx.program.app.appPath = ChooseAppPath(ctx, folder);

    stage = "Reading command line instructions";
    ctx.program.flags = ParseSwitches(inputs.args);
    ctx.program.app.hashListFolder = ctx.program.app.programFolder + "_hashlist/";
    ctx.program.app.localIniPath = ctx.program.app.programFolder + "local.ini";

    stage = "Showing main interface";
    LoadMainWindow(ctx, inputs, result);
  } catch (const RunError& e) {
    ctx.Message("Stage: " + stage + IntText(e.number()) + ": " + e.description(), Icon::None);
    result.endProgram = true;
  }
  return result;
}

void SaveOnClose(RunContext& ctx) {
  SetINIVals(ctx);
  WriteLocalSettings(ctx);
}

}  // namespace qr
