#include "run/job_settings.h"

#include <gtest/gtest.h>

#include "support/run_fixture.h"

namespace qr {
namespace {

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
  for (const char* yes : {"[File List] /data/list.txt", "   [File List]/x", "[File List]"}) {
    EXPECT_TRUE(IsFileList(yes)) << yes;
  }
  for (const char* no : {"[file list] /x", "[File Lis", "/data/[File List] x", ""}) {
    EXPECT_FALSE(IsFileList(no)) << no;
  }
}

class ExtensionListTest : public ::testing::Test, protected test::RunFixture {
 protected:
  JobSettings s;
  std::vector<std::string> Build(const std::string& box, const std::string& listFile = "") {
    s.Extensions = box;
    s.ExtListFile = listFile;
    BuildExtensionList(s, dialogs, "T");
    return s.ExtensionList;
  }
};

TEST_F(ExtensionListTest, TakesWhatFollowsTheFirstPointOfEachPieceOrLine) {
  using List = std::vector<std::string>;
  EXPECT_EQ(Build("doc, .xls,*.PDF,"), (List{"doc", "xls", "pdf"}));
  EXPECT_EQ(Build("*.tar.gz,txt.,  ,x"), (List{"tar.gz", "x"}));
  EXPECT_EQ(Build("doc\r\nXLS\nrtf\rodt"), (List{"doc", "xls", "rtf", "odt"}));
  EXPECT_EQ(Build("doc", dir.WriteFile("exts.txt", "jpg, .PNG\r\n*.gif,tif.\r\n\r\nraw")),
            (List{"doc", "jpg", "png", "gif", "raw"}));
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(ExtensionListTest, AMissingListFileIsReportedAndTheBoxStillCounts) {
  EXPECT_EQ(Build("doc", dir / "missing.txt"), std::vector<std::string>{"doc"});
  // A folder of that name is not a file either.
  Build("", dir.MakeDir("folder.txt"));
  ASSERT_EQ(dialogs.shown.size(), 2u);
  EXPECT_EQ(dialogs.shown[0].text,
            "The extension list file:\r\n" + dir / "missing.txt" + "\r\nCould not be found.");
  EXPECT_EQ(dialogs.shown[0].title, "T");
  EXPECT_EQ(dialogs.shown[1].text,
            "The extension list file:\r\n" + dir / "folder.txt" + "\r\nCould not be found.");
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

TEST(RunPathsTest, AllLieInTheLogFolderWithOrWithoutItsSeparator) {
  const RunPaths a = ComputeRunPaths("/logs");
  EXPECT_EQ(a.DatabasePath, "/logs/_job.sdb");
  EXPECT_EQ(a.TallyPath, "/logs/tally.txt");
  EXPECT_EQ(ComputeRunPaths("/logs/").ErrorLogPath, a.ErrorLogPath);
}

}  // namespace
}  // namespace qr
