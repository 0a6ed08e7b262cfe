#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "jobdef/job_file.h"
#include "platform/errors.h"
#include "platform/machine.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

using Strings = std::vector<std::string>;

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
  void Read(std::string_view body) { ReadRVFile(ctx, dir.WriteFile("job.lsw", body)); }
};

TEST_F(ReadRVFileTest, OnlyExactTagsWithATabAreAppliedAndEachLoadStartsAfresh) {
  const std::string a = dir.MakeDir("a");
  ctx.settings.LogPath = "/logs";
  ctx.job.SpecialInstructions = "cleared before reading";
  Read("[JNAME]\tfirst\r\n"
       "[JNAME]\r\n"         // no tab: skipped
       "[jname]\tlower\r\n"  // tags are case-sensitive
       "[TARGET]\t/t\textra\r\n"
       "[EXTS]\tdoc\r"       // a lone CR ends a line
       "[SRC]\t" + a + "\n"  // and so does a lone LF
       "[EXCLUSION]\t*/tmp/*\r\n[FNAMEFILTER]\t*.doc\r\n");
  EXPECT_EQ((Strings{ctx.job.JobName, ctx.job.SpecialInstructions, ctx.settings.TargetPath,
                     ctx.settings.Extensions}),
            (Strings{"first", "", "/t", "doc"}));

  // Loaded twice: only the inclusion patterns pile up; the log path is never cleared.
  ReadRVFile(ctx, dir / "job.lsw");
  EXPECT_EQ(ctx.settings.Sources, Strings{a});
  EXPECT_EQ(ctx.settings.ExclusionPatterns, Strings{"*/tmp/*"});
  EXPECT_EQ(ctx.settings.InclusionPatterns, (Strings{"*.doc", "*.doc"}));
  EXPECT_EQ(ctx.settings.LogPath, "/logs");
  EXPECT_TRUE(dialogs.shown.empty());

  // A missing file, or a folder in its place, changes nothing.
  ReadRVFile(ctx, dir / "none.lsw");
  ReadRVFile(ctx, dir.MakeDir("folder.lsw"));
  EXPECT_EQ(ctx.job.JobName, "first");
}

TEST_F(ReadRVFileTest, SourcesGoThroughAddSourceWithTheProgramsDrive) {
  const std::string a = dir.MakeDir("a");
  dir.MakeDir("a/b");
  // The job manager's tests show the drive replaced; here, that the reader goes through it.
  const std::string drive = ProgramDrive(dir.path());
  const std::string c = dir.MakeDir("c");
  Read("[SRC]\t" + a + "\r\n[SRC]\t" + a + "/b\r\n[SRC]\t[RVDrive]" + c.substr(drive.size()) +
       "\r\n[SRC]\t[File List] /l.txt\r\n[TARGET]\t[RVDrive]/[JobName]/\r\n");
  EXPECT_EQ(ctx.settings.Sources, (Strings{a, c, "[File List] /l.txt"}));
  EXPECT_EQ(dialogs.Texts(), Strings{"A directory containing the directory you have chosen has "
                                     "already been added to the source list. This directory will "
                                     "not be added."});
  EXPECT_EQ(ctx.settings.TargetPath, "[RVDrive]/[JobName]/") << "the target is taken verbatim";
}

TEST_F(ReadRVFileTest, FlagSensesClickRulesAndRobocopyFlags) {
  JobSettings& s = ctx.settings;
  s.Silent = s.SearchModified = s.SeparateTS = true;
  s.CopyFiles = false;
  // An empty value and "0" are off; any other number is on; an unmentioned option keeps its value.
  Read("[SILENT]\t\r\n[SEARCHMODIFIED]\t0\r\n[SEARCHACCESSED]\t1\r\n[COPYFILES]\t2\r\n"
       "[ENGINE]\tRC\r\n[FULLPATH]\t1\r\n[LOG]\t0\r\n");
  EXPECT_FALSE(s.Silent || s.SearchModified || s.CreateLog || s.enabled.HashSource);
  EXPECT_TRUE(s.SearchAccessed && s.CopyFiles && s.SeparateTS && s.enabled.RootFolders);
  EXPECT_TRUE(s.Robocopy && !s.Ravelin);

  // The ROBOCOPY flags count only while that engine is on: not even converted before it.
  Read("[ENGINE]\tRV\r\n[COPYSEC]\t1\r\n[COPYAUDIT]\tnot a number\r\n"
       "[ENGINE]\tRC\r\n[COPYOWNER]\t1\r\n[COPYRESTART]\t1\r\n[COPYATTR]\t0\r\n"
       "[ENGINE]\tanything\r\n[COPYDATA]\t0\r\n");
  EXPECT_FALSE(s.CopySecurity || s.CopyAudit || s.CopyAttributes || s.Robocopy);
  EXPECT_TRUE(s.CopyOwner && s.CopyRestartable && s.CopyData && s.Ravelin);
  EXPECT_FALSE(s.CopyBackup || s.CopyZB) << "the copy modes exclude each other";
}

