#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "jobdef/job_file.h"
#include "platform/errors.h"
#include "platform/machine.h"
#include "run/run_context.h"
#include "support/fake_dialogs.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

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

class ReadRVFileTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  test::FakeDialogs dialogs;
  test::FakePump pump;
  RunContext ctx{dialogs, pump};
  void SetUp() override { ctx.app.programFolder = dir.path() + "/"; }
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
      "[SRC]\t" +
      a +
      "\tx\r\n"
      "[JINSTRUCT]\t\r\n");  // a tab and nothing: an empty value
  EXPECT_EQ(ctx.job.JobName, "first");
  EXPECT_EQ(ctx.settings.TargetPath, "/t");
  EXPECT_EQ(ctx.settings.LogPath, "/l");
  EXPECT_EQ(ctx.settings.Extensions, "doc");
  EXPECT_EQ(ctx.settings.Sources, std::vector<std::string>{a});
  EXPECT_TRUE(dialogs.shown.empty());

  ctx.job.SpecialInstructions = "kept?";
  Read("[JNAME]\t\r\n");
  EXPECT_EQ(ctx.job.JobName, "");
  EXPECT_EQ(ctx.job.SpecialInstructions, "") << "cleared before reading";
}

TEST_F(ReadRVFileTest, AMissingFileChangesNothing) {
  ctx.settings.Sources = {"/s"};
  ctx.settings.TargetPath = "/t";
  ctx.job.JobName = "n";
  ReadRVFile(ctx, dir / "none.lsw");
  ReadRVFile(ctx, dir.MakeDir("folder.lsw"));
  EXPECT_EQ(ctx.settings.Sources, std::vector<std::string>{"/s"});
  EXPECT_EQ(ctx.settings.TargetPath, "/t");
  EXPECT_EQ(ctx.job.JobName, "n");
}

TEST_F(ReadRVFileTest, SourcesGoThroughAddSourceWithTheProgramsDrive) {
  const std::string a = dir.MakeDir("a");
  dir.MakeDir("a/b");
  const std::string c = dir.MakeDir("c");
  const std::string drive = ProgramDrive(dir.path());
  ASSERT_EQ(dir.path().substr(0, drive.size()), drive);
  const std::string viaDrive = "[RVDrive]" + c.substr(drive.size());
  Read("[SRC]\t" + dir / "missing" +
       "\r\n"
       "[SRC]\t" +
       a +
       "\r\n"
       "[SRC]\t" +
       a +
       "/b\r\n"
       "[SRC]\t" +
       viaDrive +
       "\r\n"
       "[SRC]\t[File List] " +
       dir / "list.txt" +
       "\r\n"
       "[EXTFILE]\t" +
       viaDrive + "/ext.txt\r\n");
  EXPECT_EQ(ctx.settings.Sources,
            (std::vector<std::string>{a, c, "[File List] " + dir / "list.txt"}));
  EXPECT_EQ(dialogs.Texts(),
            (std::vector<std::string>{dir / "missing" + kNotFound, kInsideAnEntry}));
  EXPECT_EQ(ctx.settings.ExtListFile, c + "/ext.txt");

  // The temporary folder may lie on the root file system, whose drive is empty: a program in
  // another mounted file system shows the replacement itself.
  ctx.app.programFolder = "/proc/self/";
  const std::string procDrive = ProgramDrive("/proc/self");
  ASSERT_FALSE(procDrive.empty());
  dialogs.shown.clear();
  Read("[SRC]\t[RVDrive]/nowhere [RVDrive]\r\n[EXTFILE]\t[RVDrive]/e.txt\r\n");
  EXPECT_EQ(dialogs.Texts(),
            std::vector<std::string>{procDrive + "/nowhere " + procDrive + kNotFound});
  EXPECT_EQ(ctx.settings.ExtListFile, procDrive + "/e.txt");
}

