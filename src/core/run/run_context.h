#pragma once
// The live state of the program, owned for its whole life: the job's settings, counters and
// paths, the start-up facts, the progress pane and the two seams to a person.
#include <memory>
#include <string>

#include "jobdb/db_connection.h"
#include "jobdb/job_database.h"
#include "platform/device_env.h"
#include "platform/dialogs.h"
#include "platform/event_pump.h"
#include "platform/report.h"
#include "run/job_settings.h"
#include "run/progress_pane.h"

namespace qr {

inline constexpr const char* kTitleText = "Quillon Ravelin 2.2 Rover Edition";
// The key of the single instance of the window program.
inline constexpr const char* kInstanceKey = "QuillonRavelin2";

// Command-line switches, all cleared before parsing.
struct StartupFlags {
  bool quit = false;         // -q
  bool silent = false;       // -silent
  bool autoStart = false;    // -as: recognised and stored; nothing consults it
  bool stop = false;         // -stop: recognised and stored; nothing consults it
  bool resume = false;       // -resume with a non-empty -lsw= value; nothing consults it
  std::string lswPath;       // -lsw=: quotes removed, trimmed; nothing consults it
};

struct AppPaths {
  std::string programFolder;  // with a trailing separator
  std::string appPath;        // the settings folder, no trailing separator
  std::string hashListFolder;
  std::string localIniPath;
  std::string helpPath;
};

// What the main window shows that a run changes.
struct MainWindowState {
  std::string caption = kTitleText;
  // lstSources, txtTargetPath, cmdAdd, cmdRemove, cmdBrowseTarget, cmdRun.
  bool runControlsEnabled = true;
  bool jobPickerVisible = false;
  // The window's normal (not maximised) place and size in twips, kept up to date by the window
  // program and written to the settings files at close.
  int mainWidthTwips = 12000;
  int mainHeightTwips = 6000;
  int mainTopTwips = 0;
  int mainLeftTwips = 0;
  // CL_OVERRIDE of robocopy_settings.ini, carried from start to close; nothing else reads it.
  std::string clOverride;
};

// The switches of log_processes.ini. Read at start; no stage consults them.
struct LogProcesses {
  bool HASH_SOURCE = true;
  bool HASH_DEST = true;
  bool SOURCE_PROPS = true;
  bool DEST_PROPS = true;
  bool COMPARE_HASHES = true;
  bool COMPARE_DATES = true;
  bool COMPARE_SIZES = true;
  bool LONG_PATH_CHECK = true;
  bool OUTPUT_VLOG = true;
  bool OUTPUT_ERROR = true;
  bool PROC_ARRAY = true;
};

class RunContext : public Reporter {
 public:
  RunContext(Dialogs& dialogsSeam, EventPump& pumpSeam) : dialogs(dialogsSeam), pump(pumpSeam) {}

  JobSettings settings;
  RunCounters counters;
  RunPaths paths;
  JobIdentity job;
  bool Resuming = false;
  bool ResumeOfferAccepted = false;

  StartupFlags flags;
  AppPaths app;
  DeviceEnvironment device;
  bool robocopyAvailable = false;  // set by the ROBOCOPY probe
  std::string titleText = kTitleText;
  std::string versionText;

  ProgressPane progress;
  MainWindowState main;
  LogProcesses logProcesses;
  // The job's extra text, cleared at the start of each run.
  std::string extraText;
  // Set when the program's own transfer of the file in hand failed; read by its verification
  // record.
  bool copyFailed = false;
  // Run-wide copies of the current source file's creation, last-access and last-modify times.
  FileTime FCT = 0;
  FileTime FLAT = 0;
  FileTime FLMT = 0;
  // The number of the next _errors_N.log.
  int errorLogRunNumber = 1;
  // The job database: one connection, absent between stages.
  std::unique_ptr<DbConnection> db;
  // Enumeration's inserts waiting for their transaction.
  QueryBuffer queryBuffer;
  // On for a run whose Common Log path is set and passed its test.
  bool activityLogOn = false;

  Dialogs& dialogs;
  EventPump& pump;

  // A message box titled with the program's title.
  Answer Message(const std::string& text, Icon icon, Buttons buttons = Buttons::Ok);

  // Reporter.
  bool SilentOption() const override { return settings.Silent; }
  void ShowMessage(const std::string& text, Icon icon) override;
  void WriteSilentLog(const std::string& text) override;
};

}  // namespace qr
