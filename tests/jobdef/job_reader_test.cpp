#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "jobdef/job_file.h"
#include "platform/errors.h"
#include "platform/machine.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

using Strings = std::vector<std::string>;
const std::string kNotFound =
    "\r\n\r\nThe path you have specified cannot be found on this machine.";
const std::string kInsideAnEntry =
    "A directory containing the directory you have chosen has already been added to the source "
    "list. This directory will not be added.";

// The number of the RunError that `read` throws; 0 when it throws none.
template <typename Read>
int ErrorNumberOf(Read read) {
  try {
    read();
  } catch (const RunError& e) {
    return e.number();
  }
  return 0;
}

class ReadRVFileTest : public ::testing::Test, protected test::RunFixture {
 protected:
  void SetUp() override { ctx.program.app.programFolder = dir.path() + "/"; }
  std::string Job(std::string_view body) const { return dir.WriteFile("job.lsw", body); }
  void Read(std::string_view body) { ReadRVFile(ctx, Job(body)); }
  int ErrorOf(std::string_view body) {
    return ErrorNumberOf([&] { Read(body); });
  }
};

TEST_F(ReadRVFileTest, OnlyExactTagsWithATabAreApplied) {
  const std::string a = dir.MakeDir("a");
  Read(
      "[JNAME]\tfirst\r\n"
      "[JNAME]\r\n"         // no tab: skipped
      "[jname]\tlower\r\n"  // tags are case-sensitive
      "[FOO]\tbar\r\n"      // unknown: ignored
      "\r\n"
      "[TARGET]\t/t\textra\r\n"  // fields after the value are dropped
      "[JPATH]\t/l\r"            // a lone CR ends a line
      "[EXTS]\tdoc\n"            // and so does a lone LF
      "[SRC]\t" + a + "\tx\r\n"
      "[JINSTRUCT]\t\r\n");  // a tab and nothing: an empty value
  EXPECT_EQ(ctx.job.JobName, "first");
  EXPECT_EQ(ctx.settings.TargetPath, "/t");
  EXPECT_EQ(ctx.settings.LogPath, "/l");
  EXPECT_EQ(ctx.settings.Extensions, "doc");
  EXPECT_EQ(ctx.settings.Sources, Strings{a});
  EXPECT_TRUE(dialogs.shown.empty());

  ctx.job.SpecialInstructions = "kept?";
  Read("[JNAME]\t\r\n");
  EXPECT_EQ(ctx.job.JobName, "");
  EXPECT_EQ(ctx.job.SpecialInstructions, "") << "cleared before reading";

  // A missing file, or a folder in its place, changes nothing.
  ctx.job.JobName = "n";
  ctx.settings.Sources = {"/s"};
  ReadRVFile(ctx, dir / "none.lsw");
  ReadRVFile(ctx, dir.MakeDir("folder.lsw"));
  EXPECT_EQ(ctx.job.JobName, "n");
  EXPECT_EQ(ctx.settings.Sources, Strings{"/s"});
}

