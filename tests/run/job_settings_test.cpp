#include "run/job_settings.h"

#include <gtest/gtest.h>

#include "support/fake_dialogs.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::FakeDialogs;
using test::TempDir;

TEST(OptionString, FollowsBoxOrderAndDropsTheLastBlank) {
  JobSettings s;
  // Start values: data, attributes, timestamps, backup, subfolders, failover.
  EXPECT_EQ(GetOptionString(s), "/COPY:DAT /B /S /ZB /R:4 /W:2");

  s.CopyData = s.CopyAttributes = s.CopyTimestamps = false;
  s.CopyBackup = s.CopySubs = s.CopyZB = false;
  EXPECT_EQ(GetOptionString(s), "/R:4 /W:2");

  s.CopyData = true;
  EXPECT_EQ(GetOptionString(s), "/COPY:D /R:4 /W:2");

  s.CopyTimestamps = s.CopySubs = true;
  EXPECT_EQ(GetOptionString(s), "/COPY:DT /S /R:4 /W:2");

  s.CopyAttributes = s.CopySecurity = s.CopyOwner = s.CopyAudit = true;
  s.CopyRestartable = true;
  EXPECT_EQ(GetOptionString(s), "/COPY:DATSOU /Z /S /R:4 /W:2");
}

TEST(FileListEntry, ComparesTheFirstElevenCharactersOfTheTrimmedEntry) {
  EXPECT_TRUE(IsFileList("[File List] /data/list.txt"));
  EXPECT_TRUE(IsFileList("   [File List]/x"));
  EXPECT_TRUE(IsFileList("[File List]"));
  EXPECT_FALSE(IsFileList("[file list] /x"));
  EXPECT_FALSE(IsFileList("[File Lis"));
  EXPECT_FALSE(IsFileList("/data/[File List] x"));
  EXPECT_FALSE(IsFileList(""));
}

class ExtensionListTest : public ::testing::Test {
 protected:
  JobSettings s;
  FakeDialogs dialogs;
  TempDir dir;
  void Build() { BuildExtensionList(s, dialogs, "T"); }
};

TEST_F(ExtensionListTest, TakesWhatFollowsTheFirstPointOfEachPiece) {
  s.Extensions = "doc, .xls,*.PDF,";
  Build();
  EXPECT_EQ(s.ExtensionList, (std::vector<std::string>{"doc", "xls", "pdf"}));

  s.Extensions = "*.tar.gz,txt.,  ,x";
  Build();
  EXPECT_EQ(s.ExtensionList, (std::vector<std::string>{"tar.gz", "x"}));
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(ExtensionListTest, LineEndsCountAsCommas) {
  s.Extensions = "doc\r\nXLS\nrtf\rodt";
  Build();
  EXPECT_EQ(s.ExtensionList, (std::vector<std::string>{"doc", "xls", "rtf", "odt"}));
}

TEST_F(ExtensionListTest, ReadsTheListFileLineByLine) {
  s.Extensions = "doc";
  s.ExtListFile = dir.WriteFile("exts.txt", "jpg, .PNG\r\n*.gif,tif.\r\n\r\nraw");
  Build();
  EXPECT_EQ(s.ExtensionList, (std::vector<std::string>{"doc", "jpg", "png", "gif", "raw"}));
}

TEST_F(ExtensionListTest, AMissingListFileIsReportedAndTheBoxStillCounts) {
  s.Extensions = "doc";
  s.ExtListFile = dir / "missing.txt";
  Build();
  EXPECT_EQ(s.ExtensionList, (std::vector<std::string>{"doc"}));
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text,
            "The extension list file:\r\n" + dir / "missing.txt" + "\r\nCould not be found.");
  EXPECT_EQ(dialogs.shown[0].title, "T");
}

TEST_F(ExtensionListTest, AListThatCannotBeReadIsReported) {
  s.ExtListFile = dir.WriteFile("exts.txt", "jpg");
  // A folder of that name is not a file: FileExists refuses it before any read.
  s.ExtListFile = dir.MakeDir("folder.txt");
  Build();
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_NE(dialogs.shown[0].text.find("Could not be found."), std::string::npos);
}

TEST(DialogRules, EnginesExcludeEachOtherWithExactlyOneOn) {
  JobSettings s;
  SetRobocopy(s, true);
  EXPECT_TRUE(s.Robocopy);
  EXPECT_FALSE(s.Ravelin);
  // Clicking the engine box that is on turns on the other.
  SetRobocopy(s, false);
  EXPECT_TRUE(s.Ravelin);
  EXPECT_FALSE(s.Robocopy);
  SetRavelin(s, false);
  EXPECT_TRUE(s.Robocopy);
  // Setting a value it already has fires nothing.
  SetRobocopy(s, true);
  EXPECT_FALSE(s.Ravelin);
}

TEST(DialogRules, AtMostOneCopyModeIsOn) {
  JobSettings s;  // backup and failover both on at start
  SetCopyRestartable(s, true);
  EXPECT_TRUE(s.CopyRestartable);
  EXPECT_FALSE(s.CopyBackup);
  EXPECT_FALSE(s.CopyZB);
  SetCopyZB(s, true);
  EXPECT_FALSE(s.CopyRestartable);
  SetCopyBackup(s, true);
  EXPECT_FALSE(s.CopyZB);
  SetCopyBackup(s, false);
  EXPECT_FALSE(s.CopyBackup || s.CopyZB || s.CopyRestartable);
}

TEST(DialogRules, EnablingFollowsTheBoxes) {
  JobSettings s;
  // Root folders stay disabled at start although full paths are off; the first click settles it.
  EXPECT_FALSE(s.enabled.RootFolders);
  SetFullPaths(s, true);
  EXPECT_TRUE(s.enabled.RootFolders);
  EXPECT_FALSE(s.enabled.CreateSubs);
  SetFullPaths(s, false);
  EXPECT_FALSE(s.enabled.RootFolders);
  EXPECT_TRUE(s.enabled.CreateSubs);

  SetCreateLog(s, false);
  EXPECT_FALSE(s.enabled.HashSource || s.enabled.HashDest);
  EXPECT_TRUE(s.HashSource && s.HashDest) << "values are kept while disabled";

  SetManualFlags(s, true);
  EXPECT_TRUE(s.enabled.ManualFlagsText);
  EXPECT_FALSE(s.enabled.RobocopyFlagBoxes);
}

TEST(RunPathsTest, AllLieInTheLogFolder) {
  RunPaths a = ComputeRunPaths("/logs");
  RunPaths b = ComputeRunPaths("/logs/");
  EXPECT_EQ(a.DatabasePath, "/logs/_job.sdb");
  EXPECT_EQ(b.DatabasePath, "/logs/_job.sdb");
  EXPECT_EQ(a.ErrorLogPath, "/logs/_errors.log");
  EXPECT_EQ(a.VerificationLogPath, "/logs/_verification_log.csv");
  EXPECT_EQ(a.JobRecordPath, "/logs/_jobfile.rvj");
  EXPECT_EQ(a.TimestampLogPath, "/logs/_ts_mismatch.log");
  EXPECT_EQ(a.TallyPath, "/logs/tally.txt");
  EXPECT_EQ(a.FileListPath, "/logs/filelist.txt");
}

}  // namespace
}  // namespace qr
