// The job picker's rules over real job folders: which prepared jobs are due here, their order,
// and that looking at them leaves no trace.
#include "ui/job_picker.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/find_data.h"
#include "platform/text.h"
#include "support/fake_dialogs.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::TempDir;

std::string Job(const std::string& name, const std::string& extra = "") {
  return "[JNAME]\t" + name + "\r\n[JINSTRUCT]\tdo " + name + "\r\n[JERRINST]\tcall\r\n" + extra;
}

TEST(TryAddJob, ListsOnlyNamedJobsNotDoneInTheirLogFolderAndNotLockedElsewhere) {
  struct Case {
    const char* what;
    std::string content;  // "@" stands for the case's own temporary folder
    std::string lsd;      // a completion copy put there, relative to that folder; empty: none
    bool listed;
  };
  const std::vector<Case> cases = {
      {"a plain named job", Job("A"), "", true},
      {"no [JNAME]", "[JINSTRUCT]\tx\r\n[JPATH]\t/x\r\n", "", false},
      {"[JNAME] without a TAB", "[JNAME]\r\n[JNAME] A\r\n", "", false},
      {"a name of blanks", "[JNAME]\t   \r\n", "", false},
      {"a tag in lower case", "[jname]\tA\r\n", "", false},
      {"locked to this computer, other case", Job("A", "[CNAME]\tHOST1\r\n"), "", true},
      {"locked to this computer, padded", Job("A", "[CNAME]\t host1 \r\n"), "", true},
      {"a blank lock", Job("A", "[CNAME]\t  \r\n"), "", true},
      {"locked to another computer", Job("A", "[CNAME]\thost2\r\n"), "", false},
      {"the last lock wins", Job("A", "[CNAME]\thost1\r\n[CNAME]\thost2\r\n"), "", false},
      {"done in its log folder, variables expanded",
       Job("Mail", "[JPATH]\t[RVDrive]/_Logs/[JobName]/[CName]-[UName]\r\n"),
       "drive/_Logs/Mail/host1-ann/job.lsd", false},
      {"[RoverDrive] too, no separator at the end", Job("A", "[JPATH]\t[RoverDrive]/L\r\n"),
       "drive/L/job.lsd", false},
      {"done in another log folder", Job("A", "[JPATH]\t@/mine\r\n"), "other/job.lsd", true},
      {"[Date] is not replaced", Job("A", "[JPATH]\t@/d/[Date]\r\n"), "d/[Date]/job.lsd",
       false},
      {"a binary file", std::string("\x7f" "ELF\0\x01\t\x02\xff\xfe", 10), "", false},
      {"a damaged file that still has a name",
       std::string("\xff\xfe\0garbage\t\r\n[JNAME]\tB\r\n\x01\x02", 26), "", true},
  };
  for (const Case& c : cases) {
    TempDir t;
    const JobHost here{t / "prog/", t / "drive", "host1", "ann"};
    const std::string file = t.WriteFile("prog/_lsw/job.lsw", ReplaceAll(c.content, "@", t.path()));
    if (!c.lsd.empty()) t.WriteFile(c.lsd, "whatever");
    std::vector<JobEntry> jobs;
    EXPECT_EQ(TryAddJob(jobs, file, here), c.listed) << c.what;
    EXPECT_EQ(jobs.size(), c.listed ? 1u : 0u) << c.what;
  }
  TempDir t;
  const JobHost host{t / "prog/", t / "drive", "host1", "ann"};
  std::vector<JobEntry> jobs;
  EXPECT_FALSE(TryAddJob(jobs, t / "prog/_lsw/missing.lsw", host));
  ASSERT_TRUE(TryAddJob(jobs, t.WriteFile("x.lsw", Job("X") + "[JNAME]\tY\r\n"), host));
  EXPECT_EQ(jobs[0].JobFile, t / "x.lsw");
  EXPECT_EQ(jobs[0].JobName, "Y") << "the last line of a tag wins";
  EXPECT_EQ(jobs[0].JobInstructions, "do X");
  EXPECT_EQ(jobs[0].JobErrorNotes, "call");
}