TEST_F(ReadRVFileTest, SourcesGoThroughAddSourceWithTheProgramsDrive) {
  const std::string a = dir.MakeDir("a");
  dir.MakeDir("a/b");
  const std::string c = dir.MakeDir("c");
  const std::string drive = ProgramDrive(dir.path());
  ASSERT_EQ(dir.path().substr(0, drive.size()), drive);
  const std::string viaDrive = "[RVDrive]" + c.substr(drive.size());
  Read("[SRC]\t" + dir / "missing" + "\r\n[SRC]\t" + a + "\r\n[SRC]\t" + a + "/b\r\n[SRC]\t" +
       viaDrive + "\r\n[SRC]\t[File List] " + dir / "list.txt" + "\r\n[EXTFILE]\t" + viaDrive +
       "/ext.txt\r\n[TARGET]\t[RVDrive]/[JobName]/\r\n");
  EXPECT_EQ(ctx.settings.Sources, (Strings{a, c, "[File List] " + dir / "list.txt"}));
  EXPECT_EQ(dialogs.Texts(), (Strings{dir / "missing" + kNotFound, kInsideAnEntry}));
  EXPECT_EQ(ctx.settings.ExtListFile, c + "/ext.txt");
  EXPECT_EQ(ctx.settings.TargetPath, "[RVDrive]/[JobName]/") << "the target is taken verbatim";

  // The temporary folder may lie on the root file system, whose drive is empty: a program in
  // another mounted file system shows the replacement itself.
  ctx.program.app.programFolder = "/proc/self/";
  const std::string procDrive = ProgramDrive("/proc/self");
  ASSERT_FALSE(procDrive.empty());
  dialogs.shown.clear();
  Read("[SRC]\t[RVDrive]/nowhere [RVDrive]\r\n[EXTFILE]\t[RVDrive]/e.txt\r\n");
  EXPECT_EQ(dialogs.Texts(), Strings{procDrive + "/nowhere " + procDrive + kNotFound});
  EXPECT_EQ(ctx.settings.ExtListFile, procDrive + "/e.txt");
}

TEST_F(ReadRVFileTest, LoadingTwiceDoublesInclusionPatternsOnly) {
  const std::string a = dir.MakeDir("a");
  ctx.settings.LogPath = "/logs";
  ctx.settings.TargetPath = "/old";
  const std::string job = Job("[SRC]\t" + a + "\r\n[EXCLUSION]\t*/tmp/*\r\n[FNAMEFILTER]\t*.doc\r\n");
  ReadRVFile(ctx, job);
  ReadRVFile(ctx, job);
  EXPECT_EQ(ctx.settings.Sources, Strings{a});
  EXPECT_EQ(ctx.settings.ExclusionPatterns, Strings{"*/tmp/*"});
  EXPECT_EQ(ctx.settings.InclusionPatterns, (Strings{"*.doc", "*.doc"}));
  EXPECT_EQ(ctx.settings.TargetPath, "") << "the target is cleared";
  EXPECT_EQ(ctx.settings.LogPath, "/logs") << "the log path is not";
}

TEST_F(ReadRVFileTest, FlagSensesAndTheBoxesClickRules) {
  JobSettings& s = ctx.settings;
  s.Silent = s.SearchModified = s.SeparateTS = true;
  s.CopyFiles = s.CreateTally = false;
  // An empty value and "0" are off; any other number is on.
  Read("[SILENT]\t\r\n[SEARCHCREATED]\t2\r\n[SEARCHMODIFIED]\t\r\n[SEARCHACCESSED]\t1\r\n"
       "[COPYFILES]\t\r\n[TALLYSUM]\t2\r\n[COPYSUBS]\t0\r\n[FILELIST]\tx\r\n");
  EXPECT_FALSE(s.Silent || s.SearchCreated || s.SearchModified || s.CopySubs);
  EXPECT_TRUE(s.SearchAccessed && s.CopyFiles && s.CreateTally && s.CreateFileList);
  EXPECT_TRUE(s.SeparateTS) << "an option the file doesn't mention keeps its value";

  Read("[ENGINE]\tRC\r\n[FULLPATH]\t1\r\n[LOG]\t0\r\n[S-HASH]\t0\r\n");
  EXPECT_TRUE(s.Robocopy && !s.Ravelin);
  EXPECT_TRUE(s.enabled.RootFolders);
  EXPECT_FALSE(s.enabled.CreateSubs || s.CreateLog || s.enabled.HashSource || s.HashSource);
  Read("[ENGINE]\tanything\r\n[LOG]\t -1 \r\n");
  EXPECT_TRUE(s.Ravelin && !s.Robocopy);
  EXPECT_TRUE(s.CreateLog && s.enabled.HashSource);
}

