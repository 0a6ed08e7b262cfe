// The job manager's form and the job picker's rules, without a widget, over real job files.
#include "ui/job_manager.h"
#include "ui/job_picker.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "jobdef/settings_files.h"
#include "platform/dates.h"
#include "platform/machine.h"
#include "platform/text.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

namespace fs = std::filesystem;

class JobManagerTest : public ::testing::Test, protected test::RunFixture {
 protected:
  JobManagerForm f;
  void SetUp() override { ctx.program.app.programFolder = dir.MakeDir("program") + "/"; }
  std::string Drive() const { return ProgramDrive(dir / "program"); }
};

// Saving over a loaded job in place, and Save As, are the window test's.
TEST_F(JobManagerTest, SaveNeedsANameAndAsksForAFileUnlessAJobWasLoaded) {
  f.job.OrderName = "   ";
  cmdSave_Click(ctx, f);
  EXPECT_EQ(dialogs.Texts(), std::vector<std::string>{"You must enter a Job Name before saving."});
  EXPECT_TRUE(dialogs.pickerTitles.empty());

  f.job.OrderName = "Audit";
  dialogs.picks = {dir / "b.LSW", "", ""};
  cmdSave_Click(ctx, f);  // ".LSW" kept, not doubled
  cmdSave_Click(ctx, f);  // the name chosen is not remembered: asks again; closed: no file
  EXPECT_EQ(dialogs.pickerTitles, std::vector<std::string>(2, "Save Lantern Sweep file"));
  EXPECT_EQ(dialogs.pickerDetails[0].filter, "Lantern Sweep files (*.lsw)|*.lsw");
  EXPECT_EQ(dialogs.pickerDetails[0].startFolder, dir / "program/_lsw");
  EXPECT_TRUE(fs::exists(dir / "b.LSW"));
  EXPECT_FALSE(fs::exists(dir / "b.LSW.lsw") || fs::exists(".lsw"));
  cmdSaveAs_Click(ctx, f);
  EXPECT_EQ(dialogs.pickerTitles.back(), "Save As Lantern Sweep file");

  f.listSourcesSelected = {0};
  ASSERT_TRUE(OpenJobFile(ctx, f, dir / "b.LSW"));
  EXPECT_TRUE(f.listSourcesSelected.empty()) << "a loaded job starts with no source selected";

  // A job record loads into a clear form, and is saved neither in place nor over the job
  // loaded before it.
  f.job.LogPath = "/old";
  f.job.ExtAction = kExtensionDoNotCopy;
  f.job.LSWSearchAccessed = true;
  const std::string rvj = dir.WriteFile("_jobfile.rvj", "[TARGET]\t/t\r\n[SRC]\t[RVDrive]/x\r\n");
  dialogs.picks = {rvj, dir / "new"};
  cmdLoad_Click(ctx, f);
  EXPECT_EQ(dialogs.pickerTitles.back(), "Open a Lantern Sweep or Ravelin Job file");
  EXPECT_EQ(f.job.Target, "/t");
  EXPECT_EQ(f.job.Sources, std::vector<std::string>{"[RVDrive]/x"});
  EXPECT_EQ(f.job.LogPath, "");
  EXPECT_EQ(f.job.ExtAction, kExtensionCopyOnly);
  EXPECT_FALSE(f.job.LSWSearchAccessed || f.JobLoaded);
  f.job.OrderName = "From a record";
  cmdSave_Click(ctx, f);
  EXPECT_EQ(dialogs.pickerTitles.back(), "Save Lantern Sweep file");
  EXPECT_EQ(test::ReadBytes(rvj), "[TARGET]\t/t\r\n[SRC]\t[RVDrive]/x\r\n");
}

TEST_F(JobManagerTest, ADamagedJobFileIsRefusedAndChangesNothing) {
  f.job.Sources = {"/kept"};
  ctx.settings.ExclusionPatterns = {"*.tmp"};
  const std::vector<std::string> bad = {
      dir.WriteFile("binary.lsw", std::string("[JNAME]\tx\r\n\0\x01\x02", 14)),
      dir.WriteFile("number.lsw", "[JNAME]\tx\r\n[SRC]\t/y\r\n[LOG]\tyes\r\n"),
      dir.WriteFile("prose.lsw", "just some words\r\nno tags here\r\n"),
      dir / "missing.lsw",
  };
  for (const std::string& path : bad) {
    SCOPED_TRACE(path);
    dialogs.shown.clear();
    EXPECT_FALSE(OpenJobFile(ctx, f, path));
    ASSERT_EQ(dialogs.shown.size(), 1u);
    EXPECT_EQ(dialogs.shown[0].text.rfind("The job file " + path + " could not be loaded: ", 0),
              0u);
    // The reason a file could not be read is the system's own.
    if (path.ends_with("missing.lsw")) {
      EXPECT_NE(dialogs.shown[0].text.find("No such file or directory"), std::string::npos);
    }
    EXPECT_EQ(f.job.Sources, std::vector<std::string>{"/kept"});
    EXPECT_EQ(ctx.settings.ExclusionPatterns, std::vector<std::string>{"*.tmp"});
  }
}