TEST(SortJobs, ByNameFoldedToLowerCaseKeepingTheOrderOfEqualNames) {
  std::vector<JobEntry> jobs;
  for (const char* name : {"b", "A", "a", "B", "a", "Ä", "c"}) {
    jobs.push_back({std::string("f") + std::to_string(jobs.size()), name, "", ""});
  }
  SortJobs(jobs);
  std::vector<std::string> order;
  for (const JobEntry& j : jobs) order.push_back(j.JobName + j.JobFile);
  EXPECT_EQ(order, (std::vector<std::string>{"Af1", "af2", "af4", "bf0", "Bf3", "cf6", "Äf5"}));
}

TEST(ScanJobs, ReadsRegularLswFilesOfTheJobFolderOnlyAndLeavesNoTrace) {
  TempDir t;
  const JobHost host{t / "prog", "", "host1", "ann"};
  EXPECT_TRUE(DueJobs(host).empty()) << "no job folder: nothing listed, nothing reported";

  t.WriteFile("prog/_lsw/b.lsw", Job("Same"));
  t.WriteFile("prog/_lsw/c.LSW", Job("Upper"));
  t.WriteFile("prog/_lsw/a.lsw", Job("Same"));
  t.WriteFile("prog/_lsw/note.txt", Job("Text"));
  t.WriteFile("prog/_lsw/dir.lsw/inner.lsw", Job("Inner"));
  t.WriteFile("prog/jobs.lsw", Job("Outside"));
  std::filesystem::create_symlink(t / "prog/jobs.lsw", t / "prog/_lsw/link.lsw");
  mkfifo((t / "prog/_lsw/fifo.lsw").c_str(), 0644);

  // Old access times first: relatime moves only a time older than the modification.
  const std::vector<std::string> watched = {t / "prog/_lsw", t / "prog/_lsw/a.lsw",
                                            t / "prog/_lsw/b.lsw", t / "prog/_lsw/c.LSW"};
  std::vector<FileTime> before;
  for (const std::string& p : watched) {
    struct timespec times[2] = {{1000000, 0}, {2000000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, p.c_str(), times, 0), 0) << p;
    FindData d;
    ASSERT_TRUE(FindEntry(p, d));
    before.push_back(d.lastAccessTime);
  }

  std::vector<JobEntry> jobs = DueJobs(host);
  std::vector<std::string> names;
  for (const JobEntry& j : jobs) names.push_back(j.JobName + "@" + j.JobFile.substr(t.path().size()));
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"Outside@/prog/_lsw/link.lsw", "Same@/prog/_lsw/a.lsw",
                                             "Same@/prog/_lsw/b.lsw", "Upper@/prog/_lsw/c.LSW"}));
  for (size_t i = 0; i < watched.size(); ++i) {
    FindData d;
    ASSERT_TRUE(FindEntry(watched[i], d));
    EXPECT_EQ(d.lastAccessTime, before[i]) << watched[i];
  }
}

TEST(JobPickerActions, SelectionRunWithoutSelectionAndTheStartSwitches) {
  test::FakeDialogs dialogs;
  test::FakePump pump;
  RunContext ctx(dialogs, pump);
  JobsForm f;
  f.jobs = {{"/j/a.lsw", "A", "first line", ""}, {"/j/b.lsw", "B", "other", ""}};
  EXPECT_FALSE(cmdRun_Click(ctx, f));
  EXPECT_FALSE(cmdSettings_Click(f));
  EXPECT_TRUE(dialogs.shown.empty()) << "without a selection Run does nothing";
  lstJobs_Click(f, 1);
  EXPECT_EQ(f.txtInstructions, "other");
  EXPECT_EQ(cmdSettings_Click(f), "/j/b.lsw");
  lstJobs_Click(f, 2);
  EXPECT_EQ(f.lstJobsIndex, -1);

  StartupFlags flags;
  EXPECT_FALSE(OpensWithJobPicker(flags));
  flags.quit = true;
  EXPECT_TRUE(OpensWithJobPicker(flags));
  EXPECT_FALSE(RunsAtOnce(flags, f)) << "-q alone waits for the end user";
  flags = {};
  flags.autoStart = true;
  EXPECT_TRUE(OpensWithJobPicker(flags));
  EXPECT_FALSE(RunsAtOnce(flags, f)) << "two jobs: the end user chooses";
  f.jobs.pop_back();
  EXPECT_TRUE(RunsAtOnce(flags, f));
}

}  // namespace
}  // namespace qr