TEST_F(ReadRVFileTest, RobocopyFlagsCountOnlyWhileThatEngineIsOn) {
  JobSettings& s = ctx.settings;
  Read(
      "[COPYSEC]\t1\r\n"
      "[COPYAUDIT]\tnot a number\r\n"  // not even converted while the engine is off
      "[ENGINE]\tRC\r\n[COPYOWNER]\t1\r\n[COPYRESTART]\t1\r\n[COPYATTR]\t0\r\n"
      "[ENGINE]\tRV\r\n[COPYDATA]\t0\r\n");
  EXPECT_FALSE(s.CopySecurity || s.CopyAudit || s.CopyAttributes);
  EXPECT_TRUE(s.CopyOwner && s.CopyRestartable && s.CopyData);
  EXPECT_FALSE(s.CopyBackup || s.CopyZB) << "the copy modes exclude each other";
}

TEST_F(ReadRVFileTest, NoNumberWhereOneIsNeededIsATypeMismatchOrAnOverflow) {
  const std::vector<std::pair<std::string, int>> cases = {
      {"[LOG]\tyes", 13},         {"[S-HASH]\t", 13},       {"[D-HASH]\t1.0", 13},
      {"[D-HASH]\t- 1", 13},      {"[NUMFILES]\t12abc", 13}, {"[FILESDONE]\t", 13},
      {"[JOBSIZE]\t1e3", 13},     {"[BYTESDONE]\tx", 13},   {"[ENGINE]\tRC\r\n[COPYATTR]\tx", 13},
      {"[NUMFILES]\t3000000000", 6}, {"[LOG]\t40000", 6},
      {"[TOTALBYTES]\t9999999999999999999", 6}, {"[TOTALBYTES]\t922337203685477.5808", 6},
      // Sizes pass through four decimals: the ends of that range still fit.
      {"[TOTALBYTES]\t922337203685477.5807", 0}, {"[TOTALBYTES]\t-922337203685477.5808", 0}};
  for (const auto& [body, number] : cases) EXPECT_EQ(ErrorOf(body + "\r\n"), number) << body;
}

TEST_F(ReadRVFileTest, CountersCollisionAndLastPositions) {
  ctx.settings.Collision = kCollisionRename;
  Read("[OVERWRITE]\t0\r\n[RENAME]\t0\r\n");
  EXPECT_EQ(ctx.settings.Collision, kCollisionRename) << "\"0\" never restores index 0";
  Read(
      "[JNAME]\tnightly\r\n[RENAME]\t1\r\n[OVERWRITE]\t1\r\n"
      "[NUMFILES]\t 12 \r\n[FILESDONE]\t2.5\r\n"
      "[JOBSIZE]\t5000000000\r\n[TOTALBYTES]\t6000000000\r\n[BYTESDONE]\t3.5\r\n"
      "[LASTSRC]\t/one\r\n[LASTSRC]\t/two\r\n[LASTDIR]\t/two/sub\r\n"
      "[STARTEX]\tstart.sh\r\n[SHELLEX]\tend.sh\r\n[BMONTH]\t 3 \r\n[EYEAR]\t 2026\r\n");
  EXPECT_EQ(ctx.settings.Collision, kCollisionOverwrite) << "the later line wins";
  // Numbers are trimmed and rounded, halves to even; the last LASTSRC stands.
  const RunCounters& n = ctx.counters;
  EXPECT_EQ((std::vector<int64_t>{n.TotalFiles, n.FilesProcessed, n.TotalBytes, n.BytesProcessed}),
            (std::vector<int64_t>{12, 2, 6000000000, 4}));
  EXPECT_EQ((Strings{ctx.job.LastSrc, ctx.job.LastDir, ctx.settings.StartCommand,
                     ctx.settings.EndCommand, ctx.settings.StartMonth, ctx.settings.EndYear}),
            (Strings{"/two", "/two/sub", "start.sh", "end.sh", "3", "2026"}));
}

