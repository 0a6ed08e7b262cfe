// The edges of reading and writing times; ordinary copies of times are checked by the copy and
// verification tests.
#include "platform/file_times.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/times_io.h"
#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

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

TEST_F(FileTimesTest, TheOwnerWithoutWriteBitSetsTimesWithoutAnyModeChange) {
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root and a user nobody";
  const struct passwd* nobody = getpwnam("nobody");
  ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
  const std::string file = dir.WriteFile("owned.txt", "x");
  ASSERT_EQ(chown(file.c_str(), nobody->pw_uid, nobody->pw_gid), 0);
  ASSERT_EQ(chmod(file.c_str(), 0444), 0);
  const auto outcome = test::RunAsNobody([&](std::string& out) {
    int error = 0;
    const bool ok = WriteFileTimes(file, 0, kLater, kLater, &error);
    out = std::to_string(error);
    return ok ? 0 : 1;
  });
  EXPECT_EQ(outcome.exitCode, 0) << "errno " << outcome.output;
  struct stat st {};
  ASSERT_EQ(stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0444);
  EXPECT_EQ(Times(file), "1200000000.555555500 1200000000.555555500 ");
}

}  // namespace
}  // namespace qr