TEST_F(JobManagerTest, RunHandsTheFieldsOverWithTheVariablesReplacedInTheirOrder) {
  const std::string source = dir.MakeDir("src");
  ctx.settings.Sources = {"/left/over"};
  ctx.settings.SearchModified = true;
  f.job.OrderName = "[CName]";  // replaced after [JobName], so the computer's name comes in
  f.job.Instructions = "Plug in";
  f.job.Target = "[RoverDrive]/[JobName]/[rvdrive]";
  f.job.LogPath = "[RVDrive]/_Logs/[UName]/[Date]";
  f.job.CommonLog = "  /common/[JobName]  ";
  f.job.Sources = {source, "[File List] [RVDrive]/list.txt"};
  f.job.Ext = "doc,xls";
  f.job.ExtAction = kExtensionDoNotCopy;
  f.job.ExtFile = "[RVDrive]/ext.txt";
  f.job.BeginMonth = " 3 ";
  f.job.BeginYear = " 2024 ";
  f.job.LSWSearchCreated = true;
  f.job.LSWSearchAccessed = true;

  int runs = 0;
  cmdRun_Click(ctx, f, [&] {
    ++runs;
    const JobSettings& s = ctx.settings;
    EXPECT_EQ(ctx.job.JobName, "[CName]");
    EXPECT_EQ(ctx.job.SpecialInstructions, "Plug in");
    EXPECT_EQ(s.TargetPath, Drive() + "/" + ComputerName() + "/[rvdrive]");
    EXPECT_EQ(s.LogPath,
              Drive() + "/_Logs/" + UserName() + "/" + MediumDate(ToLocal(Clock::now())));
    EXPECT_EQ(s.CommonLogPath, "/common/[JobName]");
    EXPECT_EQ(s.Sources, (std::vector<std::string>{source, "[File List] " + Drive() + "/list.txt"}));
    EXPECT_EQ(s.Extensions, "doc,xls");
    EXPECT_EQ(s.Extension, kExtensionDoNotCopy);
    EXPECT_EQ(s.ExtListFile, Drive() + "/ext.txt");
    EXPECT_EQ(s.StartMonth, "3");
    EXPECT_EQ(s.StartYear, " 2024 ");
    EXPECT_TRUE(s.SearchCreated);
    EXPECT_TRUE(s.SearchAccessed);
    EXPECT_TRUE(s.SearchModified);  // off in the job: left as the options had it
  });
  EXPECT_EQ(runs, 1);
}

// A job's sources are text for its run to expand: nothing is checked or trimmed here.
TEST_F(JobManagerTest, SourcesGoInAsTypedAndEditsReplaceInPlace) {
  dialogs.inputs = {"  [LDrive] ", std::nullopt};
  lnkTypePath_Click(ctx, f);
  lnkTypePath_Click(ctx, f);  // cancelled
  dialogs.picks = {"/nowhere/at/all", "/lists/l.txt"};
  lnkAddFolder_Click(ctx, f);
  lnkAddFileList_Click(ctx, f);
  listSources_Dropped(f, {"/dropped", "  "});
  EXPECT_EQ(f.job.Sources, (std::vector<std::string>{"  [LDrive] ", "/nowhere/at/all",
                                                     "[File List] /lists/l.txt", "/dropped"}));
  EXPECT_TRUE(ctx.settings.Sources.empty());

  dialogs.shown.clear();
  dialogs.inputs = {"/first", ""};
  listSources_DblClick(ctx, f, 0);
  listSources_DblClick(ctx, f, 2);  // an empty answer leaves the entry
  listSources_DblClick(ctx, f, 4);  // no such row: no box
  EXPECT_EQ(dialogs.shown.size(), 2u);
  f.listSourcesSelected = {3, 9, 1};
  lnkRemove_Click(f);
  EXPECT_EQ(f.job.Sources, (std::vector<std::string>{"/first", "[File List] /lists/l.txt"}));
}

