// Writing below a root never leaves it through a link (the whole-run confinement test seeds every
// name a run writes with links; here what it can't reach), and writing times touches nothing else.
#include "platform/confined_io.h"
#include "platform/file_times.h"
#include "platform/times_io.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "support/run_fixture.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

namespace fs = std::filesystem;
using test::ReadBytes;

class ConfinedIoTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  std::string root = dir.MakeDir("root");
  std::string outside = dir.MakeDir("outside");
  std::string victim = dir.WriteFile("outside/victim", "keep");

  void SetUp() override { SetConfinedRoots({root}); }
  void TearDown() override { SetConfinedRoots({}); }

  void Link(const std::string& to, const std::string& at) { fs::create_symlink(to, at); }
  // Writes "new" through OpenForWriting; the errno when the open fails, else 0.
  int Write(const std::string& p, int flags) {
    const int fd = OpenForWriting(p, O_WRONLY | flags, 0644);
    if (fd < 0) return errno;
    EXPECT_EQ(write(fd, "new", 3), 3);
    close(fd);
    return 0;
  }
};

TEST_F(ConfinedIoTest, AFifoIsReplacedAndCreateNewAndRemovalSeeTheLinkItself) {
  // A FIFO at a log's name cannot stall the run.
  ASSERT_EQ(mkfifo((root + "/fifo").c_str(), 0600), 0);
  EXPECT_EQ(Write(root + "/fifo", O_APPEND), 0);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(root + "/fifo")));
  Link(outside + "/excl", root + "/excl");
  EXPECT_EQ(Write(root + "/excl", O_CREAT | O_EXCL), EEXIST);
  EXPECT_TRUE(NonFolderEntryExists(root + "/excl") && LinkOrSpecialAt(root + "/excl"));
  EXPECT_FALSE(NonFolderEntryExists(root + "/none"));
  EXPECT_TRUE(RemoveLinkAt(root + "/excl"));
  EXPECT_FALSE(RemoveLinkAt(root + "/excl"));
  EXPECT_EQ(Write(root + "/../outside/victim", O_TRUNC), EACCES) << "no dot part is walked";
  // A folder that is needed replaces a link at its name.
  Link(outside, root + "/sub");
  EXPECT_FALSE(FolderExistsNoFollow(root + "/sub"));
  EXPECT_EQ(RenameNoReplace(root + "/sub/victim", root + "/taken"), ENOTDIR);
  EXPECT_EQ(MakeFolder(root + "/sub", 0755), 0);
  EXPECT_EQ(MakeFolder(root + "/sub", 0755), EEXIST);
  EXPECT_EQ(ReadBytes(victim), "keep");
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

TEST_F(ConfinedIoTest, OutsideEveryRootPathsAreTakenAsNamed) {
  SetConfinedRoots({root, root + "/deeper"});
  EXPECT_TRUE(IsConfined(root + "/x"));
  EXPECT_FALSE(IsConfined(root) || IsConfined(root + "x/y"));
  const std::string settings = dir.WriteFile("settings.ini", "");
  Link(settings, dir / "linked.ini");
  EXPECT_EQ(Write(dir / "linked.ini", O_APPEND), 0);
  EXPECT_EQ(ReadBytes(settings), "new") << "a link the person made is followed";
  EXPECT_FALSE(RemoveLinkAt(dir / "linked.ini")) << "outside the roots nothing is removed";
  // A root is taken as the person names it, through a link of its own.
  Link(outside, dir / "named");
  SetConfinedRoots({dir / "named"});
  EXPECT_EQ(Write(dir / "named/through.txt", O_CREAT), 0);
  EXPECT_EQ(ReadBytes(outside + "/through.txt"), "new");
}

// Instants with nanoseconds below the 100 ns a file time keeps: rewriting them would cut the
// last two digits, which is how a needless write shows.
constexpr struct timespec kAccess = {1000000000, 123456789};
constexpr struct timespec kWrite = {1100000000, 987654321};
constexpr FileTime kLater = 128444736005555555ULL;  // 1200000000.5555555 s

// A path's access and modification times (and change time) as stat shows them.
std::string Times(const std::string& path, bool changed = false) {
  struct statx st {};
  EXPECT_EQ(statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &st), 0) << path;
  auto text = [](const struct statx_timestamp& t) {
    return std::to_string(t.tv_sec) + "." + std::to_string(t.tv_nsec) + " ";
  };
  return text(st.stx_atime) + text(st.stx_mtime) + (changed ? text(st.stx_ctime) : "");
}

class FileTimesTest : public ::testing::Test, protected test::RunFixture {};

TEST_F(FileTimesTest, WritingBackWhatWasReadTouchesNothingAndZeroLeavesAMemberAlone) {
  for (const std::string& path : {dir.WriteFile("f.bin", "content"), dir.MakeDir("sub")}) {
    test::SetTimes(path, kAccess, kWrite);
    const std::string before = Times(path, true);
    FileTimes times;
    ASSERT_EQ(GetFileTimes(ctx, path + "/", times), 1) << path;
    SetFileTimes(ctx, path, times);
    // Not even the change time moved: nothing was written at all.
    EXPECT_EQ(Times(path, true), before);
  }
  const std::string file = dir / "f.bin";
  SetFileTimes(ctx, file, FileTimes{.modified = kLater});
  EXPECT_EQ(Times(file), "1000000000.123456789 1200000000.555555500 ");
  // Only the access time differs, so the modification time is not rewritten (and a creation
  // time the file system can't keep is no failure).
  EXPECT_TRUE(WriteFileTimes(file, kLater, kLater, kLater) || CanSetCreationTime(file));
  EXPECT_EQ(Times(file), "1200000000.555555500 1200000000.555555500 ");
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(FileTimesTest, ALinkIsWrittenThroughAndWhatIsMissingReadsAndWritesNothingInSilence) {
  const std::string file = dir.WriteFile("real.txt", "x");
  ASSERT_EQ(symlink(file.c_str(), (dir / "link").c_str()), 0);
  SetFileTimes(ctx, dir / "link", FileTimes{.modified = kLater, .accessed = kLater});
  EXPECT_EQ(Times(file), "1200000000.555555500 1200000000.555555500 ");

  ASSERT_EQ(symlink((dir / "gone").c_str(), (dir / "dangling").c_str()), 0);
  FileTimes times{.created = 11, .modified = 22, .accessed = 33};
  // A file where a folder was expected is an absence, not a failure; the root, cut of its
  // separator, leaves nothing to read.
  for (const std::string& path : {file + "/below", dir / "dangling", std::string("/")}) {
    EXPECT_EQ(GetFileTimes(ctx, path, times), 0) << path;
  }
  EXPECT_EQ(times.created + times.modified + times.accessed, 66u) << "left as they were";
  int error = 0;
  EXPECT_FALSE(WriteFileTimes(dir / "nothing", 0, kLater, 0, &error));
  EXPECT_EQ(error, ENOENT);
  EXPECT_TRUE(dialogs.shown.empty());
}

}  // namespace
}  // namespace qr
