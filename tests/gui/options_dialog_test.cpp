// The options dialog offscreen: the rules seen through its widgets, its pages, OK, Cancel, drops.
#include "options_dialog.h"

#include <QGroupBox>
#include <filesystem>

#include "jobdef/settings_files.h"
#include "window_test.h"

namespace qr::gui {
namespace {

class OptionsDialogTest : public WindowFixture<> {
 protected:
  std::vector<std::string> added;
  OptionsDialog dialog{ctx, [this](const std::string& p) { added.push_back(p); }};

  template <typename W>
  W* Child(const char* name) {
    return gui::Child<W>(&dialog, name);
  }
  QCheckBox* Box(const char* name) { return Child<QCheckBox>(name); }
};

// The rules themselves are the settings' own; here: a click runs them and the boxes show what
// they left, while a value set by a job file is drawn as it is.
TEST_F(OptionsDialogTest, ClicksRunTheRulesAndAJobFileValueIsDrawnWithoutThem) {
  EXPECT_FALSE(Box("chkRootFolders")->isEnabled());
  Box("chkRavelin")->click();  // the engine that is on, clicked, hands over to the other
  EXPECT_TRUE(Box("chkRobocopy")->isChecked() && !Box("chkRavelin")->isChecked());
  Box("chkFullPaths")->click();
  EXPECT_TRUE(Box("chkRootFolders")->isEnabled() && !Box("chkCreateSubs")->isEnabled());
  Box("chkManualFlags")->click();
  EXPECT_TRUE(Child<QLineEdit>("txtManualFlags")->isEnabled() && !Box("chkCopyAudit")->isEnabled());
  Box("chkManualFlags")->click();
  Box("chkCopyRestartable")->click();
  EXPECT_FALSE(Box("chkCopyBackup")->isChecked() || Box("chkCopyZB")->isChecked());

  ctx.settings.CopyBackup = ctx.settings.CopyZB = true;
  ctx.settings.enabled.Robocopy = false;  // a failed probe leaves its box disabled
  dialog.Refresh();
  EXPECT_TRUE(Box("chkCopyBackup")->isChecked() && Box("chkCopyZB")->isChecked() &&
              Box("chkCopyRestartable")->isChecked());
  EXPECT_FALSE(Box("chkRobocopy")->isEnabled());

  QTest::keyClicks(Child<QLineEdit>("txtStartMonth"), "123");
  EXPECT_EQ(ctx.settings.StartMonth, "12");
}

TEST_F(OptionsDialogTest, EachEntryOfTheTypeListShowsExactlyOneFrame) {
  dialog.show();
  ASSERT_EQ(dialog.PageCount(), static_cast<int>(kOptionFrames.size()));
  for (int page : {2, 3, 4, 5, 1, 0}) {
    dialog.ShowPage(page);
    for (size_t i = 0; i < kOptionFrames.size(); ++i) {
      EXPECT_EQ(Child<QGroupBox>(kOptionFrames[i])->isVisible(), static_cast<int>(i) == page)
          << "page " << page << ", " << kOptionFrames[i];
    }
  }
}

TEST_F(OptionsDialogTest, CancelKeepsAnAddedPatternOkSavesTheSettingsFileAndDropsAreSources) {
  ctx.program.app.appPath = t.path();
  dialog.show();
  dialog.ShowPage(4);
  QTest::keyClicks(Child<QLineEdit>("txtNewExclusion"), "   ");
  Child<QPushButton>("cmdAddExclusion")->click();  // blank: not added, and left in the box
  EXPECT_EQ(Child<QListWidget>("listExclusions")->count(), 0);
  EXPECT_EQ(Child<QLineEdit>("txtNewExclusion")->text(), "   ");
  QTest::keyClicks(Child<QLineEdit>("txtNewExclusion"), "*cache*");
  Child<QPushButton>("cmdAddExclusion")->click();
  Child<QPushButton>("CancelButton")->click();
  EXPECT_FALSE(dialog.isVisible());
  EXPECT_EQ(Child<QListWidget>("listExclusions")->count(), 1);
  EXPECT_EQ(Child<QLineEdit>("txtNewExclusion")->text(), "");
  EXPECT_FALSE(std::filesystem::exists(t / "robocopy_settings.ini")) << "Cancel saves nothing";

  dialog.show();
  Box("chkFullPaths")->click();
  Child<QComboBox>("cboCollision")->setCurrentIndex(kCollisionRename);
  emit Child<QComboBox>("cboCollision")->activated(kCollisionRename);
  Child<QPushButton>("OKButton")->click();
  EXPECT_FALSE(dialog.isVisible());
  const std::string ini = t / "robocopy_settings.ini";
  EXPECT_EQ(INIread(ini, "saved_settings", "FullPaths"), "1");
  EXPECT_EQ(INIread(ini, "saved_settings", "Rename"), "1");

  dialog.show();
  dialog.ShowPage(3);
  QTest::keyClicks(Child<QLineEdit>("txtNewInclusion"), "*.doc");
  Child<QPushButton>("cmdAddInclusion")->click();
  Child<QListWidget>("lstInclusions")->item(0)->setSelected(true);
  Child<QPushButton>("cmdRemoveInclusion")->click();
  EXPECT_EQ(Child<QListWidget>("lstInclusions")->count(), 0);

  // Qt delivers a drop to the widget that accepted the drag's entry.
  DropFiles(&dialog, {"/cases/one", "/cases/two words"});
  EXPECT_EQ(added, (std::vector<std::string>{"/cases/one", "/cases/two words"}));
}

}  // namespace
}  // namespace qr::gui
