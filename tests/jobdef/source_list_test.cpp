#include "jobdef/source_list.h"

#include <gtest/gtest.h>

#include "support/run_fixture.h"

namespace qr {
namespace {

using Sources = std::vector<std::string>;

class AddSourceTest : public ::testing::Test, protected test::RunFixture {
 protected:
  std::string a = dir.MakeDir("a");
  std::string ab = dir.MakeDir("a/b");
  std::string file = dir.WriteFile("a/f.txt", "x");

  void Add(std::string p) { AddSource(ctx, p); }
  const Sources& List() const { return ctx.settings.Sources; }
};

TEST_F(AddSourceTest, BlankPathsDoNothingAndFileListsGoInUnchecked) {
  Add("");
  Add("   ");
  Add("[File List] /nowhere/list.txt");
  EXPECT_EQ(List(), Sources{"[File List] /nowhere/list.txt"});
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(AddSourceTest, AMissingPathIsReportedUnlessSilent) {
  Add(dir / "missing");
  EXPECT_TRUE(List().empty());
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text,
            dir / "missing" + "\r\n\r\nThe path you have specified cannot be found on this machine.");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Exclamation);
  EXPECT_EQ(dialogs.shown[0].title, "Quillon Ravelin 2.2 Rover Edition");

  ctx.program.flags.silent = true;
  Add(dir / "missing");
  EXPECT_EQ(dialogs.shown.size(), 1u);
}

TEST_F(AddSourceTest, AFolderInsideAListedFolderIsRefused) {
  Add(a);
  Add(ab);
  EXPECT_EQ(List(), Sources{a});
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text,
            "A directory containing the directory you have chosen has already been added to the "
            "source list. This directory will not be added.");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Information);
}

TEST_F(AddSourceTest, AFolderAboveListedEntriesReplacesThemOnOk) {
  std::string other = dir.MakeDir("other");
  Add(ab);
  Add(other);
  Add(file);
  dialogs.answers = {Answer::Ok};
  Add(a);
  // The contained folder and file go; the new folder lands at the bottom.
  EXPECT_EQ(List(), (Sources{other, a}));
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text,
            "One or more directories in the source list are contained in the directory you have "
            "chosen. Would you like to replace these with the one you have chosen?");
  EXPECT_EQ(dialogs.shown[0].buttons, Buttons::OkCancel);

  dialogs.answers = {Answer::Cancel};
  ctx.settings.Sources = {ab};
  Add(a);
  EXPECT_EQ(List(), Sources{ab}) << "Cancel changes nothing";
}

TEST_F(AddSourceTest, AFileInsideAListedFolderIsRefusedEvenByAPrefixOfItsName) {
  std::string abc = dir.MakeDir("abc");
  std::string sibling = dir.WriteFile("abcdef.txt", "x");
  Add(a);
  Add(file);
  Add(abc);
  Add(sibling);  // "<dir>/abc" occurs in "<dir>/abcdef.txt"
  EXPECT_EQ(List(), (Sources{a, abc}));
  ASSERT_EQ(dialogs.shown.size(), 2u);
  EXPECT_EQ(dialogs.shown[0].text,
            "A directory containing the file you have chosen has already been added to the "
            "source list. This file will not be added.");
}

TEST_F(AddSourceTest, TheTextsAreTakenAsTheyStand) {
  // The same folder twice is listed twice: neither test fires on equal texts.
  Add(a);
  Add(a);
  EXPECT_EQ(List(), (Sources{a, a}));

  // A trailing separator is cut, on the caller's variable too; with it the search text holds a
  // doubled separator and finds nothing contained.
  ctx.settings.Sources = {ab};
  std::string withSep = a + "/";
  AddSource(ctx, withSep);
  EXPECT_EQ(withSep, a);
  EXPECT_EQ(List(), (Sources{ab, a}));

  std::string root = "/";
  ctx.settings.Sources.clear();
  AddSource(ctx, root);
  EXPECT_EQ(List(), Sources{"/"}) << "a root stays a root";
}

}  // namespace
}  // namespace qr