TEST_F(ReadRVFileTest, LoadingTwiceDoublesInclusionPatternsOnly) {
  const std::string a = dir.MakeDir("a");
  ctx.settings.LogPath = "/logs";
  ctx.settings.TargetPath = "/old";
  const std::string job = Job("[SRC]\t" + a +
                              "\r\n[EXCLUSION]\t*/tmp/*\r\n"
                              "[FNAMEFILTER]\t*.doc\r\n");
  ReadRVFile(ctx, job);
  ReadRVFile(ctx, job);
  EXPECT_EQ(ctx.settings.Sources, std::vector<std::string>{a});
  EXPECT_EQ(ctx.settings.ExclusionPatterns, std::vector<std::string>{"*/tmp/*"});
  EXPECT_EQ(ctx.settings.InclusionPatterns, (std::vector<std::string>{"*.doc", "*.doc"}));
  EXPECT_EQ(ctx.settings.TargetPath, "") << "the target is cleared";
  EXPECT_EQ(ctx.settings.LogPath, "/logs") << "the log path is not";
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(ReadRVFileTest, TheTwoFlagSensesAndUnmentionedOptions) {
  JobSettings& s = ctx.settings;
  s.Silent = true;
  s.SearchModified = true;
  s.CopyFiles = false;
  s.CreateTally = false;
  s.SeparateTS = true;
  Read(
      "[SILENT]\t\r\n[SEARCHCREATED]\t2\r\n[SEARCHMODIFIED]\t\r\n[SEARCHACCESSED]\t1\r\n"
      "[COPYFILES]\t\r\n[TALLYSUM]\t2\r\n[COPYSUBS]\t0\r\n[FILELIST]\tx\r\n");
  EXPECT_FALSE(s.Silent);
  EXPECT_FALSE(s.SearchCreated);
  EXPECT_FALSE(s.SearchModified);
  EXPECT_TRUE(s.SearchAccessed);
  EXPECT_TRUE(s.CopyFiles);
  EXPECT_TRUE(s.CreateTally);
  EXPECT_FALSE(s.CopySubs);
  EXPECT_TRUE(s.CreateFileList);
  EXPECT_TRUE(s.SeparateTS) << "an option the file doesn't mention keeps its value";
}

TEST_F(ReadRVFileTest, BoxesSetFromTheFileFireTheirClickRules) {
  JobSettings& s = ctx.settings;
  Read("[ENGINE]\tRC\r\n[FULLPATH]\t1\r\n[LOG]\t0\r\n[S-HASH]\t0\r\n");
  EXPECT_TRUE(s.Robocopy);
  EXPECT_FALSE(s.Ravelin);
  EXPECT_TRUE(s.enabled.RootFolders);
  EXPECT_FALSE(s.enabled.CreateSubs);
  EXPECT_FALSE(s.CreateLog);
  EXPECT_FALSE(s.enabled.HashSource);
  EXPECT_FALSE(s.HashSource);

  Read("[ENGINE]\tanything\r\n[LOG]\t -1 \r\n");
  EXPECT_TRUE(s.Ravelin);
  EXPECT_FALSE(s.Robocopy);
  EXPECT_TRUE(s.CreateLog);
  EXPECT_TRUE(s.enabled.HashSource);
}

TEST_F(ReadRVFileTest, RobocopyFlagsCountOnlyWhileThatEngineIsOn) {
  JobSettings& s = ctx.settings;
  Read(
      "[COPYSEC]\t1\r\n"
      "[COPYAUDIT]\tnot a number\r\n"  // not even converted while the engine is off
      "[ENGINE]\tRC\r\n"
      "[COPYOWNER]\t1\r\n"
      "[COPYRESTART]\t1\r\n"
      "[ENGINE]\tRV\r\n"
      "[COPYDATA]\t0\r\n");
  EXPECT_FALSE(s.CopySecurity);
  EXPECT_FALSE(s.CopyAudit);
  EXPECT_TRUE(s.CopyOwner);
  EXPECT_TRUE(s.CopyRestartable);
  EXPECT_FALSE(s.CopyBackup) << "the copy modes exclude each other";
  EXPECT_FALSE(s.CopyZB);
  EXPECT_TRUE(s.CopyData);
}

TEST_F(ReadRVFileTest, NoNumberWhereOneIsNeededIsATypeMismatch) {
  for (const char* body :
       {"[LOG]\tyes\r\n", "[S-HASH]\t\r\n", "[D-HASH]\t1.0\r\n", "[D-HASH]\t- 1\r\n",
        "[NUMFILES]\t12abc\r\n", "[FILESDONE]\t\r\n", "[JOBSIZE]\t1e3\r\n", "[BYTESDONE]\tx\r\n",
        "[ENGINE]\tRC\r\n[COPYATTR]\tx\r\n"}) {
    EXPECT_EQ(ErrorOf(body), 13) << body;
  }
  EXPECT_EQ(ErrorOf("[NUMFILES]\t3000000000\r\n"), 6);
  EXPECT_EQ(ErrorOf("[LOG]\t40000\r\n"), 6);
  EXPECT_EQ(ErrorOf("[TOTALBYTES]\t9999999999999999999\r\n"), 6);
}

TEST_F(ReadRVFileTest, CountersCollisionAndLastPositions) {
  ctx.settings.Collision = kCollisionRename;
  Read("[OVERWRITE]\t0\r\n[RENAME]\t0\r\n");
  EXPECT_EQ(ctx.settings.Collision, kCollisionRename) << "\"0\" never restores index 0";
  Read(
      "[RENAME]\t1\r\n[OVERWRITE]\t1\r\n"
      "[NUMFILES]\t 12 \r\n[FILESDONE]\t2.5\r\n"
      "[JOBSIZE]\t5000000000\r\n[TOTALBYTES]\t6000000000\r\n[BYTESDONE]\t3.5\r\n"
      "[LASTSRC]\t/one\r\n[LASTSRC]\t/two\r\n[LASTDIR]\t/two/sub\r\n"
      "[STARTEX]\tstart.sh\r\n[SHELLEX]\tend.sh\r\n[BMONTH]\t 3 \r\n[EYEAR]\t 2026\r\n");
  EXPECT_EQ(ctx.settings.Collision, kCollisionOverwrite) << "the later line wins";
  EXPECT_EQ(ctx.counters.TotalFiles, 12);
  EXPECT_EQ(ctx.counters.FilesProcessed, 2) << "halves round to even";
  EXPECT_EQ(ctx.counters.TotalBytes, 6000000000);
  EXPECT_EQ(ctx.counters.BytesProcessed, 4);
  EXPECT_EQ(ctx.job.LastSrc, "/two");
  EXPECT_EQ(ctx.job.LastDir, "/two/sub");
  EXPECT_EQ(ctx.settings.StartCommand, "start.sh");
  EXPECT_EQ(ctx.settings.EndCommand, "end.sh");
  EXPECT_EQ(ctx.settings.StartMonth, "3");
  EXPECT_EQ(ctx.settings.EndYear, "2026");
}

// A run's own record, read back in a fresh program.
class JobRecordRoundTripTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  test::FakeDialogs dialogs;
  test::FakePump pump;
  RunContext writer{dialogs, pump};
  RunContext reader{dialogs, pump};
  std::string a, b;
  void SetUp() override {
    a = dir.MakeDir("a");
    b = dir.WriteFile("b.txt", "b");
    writer.app.programFolder = reader.app.programFolder = dir.path() + "/";
    JobSettings& s = writer.settings;
    s.LogPath = dir.MakeDir("logs");
    s.TargetPath = "/target";
    s.CommonLogPath = "/common";
    s.Sources = {a, b};
    s.ExclusionPatterns = {"*/tmp/*"};
    s.InclusionPatterns = {"*.doc"};
    s.Collision = kCollisionOverwrite;
    s.SearchAccessed = true;
    s.StartMonth = "13";
    s.CopyOwner = true;
    s.StartCommand = "start.sh";
  }
  void WriteAndRead() {
    ASSERT_TRUE(WriteJobRecord(writer));
    AddJobFileEntry(writer, "[NUMFILES]\t7");
    AddJobFileEntry(writer, "[JOBSIZE]\t700");
    AddJobFileEntry(writer, "[LASTSRC]\t" + a);
    ReadRVFile(reader, writer.settings.LogPath + "/_jobfile.rvj");
  }
};

