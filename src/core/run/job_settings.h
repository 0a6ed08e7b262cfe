#pragma once
// What the user asked for (JobSettings), what has happened so far in this run (RunCounters) and
// where this run's outputs lie (RunPaths). JobSettings is one plain record that the options
// dialog, the job file readers and the settings loaders all write into; its start values are
// those after a plain start with no settings file present.
#include <cstdint>
#include <string>
#include <vector>

#include "platform/dates.h"

namespace qr {

class Dialogs;

// cboCollision list indexes.
inline constexpr int kCollisionDoNothing = 0;
inline constexpr int kCollisionOverwrite = 1;
inline constexpr int kCollisionRename = 2;
// cboExtension list indexes.
inline constexpr int kExtensionCopyOnly = 0;
inline constexpr int kExtensionDoNotCopy = 1;

inline constexpr std::string_view kFileListMarker = "[File List] ";

struct JobSettings {
  // Paths and lists.
  std::vector<std::string> Sources;
  std::string TargetPath;
  std::string LogPath;
  std::string CommonLogPath;
  std::vector<std::string> ExclusionPatterns;
  std::vector<std::string> InclusionPatterns;
  std::string Extensions;
  std::string ExtListFile;
  int Extension = kExtensionCopyOnly;
  std::vector<std::string> ExtensionList;  // derived at the start of each run

  // Date filter: MM/DD/YYYY in three boxes each.
  std::string StartMonth, StartDay, StartYear;
  std::string EndMonth, EndDay, EndYear;
  bool SearchCreated = false;
  bool SearchModified = false;
  bool SearchAccessed = false;

  // What the run does.
  bool Ravelin = true;
  bool Robocopy = false;
  bool CopyFiles = true;
  bool CopySubs = true;
  bool CopyEmpties = true;
  bool CreateSubs = true;
  bool FullPaths = false;
  bool RootFolders = false;
  int Collision = kCollisionDoNothing;
  bool Silent = false;
  bool CreateLog = true;
  bool HashSource = true;
  bool HashDest = true;
  bool CreateTally = false;
  bool CreateFileList = false;
  bool SeparateTS = false;
  std::string EndCommand;
  std::string StartCommand;

  // ROBOCOPY flags.
  bool CopyData = true;
  bool CopyAttributes = true;
  bool CopyTimestamps = true;
  bool CopySecurity = false;
  bool CopyOwner = false;
  bool CopyAudit = false;
  bool CopyBackup = true;
  bool CopyRestartable = false;
  bool CopyZB = true;
  bool ManualFlags = false;
  std::string ManualFlagsText;

  // Shown by the options dialog and named by the job format; no effect on a run.
  bool HashFilter = false;
  bool SkipDupes = false;
  bool CreateHashList = false;
  bool SkipSystem = false;
  bool SkipSysFolders = false;
  bool SkipTemp = false;

  // Which controls of the options dialog take input. Kept with the values so that a job file
  // read headless obeys the same rules as the dialog.
  struct Enabled {
    bool Robocopy = true;  // off when the ROBOCOPY probe failed
    bool RootFolders = false;
    bool CreateSubs = true;
    bool HashSource = true;
    bool HashDest = true;
    bool ManualFlagsText = false;
    bool RobocopyFlagBoxes = true;  // the nine flag boxes that manual flags replace
    bool HashFilter = false;
    bool SkipDupes = false;
    bool CreateHashList = false;
  } enabled;
};

// The dialog's click rules: setting a box from code fires its rule when the value changes, so a
// job file read headless applies them exactly as the dialog does.
void SetRobocopy(JobSettings& s, bool on);
void SetRavelin(JobSettings& s, bool on);
void SetCreateLog(JobSettings& s, bool on);
void SetFullPaths(JobSettings& s, bool on);
void SetManualFlags(JobSettings& s, bool on);
void SetCopyBackup(JobSettings& s, bool on);
void SetCopyRestartable(JobSettings& s, bool on);
void SetCopyZB(JobSettings& s, bool on);

// The first 11 characters of the trimmed entry equal "[File List]".
bool IsFileList(const std::string& entry);
// The ROBOCOPY flag string: "/COPY:" letters, the switch texts, "/R:4 /W:2".
std::string GetOptionString(const JobSettings& s);
// Fills ExtensionList from Extensions and ExtListFile. A missing list file is reported through
// `dialogs` under `title`, and the list keeps what it has.
void BuildExtensionList(JobSettings& s, Dialogs& dialogs, const std::string& title);

// A line end in the extension box counts as a comma, whichever form (CR LF, CR, LF) it has.
std::string LineEndsToCommas(std::string_view text);

struct JobIdentity {
  std::string JobName;
  std::string SpecialInstructions;
  std::string ErrorInstructions;
  std::string JobFilePath;
  // Read back from a job record; nothing in a run consults them.
  std::string LastDir;
  std::string LastSrc;
};

struct RunCounters {
  int32_t TotalFiles = 0;
  int64_t TotalBytes = 0;
  int32_t FilesProcessed = 0;
  int64_t BytesProcessed = 0;
  int64_t ResumeBaseBytes = 0;
  int32_t ErrorCount = 0;
  int32_t HashExcludedFiles = 0;
  int64_t HashExcludedBytes = 0;
  int32_t TimestampMismatches = 0;
  TimePoint StartTime{};
  TimePoint CopyStartTime{};
  TimePoint EndTime{};
  bool RunActive = false;
  bool CopyPhaseActive = false;
  bool CancelRequested = false;
  bool SkipRequested = false;
  std::string CurrentSourceRoot;
};

struct RunPaths {
  std::string DatabasePath;
  std::string VerificationLogPath;
  std::string JobRecordPath;
  std::string HashListPath;
  std::string ExclusionLogPath;
  std::string TallyPath;
  std::string ErrorLogPath;
  std::string TimestampLogPath;
  std::string FileListPath;
  std::string SuspectLogPath;
};

// Every run path from the log folder as typed, a separator added if it has none.
RunPaths ComputeRunPaths(const std::string& logPath);

}  // namespace qr
