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
#include "platform/find_data.h"
#include "platform/report.h"
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

  FileInHand file;

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