TEST_F(ReadRVFileTest, NoNumberWhereOneIsNeededIsATypeMismatchOrAnOverflow) {
  const std::vector<std::pair<std::string, int>> cases = {
      {"[LOG]\tyes", 13}, {"[S-HASH]\t", 13}, {"[D-HASH]\t1.0", 13}, {"[D-HASH]\t- 1", 13},
      {"[NUMFILES]\t12abc", 13}, {"[JOBSIZE]\t1e3", 13}, {"[ENGINE]\tRC\r\n[COPYATTR]\tx", 13},
      {"[NUMFILES]\t3000000000", 6}, {"[LOG]\t40000", 6},
      {"[TOTALBYTES]\t9999999999999999999", 6}, {"[TOTALBYTES]\t922337203685477.5808", 6},
      // Sizes pass through four decimals: the ends of that range still fit.
      {"[TOTALBYTES]\t922337203685477.5807", 0}, {"[TOTALBYTES]\t-922337203685477.5808", 0}};
  for (const auto& [body, number] : cases) {
    EXPECT_EQ(ErrorNumberOf([&] { Read(body + "\r\n"); }), number) << body;
  }
}

TEST_F(ReadRVFileTest, CountersCollisionAndLastPositions) {
  ctx.settings.Collision = kCollisionRename;
  Read("[OVERWRITE]\t0\r\n[RENAME]\t0\r\n");
  EXPECT_EQ(ctx.settings.Collision, kCollisionRename) << "\"0\" never restores index 0";
  Read("[JNAME]\tn\r\n[RENAME]\t1\r\n[OVERWRITE]\t1\r\n[NUMFILES]\t 12 \r\n[FILESDONE]\t2.5\r\n"
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
  const std::string named = "[JNAME]\tn\r\n[SHELLEX]\tend.sh\r\n";
  // {file, body, the end command after reading it}; a refused one leaves a notice.
  const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
      {"job.lsw", named, "end.sh"},  // a prepared job carries its own
      {"job.lsw", "[TARGET]\t/t\r\n[SHELLEX]\tend.sh\r\n", "mine.sh"},  // no name: a job record
      {"_JOBFILE.RVJ", named, "mine.sh"},  // a name added to a record
      {"_jobfile.rvj", "[TARGET]\t/t\r\n", "mine.sh"},
  };
  for (const auto& [file, body, endCommand] : cases) {
    SCOPED_TRACE(file + " " + body);
    dialogs.shown.clear();
    ctx.settings.EndCommand = "mine.sh";
    ReadRVFile(ctx, dir.WriteFile(file, body));
    EXPECT_EQ(ctx.settings.EndCommand, endCommand);
    const bool refused = endCommand == "mine.sh" && body.find("SHELLEX") != std::string::npos;
    EXPECT_EQ(dialogs.Texts(),
              refused ? Strings{"This job record holds an end command, which no run writes into a "
                                "job record. It will not be run:\r\nend.sh"}
                      : Strings{});
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

TEST_F(PreparedJobTest, SavedInItsFixedLineOrderAndLoadedBack) {
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
  EXPECT_FALSE(SaveJobFile(job, options, dir / "missing/job.lsw"));

  PreparedJob back;
  JobSettings opts;
  opts.Collision = kCollisionOverwrite;
  opts.InclusionPatterns = {"*.pdf"};
  opts.ExclusionPatterns = {"gone"};
  LoadFromFile(path, back, opts);
  // Only the first line of the instructions comes back.
  EXPECT_EQ((Strings{back.OrderName, back.Instructions, back.ErrorNotes, back.CommonLog, back.Ext,
                     back.CompName, back.BeginMonth, back.EndMonth, back.EndYear}),
            (Strings{"Case 12", "Plug in.", "Call Ann", "/common", "doc,xls", "PC7", "1", "",
                     "2026"}));
  EXPECT_EQ(back.Sources, job.Sources) << "verbatim, variables kept";
  EXPECT_EQ(back.ExtFile, job.ExtFile);
  EXPECT_TRUE(back.ExtAction == kExtensionDoNotCopy && back.LSWSearchModified);
  EXPECT_EQ(opts.ExclusionPatterns, options.ExclusionPatterns);
  EXPECT_EQ(opts.InclusionPatterns, (Strings{"*.pdf", "*.doc"}));
  EXPECT_TRUE(opts.Collision == kCollisionRename && opts.Silent);
  EXPECT_EQ(opts.StartCommand + "|" + opts.EndCommand, "  start.sh|");

  // Index 0 is never restored over another choice.
  options.Collision = kCollisionDoNothing;
  ASSERT_TRUE(SaveJobFile(job, options, path));
  LoadFromFile(path, back, opts);
  EXPECT_EQ(opts.Collision, kCollisionRename);
}

TEST_F(PreparedJobTest, LoadClearsTheFormAndSkipsCountersAndRobocopyFlags) {
  dir.WriteFile("job.lsw", "[ENGINE]\tRC\r\n[COPYATTR]\tnot a number\r\n[COPYSEC]\t1\r\n"
                           "[NUMFILES]\tnot a number\r\n[SRC]\t/nowhere\r\n");
  LoadFromFile(path, job, options);
  EXPECT_TRUE(options.Robocopy && !options.CopySecurity);
  EXPECT_EQ((Strings{job.OrderName, job.Target, job.CompName, job.EndYear}), Strings(4))
      << "a cleared form has empty texts, paths too";
  EXPECT_TRUE(options.ExclusionPatterns.empty());
  EXPECT_EQ(job.ExtAction, kExtensionDoNotCopy) << "only text fields are cleared";

  dir.WriteFile("job.lsw", "[LOG]\tmaybe\r\n");
  EXPECT_EQ(ErrorNumberOf([&] { LoadFromFile(path, job, options); }), 13);
  job.OrderName = "kept";
  LoadFromFile("  ", job, options);
  EXPECT_EQ(job.OrderName, "kept");
}

}  // namespace
}  // namespace qr
