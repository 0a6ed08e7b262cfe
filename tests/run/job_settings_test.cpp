#include "run/job_settings.h"

#include <gtest/gtest.h>

#include "support/run_fixture.h"

namespace qr {
namespace {

using List = std::vector<std::string>;

TEST(OptionString, FollowsBoxOrderAndDropsTheLastBlank) {
  JobSettings s;
  EXPECT_EQ(GetOptionString(s), "/COPY:DAT /B /S /ZB /R:4 /W:2");
  s.CopyData = s.CopyAttributes = s.CopyTimestamps = s.CopyBackup = s.CopySubs = s.CopyZB = false;
  EXPECT_EQ(GetOptionString(s), "/R:4 /W:2");
  s.CopyData = s.CopyTimestamps = s.CopySubs = true;
  EXPECT_EQ(GetOptionString(s), "/COPY:DT /S /R:4 /W:2");
  s.CopyAttributes = s.CopySecurity = s.CopyOwner = s.CopyAudit = s.CopyRestartable = true;
  EXPECT_EQ(GetOptionString(s), "/COPY:DATSOU /Z /S /R:4 /W:2");

  // A file list entry: the first eleven characters of the trimmed entry.
  for (const char* yes : {"   [File List]/x", "[File List]"}) EXPECT_TRUE(IsFileList(yes)) << yes;
  for (const char* no : {"[file list] /x", "[File Lis", "/data/[File List] x"}) {
    EXPECT_FALSE(IsFileList(no)) << no;
  }
}

TEST(ExtensionList, WhatFollowsTheFirstPointOfEachPieceOrLineAndAMissingListFile) {
  test::RunFixture run;
  JobSettings s;
  auto build = [&](const std::string& box, const std::string& listFile = "") {
    s.Extensions = box;
    s.ExtListFile = listFile;
    BuildExtensionList(s, run.dialogs, "T");
    return s.ExtensionList;
  };
  EXPECT_EQ(build("doc, .xls,*.PDF,"), (List{"doc", "xls", "pdf"}));
  EXPECT_EQ(build("*.tar.gz,txt.,  ,x"), (List{"tar.gz", "x"}));
  EXPECT_EQ(build("doc\r\nXLS\nrtf\rodt"), (List{"doc", "xls", "rtf", "odt"}));
  EXPECT_EQ(build("doc", run.dir.WriteFile("exts.txt", "jpg, .PNG\r\n*.gif,tif.\r\n\r\nraw")),
            (List{"doc", "jpg", "png", "gif", "raw"}));
  EXPECT_TRUE(run.dialogs.shown.empty());
  // A missing list file, or a folder of that name, is reported and the box still counts.
  EXPECT_EQ(build("doc", run.dir / "missing.txt"), List{"doc"});
  build("", run.dir.MakeDir("folder.txt"));
  const std::string notFound = "\r\nCould not be found.";
  EXPECT_EQ(run.dialogs.Texts(),
            (List{"The extension list file:\r\n" + run.dir / "missing.txt" + notFound,
                  "The extension list file:\r\n" + run.dir / "folder.txt" + notFound}));
  EXPECT_EQ(run.dialogs.shown[0].title, "T");
}

// The window tests click through the rules; here what a click can't show: setting a value a box
// already has, and values kept while their boxes are disabled.
TEST(DialogRules, SettingTheValueABoxHasChangesNothingAndDisabledBoxesKeepTheirValues) {
  JobSettings s;
  SetRavelin(s, false);
  SetRobocopy(s, true);
  EXPECT_TRUE(s.Robocopy && !s.Ravelin);
  SetCopyRestartable(s, true);
  SetCopyBackup(s, true);
  EXPECT_TRUE(s.CopyBackup && !s.CopyZB && !s.CopyRestartable) << "at most one copy mode is on";
  SetCopyBackup(s, false);
  SetCreateLog(s, false);
  EXPECT_FALSE(s.enabled.HashSource || s.enabled.HashDest);
  EXPECT_TRUE(s.HashSource && s.HashDest);
  SetManualFlags(s, true);
  EXPECT_TRUE(s.enabled.ManualFlagsText && !s.enabled.RobocopyFlagBoxes);
}

}  // namespace
}  // namespace qr
