#include "platform/confined_io.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iterator>

#include "support/temp_dir.h"

namespace qr {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

class ConfinedIoTest : public ::testing::Test {
 protected:
  TempDir dir;
  std::string root = dir.MakeDir("root");
  std::string outside = dir.MakeDir("outside");
  std::string victim = dir.WriteFile("outside/victim", "keep");

  void SetUp() override { SetConfinedRoots({root}); }
  void TearDown() override { SetConfinedRoots({}); }

  void Link(const std::string& to, const std::string& at) { fs::create_symlink(to, at); }
  bool IsRealFile(const std::string& p) { return fs::is_regular_file(fs::symlink_status(p)); }
  // Writes `bytes` through OpenForWriting; the errno when the open fails, else 0.
  int Write(const std::string& p, int flags, const std::string& bytes = "new") {
    const int fd = OpenForWriting(p, O_WRONLY | flags, 0644);
    if (fd < 0) return errno;
    EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(fd);
    return 0;
  }
};

TEST_F(ConfinedIoTest, ALinkOrFifoAtAFilesNameIsReplacedNeverWrittenThrough) {
  ASSERT_EQ(mkfifo((root + "/fifo").c_str(), 0600), 0);
  for (int flags : {O_CREAT | O_TRUNC, O_APPEND, O_CREAT | O_APPEND}) {
    const std::string at = root + "/log" + std::to_string(flags);
    Link(victim, at);
    EXPECT_EQ(Write(at, flags), 0) << flags;
    EXPECT_TRUE(IsRealFile(at) && test::ReadBytes(at) == "new") << flags;
  }
  // A FIFO at a log's name cannot stall the run.
  EXPECT_EQ(Write(root + "/fifo", O_APPEND), 0);
  EXPECT_TRUE(IsRealFile(root + "/fifo"));
  // A dangling link is not followed to create its target either.
  Link(outside + "/created", root + "/dangling");
  EXPECT_EQ(Write(root + "/dangling", O_CREAT | O_TRUNC), 0);
  // Create-new treats a link as an existing file.
  Link(outside + "/excl", root + "/excl");
  EXPECT_EQ(Write(root + "/excl", O_CREAT | O_EXCL), EEXIST);
  EXPECT_EQ(test::ReadBytes(victim), "keep");
  EXPECT_EQ(std::distance(fs::directory_iterator(outside), {}), 1) << "nothing new outside";
}

TEST_F(ConfinedIoTest, NoFolderBelowTheRootIsReachedThroughALink) {
  Link(outside, root + "/sub");
  EXPECT_EQ(Write(root + "/sub/f.txt", O_CREAT | O_TRUNC), ENOTDIR);
  EXPECT_FALSE(FolderExistsNoFollow(root + "/sub"));
  const struct timespec ts[2] = {{1000, 0}, {1000, 0}};
  const std::string through = root + "/sub/victim";
  EXPECT_EQ(SetTimesAt(through, ts), ENOTDIR);
  EXPECT_EQ(ChangeMode(through, 0600), ENOTDIR);
  EXPECT_EQ(RenameNoReplace(through, root + "/taken"), ENOTDIR);
  EXPECT_EQ(RemoveFile(through), ENOTDIR);
  EXPECT_EQ(Write(root + "/../outside/victim", O_TRUNC), EACCES) << "no dot part is walked";
  EXPECT_EQ(test::ReadBytes(victim), "keep");
  // A folder that is needed replaces the link.
  EXPECT_EQ(MakeFolder(root + "/sub", 0755), 0);
  EXPECT_TRUE(FolderExistsNoFollow(root + "/sub"));
  EXPECT_EQ(MakeFolder(root + "/sub", 0755), EEXIST);
  EXPECT_TRUE(fs::exists(victim));
}

TEST_F(ConfinedIoTest, TimesAndModeGoToTheLinkNeverToItsTarget) {
  struct stat before {};
  ASSERT_EQ(stat(victim.c_str(), &before), 0);
  Link(victim, root + "/l");
  const struct timespec ts[2] = {{1000, 0}, {2000, 0}};
  EXPECT_EQ(SetTimesAt(root + "/l", ts), 0);
  EXPECT_NE(ChangeMode(root + "/l", 0600), 0);
  struct stat after {};
  ASSERT_EQ(stat(victim.c_str(), &after), 0);
  EXPECT_EQ(std::tuple(after.st_mtim.tv_sec, after.st_mode, after.st_ctim.tv_nsec),
            std::tuple(before.st_mtim.tv_sec, before.st_mode, before.st_ctim.tv_nsec));
  // The collision rule sees the link itself, even a dangling one.
  Link(outside + "/nowhere", root + "/d");
  EXPECT_TRUE(NonFolderEntryExists(root + "/d") && LinkOrSpecialAt(root + "/d"));
  EXPECT_FALSE(NonFolderEntryExists(root + "/none"));
  EXPECT_TRUE(RemoveLinkAt(root + "/d"));
  EXPECT_FALSE(RemoveLinkAt(root + "/d"));
}

TEST_F(ConfinedIoTest, OutsideEveryRootPathsAreTakenAsNamed) {
  SetConfinedRoots({root, root + "/deeper"});
  EXPECT_TRUE(IsConfined(root + "/x"));
  EXPECT_FALSE(IsConfined(root) || IsConfined(root + "x/y"));
  const std::string settings = dir.WriteFile("settings.ini", "");
  Link(settings, dir / "linked.ini");
  EXPECT_EQ(Write(dir / "linked.ini", O_APPEND), 0);
  EXPECT_EQ(test::ReadBytes(settings), "new") << "a link the person made is followed";
  EXPECT_FALSE(RemoveLinkAt(dir / "linked.ini")) << "outside the roots nothing is removed";
  // A root is taken as the person names it, through a link of its own.
  Link(outside, dir / "named");
  SetConfinedRoots({dir / "named"});
  EXPECT_EQ(Write(dir / "named/through.txt", O_CREAT), 0);
  EXPECT_EQ(test::ReadBytes(outside + "/through.txt"), "new");
}

TEST_F(ConfinedIoTest, AFolderReachedBeforeIsReachedAfreshOnceReplaced) {
  const std::string sub = root + "/sub";
  ASSERT_EQ(MakeFolder(sub, 0755), 0);
  ASSERT_EQ(Write(sub + "/a", O_CREAT), 0);
  // Someone else removes it and makes it again: the next file lands in the new folder.
  fs::remove_all(sub);
  fs::create_directory(sub);
  EXPECT_EQ(Write(sub + "/b", O_CREAT), 0);
  EXPECT_EQ(test::ReadBytes(sub + "/b"), "new");
  // Made again by the run itself, the new folder is looked into, not the old one.
  fs::remove_all(sub);
  EXPECT_FALSE(FolderExistsNoFollow(sub));
  ASSERT_EQ(MakeFolder(sub, 0755), 0);
  EXPECT_EQ(Write(sub + "/c", O_CREAT), 0);
  struct stat st {};
  EXPECT_EQ(StatNoFollow(sub + "/c", st), 0);
  // Replaced by a link to a folder outside: nothing is written there.
  fs::remove_all(sub);
  Link(outside, sub);
  EXPECT_NE(Write(sub + "/d", O_CREAT), 0);
  EXPECT_FALSE(fs::exists(outside + "/d"));
}

}  // namespace
}  // namespace qr
