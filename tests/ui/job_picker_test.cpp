// The job picker's rules over real job folders: which jobs are due here, in which order.
#include "ui/job_picker.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/paths.h"
#include "platform/text.h"
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
      {"no [JNAME]", "[JINSTRUCT]\tx\r\n[JPATH]\t/x\r\n", "", false},
      {"no TAB, or a name of blanks", "[JNAME]\r\n[JNAME] A\r\n[JNAME]\t   \r\n", "", false},
      {"locked to this computer, other case", Job("A", "[CNAME]\t HOST1 \r\n"), "", true},
      {"a blank lock", Job("A", "[CNAME]\t  \r\n"), "", true},
      {"locked to another computer", Job("A", "[CNAME]\thost2\r\n"), "", false},
      {"done in its log folder, variables expanded",
       Job("Mail", "[JPATH]\t[RVDrive]/_Logs/[JobName]/[CName]-[UName]\r\n"),
       "drive/_Logs/Mail/host1-ann/job.lsd", false},
      {"[RoverDrive] too, no separator at the end", Job("A", "[JPATH]\t[RoverDrive]/L\r\n"),
       "drive/L/job.lsd", false},
      {"done in another log folder", Job("A", "[JPATH]\t@/mine\r\n"), "other/job.lsd", true},
      {"[Date] is not replaced", Job("A", "[JPATH]\t@/d/[Date]\r\n"), "d/[Date]/job.lsd", false},
      {"a binary file",
       std::string("\x7f"
                   "ELF\0\x01\t\x02\xff\xfe",
                   10),
       "", false},
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
  std::vector<JobEntry> jobs;
  EXPECT_FALSE(TryAddJob(jobs, t / "gone.lsw", {})) << "a job removed since the listing";
  ASSERT_TRUE(TryAddJob(jobs, t.WriteFile("x.lsw", Job("X") + "[JNAME]\tY\r\n"), {}));
  EXPECT_EQ(jobs[0].JobFile + jobs[0].JobName + jobs[0].JobInstructions + jobs[0].JobErrorNotes,
            t / "x.lsw" + "Ydo Xcall")
      << "the last line of a tag wins";
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
  mkfifo((t / "prog/_lsw/fifo.lsw").c_str(), 0644);

  // Old access times first: relatime moves only a time older than the modification.
  const std::vector<std::string> watched = {t / "prog/_lsw", t / "prog/_lsw/a.lsw",
                                            t / "prog/_lsw/b.lsw", t / "prog/_lsw/c.LSW"};
  for (const std::string& p : watched) test::SetTimes(p, {1000000, 0}, {2000000000, 0});

  std::vector<std::string> names;
  for (const JobEntry& j : DueJobs(host)) names.push_back(NamePart(j.JobFile));
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"a.lsw", "b.lsw", "c.LSW"}));
  for (const std::string& p : watched) {
    struct stat st {};
    EXPECT_TRUE(stat(p.c_str(), &st) == 0 && st.st_atim.tv_sec == 1000000) << p;
  }
}

TEST(JobPickerStart, OnlyAsWithExactlyOneJobRunsAtOnce) {
  JobsForm f;
  f.jobs.resize(2);
  StartupFlags as, q;
  as.autoStart = q.quit = true;
  EXPECT_FALSE(RunsAtOnce(as, f)) << "two jobs: the end user chooses";
  f.jobs.pop_back();
  EXPECT_TRUE(RunsAtOnce(as, f) && !RunsAtOnce(q, f));
  EXPECT_TRUE(OpensWithJobPicker(as) && OpensWithJobPicker(q) && !OpensWithJobPicker({}));
}

}  // namespace
}  // namespace qr
