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

using test::SetTimes;

// Instants with nanoseconds below the 100 ns a file time keeps: rewriting them would cut the
// last two digits, which is how a needless write shows.
constexpr struct timespec kAccess = {1000000000, 123456789};
constexpr struct timespec kWrite = {1100000000, 987654321};
constexpr struct timespec kLater = {1200000000, 555555555};

struct statx Look(const std::string& path) {
  struct statx st {};
  EXPECT_EQ(statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &st), 0) << path;
  return st;
}

// Seconds and nanoseconds of a time as stat shows them, to compare in one go.
std::pair<int64_t, uint32_t> At(const struct statx_timestamp& t) { return {t.tv_sec, t.tv_nsec}; }
std::pair<int64_t, uint32_t> At(const struct timespec& t, uint32_t keptNs) {
  return {t.tv_sec, keptNs};
}

FileTime Ticks(struct timespec t) {
  return FileTimeFromUnix(t.tv_sec, static_cast<uint32_t>(t.tv_nsec));
}

class FileTimesTest : public ::testing::Test, protected test::RunFixture {};

TEST_F(FileTimesTest, WritingBackWhatWasReadLeavesFilesAndFoldersBitIdentical) {
  for (const std::string& path : {dir.WriteFile("f.bin", "content"), dir.MakeDir("sub")}) {
    SetTimes(path, kAccess, kWrite);
    const struct statx before = Look(path);

    FileTimes times;
    ASSERT_EQ(GetFileTimes(ctx, path, times), 1) << path;
    EXPECT_EQ(times.accessed, Ticks(kAccess));
    EXPECT_EQ(times.modified, Ticks(kWrite));
    SetFileTimes(ctx, path, times);

    const struct statx after = Look(path);
    EXPECT_EQ(At(before.stx_atime), At(after.stx_atime)) << path;
    EXPECT_EQ(At(before.stx_mtime), At(after.stx_mtime)) << path;
    // Nothing was written at all, so not even the change time moved.
    EXPECT_EQ(At(before.stx_ctime), At(after.stx_ctime)) << path;
  }
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(FileTimesTest, AZeroMemberIsLeftAloneAndTheOthersTakeAt100nsResolution) {
  const std::string file = dir.WriteFile("f.bin", "x");
  SetTimes(file, kAccess, kWrite);
  SetFileTimes(ctx, file, FileTimes{.modified = Ticks(kLater)});
  EXPECT_EQ(At(Look(file).stx_atime), At(kAccess, 123456789));
  EXPECT_EQ(At(Look(file).stx_mtime), At(kLater, 555555500));

  // Only the access time differs: the modification time, equal at 100 ns, is not rewritten
  // (and a creation time the file system can't keep is no failure).
  const bool ok = WriteFileTimes(file, Ticks(kWrite), Ticks(kLater), Ticks(kLater));
  EXPECT_TRUE(ok || CanSetCreationTime(file));
  EXPECT_EQ(At(Look(file).stx_atime), At(kLater, 555555500));
  EXPECT_EQ(At(Look(file).stx_mtime), At(kLater, 555555500));
}

TEST_F(FileTimesTest, TrailingSeparatorsLinksAndReadOnlyFilesAllTakeTheirTimes) {
  const std::string folder = dir.MakeDir("d");
  SetTimes(folder, kAccess, kWrite);
  FileTimes times;
  ASSERT_EQ(GetFileTimes(ctx, folder + "/", times), 1);
  EXPECT_EQ(times.modified, Ticks(kWrite));

  const std::string file = dir.WriteFile("real.txt", "x");
  const std::string readOnly = dir.WriteFile("ro.txt", "x");
  ASSERT_EQ(chmod(readOnly.c_str(), 0444), 0);
  const std::string link = dir / "link.txt";
  ASSERT_EQ(symlink(file.c_str(), link.c_str()), 0);
  // Written through: the folder given with its separator, the link to its file.
  const std::pair<std::string, std::string> writes[] = {
      {folder + "/", folder}, {link, file}, {readOnly, readOnly}};
  for (const auto& [given, changed] : writes) {
    SCOPED_TRACE(given);
    SetFileTimes(ctx, given, FileTimes{.modified = Ticks(kLater), .accessed = Ticks(kLater)});
    EXPECT_EQ(At(Look(changed).stx_mtime), At(kLater, 555555500));
    EXPECT_EQ(At(Look(changed).stx_atime), At(kLater, 555555500));
  }
  EXPECT_EQ(Look(readOnly).stx_mode & 07777, 0444);
}

TEST_F(FileTimesTest, MissingObjectsReadNothingAndWriteNothingInSilence) {
  const std::string file = dir.WriteFile("plain", "x");
  ASSERT_EQ(symlink((dir / "gone").c_str(), (dir / "dangling").c_str()), 0);
  FileTimes times{.created = 11, .modified = 22, .accessed = 33};
  // A file where a folder was expected is an absence, not a failure; a dangling link finds
  // nothing; the root, cut of its separator, leaves nothing to read.
  for (const std::string& path : {dir / "nothing/below", file + "/below", dir / "dangling",
                                  std::string("/")}) {
    EXPECT_EQ(GetFileTimes(ctx, path, times), 0) << path;
  }
  EXPECT_EQ(times.created + times.modified + times.accessed, 66u) << "left as they were";

  SetFileTimes(ctx, dir / "nothing", FileTimes{.created = 1, .modified = 2, .accessed = 3});
  EXPECT_NE(access((dir / "nothing").c_str(), F_OK), 0);
  int error = 0;
  EXPECT_FALSE(WriteFileTimes(dir / "nothing", 0, Ticks(kAccess), 0, &error));
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
    const bool ok = WriteFileTimes(file, 0, Ticks(kAccess), Ticks(kWrite), &error);
    out = std::to_string(error);
    return ok ? 0 : 1;
  });
  EXPECT_EQ(outcome.exitCode, 0) << "errno " << outcome.output;
  EXPECT_EQ(Look(file).stx_mode & 07777, 0444);
  EXPECT_EQ(At(Look(file).stx_mtime), At(kWrite, 987654300));
}

}  // namespace
}  // namespace qr