TEST_F(ReadRVFileTest, AJobRecordsEndCommandRunsOnlyWhenThePersonAskedForIt) {
  struct Case {
    std::string file;
    std::string body;
    bool allowed;
    std::string endCommand;
    bool notice;
  };
  const std::string named = "[JNAME]\tn\r\n[SHELLEX]\tend.sh\r\n";
  const std::string unnamed = "[TARGET]\t/t\r\n[SHELLEX]\tend.sh\r\n";
  // A run's own record, with the person's leave or without, is the runner's whole-run test.
  const std::vector<Case> cases = {
      {"job.lsw", named, false, "end.sh", false},          // a prepared job carries its own
      {"job.lsw", unnamed, false, "mine.sh", true},        // no name: a job record
      {"_jobfile.rvj", named, false, "mine.sh", true},     // a name added to a record
      {"_JOBFILE.RVJ", named, false, "mine.sh", true},
      {"_jobfile.rvj", "[TARGET]\t/t\r\n", false, "mine.sh", false},
  };
  for (const Case& c : cases) {
    dialogs.shown.clear();
    ctx.settings.EndCommand = "mine.sh";
    ctx.program.flags.allowRecordEndCommand = c.allowed;
    ReadRVFile(ctx, dir.WriteFile(c.file, c.body));
    EXPECT_EQ(ctx.settings.EndCommand, c.endCommand) << c.file << " " << c.body;
    if (c.notice) {
      ASSERT_EQ(dialogs.shown.size(), 1u) << c.file << " " << c.body;
      EXPECT_EQ(dialogs.shown[0].text,
                "This job record holds an end command, which no run writes into a job record. "
                "It will not be run:\r\nend.sh");
    } else {
      EXPECT_TRUE(dialogs.shown.empty()) << c.file << " " << c.body;
    }
  }
}

// A run's own record (its bytes are checked where it is written), read back in a fresh program:
// with both engine boxes on, the RV line comes last and wins, dropping the ROBOCOPY flags.
TEST(JobRecordRoundTripTest, TheEngineLinesDecideWhetherTheRobocopyFlagsStand) {
  for (const bool robocopyRun : {false, true}) {
    SCOPED_TRACE(robocopyRun ? "a ROBOCOPY run" : "both engine boxes on");
    test::RunFixture f;
    auto& [dir, dialogs, pump, writer] = f;
    RunContext reader{dialogs, pump};
    const std::string a = dir.MakeDir("a");
    writer.program.app.programFolder = reader.program.app.programFolder = dir.path() + "/";
    JobSettings& s = writer.settings;
    s.LogPath = dir.MakeDir("logs");
    s.Sources = {a};
    s.CommonLogPath = "/common";
    s.StartCommand = "start.sh";
    s.CopyOwner = true;
    if (robocopyRun) {
      SetRobocopy(s, true);
      SetCopyRestartable(s, true);
    } else {
      s.Robocopy = true;
    }
    reader.settings.CommonLogPath = "/mine";
    ASSERT_TRUE(WriteJobRecord(writer));
    AddJobFileEntry(writer, "[NUMFILES]\t7");
    AddJobFileEntry(writer, "[LASTSRC]\t" + a);
    ReadRVFile(reader, s.LogPath + "/_jobfile.rvj");

    const JobSettings& r = reader.settings;
    EXPECT_EQ(r.Robocopy, robocopyRun);
    EXPECT_EQ(r.Ravelin, !robocopyRun);
    EXPECT_EQ(r.CopyOwner, robocopyRun);
    EXPECT_EQ(r.CopyRestartable, robocopyRun);
    if (robocopyRun) {
      EXPECT_FALSE(r.CopyBackup || r.CopyZB) << "the copy modes exclude each other";
    }
    EXPECT_EQ(r.Sources, Strings{a});
    EXPECT_EQ(r.CommonLogPath, "/mine") << "not taken from the file";
    EXPECT_EQ(r.StartCommand, "") << "never in a record";
    EXPECT_EQ(reader.counters.TotalFiles, 7);
    EXPECT_EQ(reader.job.LastSrc, a);
    EXPECT_TRUE(dialogs.shown.empty());
  }
}

