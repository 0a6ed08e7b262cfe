#pragma once
// The logic of the job manager ("Lantern Sweep Job Manager") that is not drawing: where a job
// author prepares a job for an end user, keeps it in a .lsw file and can run it at once through
// the main window. Its own fields are a PreparedJob; every other option of the job is the
// options dialog's, that is JobSettings'.
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "jobdef/job_file.h"
#include "run/run_context.h"

namespace qr {

// What the window holds. `job` carries the fields, named after their controls without the
// prefix: txtOrderName is job.OrderName, listSources job.Sources, txtTarget job.Target,
// txtLogPath job.LogPath, cboExtAction job.ExtAction, chkLSWSearchCreated job.LSWSearchCreated.
struct JobManagerForm {
  PreparedJob job;
  std::vector<int> listSourcesSelected;
  std::vector<std::string> cboExtAction = {"Copy only these extensions",
                                           "Do not copy these extensions"};
  // The Active Help pane: the topic last shown stays until another field shows its own.
  std::string lblHelpTopic;
  std::string lblHelpContent;
  // Set by a load of a .lsw file: Save then writes back to it without asking.
  bool JobLoaded = false;
  std::string JobFilePath;
};

inline constexpr const char* kJobManagerCaption = "Lantern Sweep Job Manager";
// The program's own file name, as AUTORUN.INF starts it.
inline constexpr const char* kProgramFileName = "quillon-ravelin";

// The labels beside the controls.
struct FieldLabel {
  const char* control;
  const char* label;
};
extern const std::vector<FieldLabel> kJobManagerLabels;

// Empties the fields. The two paths are left empty too: a cleared form doesn't get its
// defaults back. The computer name stays.
void ClearForm(JobManagerForm& f);

// Where prepared jobs are kept: the program's folder plus _lsw.
std::string LswFolder(const RunContext& ctx);

// Clears the form and loads `path` into it and the options. A file that is not a job file
// (binary, no tagged line) or that can't be read or holds a bad number is refused with a box
// that says so, and then the form and the options are left as they were. True when loaded; a
// .lsw file loaded becomes the window's JobFilePath. Nothing is loaded while a run is under way.
bool OpenJobFile(RunContext& ctx, JobManagerForm& f, const std::string& path);
// cmdLoad, mnuLoadLSW.
void cmdLoad_Click(RunContext& ctx, JobManagerForm& f);
// cmdSave: the job name is required; a job never saved (or loaded from a .rvj) asks for a name.
// Neither Save nor Save As remembers the chosen name.
void cmdSave_Click(RunContext& ctx, JobManagerForm& f);
void cmdSaveAs_Click(RunContext& ctx, JobManagerForm& f);

// `text` with [RoverDrive], [RVDrive], [JobName], [CName], [UName] and [Date] replaced in that
// order, as plain text: a job name holding another variable gets that one replaced too.
std::string ReplaceJobPathVariables(const RunContext& ctx, const std::string& text,
                                    const std::string& jobName);

// The run button's hand-over: the main window's sources and paths, the job's identity and the
// options take this window's fields, variables replaced; sources go through AddSource now.
void HandOverToMain(RunContext& ctx, JobManagerForm& f);
// cmdRun: the hand-over, then `execCopy` (the main window's run). Nothing while a run is under
// way, since the hand-over would change the job being run.
void cmdRun_Click(RunContext& ctx, JobManagerForm& f, const std::function<void()>& execCopy);

// The source list: entries go in as typed, variables and keywords unexpanded, since they are
// meant for the machine that runs the job.
void lnkTypePath_Click(RunContext& ctx, JobManagerForm& f);
void lnkAddFolder_Click(RunContext& ctx, JobManagerForm& f);
void lnkAddFileList_Click(RunContext& ctx, JobManagerForm& f);
void lnkRemove_Click(JobManagerForm& f);
void listSources_DblClick(RunContext& ctx, JobManagerForm& f, int row);
void listSources_Dropped(JobManagerForm& f, const std::vector<std::string>& paths);

// The four Browse buttons; a picker closed without a choice changes nothing.
void cmdBrowseTarget_Click(RunContext& ctx, JobManagerForm& f);
void cmdLogPath_Click(RunContext& ctx, JobManagerForm& f);
void cmdCommonLog_Click(RunContext& ctx, JobManagerForm& f);
void cmdBrowseExt_Click(RunContext& ctx, JobManagerForm& f);

// Active Help: the text of `topic` (empty for an unknown one), `date` standing for today in the
// path topics; ShowHelp fills the pane with today's date.
std::string HelpText(const std::string& topic, const std::string& date);
void ShowHelp(JobManagerForm& f, const std::string& topic);

// AUTORUN.INF for a program in `programFolder` on the drive mounted at `drive` (empty for "/").
struct AutorunFile {
  std::string path;
  std::string text;
};
AutorunFile MakeAutorun(const std::string& programFolder, const std::string& drive,
                        bool autostart);
// mnuAutorun: two questions, then AUTORUN.INF at the root of the program's drive (`drive`, or
// the mount point that holds the program when not given). A failed write is said in a box.
void mnuAutorun_Click(RunContext& ctx, std::optional<std::string> drive = std::nullopt);

// mnuHashPath: a folder picker for the hash list folder, kept in local.ini at once; a box then
// says what that folder is for, since no run makes or reads hash lists.
void mnuHashPath_Click(RunContext& ctx);

}  // namespace qr
