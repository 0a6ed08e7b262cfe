// AddSource's rules for the source list, and its documents folder keyword.
#include "jobdef/source_list.h"

#include <gtest/gtest.h>

#include "support/child_process.h"
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

TEST_F(AddSourceTest, BlankMissingAndContainedEntriesAreNotAdded) {
  Add("   ");
  Add("[File List] /nowhere/list.txt");  // a file list goes in unchecked
  Add(dir / "missing");
  Add(a);
  Add(ab);
  Add(file);
  std::string abc = dir.MakeDir("abc");
  Add(abc);
  Add(dir.WriteFile("abcdef.txt", "x"));  // "<dir>/abc" occurs in "<dir>/abcdef.txt"
  Add("[userfolder]");                    // keywords are case-sensitive
  EXPECT_EQ(List(), (Sources{"[File List] /nowhere/list.txt", a, abc}));
  auto Refused = [](const std::string& what) {
    return "A directory containing the " + what + " you have chosen has already been added to "
           "the source list. This " + what + " will not be added.";
  };
  auto Missing = [](const std::string& path) {
    return path + "\r\n\r\nThe path you have specified cannot be found on this machine.";
  };
  EXPECT_EQ(dialogs.Texts(), (Sources{Missing(dir / "missing"), Refused("directory"),
                                      Refused("file"), Refused("file"), Missing("[userfolder]")}));
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Exclamation);
  EXPECT_EQ(dialogs.shown[1].icon, Icon::Information);

  ctx.program.flags.silent = true;
  Add(dir / "missing");
  EXPECT_EQ(dialogs.shown.size(), 5u) << "silent: no box";
}

TEST_F(AddSourceTest, AFolderAboveListedEntriesReplacesThemOnOkAndTextsAreTakenAsTheyStand) {
  std::string other = dir.MakeDir("other");
  Add(ab);
  Add(other);
  Add(file);
  dialogs.answers = {Answer::Ok, Answer::Cancel};
  Add(a);
  // The contained folder and file go; the new folder lands at the bottom.
  EXPECT_EQ(List(), (Sources{other, a}));
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text,
            "One or more directories in the source list are contained in the directory you have "
            "chosen. Would you like to replace these with the one you have chosen?");
  EXPECT_EQ(dialogs.shown[0].buttons, Buttons::OkCancel);
  ctx.settings.Sources = {ab};
  Add(a);
  EXPECT_EQ(List(), Sources{ab}) << "Cancel changes nothing";

  // A trailing separator is cut, on the caller's variable too; the search before it finds nothing.
  std::string withSep = a + "/";
  AddSource(ctx, withSep);
  EXPECT_EQ(withSep, a);
  EXPECT_EQ(List(), (Sources{ab, a}));
  // The same folder twice is listed twice, and a root stays a root.
  ctx.settings.Sources = {"/"};
  Add("/");
  EXPECT_EQ(List(), (Sources{"/", "/"}));
}

// The user's documents folder below $HOME, the one named in the XDG file first.
TEST_F(AddSourceTest, TheUserFolderIsTheDocumentsFolderPreferringTheXdgOne) {
  test::EnvVar home{"HOME", dir.MakeDir("home/ann")};
  test::EnvVar config{"XDG_CONFIG_HOME", std::nullopt};
  const std::string docs = dir.MakeDir("home/ann/Documents");
  const std::string papers = dir.MakeDir("home/ann/My Papers");
  Add("  [UserFolder]");
  dir.WriteFile("home/ann/.config/user-dirs.dirs", "XDG_DOCUMENTS_DIR=\"$HOME/My Papers\"\n");
  Add("[UserFolder]");
  EXPECT_EQ(List(), (Sources{docs, papers}));
}

}  // namespace
}  // namespace qr
