// Job files: a run's record, read back on resume; files written by hand; prepared jobs.
#include "jobdef/job_file.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/errors.h"
#include "platform/machine.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

using Strings = std::vector<std::string>;

class JobFileTest : public ::testing::Test, protected test::RunFixture {
 protected:
  void SetUp() override {
    ctx.program.versionText = "2.2.0";
    ctx.program.app.programFolder = "/opt/qr/";
  }
  std::string Record() const { return test::ReadBytes(dir / "_jobfile.rvj"); }
  void Read(std::string_view body) { ReadRVFile(ctx, dir.WriteFile("job.lsw", body)); }
};

// Written in its fixed order, read back on resume: the same record again, and the counters.
TEST_F(JobFileTest, AJobRecordRoundTrip) {
  JobSettings& s = ctx.settings;
  const std::string a = dir.MakeDir("a");
  s.TargetPath = "/target";
  s.Sources = {a, "[File List] /l.txt"};
  s.ExclusionPatterns = {"*/tmp/*"};
  s.InclusionPatterns = {"*.doc", "*.xls"};
  s.CommonLogPath = "/common";
  // No range test in a job record, and each date box its own line.
  s.StartMonth = " 13 ";
  s.StartDay = "1";
  s.StartYear = "2020";
  s.EndMonth = "2";
  s.EndDay = "3";
  s.EndYear = "2026";
  s.Robocopy = true;  // both engine boxes on: both lines, in this order
  s.Collision = kCollisionRename;
  s.Extension = kExtensionDoNotCopy;
  s.Extensions = "doc\r\nxls\t,pdf";
  s.ExtListFile = "/e.txt";
  s.Silent = s.SearchModified = s.CreateTally = s.FullPaths = true;
  ASSERT_TRUE(WriteJobRecord(ctx));
  EXPECT_EQ(Record(),
            "[PROD]\tQuillon Ravelin 2.2 Rover Edition\r\n[VERSION]\t2.2.0\r\n[APPPATH]\t/opt/qr\r\n"
            "[TARGET]\t/target\r\n[JPATH]\t" + dir.path() + "\r\n[COMMONLOG]\t/common\r\n"
            "[SRC]\t" + a + "\r\n[SRC]\t[File List] /l.txt\r\n[EXCLUSION]\t*/tmp/*\r\n"
            "[FNAMEFILTER]\t*.doc\r\n[FNAMEFILTER]\t*.xls\r\n[ENGINE]\tRC\r\n[ENGINE]\tRV\r\n"
            "[BMONTH]\t13\r\n[BDAY]\t1\r\n[BYEAR]\t2020\r\n[EMONTH]\t2\r\n[EDAY]\t3\r\n"
            "[EYEAR]\t2026\r\n[SEARCHCREATED]\t0\r\n[SEARCHMODIFIED]\t1\r\n"
            "[SEARCHACCESSED]\t0\r\n[SILENT]\t1\r\n[OVERWRITE]\t0\r\n[COPYFILES]\t1\r\n"
            "[TALLYSUM]\t1\r\n[FILELIST]\t0\r\n[RENAME]\t1\r\n[FULLPATH]\t1\r\n"
            "[ROOTFOLDERS]\t0\r\n[CREATESUBS]\t1\r\n[COPYEMPTIES]\t1\r\n[COPYSUBS]\t1\r\n"
            "[SEPARATE_TS]\t0\r\n[EXTS]\tdoc,xls,pdf\r\n[EXTFILE]\t/e.txt\r\n[EXTOP]\t1\r\n"
            "[COPYATTR]\t1\r\n[COPYAUDIT]\t0\r\n[COPYBACKUP]\t1\r\n[COPYDATA]\t1\r\n"
            "[COPYOWNER]\t0\r\n[COPYRESTART]\t0\r\n[COPYSEC]\t0\r\n[COPYTIME]\t1\r\n"
            "[COPYFAILOVER]\t1\r\n[LOG]\t1\r\n[S-HASH]\t1\r\n[D-HASH]\t1\r\n");
  EXPECT_EQ(s.Extensions, "doc,xls,pdf") << "the box keeps the normalised text";

  // One engine and one copy mode, as a run has them, to read back as they were.
  s.Ravelin = s.CopyZB = false;
  ASSERT_TRUE(WriteJobRecord(ctx));
  const std::string record = Record();
  // The run appends its counts and positions; a line it can't write is lost without a word.
  for (const char* line : {"[NUMFILES]\t 12 ", "[FILESDONE]\t-2.5", "[JOBSIZE]\t5000000000",
                           "[BYTESDONE]\t3.5", "[LASTSRC]\t/one", "[LASTSRC]\t/two"}) {
    AddJobFileEntry(ctx, line);
  }
  s.LogPath = dir / "missing/folder";
  AddJobFileEntry(ctx, "[NUMFILES]\t3");
  EXPECT_TRUE(dialogs.shown.empty());

  // Read back and written again: the same record; numbers trimmed and rounded, halves to even.
  RunContext back{dialogs, pump};
  back.program = ctx.program;
  ReadRVFile(back, dir / "_jobfile.rvj");
  back.settings.CommonLogPath = "/common";  // the options' own: a record never sets it
  const RunCounters& n = back.counters;
  EXPECT_EQ((std::vector<int64_t>{n.TotalFiles, n.FilesProcessed, n.TotalBytes, n.BytesProcessed}),
            (std::vector<int64_t>{12, -2, 5000000000, 4}));
  EXPECT_EQ(back.job.LastSrc, "/two");
  ASSERT_TRUE(WriteJobRecord(back));
  EXPECT_EQ(Record(), record);
}

