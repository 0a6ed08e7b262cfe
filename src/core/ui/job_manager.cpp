#include "ui/job_manager.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "jobdef/settings_files.h"
#include "jobdef/source_list.h"
#include "platform/dates.h"
#include "platform/errors.h"
#include "platform/machine.h"
#include "platform/paths.h"
#include "platform/plain_text.h"
#include "platform/text.h"

namespace qr {

const std::vector<FieldLabel> kJobManagerLabels = {
    {"txtOrderName", "Job Name:"},
    {"txtInstructions", "Instructions:"},
    {"txtErrorNotes", "Error Notes:"},
    {"txtTarget", "Job Target Path:"},
    {"txtLogPath", "Log Path:"},
    {"txtCommonLog", "Common Logs:"},
    {"listSources", "Sources:"},
    {"txtExt", "Ext/Type Filter:"},
    {"cboExtAction", "Action:"},
    {"txtExtFile", "Extension List File:"},
    {"txtCompName", "Computer Name:"},
};

namespace {

std::string Drive(const RunContext& ctx) {
  return ProgramDrive(WithoutTrailingSep(ctx.program.app.programFolder));
}

// A file that no job file reader could make sense of: bytes that no text holds, or not one line
// of a tag, a TAB and a value.
bool LooksLikeJobFile(const std::string& bytes) {
  if (bytes.find('\0') != std::string::npos) return false;
  for (const std::string& line : SplitLines(bytes)) {
    const size_t tab = line.find('\t');
    if (tab != std::string::npos && tab >= 2 && line.front() == '[' && line[tab - 1] == ']') {
      return true;
    }
  }
  return false;
}

void Save(RunContext& ctx, JobManagerForm& f, bool askAlways, const char* title) {
  if (Trim(f.job.OrderName).empty()) {
    ctx.Message("You must enter a Job Name before saving.", Icon::Information);
    return;
  }
  std::string path;
  if (askAlways || Trim(f.JobFilePath).empty()) {
    path = ctx.dialogs.SaveFile(title, "Lantern Sweep files (*.lsw)|*.lsw", LswFolder(ctx));
    // Only a name given gets the extension: a closed dialog saves nothing.
    if (!path.empty() && LowerCase(path.size() >= 4 ? path.substr(path.size() - 4) : path) !=
                             ".lsw") {
      path += ".lsw";
    }
  } else {
    path = f.JobFilePath;
  }
  // A job that can't be written is not reported: the author sees the file missing when loading.
  if (!Trim(path).empty()) SaveJobFile(f.job, ctx.settings, path);
}

}  // namespace

void ClearForm(JobManagerForm& f) {
  PreparedJob& j = f.job;
  for (std::string* field : {&j.OrderName, &j.Instructions, &j.ErrorNotes, &j.Target, &j.LogPath,
                             &j.CommonLog, &j.Ext, &j.ExtFile, &j.BeginMonth, &j.BeginDay,
                             &j.BeginYear, &j.EndMonth, &j.EndDay, &j.EndYear}) {
    field->clear();
  }
  j.Sources.clear();
  f.listSourcesSelected.clear();
  j.ExtAction = kExtensionCopyOnly;
  j.LSWSearchCreated = j.LSWSearchModified = j.LSWSearchAccessed = false;
}

std::string LswFolder(const RunContext& ctx) {
  return WithTrailingSep(ctx.program.app.programFolder) + "_lsw";
}

bool OpenJobFile(RunContext& ctx, JobManagerForm& f, const std::string& path) {
  // A load replaces options that the run in hand is reading.
  if (Trim(path).empty() || !ctx.view.runControlsEnabled) return false;
  int err = 0;
  std::optional<std::string> bytes = ReadWholeFile(path, &err);
  std::string why;
  if (!bytes) {
    why = SystemError(err != 0 ? err : EIO).description();
  } else if (!LooksLikeJobFile(*bytes)) {
    why = "it is not a job file.";
  }
  // Loaded into copies, so that a file that fails half way leaves the form and the options as
  // they were.
  JobManagerForm loaded = f;
  JobSettings options = ctx.settings;
  if (why.empty()) {
    ClearForm(loaded);
    try {
      LoadFromFile(path, loaded.job, options);
    } catch (const RunError& e) {
      why = "Error " + IntText(e.number()) + " : " + e.description();
    }
  }
  if (!why.empty()) {
    ctx.Message("The job file " + path + " could not be loaded: " + why +
                    "\r\n\r\nNothing was changed.",
                Icon::Exclamation);
    return false;
  }
  f = std::move(loaded);
  ctx.settings = std::move(options);
  // A job record is never written back in place, nor over a job loaded before it: Save asks
  // for a name after a .rvj.
  const bool prepared = LowerCase(path.size() >= 3 ? path.substr(path.size() - 3) : path) == "lsw";
  f.JobLoaded = prepared;
  f.JobFilePath = prepared ? path : std::string();
  return true;
}

void cmdLoad_Click(RunContext& ctx, JobManagerForm& f) {
  if (!ctx.view.runControlsEnabled) return;
  const std::string path = ctx.dialogs.OpenFile(
      "Open a Lantern Sweep or Ravelin Job file",
      "Ravelin Files (*.lsw, *.rvj)|*.lsw;*.rvj|Lantern Sweep Files (*.lsw)|*.lsw|Ravelin Job "
      "(*.rvj)|*.rvj",
      LswFolder(ctx));
  if (!path.empty()) OpenJobFile(ctx, f, path);
}

void cmdSave_Click(RunContext& ctx, JobManagerForm& f) {
  Save(ctx, f, false, "Save Lantern Sweep file");
}

void cmdSaveAs_Click(RunContext& ctx, JobManagerForm& f) {
  Save(ctx, f, true, "Save As Lantern Sweep file");
}

std::string ReplaceJobPathVariables(const RunContext& ctx, const std::string& text,
                                    const std::string& jobName) {
  const std::string drive = Drive(ctx);
  std::string out = ReplaceAll(text, "[RoverDrive]", drive);
  out = ReplaceAll(out, "[RVDrive]", drive);
  out = ReplaceAll(out, "[JobName]", jobName);
  out = ReplaceAll(out, "[CName]", ComputerName());
  out = ReplaceAll(out, "[UName]", UserName());
  return ReplaceAll(out, "[Date]", MediumDate(ToLocal(Clock::now())));
}

void HandOverToMain(RunContext& ctx, JobManagerForm& f) {
  const PreparedJob& j = f.job;
  JobSettings& s = ctx.settings;
  const std::string drive = Drive(ctx);
  s.Sources.clear();
  s.LogPath.clear();
  s.TargetPath.clear();
  ctx.job.JobName = j.OrderName;
  ctx.job.SpecialInstructions = j.Instructions;
  ctx.job.ErrorInstructions = j.ErrorNotes;
  // Target and log before the sources: [LDrive] leaves out the drives that hold them.
  s.TargetPath = ReplaceJobPathVariables(ctx, j.Target, j.OrderName);
  s.LogPath = ReplaceJobPathVariables(ctx, j.LogPath, j.OrderName);
  s.CommonLogPath = Trim(j.CommonLog);
  for (const std::string& entry : j.Sources) {
    std::string source = ReplaceAll(entry, "[RVDrive]", drive);
    AddSource(ctx, source);
  }
  s.Extensions = j.Ext;
  s.Extension = j.ExtAction;
  s.ExtListFile = ReplaceAll(j.ExtFile, "[RVDrive]", drive);
  s.StartMonth = Trim(j.BeginMonth);
  s.StartDay = Trim(j.BeginDay);
  s.StartYear = j.BeginYear;
  s.EndMonth = Trim(j.EndMonth);
  s.EndDay = Trim(j.EndDay);
  s.EndYear = j.EndYear;
  // Only set: a date field that is off here leaves the options' box as it was.
  if (j.LSWSearchCreated) s.SearchCreated = true;
  if (j.LSWSearchModified) s.SearchModified = true;
  if (j.LSWSearchAccessed) s.SearchAccessed = true;
}

void cmdRun_Click(RunContext& ctx, JobManagerForm& f, const std::function<void()>& execCopy) {
  if (!ctx.view.runControlsEnabled) return;
  HandOverToMain(ctx, f);
  execCopy();
}

void lnkTypePath_Click(RunContext& ctx, JobManagerForm& f) {
  std::optional<std::string> typed =
      ctx.dialogs.InputBox("Type the path you wish to add.", "Add Path Manually", "/");
  if (typed && !typed->empty()) f.job.Sources.push_back(*typed);
}

void lnkAddFolder_Click(RunContext& ctx, JobManagerForm& f) {
  std::string folder = ctx.dialogs.PickFolder("Select a Source Directory", "");
  if (!folder.empty()) f.job.Sources.push_back(folder);
}

void lnkAddFileList_Click(RunContext& ctx, JobManagerForm& f) {
  std::string list = ctx.dialogs.OpenFile("Choose a file list.", "File Lists (*.txt)|*.txt", "");
  if (!list.empty()) f.job.Sources.push_back("[File List] " + list);
}

void lnkRemove_Click(JobManagerForm& f) {
  std::vector<std::string>& sources = f.job.Sources;
  std::vector<int> rows = f.listSourcesSelected;
  std::sort(rows.begin(), rows.end());
  rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
  std::erase_if(rows, [&](int r) { return r < 0 || static_cast<size_t>(r) >= sources.size(); });
  f.listSourcesSelected.clear();
  if (rows.empty()) return;
  for (auto it = rows.rbegin(); it != rows.rend(); ++it) sources.erase(sources.begin() + *it);
  if (sources.empty()) return;
  f.listSourcesSelected = {std::min(rows.front(), static_cast<int>(sources.size()) - 1)};
}

void listSources_DblClick(RunContext& ctx, JobManagerForm& f, int row) {
  if (row < 0 || static_cast<size_t>(row) >= f.job.Sources.size()) return;
  std::string& entry = f.job.Sources[static_cast<size_t>(row)];
  std::optional<std::string> edited = ctx.dialogs.InputBox(
      "Edit the path here.\r\n\r\nThe [RVDrive] variable will may be used to indicate the drive "
      "letter of the device Ravelin is running on at execution, such as 'E:'.",
      "Edit Path", entry);
  if (edited && !edited->empty()) entry = *edited;
}

void listSources_Dropped(JobManagerForm& f, const std::vector<std::string>& paths) {
  for (const std::string& p : paths) {
    if (!Trim(p).empty()) f.job.Sources.push_back(p);
  }
}

void cmdBrowseTarget_Click(RunContext& ctx, JobManagerForm& f) {
  std::string folder = ctx.dialogs.PickFolder("Select a Target Path", "[RoverDrive]/");
  if (!folder.empty()) f.job.Target = folder;
}

void cmdLogPath_Click(RunContext& ctx, JobManagerForm& f) {
  std::string folder = ctx.dialogs.PickFolder("Select a folder for your log files", "[RVDrive]/_Logs");
  if (!folder.empty()) f.job.LogPath = folder;
}

void cmdCommonLog_Click(RunContext& ctx, JobManagerForm& f) {
  std::string folder = ctx.dialogs.PickFolder("Select a Common Log Folder", f.job.CommonLog);
  if (!folder.empty()) f.job.CommonLog = folder;
}

void cmdBrowseExt_Click(RunContext& ctx, JobManagerForm& f) {
  std::string file = ctx.dialogs.OpenFile("Choose an extension list file to open",
                                          "Extension List Files (*.txt)|*.txt", "");
  if (!file.empty()) f.job.ExtFile = file;
}

namespace {

std::string Lines(std::initializer_list<std::string> lines) {
  std::string out;
  for (const std::string& l : lines) {
    if (!out.empty()) out += "\r\n";
    out += l;
  }
  return out;
}

// The variable lines that both path topics share, from [RVDrive] on.
std::string VariableLines(const std::string& jobNameLine, const std::string& date) {
  return Lines({"[RVDrive] : This variable is replaced with the drive letter that Ravelin is "
                "running from. (example: 'E:')",
                jobNameLine,
                "[CName] : This variable is replaced with the name of the computer running the "
                "job.",
                "[UName] : This variable is replaced with the username of the user logged in "
                "when the job runs.",
                "[Date] : This variable is replaced with the current date (ie: " + date + ")"});
}

}  // namespace

std::string HelpText(const std::string& topic, const std::string& date) {
  if (topic == "Date Filtering") {
    return Lines({"To copy only those files that fall within a specific date range:", "",
                  "1. Select the type of date to search under 'Date Filter' (Created, Last "
                  "Accessed, Last Modified)",
                  "2. Enter the beginning and ending dates for your search under 'Date Range'"});
  }
  if (topic == "Extension Filtering") {
    return Lines({"To filter files by extension using a list of extensions:", "",
                  "1. Type the extensions, separated by commas, into the box labeled 'Extension "
                  "Filter'",
                  "   - The extensions should be comma-separated as such: doc,xls,pdf,csv,eml",
                  "2. Select whether to copy or not copy files with the specified extensions "
                  "using the 'Action' field."});
  }
  if (topic == "Using an Extension List File") {
    return Lines({"An extension file is simply a flat text file that contains a list of "
                  "extensions. To specify a file containing extensions to be used for filtering "
                  "do the following:",
                  "", "1. Click 'Browse' and find the extension list file", "   or",
                  "   Type in the path to the extension list file. The following variable is "
                  "available for this field:",
                  "   [RVDrive] : This variable is replaced with the drive letter that Ravelin is "
                  "running from. (Ex: 'E:')",
                  "2. Select whether to copy or not copy files with the extensions from this "
                  "file using the 'Action' field."});
  }
  if (topic == "Log Path") {
    return Lines({"Type the path where you want the log files for this job to be stored or click "
                  "'Browse'. There are two built-in variables that you can use in this field:",
                  "",
                  VariableLines("[JobName] : This variable is replaced with the name of the job "
                                "in order to separate the logs by job name.",
                                date)});
  }
  if (topic == "Job Target Path") {
    return Lines({"Type the path that you want the files to be copied to or click 'Browse'. "
                  "There are two built-in variables that you can use in this field:",
                  "",
                  VariableLines("[JobName] : This variable is replaced with the name of the job "
                                "in order to separate the target folders by job name.",
                                date)});
  }
  if (topic == "Add File Sources") {
    return Lines(
        {"To add a file source click one of the links to the right:", "",
         "Manual Add - This option allows you to type a path that exists on the target system.",
         "Add Folder - This option allows you to browse for a folder to add to the list",
         "Add File List - This option allows you to browse for a list of files to copy",
         "Add File - This option allows you to browse for a specific file to copy",
         "Remove - This option removes the highlighted entry from the list", "",
         "[RVDrive] : This variable is replaced with the drive letter that Ravelin is running "
         "from. (example: 'E:')",
         "[LDrive] : This can be used as a source to add all logical drives as individual "
         "sources.",
         "[MDrive] : This can be used as a source to add all mapped drives as individual sources.",
         "[UserFolder] : This can be used as a source to add the logged-in user's My Documents "
         "folder as a source.",
         "[UserFolders] : This can be used as a source to add all accessibe My Documents folders "
         "as sources."});
  }
  if (topic == "Error Notes") {
    return "The error notes serve to instruct the end user in what to do or whom to contact in "
           "case of an error.";
  }
  if (topic == "Instructions") {
    return "Enter in this field any special instructions for the end user. These will be "
           "displayed to the user before the job is run except in the case of a silent run.";
  }
  if (topic == "Job Name") {
    return "In this field, enter a unique name for the job. This is a required field.";
  }
  if (topic == "Computer Name Locking") {
    return "To lock this job to a specific computer, type the name of that computer here. Leave "
           "it blank to allow this job to run on any computer.";
  }
  if (topic == "Common Log") {
    return "Here you can enter a path to a common folder for a multi-computer collection "
           "project. Logs that are common to the whole project will be stored here. This field "
           "does not support variables.";
  }
  return {};
}

void ShowHelp(JobManagerForm& f, const std::string& topic) {
  f.lblHelpTopic = topic;
  f.lblHelpContent = HelpText(topic, MediumDate(ToLocal(Clock::now())));
}

AutorunFile MakeAutorun(const std::string& programFolder, const std::string& drive,
                        bool autostart) {
  std::string folder = WithTrailingSep(programFolder);
  if (!drive.empty() && folder.starts_with(drive)) folder.erase(0, drive.size());
  std::string icon = folder + kProgramFileName;
  while (icon.starts_with('/')) icon.erase(0, 1);
  const std::string open = icon.find(' ') != std::string::npos ? "\"" + icon + "\"" : icon;
  AutorunFile file;
  file.path = drive + "/AUTORUN.INF";
  file.text = "[autorun]\r\nOPEN=" + open + (autostart ? " -as -q" : "") +
              " /AUTORUN\r\nACTION=\"Run Lantern Sweep\"\r\nICON=" + icon + ",0\r\n";
  return file;
}

void mnuAutorun_Click(RunContext& ctx, std::optional<std::string> drive) {
  if (ctx.dialogs.MessageBox(
          "This will place an Autorun.inf file in the root of the drive this application is "
          "running from in order to launch this application whenever the drive is plugged in. "
          "Are you sure you want to do this?",
          "Create Autorun", Icon::Question, Buttons::YesNo) != Answer::Yes) {
    return;
  }
  const Answer autostart = ctx.dialogs.MessageBox(
      "Do you wish to include the autostart option? In the case that there is only one job "
      "available to run, this option automatically runs the job without prompting the user to "
      "choose jobs or settings.",
      "Include Autostart", Icon::Question, Buttons::YesNoCancel);
  if (autostart == Answer::Cancel) return;
  const AutorunFile file = MakeAutorun(ctx.program.app.programFolder,
                                       drive ? *drive : Drive(ctx), autostart == Answer::Yes);
  int err = 0;
  if (!WriteWholeFile(file.path, file.text, &err)) {
    ctx.Message("The autorun file " + file.path + " could not be written: " +
                    SystemError(err != 0 ? err : EIO).description() +
                    "\r\n\r\nThe drive is left as it was.",
                Icon::Exclamation);
  }
}

void mnuHashPath_Click(RunContext& ctx) {
  AppPaths& app = ctx.program.app;
  std::string folder = ctx.dialogs.PickFolder("Change path to Hash Lists", app.hashListFolder);
  if (folder.empty()) return;
  app.hashListFolder = WithTrailingSep(folder);
  try {
    INIwrite(app.localIniPath, "LocalSettings", "HASHPATH", app.hashListFolder);
  } catch (const RunError& e) {
    ctx.Message("The hash list folder could not be kept in " + app.localIniPath + ": " +
                    e.description(),
                Icon::Exclamation);
    return;
  }
  ctx.Message("Hash lists will be kept in " + app.hashListFolder +
                  "\r\n\r\nThis program's runs neither make nor read hash lists; the folder is "
                  "kept in local.ini (HASHPATH) for the tools that do.",
              Icon::Information);
}

}  // namespace qr
