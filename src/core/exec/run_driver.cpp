#include "exec/run_driver.h"

#include <fcntl.h>

#include <optional>
#include <vector>

#include "copy/target_paths.h"
#include "copy/work_queue.h"
#include "enumerate/source_walk.h"
#include "exec/report.h"
#include "exec/resume.h"
#include "jobdb/job_database.h"
#include "jobdef/job_file.h"
#include "jobdef/path_variables.h"
#include "platform/confined_io.h"
#include "platform/errors.h"
#include "platform/logs.h"
#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/plain_text.h"
#include "platform/process.h"
#include "platform/text.h"
#include "platform/times_io.h"
#include "platform/unicode_text.h"
#include "run/job_connection.h"
#include "verify/verification_record.h"

namespace qr {

namespace {

// A labelled failure to write one of the job's own files; ends the run at once.
struct JobFileWriteFailure {
  std::string path;
};

// A job database that could not be opened or read: reported by its validation, and left as it
// is, so the run writes nothing into it and ends.
struct DatabaseUnusable {};

// Exists as a folder, or could be created with every missing level.
bool FolderExistsOrCreated(RunContext& ctx, const std::string& path) {
  if (FileOrDirExists("", path)) return true;
  CreateTargetDirs(ctx, path, "");
  return FileOrDirExists("", path);
}

ExecResult Refuse(RunContext& ctx, const std::string& text, Icon icon) {
  if (ctx.program.flags.silent) return {ExecOutcome::Refused, true};
  ctx.Message(text, icon);
  return {ExecOutcome::Refused, false};
}

// Phase 2: every test in its order; the first that fails refuses the run.
std::optional<ExecResult> Validate(RunContext& ctx) {
  const JobSettings& s = ctx.settings;
  if (s.Sources.empty()) {
    return Refuse(ctx, "You have to choose at least one source.", Icon::Information);
  }
  if (Trim(s.TargetPath).empty()) {
    return Refuse(ctx, "You have to choose a target path.", Icon::Information);
  }
  if (!FolderExistsOrCreated(ctx, s.TargetPath)) {
    return Refuse(ctx,
                  "The target path you have chosen does not exist and could not be created.",
                  Icon::Critical);
  }
  if (!FolderExistsOrCreated(ctx, s.LogPath)) {
    return Refuse(ctx,
                  "The log file path you have chosen does not exist and could not be created.",
                  Icon::Critical);
  }
  bool commonLogOk = false;
  if (!Trim(s.CommonLogPath).empty()) {
    if (!FolderExistsOrCreated(ctx, s.CommonLogPath)) {
      return Refuse(ctx, "The Common Log path does not exist and could not be created.",
                    Icon::Critical);
    }
    commonLogOk = true;
  }
  // The target text is searched in each source entry, case-sensitively: that is the direction
  // of the test, whatever its message says.
  for (const auto& source : s.Sources) {
    if (!IsFileList(source) && source.find(s.TargetPath) != std::string::npos) {
      return Refuse(ctx,
                    "The target path you have chosen is a child of one of the source paths. "
                    "Please choose a new target.",
                    Icon::Exclamation);
    }
  }
  ctx.activityLogOn = commonLogOk;
  return std::nullopt;
}

std::string JobNotice(const RunContext& ctx) {
  std::string t;
  if (!Trim(ctx.job.JobName).empty()) t += "Running job: " + ctx.job.JobName + "\r\n\r\n";
  if (!Trim(ctx.job.SpecialInstructions).empty()) {
    t += "Special Instructions:\r\n" + ctx.job.SpecialInstructions + "\r\n\r\n";
  }
  if (!Trim(ctx.job.ErrorInstructions).empty()) {
    t += "In case of errors:\r\n" + ctx.job.ErrorInstructions + "\r\n\r\n";
  }
  return t + "Please close all applications before continuing.";
}

// Phase 8: a job that retries from its own error list never overwrites that list.
void ComputePaths(RunContext& ctx) {
  ctx.paths = ComputeRunPaths(ctx.settings.LogPath);
  // From here on nothing below the run's own folders is reached through a link.
  std::vector<std::string> roots = {ctx.settings.TargetPath, ctx.settings.LogPath};
  if (ctx.activityLogOn) roots.push_back(ctx.settings.CommonLogPath);
  SetConfinedRoots(std::move(roots));
  for (const auto& source : ctx.settings.Sources) {
    if (source == std::string(kFileListMarker) + ctx.paths.ErrorLogPath) {
      ctx.paths.ErrorLogPath = FolderPart(ctx.paths.ErrorLogPath) + "_errors_" +
                               IntText(ctx.errorLogRunNumber) + ".log";
      ++ctx.errorLogRunNumber;
    }
  }
}

// Phase 9: the database and the job's files.
void PrepareJobFiles(RunContext& ctx) {
  const JobSettings& s = ctx.settings;
  // The job's database and logs are real files in its log folder: a link at one of their names
  // goes before anything is decided by their existence.
  for (const char* side : {"", "-wal", "-shm", "-journal"}) {
    RemoveLinkAt(ctx.paths.DatabasePath + side);
  }
  RemoveLinkAt(ctx.paths.VerificationLogPath);
  RemoveLinkAt(ctx.paths.ErrorLogPath);
  if (FileExists(ctx.paths.DatabasePath)) {
    if (!ValidateJobDatabase(ctx, ctx.paths.DatabasePath)) throw DatabaseUnusable{};
  } else {
    CreateJobDatabase(ctx, ctx.paths.DatabasePath);
  }
  if (s.CreateFileList) {
    int err = 0;
    if (!WriteWholeFile(ctx.paths.FileListPath, "", &err)) throw SystemError(err);
  }
  if (s.CreateLog) {
    if (ctx.Resuming) {
      SetResumeCounts(ctx);
    } else if (!FileExists(ctx.paths.VerificationLogPath)) {
      const std::string& csv = ctx.paths.VerificationLogPath;
      if (!CreateUnicodeFile(csv) ||
          !AppendUnicodeText(csv, VerificationHeader(s) + "\r\n", false, &ctx)) {
        throw JobFileWriteFailure{csv};
      }
    }
  }
}

void Enumerate(RunContext& ctx) {
  const JobSettings& s = ctx.settings;
  RunCounters& c = ctx.counters;
  GoDebug("Enumerating " + IntText(static_cast<int64_t>(s.Sources.size())) + " source");
  if (ctx.activityLogOn) {
    std::string line = "Began Processing";
    if (!Trim(ctx.job.JobFilePath).empty()) line += " (Settings=" + ctx.job.JobFilePath + ")";
    line += " (Target=" + s.TargetPath + ")";
    line += " (Logs=" + s.LogPath + ")";
    ActivityLog(ctx, line);
  }
  // A resumed job whose walk never ended (killed or cancelled during it) is walked again, and
  // only files without a row are added: nothing named for collection is left out.
  ctx.queryBuffer.rewalkKeyLimit = 0;
  const bool walk = !ctx.Resuming || !WalkEnded(ctx);
  if (walk) {
    if (ctx.Resuming) {
      BeginRewalk(ctx);
    } else {
      c.TotalFiles = 0;
    }
    MarkWalkEnded(ctx, false);
    for (const auto& entry : s.Sources) {
      if (IsFileList(entry)) {
        GoDebug("Enumerating file list: " + entry);
        TallyFileList(ctx, entry);
      } else if (!Trim(entry).empty()) {
        if (FileOrDirExists("", entry)) {
          GoDebug("Enumerating folder: " + entry);
          c.CurrentSourceRoot = entry;
          c.TotalFiles += TallyFolder(ctx, entry);
        } else {
          GoDebug("Enumerating single file: " + entry);
          c.CurrentSourceRoot = FolderPart(entry);
          TallySingleFile(ctx, entry);
        }
      }
    }
    if (!c.CancelRequested) MarkWalkEnded(ctx, true);
    ctx.queryBuffer.rewalkKeyLimit = 0;
    DropConnection(ctx);
    // A resume leaves the job record alone.
    if (!ctx.Resuming) {
      AddJobFileEntry(ctx, "[NUMFILES]\t" + IntText(c.TotalFiles));
      AddJobFileEntry(ctx, "[JOBSIZE]\t" + IntText(c.TotalBytes));
    }
  }
  GoDebug("Enumeration complete. Found " + IntText(c.TotalFiles) + ".\r\n");
  GoDebug("Copying " + IntText(c.TotalFiles) + " Files.");
  if (c.TotalFiles < 1) {
    GoDebug("No files found to copy");
    if (!s.CopyEmpties && !ctx.program.flags.silent) {
      ctx.Message("There were no files found to copy.", Icon::Information);
    }
  }
}

void CopySources(RunContext& ctx) {
  const JobSettings& s = ctx.settings;
  RunCounters& c = ctx.counters;
  for (const auto& entry : s.Sources) {
    if (Trim(entry).empty()) continue;
    GoDebug("Current Source: " + entry);
    GoDebug("Check if list...");
    if (IsFileList(entry)) {
      GoDebug("Is list...");
      GoDebug("Copying file list: " + entry);
      CopyFileListSource(ctx, entry);
      GoDebug("Finished copying file list: " + entry);
    } else {
      GoDebug("Not list...");
      GoDebug("Checking if folder...");
      if (FileOrDirExists("", entry)) {
        GoDebug("Is folder.");
        GoDebug("Copying Folder: " + entry);
        c.CurrentSourceRoot = entry;
        CopyFolderSource(ctx, entry);
        GoDebug("Finished Copying Folder: " + entry);
      } else {
        GoDebug("Not folder.");
        GoDebug("Copying File: " + entry);
        c.CurrentSourceRoot = ParentFolder(entry);
        ProcessJobQueue(ctx);
        GoDebug("Finished Copying File: " + entry);
      }
    }
    if (!ctx.Resuming) AddJobFileEntry(ctx, "[LASTSRC]\t" + entry);
  }
}

ExecResult CloseDown(RunContext& ctx) {
  RunCounters& c = ctx.counters;
  ExecResult result{c.CancelRequested ? ExecOutcome::Cancelled : ExecOutcome::Completed, false};
  c.RunActive = false;
  c.CopyPhaseActive = false;
  c.CancelRequested = false;
  ctx.view.runControlsEnabled = true;
  ctx.Resuming = false;
  ctx.ResumeOfferAccepted = false;
  if (!Trim(ctx.settings.EndCommand).empty()) {
    // Started and left to run; a failure to start is ignored. The person sees first what runs.
    const std::string command = ExpandVariables(ctx, ctx.settings.EndCommand);
    ctx.dialogs.Notice("Starting the end command: " + command);
    StartResult started = StartShellHidden(command);
    if (started.started) AbandonChild(started.pid);
  }
  if (ctx.program.flags.silent || ctx.program.flags.quit) result.endProgram = true;
  return result;
}

ExecResult RunPhases(RunContext& ctx) {
  JobSettings& s = ctx.settings;
  RunCounters& c = ctx.counters;

  // Phase 1: reset.
  c.HashExcludedFiles = 0;
  c.HashExcludedBytes = 0;
  const bool copyPassAllowed = true;
  ctx.progress.listErrors.clear();
  ctx.progress.lblExclusions.clear();
  BuildExtensionList(s, ctx.dialogs, ctx.program.titleText);
  ctx.extraText.clear();
  ctx.errorLogRunNumber = 1;
  c.CopyPhaseActive = false;
  ctx.paths.DatabasePath = WithTrailingSep(s.LogPath) + "_job.sdb";
  ctx.ResumeOfferAccepted = ctx.Resuming;
  c.SkipRequested = false;
  if (ctx.program.flags.quit) ctx.view.jobPickerVisible = false;

  // Phase 2: validation.
  if (auto refused = Validate(ctx)) return *refused;

  // Phase 4: database warning.
  if (!ctx.Resuming && !ctx.program.flags.silent && FileExists(ctx.paths.DatabasePath)) {
    Answer a = ctx.Message(
        "WARNING! A database already exists in this directory. If you continue, all file data "
        "encountered during this run will be appended to this database. This may cause "
        "unpredictable results.\r\nDo you want to continue anyway?",
        Icon::Exclamation, Buttons::YesNo);
    if (a != Answer::Yes) return {ExecOutcome::Refused, false};
  }

  // Phase 5: job notice.
  if (!ctx.program.flags.silent) {
    if (ctx.Message(JobNotice(ctx), Icon::Information, Buttons::OkCancel) != Answer::Ok) {
      return {ExecOutcome::Refused, false};
    }
  }

  // Phase 7: progress set-up.
  ctx.progress.ResetValues();
  c.RunActive = true;
  ctx.view.runControlsEnabled = false;
  c.StartTime = Clock::now();
  c.ErrorCount = 0;
  if (!ctx.Resuming) {
    c.BytesProcessed = 0;
    c.TotalBytes = 0;
    c.FilesProcessed = 0;
    c.TotalFiles = 0;
    c.ResumeBaseBytes = 0;
    c.ErrorCount = 0;
    c.HashExcludedBytes = 0;
    c.HashExcludedFiles = 0;
    c.CancelRequested = false;
  }
  ctx.view.mainCaption = ctx.program.titleText + " - Copying";

  // Phases 8 to 10: paths, database, job record.
  ComputePaths(ctx);
  PrepareJobFiles(ctx);
  if (!ctx.Resuming && !WriteJobRecord(ctx)) throw JobFileWriteFailure{ctx.paths.JobRecordPath};

  // Phase 11: show progress.
  if (!ctx.program.flags.silent) ctx.progress.visible = true;
  ctx.progress.byteBarVisible = !s.Robocopy;
  ctx.progress.Progress_Set(0);

  // Phase 12: enumeration.
  Enumerate(ctx);

  // Phase 13: copying.
  c.CopyStartTime = Clock::now();
  c.CopyPhaseActive = true;
  ctx.file.rowMayBeHalfCopied = ctx.Resuming;
  if (s.CopyFiles && copyPassAllowed) CopySources(ctx);
  ctx.file.rowMayBeHalfCopied = false;
  GoDebug("Copy process completed.");
  c.EndTime = Clock::now();
  ctx.view.mainCaption = ctx.program.titleText;
  ctx.progress.visible = false;

  // Phase 14: report.
  FinishRunReport(ctx);

  // Phase 15: close-down.
  return CloseDown(ctx);
}

}  // namespace

namespace {

// Sources named as symbolic links: every look through one during the run moves the link's own
// access time, so the times it had at the start are put back, the link not followed, at the end.
class SourceLinkTimes {
 public:
  explicit SourceLinkTimes(const std::vector<std::string>& sources) {
    for (const std::string& path : sources) {
      Link l{path};
      if (!IsFileList(path) && ReadLinkTimes(AT_FDCWD, path, l.accessed, l.modified)) {
        links_.push_back(l);
      }
    }
  }
  ~SourceLinkTimes() {
    for (const Link& l : links_) WriteLinkTimes(AT_FDCWD, l.path, l.accessed, l.modified);
  }
  SourceLinkTimes(const SourceLinkTimes&) = delete;
  SourceLinkTimes& operator=(const SourceLinkTimes&) = delete;