// The job manager's side.
class PreparedJobTest : public ::testing::Test, protected test::RunFixture {
 protected:
  PreparedJob job;
  JobSettings options;
  std::string path = dir / "job.lsw";
  void SetUp() override {
    job.OrderName = "Case 12";
    job.Instructions = "Plug in.\r\nWait.";
    job.ErrorNotes = "Call Ann";
    job.CommonLog = "/common";
    job.Sources = {"[RVDrive]/data", "[File List] /l.txt"};
    job.Ext = "doc\r\nxls\t";
    job.ExtAction = kExtensionDoNotCopy;
    job.ExtFile = "[RVDrive]/ext.txt";
    job.LSWSearchModified = true;
    job.BeginMonth = " 1 ";
    job.BeginDay = "31";
    job.BeginYear = "2020";
    job.EndMonth = "13";
    job.EndDay = "0";
    job.EndYear = " 2026 ";
    job.CompName = "PC7";
    options.ExclusionPatterns = {"*/tmp/*"};
    options.InclusionPatterns = {"*.doc"};
    options.Collision = kCollisionRename;
    options.Silent = true;
    options.StartCommand = "  start.sh";
    options.EndCommand = "   ";
  }
};

TEST_F(PreparedJobTest, SavedInItsFixedLineOrder) {
  ASSERT_TRUE(SaveJobFile(job, options, path));
  EXPECT_EQ(test::ReadBytes(path),
            "[JNAME]\tCase 12\r\n"
            "[JINSTRUCT]\tPlug in.\r\nWait.\r\n"
            "[JERRINST]\tCall Ann\r\n"
            "[TARGET]\t[RVDrive]/[JobName]/\r\n"
            "[JPATH]\t[RVDrive]/_Logs/[JobName]/\r\n"
            "[COMMONLOG]\t/common\r\n"
            "[SRC]\t[RVDrive]/data\r\n"
            "[SRC]\t[File List] /l.txt\r\n"
            "[EXCLUSION]\t*/tmp/*\r\n"
            "[FNAMEFILTER]\t*.doc\r\n"
            "[ENGINE]\tRV\r\n"
            "[COPYEMPTIES]\t1\r\n[COPYSUBS]\t1\r\n[COPYFILES]\t1\r\n[TALLYSUM]\t0\r\n"
            "[FILELIST]\t0\r\n"
            "[BMONTH]\t1\r\n[BDAY]\t31\r\n[BYEAR]\t2020\r\n[EYEAR]\t2026\r\n"
            "[SEARCHCREATED]\t0\r\n[SEARCHMODIFIED]\t1\r\n[SEARCHACCESSED]\t0\r\n"
            "[SILENT]\t1\r\n[OVERWRITE]\t0\r\n[RENAME]\t1\r\n[FULLPATH]\t0\r\n"
            "[ROOTFOLDERS]\t0\r\n[CREATESUBS]\t1\r\n[SEPARATE_TS]\t0\r\n"
            "[EXTS]\tdoc,xls\r\n[EXTFILE]\t[RVDrive]/ext.txt\r\n[EXTOP]\t1\r\n"
            "[LOG]\t1\r\n[S-HASH]\t1\r\n[D-HASH]\t1\r\n"
            "[CNAME]\tPC7\r\n[STARTEX]\t  start.sh\r\n");
  EXPECT_EQ(job.Ext, "doc,xls") << "the box keeps the normalised text";
  EXPECT_FALSE(SaveJobFile(job, options, dir / "missing/job.lsw"));
}

TEST_F(PreparedJobTest, OneEngineLineAndOptionalTails) {
  SetRobocopy(options, true);
  options.CreateLog = false;
  job.CompName = " ";
  job.CommonLog = job.ExtFile = "";
  job.Ext = "  ";
  ASSERT_TRUE(SaveJobFile(job, options, path));
  const std::string f = test::ReadBytes(path);
  EXPECT_NE(f.find("[FNAMEFILTER]\t*.doc\r\n[ENGINE]\tRC\r\n[COPYEMPTIES]"), std::string::npos);
  for (const char* absent : {"[COPYATTR]", "[COMMONLOG]", "[EXTS]", "[EXTFILE]"}) {
    EXPECT_EQ(f.find(absent), std::string::npos) << absent;
  }
  const std::string tail = "[EXTOP]\t1\r\n[LOG]\t0\r\n[STARTEX]\t  start.sh\r\n";
  ASSERT_GE(f.size(), tail.size());
  EXPECT_EQ(f.substr(f.size() - tail.size()), tail);
}

