#pragma once
// What the program learns at start-up and keeps until it ends; no run changes it.
#include <string>

#include "platform/device_env.h"

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
  // The person asked for an end command found in a job record to be run (the runner's
  // --allow-end-command). No run writes one there, so without it such a line is left out.
  bool allowRecordEndCommand = false;
};

struct AppPaths {
  std::string programFolder;  // with a trailing separator
  std::string appPath;        // the settings folder, no trailing separator
  std::string hashListFolder;
  std::string localIniPath;
  std::string helpPath;
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

// The main window's normal (not maximised) place and size in twips: read from the settings
// files at start, kept up to date by the window program, written back at close.
struct WindowGeometry {
  int widthTwips = 12000;
  int heightTwips = 6000;
  int topTwips = 0;
  int leftTwips = 0;
};

struct ProgramFacts {
  StartupFlags flags;
  AppPaths app;
  DeviceEnvironment device;
  bool robocopyAvailable = false;  // set by the ROBOCOPY probe
  std::string titleText = kTitleText;
  std::string versionText;
  LogProcesses logProcesses;
  WindowGeometry geometry;
  // CL_OVERRIDE of robocopy_settings.ini, carried from start to close; nothing else reads it.
  std::string clOverride;
};

}  // namespace qr