 private:
  struct Link {
    std::string path;
    FileTime accessed = 0;
    FileTime modified = 0;
  };
  std::vector<Link> links_;
};

}  // namespace

ExecResult ExecCopy(RunContext& ctx) {
  const ConfinedRootsScope confined;
  // However the run ends, its verification log is let go.
  struct LogsClosed {
    RunContext& ctx;
    ~LogsClosed() { ctx.verificationLog.Close(); }
  } logsClosed{ctx};
  const SourceLinkTimes linkTimes(ctx.settings.Sources);
  // Each handler ends the run at once: no close-down, and the run's state stays as it was.
  try {
    return RunPhases(ctx);
  } catch (const JobFileWriteFailure& f) {
    ctx.ShowMessage("Could not create the file/directory at " + f.path +
                    "\r\n\r\nPlease verify that you have the proper permissions to create this "
                    "file or directory.\r\nIf you are using a network path, please note that the "
                    "root paths of networked destinations may not be modifiable from this "
                    "location.",
                Icon::Critical);
  } catch (const DatabaseUnusable&) {
    // Its box has been shown.
  } catch (const RunError& e) {
    ctx.ShowMessage("Exec Error\r\n" + IntText(e.number()) + " : " + e.description(), Icon::None);
  } catch (const std::exception& e) {
    ctx.ShowMessage("Exec Error\r\n" + IntText(kInternalErrorNumber) + " : " + e.what(),
                    Icon::None);
  }
  return {ExecOutcome::Aborted, false};
}

}  // namespace qr
