#include "copy/file_times.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/child_process.h"
#include "platform/times_io.h"
#include "run/run_context.h"
#include "support/fake_dialogs.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::FakeDialogs;
using test::FakePump;
using test::TempDir;

// Instants with nanoseconds below the 100 ns a file time keeps: rewriting them would cut the
// last two digits, which is how a needless write shows.
constexpr struct timespec kAccess = {1000000000, 123456789};
constexpr struct timespec kWrite = {1100000000, 987654321};

struct statx Look(const std::string& path) {
  struct statx st {};
  EXPECT_EQ(
      statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME, &st), 0)
      << path;
  return st;
}

bool Same(const struct statx_timestamp& x, const struct statx_timestamp& y) {
  return x.tv_sec == y.tv_sec && x.tv_nsec == y.tv_nsec;
}

void SetTimes(const std::string& path, struct timespec atime, struct timespec mtime) {
  const struct timespec ts[2] = {atime, mtime};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), ts, 0), 0) << path;
}

FileTime Ticks(struct timespec t) {
  return FileTimeFromUnix(t.tv_sec, static_cast<uint32_t>(t.tv_nsec));
}

class FileTimesTest : public ::testing::Test {
 protected:
  TempDir dir;
  FakeDialogs dialogs;
  FakePump pump;
  RunContext ctx{dialogs, pump};
};

