#include "run/job_settings.h"

#include <gtest/gtest.h>

#include <functional>

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

// The engines, the copy modes and the enabled boxes, as letters.
std::string Boxes(const JobSettings& s) {
  std::string out;
  for (const auto& [on, letter] :
       {std::pair{s.Robocopy, 'R'}, {s.Ravelin, 'V'}, {s.CopyBackup, 'B'}, {s.CopyZB, 'b'},
        {s.CopyRestartable, 'Z'}, {s.enabled.RootFolders, 'r'}, {s.enabled.CreateSubs, 'c'},
        {s.enabled.HashSource, 'h'}, {s.enabled.HashDest, 'd'}, {s.enabled.ManualFlagsText, 'm'},
        {s.enabled.RobocopyFlagBoxes, 'f'}}) {
    if (on) out += letter;
  }
  return out;
}

TEST(DialogRules, ClicksInOrder) {
  JobSettings s;
  // Root folders stay disabled at start although full paths are off; the first click settles it.
  const std::pair<std::function<void()>, const char*> clicks[] = {
      {[] {}, "VBbchdf"},
      {[&] { SetRobocopy(s, true); }, "RBbchdf"},
      // Clicking the engine box that is on turns on the other; setting the value it has does
      // nothing.
      {[&] { SetRobocopy(s, false); }, "VBbchdf"},
      {[&] { SetRavelin(s, false); }, "RBbchdf"},
      {[&] { SetRobocopy(s, true); }, "RBbchdf"},
      // At most one copy mode is on.
      {[&] { SetCopyRestartable(s, true); }, "RZchdf"},
      {[&] { SetCopyZB(s, true); }, "Rbchdf"},
      {[&] { SetCopyBackup(s, true); }, "RBchdf"},
      {[&] { SetCopyBackup(s, false); }, "Rchdf"},
      {[&] { SetFullPaths(s, true); }, "Rrhdf"},
      {[&] { SetFullPaths(s, false); }, "Rchdf"},
      {[&] { SetCreateLog(s, false); }, "Rcf"},
      {[&] { SetManualFlags(s, true); }, "Rcm"},
  };
  for (size_t i = 0; i < std::size(clicks); ++i) {
    clicks[i].first();
    EXPECT_EQ(Boxes(s), clicks[i].second) << "after click " << i;
  }
  EXPECT_TRUE(s.HashSource && s.HashDest) << "values are kept while disabled";
}

}  // namespace
}  // namespace qr
