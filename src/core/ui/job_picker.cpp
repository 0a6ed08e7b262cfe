#include "ui/job_picker.h"

#include <algorithm>
#include <array>
#include <utility>

#include "exec/run_driver.h"
#include "jobdef/job_file.h"
#include "platform/errors.h"
#include "platform/find_data.h"
#include "platform/machine.h"
#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/quiet_read.h"
#include "platform/text.h"

namespace qr {

namespace {

// A prepared job is a few kilobytes; anything far larger in the job folder is no job, and the
// picker must not be made to hold it.
constexpr size_t kLargestJobFile = 16 * 1024 * 1024;

// The selected entry; null for none (-1 turns into the largest index, past any list).
const JobEntry* Selected(const JobsForm& f) {
  if (static_cast<size_t>(f.lstJobsIndex) >= f.jobs.size()) return nullptr;
  return &f.jobs[static_cast<size_t>(f.lstJobsIndex)];
}

bool EndsWithLsw(const std::string& name) {
  return name.size() > 4 && LowerCase(name.substr(name.size() - 4)) == ".lsw";
}

}  // namespace

JobHost ThisHost(const RunContext& ctx) {
  const std::string& folder = ctx.program.app.programFolder;
  return {folder, ProgramDrive(WithoutTrailingSep(folder)), ComputerName(), UserName()};
}

std::string JobFolder(const std::string& programFolder) {
  return WithTrailingSep(WithTrailingSep(programFolder) + "_lsw");
}

void ClearJobs(std::vector<JobEntry>& jobs) { jobs.clear(); }

bool TryAddJob(std::vector<JobEntry>& jobs, const std::string& path, const JobHost& host) {
  if (!FileExists(path)) return false;
  // Read without moving the file's access time: looking at the jobs is no use of them.
  std::optional<std::string> bytes = ReadSmallFileQuietly(path, kLargestJobFile);
  if (!bytes) return false;
  JobEntry job{path, {}, {}, {}};
  std::string computer, logPath;
  // The reading rule of every job file reader: split at TABs, exact tags, the last line wins.
  const std::array<std::pair<const char*, std::string*>, 5> tags = {{
      {"[JNAME]", &job.JobName},
      {"[JINSTRUCT]", &job.JobInstructions},
      {"[JERRINST]", &job.JobErrorNotes},
      {"[CNAME]", &computer},
      {"[JPATH]", &logPath},
  }};
  for (const std::string& line : SplitLines(*bytes)) {
    std::vector<std::string> fields = Split(line, "\t");
    if (fields.size() < 2) continue;
    for (const auto& [tag, value] : tags) {
      if (fields[0] == tag) *value = fields[1];
    }
  }
  // A job record, or a damaged file, has no name and is not offered.
  if (Trim(job.JobName).empty()) return false;

  // A job offers itself once per log folder: its completion copy there says it has run.
  std::string folder = logPath;
  for (const char* drive : {"[RoverDrive]", "[RVDrive]"}) {
    folder = ReplaceAll(folder, drive, host.programDrive);
  }
  folder = ReplaceAll(folder, "[JobName]", job.JobName);
  folder = ReplaceAll(folder, "[CName]", host.computerName);
  folder = ReplaceAll(folder, "[UName]", host.userName);
  const std::string done = ReplaceAll(WithTrailingSep(folder) + NamePart(path), ".lsw", ".lsd");
  if (FileExists(done)) return false;

  const std::string lockedTo = Trim(computer);
  if (!lockedTo.empty() && LowerCase(lockedTo) != LowerCase(host.computerName)) return false;

  jobs.push_back(std::move(job));
  return true;
}

void ScanJobs(std::vector<JobEntry>& jobs, const JobHost& host) {
  const std::string folder = JobFolder(host.programFolder);
  // The listing opens the folder without moving its access time.
  FolderListing listing(folder);
  if (!listing.ok()) return;
  FindData entry;
  while (listing.Next(entry)) {
    if (entry.name.empty()) break;
    if (entry.kind != EntryKind::Regular || !EndsWithLsw(entry.name)) continue;
    TryAddJob(jobs, folder + entry.name, host);
  }
}

void SortJobs(std::vector<JobEntry>& jobs) {
  std::stable_sort(jobs.begin(), jobs.end(), [](const JobEntry& a, const JobEntry& b) {
    return LowerCase(a.JobName) < LowerCase(b.JobName);
  });
}

std::vector<JobEntry> DueJobs(const JobHost& host) {
  std::vector<JobEntry> jobs;
  ClearJobs(jobs);
  ScanJobs(jobs, host);
  SortJobs(jobs);
  return jobs;
}

void frmJobs_Load(RunContext& ctx, JobsForm& f) {
  f.jobs = DueJobs(ThisHost(ctx));
  f.lstJobsIndex = -1;
  f.txtInstructions.clear();
  ctx.view.jobPickerVisible = true;
}

void lstJobs_Click(JobsForm& f, int row) {
  if (row < 0 || static_cast<size_t>(row) >= f.jobs.size()) {
    f.lstJobsIndex = -1;
    return;
  }
  f.lstJobsIndex = row;
  f.txtInstructions = f.jobs[static_cast<size_t>(row)].JobInstructions;
}

bool JobActionsEnabled(const RunContext& ctx, const JobsForm& f) {
  return !f.inRun && !ctx.counters.RunActive && ctx.view.runControlsEnabled;
}

bool cmdRun_Click(RunContext& ctx, JobsForm& f) {
  if (Selected(f) == nullptr || !JobActionsEnabled(ctx, f)) return false;
  const std::string jobFile = Selected(f)->JobFile;
  f.inRun = true;
  ExecResult result;
  try {
    ReadRVFile(ctx, jobFile);
    ctx.job.JobFilePath = jobFile;
    result = ExecCopy(ctx);
  } catch (const RunError& e) {
    ctx.Message("The job could not be read: " + jobFile + "\r\n" + IntText(e.number()) + " : " +
                    e.description(),
                Icon::Exclamation);
  }
  f.inRun = false;
  if (result.endProgram) return true;
  // -q hides the picker while a run works; a run that did not end the program (refused by its
  // checks, say) gives the end user the list back rather than leave no window at all.
  ctx.view.jobPickerVisible = true;
  return false;
}

bool lstJobs_DblClick(RunContext& ctx, JobsForm& f, int row) {
  lstJobs_Click(f, row);
  return cmdRun_Click(ctx, f);
}

std::optional<std::string> cmdSettings_Click(const JobsForm& f) {
  if (const JobEntry* job = Selected(f)) return job->JobFile;
  return std::nullopt;
}

bool OpensWithJobPicker(const StartupFlags& flags) { return flags.autoStart || flags.quit; }

bool RunsAtOnce(const StartupFlags& flags, const JobsForm& f) {
  return flags.autoStart && f.jobs.size() == 1;
}

}  // namespace qr
