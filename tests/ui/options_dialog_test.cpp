// The options form's logic: its pattern lists, its picker, its drops, and what its load sets
// before the settings files have the last word.
#include "ui/options_dialog.h"

#include <gtest/gtest.h>

#include "exec/startup.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

class OptionsFormTest : public ::testing::Test, protected test::RunFixture {
 protected:
  OptionsForm form;
  std::string program = dir.MakeDir("program");
};

TEST_F(OptionsFormTest, PatternsAreAddedWhenNotBlankAndRemovedBySelection) {
  form.txtNewExclusion = "   ";
  cmdAddExclusion_Click(ctx, form);
  EXPECT_TRUE(ctx.settings.ExclusionPatterns.empty());
  EXPECT_EQ(form.txtNewExclusion, "   ") << "a blank box is left as it is";
  for (const char* p : {" *cache* ", "*/tmp/*", "*.bak"}) {
    form.txtNewExclusion = p;
    cmdAddExclusion_Click(ctx, form);
  }
  // The text goes in as typed; trimming only decides whether it goes in.
  EXPECT_EQ(ctx.settings.ExclusionPatterns,
            (std::vector<std::string>{" *cache* ", "*/tmp/*", "*.bak"}));
  cmdRemovePattern_Click(ctx, form);
  EXPECT_EQ(ctx.settings.ExclusionPatterns.size(), 3u) << "nothing selected, nothing removed";
  form.listExclusionsSelected = {2, 0, 7};
  cmdRemovePattern_Click(ctx, form);
  EXPECT_EQ(ctx.settings.ExclusionPatterns, std::vector<std::string>{"*/tmp/*"});
  EXPECT_TRUE(form.listExclusionsSelected.empty());
}

TEST_F(OptionsFormTest, TheExtensionListPickerKeepsThePathWhenNothingIsChosen) {
  dialogs.picks = {"/lists/ext.txt", ""};
  cmdExtBrowse_Click(ctx);
  cmdExtBrowse_Click(ctx);
  EXPECT_EQ(ctx.settings.ExtListFile, "/lists/ext.txt");

  std::vector<std::string> added;
  OptionsDropped({"/a", " ", "", "/b c"}, [&](const std::string& p) { added.push_back(p); });
  EXPECT_EQ(added, (std::vector<std::string>{"/a", "/b c"})) << "blank drops are not sources";
}

TEST_F(OptionsFormTest, TheSettingsFilesReadAtStartOverwriteWhatTheLoadSets) {
  dir.WriteFile("program/robocopy_settings.ini",
                "[saved_settings]\r\nFullPaths=1\r\nRename=1\r\nB=1\r\n");
  StartupInputs in;
  in.programFolder = program;
  in.loadOptions = [this] { frmOptions_Load(ctx, form); };
  Startup(ctx, in);
  EXPECT_EQ(ctx.settings.Collision, kCollisionRename);
  EXPECT_TRUE(ctx.settings.enabled.RootFolders) << "chkFullPaths set from the file fires its rule";
  EXPECT_EQ(form.visibleFrame, "frameGeneralOptions");
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(OptionsFormTest, LoadTurnsItsOptionsBackOnAndDisablesRootFoldersWhateverFullPathsSays) {
  ctx.program.app.appPath = program;
  JobSettings& s = ctx.settings;
  SetRobocopy(s, true);
  SetCreateLog(s, false);
  s.HashSource = s.HashDest = s.CopySubs = false;
  s.Collision = kCollisionOverwrite;
  s.Extension = kExtensionDoNotCopy;
  SetCopyRestartable(s, true);
  s.enabled.RootFolders = true;
  frmOptions_Load(ctx, form);
  EXPECT_TRUE(s.Ravelin && !s.Robocopy);
  EXPECT_TRUE(s.CreateLog && s.enabled.HashSource && s.enabled.HashDest && s.HashSource &&
              s.HashDest && s.CopySubs);
  EXPECT_EQ(s.Collision, kCollisionDoNothing);
  EXPECT_EQ(s.Extension, kExtensionCopyOnly);
  EXPECT_TRUE(s.CopyZB && !s.CopyRestartable) << "failover set on through its rule";
  EXPECT_FALSE(s.enabled.RootFolders);

  // defaults.ini has the last word.
  dir.WriteFile("program/defaults.ini", "[Defaults]\r\nRobocopy=1\r\nCollision=2\r\n");
  frmOptions_Load(ctx, form);
  EXPECT_TRUE(s.Robocopy && !s.Ravelin);
  EXPECT_EQ(s.Collision, kCollisionRename);
}

}  // namespace
}  // namespace qr