TEST_F(JobRecordRoundTripTest, BothEngineLinesReadAsTheProgramsOwnEngine) {
  writer.settings.Robocopy = true;  // both boxes on
  reader.settings.CommonLogPath = "/mine";
  WriteAndRead();
  const JobSettings& r = reader.settings;
  EXPECT_TRUE(r.Ravelin);
  EXPECT_FALSE(r.Robocopy);
  EXPECT_FALSE(r.CopyOwner) << "the flags stood after the RV line";
  EXPECT_EQ(r.Sources, (std::vector<std::string>{a, b}));
  EXPECT_EQ(r.ExclusionPatterns, writer.settings.ExclusionPatterns);
  EXPECT_EQ(r.InclusionPatterns, writer.settings.InclusionPatterns);
  EXPECT_EQ(r.TargetPath, "/target");
  EXPECT_EQ(r.LogPath, writer.settings.LogPath);
  EXPECT_EQ(r.Collision, kCollisionOverwrite);
  EXPECT_TRUE(r.SearchAccessed);
  EXPECT_EQ(r.StartMonth, "13");
  EXPECT_EQ(r.CommonLogPath, "/mine") << "not taken from the file";
  EXPECT_EQ(r.StartCommand, "") << "never in a record";
  EXPECT_EQ(reader.counters.TotalFiles, 7);
  EXPECT_EQ(reader.counters.TotalBytes, 700);
  EXPECT_EQ(reader.job.LastSrc, a);
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(JobRecordRoundTripTest, ARobocopyRunKeepsItsFlags) {
  SetRobocopy(writer.settings, true);
  SetCopyRestartable(writer.settings, true);
  WriteAndRead();
  const JobSettings& r = reader.settings;
  EXPECT_TRUE(r.Robocopy);
  EXPECT_FALSE(r.Ravelin);
  EXPECT_TRUE(r.CopyOwner);
  EXPECT_TRUE(r.CopyRestartable);
  EXPECT_FALSE(r.CopyBackup);
  EXPECT_FALSE(r.CopyZB);
}

// The job manager's side.
class PreparedJobTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  test::FakeDialogs dialogs;
  test::FakePump pump;
  PreparedJob job;
  JobSettings options;
  std::string path;
  void SetUp() override {
    path = dir / "job.lsw";
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
}

TEST_F(PreparedJobTest, OneEngineLineAndOptionalTails) {
  SetRobocopy(options, true);
  options.CreateLog = false;
  job.CompName = " ";
  job.CommonLog = "";
  job.Ext = "  ";
  job.ExtFile = "";
  ASSERT_TRUE(SaveJobFile(job, options, path));
  const std::string f = test::ReadBytes(path);
  EXPECT_NE(f.find("[FNAMEFILTER]\t*.doc\r\n[ENGINE]\tRC\r\n[COPYEMPTIES]"), std::string::npos);
  EXPECT_EQ(f.find("[COPYATTR]"), std::string::npos) << "no ROBOCOPY flags in a prepared job";
  EXPECT_EQ(f.find("[COMMONLOG]"), std::string::npos);
  EXPECT_EQ(f.find("[EXTS]"), std::string::npos);
  EXPECT_EQ(f.find("[EXTFILE]"), std::string::npos);
  const std::string tail = "[EXTOP]\t1\r\n[LOG]\t0\r\n[STARTEX]\t  start.sh\r\n";
  ASSERT_GE(f.size(), tail.size());
  EXPECT_EQ(f.substr(f.size() - tail.size()), tail);

  EXPECT_FALSE(SaveJobFile(job, options, dir / "missing/job.lsw"));
}

TEST_F(PreparedJobTest, RoundTripThroughTheJobManager) {
  ASSERT_TRUE(SaveJobFile(job, options, path));
  PreparedJob back;
  JobSettings opts;
  opts.Collision = kCollisionOverwrite;
  opts.InclusionPatterns = {"*.pdf"};
  opts.ExclusionPatterns = {"gone"};
  LoadFromFile(path, back, opts);
  EXPECT_EQ(back.OrderName, "Case 12");
  EXPECT_EQ(back.Instructions, "Plug in.") << "later lines are lost";
  EXPECT_EQ(back.ErrorNotes, "Call Ann");
  EXPECT_EQ(back.Target, job.Target);
  EXPECT_EQ(back.LogPath, job.LogPath);
  EXPECT_EQ(back.CommonLog, "/common");
  EXPECT_EQ(back.Sources, job.Sources) << "verbatim, variables kept";
  EXPECT_EQ(back.Ext, "doc,xls");
  EXPECT_EQ(back.ExtAction, kExtensionDoNotCopy);
  EXPECT_EQ(back.ExtFile, job.ExtFile);
  EXPECT_FALSE(back.LSWSearchCreated);
  EXPECT_TRUE(back.LSWSearchModified);
  EXPECT_EQ(back.BeginMonth, "1");
  EXPECT_EQ(back.BeginDay, "31");
  EXPECT_EQ(back.BeginYear, "2020");
  EXPECT_EQ(back.EndMonth, "") << "out of range, not written";
  EXPECT_EQ(back.EndDay, "");
  EXPECT_EQ(back.EndYear, "2026");
  EXPECT_EQ(back.CompName, "PC7");
  EXPECT_EQ(opts.ExclusionPatterns, options.ExclusionPatterns);
  EXPECT_EQ(opts.InclusionPatterns, (std::vector<std::string>{"*.pdf", "*.doc"}));
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

TEST_F(PreparedJobTest, RoundTripThroughTheMainWindow) {
  const std::string data = dir.MakeDir("data");
  const std::string drive = ProgramDrive(dir.path());
  job.Sources = {"[RVDrive]" + data.substr(drive.size()), "[RVDrive]/nowhere-at-all"};
  options.StartCommand = "start.sh";
  ASSERT_TRUE(SaveJobFile(job, options, path));
  RunContext ctx{dialogs, pump};
  ctx.app.programFolder = dir.path() + "/";
  ctx.settings.CommonLogPath = "/mine";
  ReadRVFile(ctx, path);
  EXPECT_EQ(ctx.job.JobName, "Case 12");
  EXPECT_EQ(ctx.job.SpecialInstructions, "Plug in.");
  EXPECT_EQ(ctx.job.ErrorInstructions, "Call Ann");
  EXPECT_EQ(ctx.settings.Sources, std::vector<std::string>{data});
  EXPECT_EQ(dialogs.Texts(), std::vector<std::string>{drive + "/nowhere-at-all" + kNotFound});
  EXPECT_EQ(ctx.settings.TargetPath, "[RVDrive]/[JobName]/") << "verbatim";
  EXPECT_EQ(ctx.settings.ExtListFile, drive + "/ext.txt");
  EXPECT_EQ(ctx.settings.Extensions, "doc,xls");
  EXPECT_EQ(ctx.settings.Extension, kExtensionDoNotCopy);
  EXPECT_TRUE(ctx.settings.SearchModified);
  EXPECT_EQ(ctx.settings.StartMonth, "1");
  EXPECT_EQ(ctx.settings.EndMonth, "");
  EXPECT_EQ(ctx.settings.Collision, kCollisionRename);
  EXPECT_TRUE(ctx.settings.Silent);
  EXPECT_EQ(ctx.settings.StartCommand, "start.sh");
  EXPECT_EQ(ctx.settings.CommonLogPath, "/mine") << "[COMMONLOG] is not taken";
}

TEST_F(PreparedJobTest, LoadClearsTheFormAndSkipsCountersAndRobocopyFlags) {
  dir.WriteFile("job.lsw",
                "[ENGINE]\tRC\r\n[COPYATTR]\tnot a number\r\n[COPYSEC]\t1\r\n"
                "[NUMFILES]\tnot a number\r\n[SRC]\t/nowhere\r\n");
  job.ExtAction = kExtensionDoNotCopy;
  LoadFromFile(path, job, options);
  EXPECT_TRUE(options.Robocopy);
  EXPECT_FALSE(options.CopySecurity);
  EXPECT_EQ(job.Sources, std::vector<std::string>{"/nowhere"});
  EXPECT_EQ(job.OrderName, "");
  EXPECT_EQ(job.Target, "") << "a cleared form has empty paths";
  EXPECT_EQ(job.CompName, "");
  EXPECT_EQ(job.EndYear, "");
  EXPECT_TRUE(options.ExclusionPatterns.empty());
  EXPECT_EQ(options.InclusionPatterns, std::vector<std::string>{"*.doc"});
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