TEST_F(PreparedJobTest, RoundTripThroughTheJobManager) {
  ASSERT_TRUE(SaveJobFile(job, options, path));
  PreparedJob back;
  JobSettings opts;
  opts.Collision = kCollisionOverwrite;
  opts.InclusionPatterns = {"*.pdf"};
  opts.ExclusionPatterns = {"gone"};
  LoadFromFile(path, back, opts);
  // Only the first line of the instructions comes back; out-of-range dates were not written.
  EXPECT_EQ((Strings{back.OrderName, back.Instructions, back.ErrorNotes, back.CommonLog, back.Ext,
                     back.CompName}),
            (Strings{"Case 12", "Plug in.", "Call Ann", "/common", "doc,xls", "PC7"}));
  EXPECT_EQ((Strings{back.BeginMonth, back.BeginDay, back.BeginYear, back.EndMonth, back.EndDay,
                     back.EndYear}),
            (Strings{"1", "31", "2020", "", "", "2026"}));
  EXPECT_EQ((Strings{back.Target, back.LogPath, back.ExtFile}),
            (Strings{job.Target, job.LogPath, job.ExtFile}));
  EXPECT_EQ(back.Sources, job.Sources) << "verbatim, variables kept";
  EXPECT_EQ(back.ExtAction, kExtensionDoNotCopy);
  EXPECT_TRUE(back.LSWSearchModified && !back.LSWSearchCreated);
  EXPECT_EQ(opts.ExclusionPatterns, options.ExclusionPatterns);
  EXPECT_EQ(opts.InclusionPatterns, (Strings{"*.pdf", "*.doc"}));
  EXPECT_EQ(opts.Collision, kCollisionRename);
  EXPECT_TRUE(opts.Silent);
  EXPECT_EQ(opts.StartCommand, "  start.sh");
  EXPECT_EQ(opts.EndCommand, "");

  // Index 0 is never restored over another choice.
  options.Collision = kCollisionDoNothing;
  ASSERT_TRUE(SaveJobFile(job, options, path));
  LoadFromFile(path, back, opts);
  EXPECT_EQ(opts.Collision, kCollisionRename);
}

TEST_F(PreparedJobTest, LoadClearsTheFormAndSkipsCountersAndRobocopyFlags) {
  dir.WriteFile("job.lsw",
                "[ENGINE]\tRC\r\n[COPYATTR]\tnot a number\r\n[COPYSEC]\t1\r\n"
                "[NUMFILES]\tnot a number\r\n[SRC]\t/nowhere\r\n");
  LoadFromFile(path, job, options);
  EXPECT_TRUE(options.Robocopy);
  EXPECT_FALSE(options.CopySecurity);
  EXPECT_EQ(job.Sources, Strings{"/nowhere"});
  EXPECT_EQ((Strings{job.OrderName, job.Target, job.CompName, job.EndYear}), Strings(4))
      << "a cleared form has empty texts, paths too";
  EXPECT_TRUE(options.ExclusionPatterns.empty());
  EXPECT_EQ(options.InclusionPatterns, Strings{"*.doc"});
  EXPECT_EQ(job.ExtAction, kExtensionDoNotCopy) << "only text fields are cleared";
  EXPECT_TRUE(job.LSWSearchModified);

  dir.WriteFile("job.lsw", "[LOG]\tmaybe\r\n");
  EXPECT_EQ(ErrorNumberOf([&] { LoadFromFile(path, job, options); }), 13);

  job.OrderName = "kept";
  LoadFromFile("  ", job, options);
  EXPECT_EQ(job.OrderName, "kept");
}

}  // namespace
}  // namespace qr
