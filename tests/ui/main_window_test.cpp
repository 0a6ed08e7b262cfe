#include "ui/main_window.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "support/run_fixture.h"

namespace qr {
namespace {

TEST(TargetFollowsLogRule, TheLogFollowsWhileTheTwoDifferByOneTrailingCharacter) {
  struct Case {
    std::string target, log;
    std::optional<std::string> newLog;
  };
  const std::vector<Case> cases = {
      {"/data/x", "/data/", "/data/x"},      // typed one character at the end
      {"/data", "/data/", "/data"},          // deleted one character at the end
      {"/data/xy", "/data/", std::nullopt},  // two apart: the boxes no longer agree
      {"/other", "/data/", std::nullopt},
      {"/data/x", "/data/x", std::nullopt},  // nothing to change
      {"a", "", std::nullopt},               // one character: never carries the log
      {"ab", "a", "ab"},
      {"/caf\xc3\xa9", "/caf", "/caf\xc3\xa9"},  // a character is a code point, not a byte
      {"/caf", "/caf\xc3\xa9", "/caf"},
      {"/caf\xc3", "/caf\xc3\xa9", std::nullopt},
      {"/caf\xa9", "/caf", "/caf\xa9"},  // a byte that starts no sequence is one character
      {"\xa9\xa9", "\xa9", "\xa9\xa9"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.target + " | " + c.log);
    EXPECT_EQ(TargetFollowsLog(c.target, c.log), c.newLog);
  }
}

class MainFormTest : public ::testing::Test, protected test::RunFixture {
 protected:
  MainForm f;
};

TEST_F(MainFormTest, RemoveTakesTheSelectionAndSelectsANeighbour) {
  struct Case {
    std::vector<int> selected;
    std::vector<std::string> left;
    std::vector<int> selectedAfter;
  };
  const std::vector<Case> cases = {
      {{1, 2}, {"a", "d"}, {1}},            // the entry now at the first removed position
      {{3}, {"a", "b", "c"}, {2}},          // past the end: the new last entry
      {{2, 0, 2}, {"b", "d"}, {0}},         // any order, duplicates once
      {{0, 1, 2, 3}, {}, {}},               // an emptied list selects nothing
      {{}, {"a", "b", "c", "d"}, {}},       // nothing selected: nothing removed
      {{7, -1}, {"a", "b", "c", "d"}, {}},  // rows that are not there
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.selected));
    ctx.settings.Sources = {"a", "b", "c", "d"};
    f.lstSourcesSelected = c.selected;
    cmdRemove_Click(ctx, f);
    EXPECT_EQ(ctx.settings.Sources, c.left);
    EXPECT_EQ(f.lstSourcesSelected, c.selectedAfter);
  }
}

TEST_F(MainFormTest, EachWayOfAddingReachesTheSourceListWithItsOwnRules) {
  const std::string a = dir.MakeDir("a"), inside = dir.MakeDir("a/b");
  dialogs.inputs = {a, std::nullopt};
  mnuAddManual_Click(ctx, f);
  mnuAddManual_Click(ctx, f);  // cancelled
  // A file list is listed as it is, existing or not.
  dialogs.picks = {dir / "missing list.txt", ""};
  mnuAddFromList_Click(ctx, f);
  mnuAddFromList_Click(ctx, f);
  FormDropped(ctx, f, {"  ", inside});
  EXPECT_EQ(ctx.settings.Sources,
            (std::vector<std::string>{a, "[File List] " + (dir / "missing list.txt")}));
  EXPECT_EQ(dialogs.shown.size(), 3u);  // the two manual adds, and the refused folder
}

TEST_F(MainFormTest, DuringARunNoWayOfAddingOrRemovingChangesTheSources) {
  f.inRun = true;
  ctx.settings.Sources = {"a"};
  f.lstSourcesSelected = {0};
  dialogs.picks = {dir.path(), dir.path(), dir.path()};
  dialogs.inputs = {dir.path()};
  cmdAdd_Click(ctx, f);
  mnuAddManual_Click(ctx, f);
  EXPECT_FALSE(mnuAddSourceFiles_Click(f));  // the file finder stays closed
  mnuAddFromList_Click(ctx, f);
  FormDropped(ctx, f, {dir.path()});
  cmdRemove_Click(ctx, f);
  EXPECT_FALSE(cmdRun_Click(ctx, f) || mnuResume_Click(ctx, f));
  EXPECT_EQ(ctx.settings.Sources, std::vector<std::string>{"a"});
  EXPECT_TRUE(dialogs.shown.empty() && dialogs.pickerTitles.empty());
}

TEST_F(MainFormTest, HelpSaysWhatIsMissingAndAboutNamesTheVersions) {
  ctx.program.app.helpPath = dir / "RavelinHelp.html";
  mnuRavelinHelp_Click(ctx);
  dir.WriteFile("RavelinHelp.html", "<html></html>");
  mnuRavelinHelp_Click(ctx, "no-such-opener-here");
  const auto texts = dialogs.Texts();
  ASSERT_EQ(texts.size(), 2u);
  EXPECT_EQ(texts[0], "The help document could not be found:\r\n" + (dir / "RavelinHelp.html"));
  EXPECT_NE(texts[1].find("no-such-opener-here"), std::string::npos);

  ctx.program.versionText = "2.2.0";
  const std::string about = AboutText(ctx, "6.4.2");
  for (const char* part :
       {"Quillon Ravelin 2.2 Rover Edition", "Version 2.2.0", "Qt 6.4.2", "SQLite 3.", "Licen"}) {
    EXPECT_NE(about.find(part), std::string::npos) << part;
  }
}

}  // namespace
}  // namespace qr