// Files written by hand: only exact tags with a TAB count, and each load starts afresh.
TEST_F(JobFileTest, OnlyExactTagsWithATabAreAppliedAndEachLoadStartsAfresh) {
  ctx.program.app.programFolder = dir.path() + "/";
  const std::string a = dir.MakeDir("a");
  dir.MakeDir("a/b");
  // Sources go through AddSource with the program's drive for [RVDrive]; the target is verbatim.
  const std::string c = dir.MakeDir("c");
  const std::string drive = ProgramDrive(dir.path());
  ctx.settings.LogPath = "/logs";
  ctx.job.SpecialInstructions = "cleared before reading";
  Read("[JNAME]\tfirst\r\n"
       "[JNAME]\r\n"         // no tab: skipped
       "[jname]\tlower\r\n"  // tags are case-sensitive
       "[TARGET]\t[RVDrive]/t\textra\r\n"
       "[EXTS]\tdoc\r"       // a lone CR ends a line
       "[SRC]\t" + a + "\n"  // and so does a lone LF
       "[SRC]\t" + a + "/b\r\n[SRC]\t[RVDrive]" + c.substr(drive.size()) + "\r\n"
       "[EXCLUSION]\t*/tmp/*\r\n[FNAMEFILTER]\t*.doc\r\n");
  EXPECT_EQ((Strings{ctx.job.JobName, ctx.job.SpecialInstructions, ctx.settings.TargetPath,
                     ctx.settings.Extensions}),
            (Strings{"first", "", "[RVDrive]/t", "doc"}));
  EXPECT_EQ(dialogs.Texts(), Strings{"A directory containing the directory you have chosen has "
                                     "already been added to the source list. This directory will "
                                     "not be added."});

  // Loaded twice: only the inclusion patterns pile up; the log path is never cleared.
  ReadRVFile(ctx, dir / "job.lsw");
  EXPECT_EQ(ctx.settings.Sources, (Strings{a, c}));
  EXPECT_EQ(ctx.settings.ExclusionPatterns, Strings{"*/tmp/*"});
  EXPECT_EQ(ctx.settings.InclusionPatterns, (Strings{"*.doc", "*.doc"}));
  EXPECT_EQ(ctx.settings.LogPath, "/logs");

  // A missing file, or a folder in its place, changes nothing.
  ReadRVFile(ctx, dir / "none.lsw");
  ReadRVFile(ctx, dir.MakeDir("folder.lsw"));
  EXPECT_EQ(ctx.job.JobName, "first");
  EXPECT_NO_THROW(Read("[TOTALBYTES]\t-922337203685477.5808\r\n[JOBSIZE]\t922337203685477.5807"));
  EXPECT_THROW(Read("[NUMFILES]\t3000000000\r\n"), RunError);
  // A check box value past 64 bits is too large, not a number that wrapped round to 1.
  EXPECT_THROW(Read("[S-HASH]\t18446744073709551617\r\n"), RunError);
}

TEST_F(JobFileTest, AJobRecordsEndCommandRunsOnlyWhenThePersonAskedForIt) {
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

// The job manager's side: saved in its fixed line order, and loaded back into a cleared form.
TEST_F(JobFileTest, APreparedJobRoundTrip) {
  PreparedJob job;
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
  JobSettings options;
  options.ExclusionPatterns = {"*/tmp/*"};
  options.InclusionPatterns = {"*.doc"};
  options.Collision = kCollisionRename;
  options.Silent = true;
  options.StartCommand = "  start.sh";
  options.EndCommand = "   ";
  const std::string path = dir / "job.lsw";
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

  const std::string saved = test::ReadBytes(path);

  // Loaded into a fresh form and saved again: the same file, but one line of instructions.
  PreparedJob back;
  JobSettings opts;
  LoadFromFile(path, back, opts);
  EXPECT_EQ(back.Instructions, "Plug in.");
  back.Instructions = job.Instructions;
  ASSERT_TRUE(SaveJobFile(back, opts, path));
  EXPECT_EQ(test::ReadBytes(path), saved);
}

}  // namespace
}  // namespace qr