// The log path's browse button with nothing chosen offers the usual place.
TEST_F(JobManagerTest, TheLogPathBrowseFillsTheDefaultWithoutAChoice) {
  dialogs.picks = {""};
  cmdLogPath_Click(ctx, f);
  EXPECT_EQ(f.job.LogPath, "[RVDrive]/_Logs/[JobName]/");
}

TEST(JobManagerHelp, PathTopicsShareTheirVariableLinesWithTheDate) {
  const std::string log = HelpText("Log Path", "15-Nov-26");
  EXPECT_TRUE(log.ends_with("\r\n[Date] : This variable is replaced with the current date "
                            "(ie: 15-Nov-26)"))
      << log;
  const std::string target = HelpText("Job Target Path", "15-Nov-26");
  EXPECT_EQ(target.substr(target.find("[CName]")), log.substr(log.find("[CName]")));
}

// The four lines land at the root of the drive, the program path quoted when it holds a blank.
TEST_F(JobManagerTest, AutorunAsksTwiceWritesTheRootAndSaysWhenItCannot) {
  const std::string drive = dir.MakeDir("usb");
  ctx.program.app.programFolder = drive + "/My Tools/";
  const std::string inf = drive + "/AUTORUN.INF";

  dialogs.answers = {Answer::No};
  mnuAutorun_Click(ctx, drive);
  dialogs.answers = {Answer::Yes, Answer::Cancel};  // the second box can be cancelled
  mnuAutorun_Click(ctx, drive);
  EXPECT_FALSE(fs::exists(inf));
  ASSERT_EQ(dialogs.shown.size(), 3u);

  dir.WriteFile("usb/AUTORUN.INF", std::string(300, '.'));  // an older one, replaced whole
  dialogs.answers = {Answer::Yes, Answer::Yes};
  mnuAutorun_Click(ctx, drive);
  EXPECT_EQ(test::ReadBytes(inf),
            "[autorun]\r\n"
            "OPEN=\"My Tools/quillon-ravelin\" -as -q /AUTORUN\r\n"
            "ACTION=\"Run Lantern Sweep\"\r\n"
            "ICON=My Tools/quillon-ravelin,0\r\n");

  dialogs.shown.clear();
  dialogs.answers = {Answer::Yes, Answer::Yes};
  mnuAutorun_Click(ctx, dir / "not-mounted");
  ASSERT_EQ(dialogs.shown.size(), 3u);
  EXPECT_EQ(dialogs.shown[2].text.rfind("The autorun file " + dir / "not-mounted/AUTORUN.INF" +
                                            " could not be written: No such file or directory",
                                        0),
            0u);
}

TEST_F(JobManagerTest, HashListFolderIsKeptInLocalIniAtOnce) {
  ctx.program.app.localIniPath = dir / "program/local.ini";
  ctx.program.app.hashListFolder = dir / "program/_hashlist/";
  const std::string chosen = dir.MakeDir("hashes");
  dialogs.picks = {"", chosen};
  mnuHashPath_Click(ctx);  // nothing chosen: nothing kept, nothing said
  mnuHashPath_Click(ctx);
  EXPECT_EQ(dialogs.pickerDetails[0].startFolder, dir / "program/_hashlist/");
  EXPECT_EQ(ctx.program.app.hashListFolder, chosen + "/");
  EXPECT_EQ(INIread(ctx.program.app.localIniPath, "LocalSettings", "HASHPATH"), chosen + "/");
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text.rfind("Hash lists will be kept in " + chosen + "/", 0), 0u);
}

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
      {"done in its log folder, variables expanded",
       Job("Mail", "[JPATH]\t[RVDrive]/_Logs/[JobName]/[CName]-[UName]\r\n"),
       "drive/_Logs/Mail/host1-ann/job.lsd", false},
      {"[RoverDrive] too, no separator at the end", Job("A", "[JPATH]\t[RoverDrive]/L\r\n"),
       "drive/L/job.lsd", false},
      {"done in another log folder", Job("A", "[JPATH]\t@/mine\r\n"), "other/job.lsd", true},
      {"[Date] is not replaced", Job("A", "[JPATH]\t@/d/[Date]\r\n"), "d/[Date]/job.lsd", false},
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
  std::vector<JobEntry> jobs;
  EXPECT_FALSE(TryAddJob(jobs, t / "gone.lsw", {})) << "a job removed since the listing";
  ASSERT_TRUE(TryAddJob(jobs, t.WriteFile("x.lsw", Job("X") + "[JNAME]\tY\r\n"), {}));
  EXPECT_EQ(jobs[0].JobFile + jobs[0].JobName + jobs[0].JobInstructions + jobs[0].JobErrorNotes,
            t / "x.lsw" + "Ydo Xcall")
      << "the last line of a tag wins";
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
