#pragma once
// The live state of the program, owned for its whole life, as plain records split by lifetime:
// the program's facts, the run (settings, counters, paths, progress pane, what it shows), the
// file in hand; and the two seams to a person.
#include <memory>
#include <string>

#include "jobdb/db_connection.h"
#include "jobdb/job_database.h"
#include "platform/dialogs.h"
#include "platform/event_pump.h"
#include "platform/file_times.h"
#include "platform/find_data.h"
#include "platform/report.h"
#include "platform/unicode_text.h"
#include "run/job_settings.h"
#include "run/program_facts.h"
#include "run/progress_pane.h"

namespace qr {

// What a run shows outside the progress pane: written by the driver and start-up, drawn by the
// main window.
struct RunView {
  std::string mainCaption = kTitleText;
  // lstSources, txtTargetPath, cmdAdd, cmdRemove, cmdBrowseTarget, cmdRun.
  bool runControlsEnabled = true;
  bool jobPickerVisible = false;
};

// The source file the run is working on.
struct FileInHand {
  // Run-wide copies of its creation, last-access and last-modify times.
  FileTime FCT = 0;
  FileTime FLAT = 0;
  FileTime FLMT = 0;
  // Set when the program's own transfer of it failed; read by its verification record.
  bool copyFailed = false;
  // Why that transfer failed, as its record says it ("cannot write target: No space left on
  // device"); empty when the transfer gave no reason.
  std::string copyFailure;
  // Its times as read before anything touched it, when they could be read: what its record
  // checks the source still carries.
  FileTimes sourceTimes;
  bool sourceTimesRead = false;
  // Its size as its row gives it.
  int64_t size = 0;
  // Set for the first row a resumed queue takes: the row in hand when the job was stopped.
  bool rowMayBeHalfCopied = false;
};

// What the handlers of this process reported beyond the counters, so that the headless runner's
// exit status can tell the whole truth. The window's texts never read it.
struct FailureRecord {
  bool boxShown = false;        // a handler's message box
  std::string silentLogPath;    // the silent log a handler wrote to, or tried to
  bool timestampLogWritten = false;  // an error that went to _ts_mismatch.log, uncounted
  std::string missingEntriesLog;     // a file-list entry that named nothing
};

class RunContext : public Reporter {
 public:
  RunContext(Dialogs& dialogsSeam, EventPump& pumpSeam) : dialogs(dialogsSeam), pump(pumpSeam) {}

  ProgramFacts program;

  // The run.
  JobSettings settings;
  RunCounters counters;
  RunPaths paths;
  JobIdentity job;
  bool Resuming = false;
  bool ResumeOfferAccepted = false;

  ProgressPane progress;
  RunView view;
  // The job's extra text, cleared at the start of each run.
  std::string extraText;
  // The number of the next _errors_N.log.
  int errorLogRunNumber = 1;
  // The job database: one connection, absent between stages.
  std::unique_ptr<DbConnection> db;
  // Enumeration's inserts waiting for their transaction.
  QueryBuffer queryBuffer;
  // On for a run whose Common Log path is set and passed its test.
  bool activityLogOn = false;
  FailureRecord failures;
  // The verification log, open from its first line to the run's end.
  UnicodeAppender verificationLog;

  FileInHand file;

  Dialogs& dialogs;
  EventPump& pump;

  // A message box titled with the program's title.
  Answer Message(const std::string& text, Icon icon, Buttons buttons = Buttons::Ok);

  // Reporter: every handler's box or silent-log line passes here and is noted in `failures`.
  bool SilentOption() const override { return settings.Silent; }
  void ShowMessage(const std::string& text, Icon icon) override;
  void WriteSilentLog(const std::string& text) override;
};

}  // namespace qr