TEST_F(FileTimesTest, WritingBackWhatWasReadLeavesFilesAndFoldersBitIdentical) {
  const std::string file = dir.WriteFile("f.bin", "content");
  const std::string folder = dir.MakeDir("sub");
  for (const std::string& path : {file, folder}) {
    SetTimes(path, kAccess, kWrite);
    const struct statx before = Look(path);

    FileTimes times;
    ASSERT_EQ(GetFileTimes(ctx, path, times), 1) << path;
    EXPECT_EQ(times.accessed, Ticks(kAccess));
    EXPECT_EQ(times.modified, Ticks(kWrite));
    SetFileTimes(ctx, path, times);

    const struct statx after = Look(path);
    EXPECT_TRUE(Same(before.stx_atime, after.stx_atime)) << path;
    EXPECT_TRUE(Same(before.stx_mtime, after.stx_mtime)) << path;
    // Nothing was written at all, so not even the change time moved.
    EXPECT_TRUE(Same(before.stx_ctime, after.stx_ctime)) << path;
    EXPECT_EQ(before.stx_mode, after.stx_mode);
  }
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(FileTimesTest, AZeroMemberIsLeftAloneAndTheOthersTakeAt100nsResolution) {
  const std::string file = dir.WriteFile("f.bin", "x");
  SetTimes(file, kAccess, kWrite);
  const struct statx before = Look(file);

  const struct timespec newWrite = {1200000000, 555555555};
  FileTimes times;
  times.modified = Ticks(newWrite);
  SetFileTimes(ctx, file, times);
  struct statx after = Look(file);
  EXPECT_TRUE(Same(before.stx_atime, after.stx_atime));
  EXPECT_EQ(after.stx_mtime.tv_sec, newWrite.tv_sec);
  EXPECT_EQ(after.stx_mtime.tv_nsec, 555555500u);

  // Only the access time differs: the modification time, equal at 100 ns, is not rewritten
  // (and a creation time the file system can't keep is no failure).
  times = FileTimes{};
  times.created = Ticks(kWrite);
  times.accessed = Ticks(newWrite);
  times.modified = Ticks(newWrite);
  const bool ok = WriteFileTimes(file, times.created, times.accessed, times.modified);
  if (!CanSetCreationTime(file)) {
    EXPECT_TRUE(ok);
  }
  after = Look(file);
  EXPECT_EQ(after.stx_atime.tv_sec, newWrite.tv_sec);
  EXPECT_EQ(after.stx_atime.tv_nsec, 555555500u);
  EXPECT_EQ(after.stx_mtime.tv_nsec, 555555500u);
}

TEST_F(FileTimesTest, TrailingSeparatorIsAcceptedAndLinksAreFollowedForWriting) {
  const std::string folder = dir.MakeDir("d");
  SetTimes(folder, kAccess, kWrite);
  FileTimes times;
  ASSERT_EQ(GetFileTimes(ctx, folder + "/", times), 1);
  EXPECT_EQ(times.modified, Ticks(kWrite));

  const struct timespec other = {1300000000, 0};
  SetFileTimes(ctx, folder + "/", FileTimes{.modified = Ticks(other), .accessed = Ticks(other)});
  EXPECT_EQ(Look(folder).stx_mtime.tv_sec, other.tv_sec);
  EXPECT_EQ(Look(folder).stx_atime.tv_sec, other.tv_sec);

  const std::string file = dir.WriteFile("real.txt", "x");
  const std::string link = dir / "link.txt";
  ASSERT_EQ(symlink(file.c_str(), link.c_str()), 0);
  SetFileTimes(ctx, link, FileTimes{.modified = Ticks(kWrite), .accessed = Ticks(kAccess)});
  EXPECT_EQ(Look(file).stx_mtime.tv_sec, kWrite.tv_sec);
  EXPECT_EQ(Look(file).stx_atime.tv_sec, kAccess.tv_sec);
}

TEST_F(FileTimesTest, MissingObjectsReadNothingAndWriteNothingInSilence) {
  FileTimes times{.created = 11, .modified = 22, .accessed = 33};
  EXPECT_EQ(GetFileTimes(ctx, dir / "nothing", times), 0);
  EXPECT_EQ(GetFileTimes(ctx, dir / "nothing/below", times), 0);
  // A file where a folder was expected is an absence too, not a failure.
  const std::string file = dir.WriteFile("plain", "x");
  EXPECT_EQ(GetFileTimes(ctx, file + "/below", times), 0);
  // A dangling link finds nothing, like a file that vanished.
  ASSERT_EQ(symlink((dir / "gone").c_str(), (dir / "dangling").c_str()), 0);
  EXPECT_EQ(GetFileTimes(ctx, dir / "dangling", times), 0);
  EXPECT_EQ(times.created, 11u);
  EXPECT_EQ(times.modified, 22u);
  EXPECT_EQ(times.accessed, 33u);

  SetFileTimes(ctx, dir / "nothing", FileTimes{.created = 1, .modified = 2, .accessed = 3});
  EXPECT_NE(access((dir / "nothing").c_str(), F_OK), 0);
  int error = 0;
  EXPECT_FALSE(WriteFileTimes(dir / "nothing", 0, Ticks(kAccess), 0, &error));
  EXPECT_EQ(error, ENOENT);

  // The root is treated as a drive root: cutting its separator leaves nothing to read.
  EXPECT_EQ(GetFileTimes(ctx, "/", times), 0);
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(FileTimesTest, AReadOnlyFileKeepsItsModeAndStillTakesItsTimes) {
  const std::string file = dir.WriteFile("ro.txt", "x");
  ASSERT_EQ(chmod(file.c_str(), 0444), 0);
  SetFileTimes(ctx, file, FileTimes{.modified = Ticks(kWrite), .accessed = Ticks(kAccess)});
  const struct statx st = Look(file);
  EXPECT_EQ(st.stx_mode & 07777, 0444);
  EXPECT_EQ(st.stx_mtime.tv_sec, kWrite.tv_sec);
  EXPECT_EQ(st.stx_atime.tv_sec, kAccess.tv_sec);
}

TEST_F(FileTimesTest, TheOwnerWithoutWriteBitSetsTimesWithoutAnyModeChange) {
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root and a user nobody";
  const struct passwd* nobody = getpwnam("nobody");
  ASSERT_NE(nobody, nullptr);
  ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
  const std::string file = dir.WriteFile("owned.txt", "x");
  ASSERT_EQ(chown(file.c_str(), nobody->pw_uid, nobody->pw_gid), 0);
  ASSERT_EQ(chmod(file.c_str(), 0444), 0);

  const test::ChildOutcome outcome = test::RunInChild([&](std::string& out) {
    if (!test::BecomeNobody()) return test::kChildCannotSetUp;
    int error = 0;
    const bool ok = WriteFileTimes(file, 0, Ticks(kAccess), Ticks(kWrite), &error);
    out = std::to_string(error);
    return ok ? 0 : 1;
  });
  ASSERT_NE(outcome.exitCode, test::kChildCannotSetUp);
  EXPECT_EQ(outcome.exitCode, 0) << "errno " << outcome.output;
  const struct statx st = Look(file);
  EXPECT_EQ(st.stx_mode & 07777, 0444);
  EXPECT_EQ(st.stx_mtime.tv_sec, kWrite.tv_sec);
  EXPECT_EQ(st.stx_mtime.tv_nsec, 987654300u);
}

}  // namespace
}  // namespace qr
