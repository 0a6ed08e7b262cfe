#include "jobdef/job_file.h"

#include <gtest/gtest.h>

#include "support/run_fixture.h"

namespace qr {
namespace {

class JobRecordTest : public ::testing::Test, protected test::RunFixture {
 protected:
  void SetUp() override {
    ctx.program.versionText = "2.2.0";
    ctx.program.app.programFolder = "/opt/qr/";
    ctx.settings.TargetPath = "/target";
  }
  std::string Record() const { return test::ReadBytes(dir / "_jobfile.rvj"); }
};

TEST_F(JobRecordTest, EveryValueInItsFixedOrder) {
  JobSettings& s = ctx.settings;
  s.Sources = {"/a", "[File List] /l.txt"};
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
  s.CreateLog = false;
  s.Silent = s.SearchModified = s.CreateTally = s.FullPaths = true;
  ASSERT_TRUE(WriteJobRecord(ctx));
  EXPECT_EQ(Record(),
            "[PROD]\tQuillon Ravelin 2.2 Rover Edition\r\n[VERSION]\t2.2.0\r\n[APPPATH]\t/opt/qr\r\n"
            "[TARGET]\t/target\r\n[JPATH]\t" + dir.path() + "\r\n[COMMONLOG]\t/common\r\n"
            "[SRC]\t/a\r\n[SRC]\t[File List] /l.txt\r\n[EXCLUSION]\t*/tmp/*\r\n"
            "[FNAMEFILTER]\t*.doc\r\n[FNAMEFILTER]\t*.xls\r\n[ENGINE]\tRC\r\n[ENGINE]\tRV\r\n"
            "[BMONTH]\t13\r\n[BDAY]\t1\r\n[BYEAR]\t2020\r\n[EMONTH]\t2\r\n[EDAY]\t3\r\n"
            "[EYEAR]\t2026\r\n[SEARCHCREATED]\t0\r\n[SEARCHMODIFIED]\t1\r\n"
            "[SEARCHACCESSED]\t0\r\n[SILENT]\t1\r\n[OVERWRITE]\t0\r\n[COPYFILES]\t1\r\n"
            "[TALLYSUM]\t1\r\n[FILELIST]\t0\r\n[RENAME]\t1\r\n[FULLPATH]\t1\r\n"
            "[ROOTFOLDERS]\t0\r\n[CREATESUBS]\t1\r\n[COPYEMPTIES]\t1\r\n[COPYSUBS]\t1\r\n"
            "[SEPARATE_TS]\t0\r\n[EXTS]\tdoc,xls,pdf\r\n[EXTFILE]\t/e.txt\r\n[EXTOP]\t1\r\n"
            "[COPYATTR]\t1\r\n[COPYAUDIT]\t0\r\n[COPYBACKUP]\t1\r\n[COPYDATA]\t1\r\n"
            "[COPYOWNER]\t0\r\n[COPYRESTART]\t0\r\n[COPYSEC]\t0\r\n[COPYTIME]\t1\r\n"
            "[COPYFAILOVER]\t1\r\n[LOG]\t0\r\n");
  EXPECT_EQ(s.Extensions, "doc,xls,pdf") << "the box keeps the normalised text";
}

TEST_F(JobRecordTest, TheHashLinesFollowTheLogAndEntriesAreAppendedSilently) {
  ASSERT_TRUE(WriteJobRecord(ctx));
  AddJobFileEntry(ctx, "[NUMFILES]\t3");
  EXPECT_TRUE(Record().ends_with(
      "[EXTOP]\t0\r\n[LOG]\t1\r\n[S-HASH]\t1\r\n[D-HASH]\t1\r\n[NUMFILES]\t3\r\n"))
      << Record();
  ctx.settings.LogPath = dir / "missing/folder";
  AddJobFileEntry(ctx, "[NUMFILES]\t3");  // lost without a word
  EXPECT_TRUE(dialogs.shown.empty());
}

}  // namespace
}  // namespace qr
