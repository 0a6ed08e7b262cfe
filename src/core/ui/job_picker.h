#pragma once
// The logic of the job picker, the end user's window: the prepared jobs found in the program's
// job folder that are due on this computer, the selected job's instructions, and its Run,
// Settings, Resume and Cancel. It holds no job logic of its own: a job runs through ReadRVFile
// and ExecCopy, as the main window would run it.
#include <optional>
#include <string>
#include <vector>

#include "run/run_context.h"

namespace qr {

struct JobEntry {
  std::string JobFile;          // full path of the .lsw file
  std::string JobName;          // [JNAME]
  std::string JobInstructions;  // [JINSTRUCT]
  std::string JobErrorNotes;    // [JERRINST]
};

// What TryAddJob compares a job with: this program's place and this computer.
struct JobHost {
  std::string programFolder;  // with or without a trailing separator
  std::string programDrive;   // [RVDrive], [RoverDrive]
  std::string computerName;   // [CName], and the lock of [CNAME]
  std::string userName;       // [UName]
};
// The program's folder of `ctx`, its drive, and this computer's and user's names.
JobHost ThisHost(const RunContext& ctx);

// What the window holds.
struct JobsForm {
  std::vector<JobEntry> jobs;  // in the order of lstJobs
  int lstJobsIndex = -1;       // the selected row, -1 for none
  std::string txtInstructions;
  // ExecCopy is on the stack: no second run starts from here.
  bool inRun = false;
};

// The folder of prepared jobs: `_lsw/` in the program's folder.
std::string JobFolder(const std::string& programFolder);

void ClearJobs(std::vector<JobEntry>& jobs);
// Appends the job of `path` when it is due here: it has a name, its completion copy is not in
// its log folder, and it is locked to no other computer. False when it was left out.
bool TryAddJob(std::vector<JobEntry>& jobs, const std::string& path, const JobHost& host);
// Each regular `*.lsw` file of the job folder through TryAddJob, in listing order. A missing or
// unreadable folder adds nothing.
void ScanJobs(std::vector<JobEntry>& jobs, const JobHost& host);
// Ascending by name folded to lower case; jobs of equal names keep their order.
void SortJobs(std::vector<JobEntry>& jobs);
// ClearJobs, ScanJobs, SortJobs: the list as the window shows it when it opens.
std::vector<JobEntry> DueJobs(const JobHost& host);

// Opening the window: the due jobs listed, none selected, and the window shown.
void frmJobs_Load(RunContext& ctx, JobsForm& f);
// A click on lstJobs: the row selected and its instructions shown. A row outside the list
// selects nothing.
void lstJobs_Click(JobsForm& f, int row);
// cmdRun: the selected job read into the main window and run, its file kept as JobFilePath so
// that the run leaves its completion copy. Nothing without a selection or during a run.
// True when the run ended the program (-q, -silent).
bool cmdRun_Click(RunContext& ctx, JobsForm& f);
// A double click on a row: selects it as a click does, then runs it.
bool lstJobs_DblClick(RunContext& ctx, JobsForm& f, int row);
// cmdSettings: the job file to open in the job manager; nothing without a selection.
std::optional<std::string> cmdSettings_Click(const JobsForm& f);
// True when Run, Settings and Resume may be used: outside a run.
bool JobActionsEnabled(const RunContext& ctx, const JobsForm& f);

// The program opens with the picker when started as the autorun file starts it (-as, -q).
bool OpensWithJobPicker(const StartupFlags& flags);
// With -as and exactly one job listed, that job runs at once, as its Run button would run it.
bool RunsAtOnce(const StartupFlags& flags, const JobsForm& f);

}  // namespace qr
