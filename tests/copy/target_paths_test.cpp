#include "copy/target_paths.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <filesystem>

#include "run/run_context.h"
#include "support/fake_dialogs.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

namespace fs = std::filesystem;
using test::FakeDialogs;
using test::FakePump;
using test::TempDir;

struct statx Look(const std::string& path) {
  struct statx st {};
  EXPECT_EQ(statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &st), 0) << path;
  return st;
}

void SetTimes(const std::string& path, struct timespec atime, struct timespec mtime) {
  const struct timespec ts[2] = {atime, mtime};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), ts, 0), 0) << path;
}

class TargetPathsTest : public ::testing::Test {
 protected:
  TempDir dir;
  FakeDialogs dialogs;
  FakePump pump;
  RunContext ctx{dialogs, pump};

  void Layout(const std::string& target, bool fullPaths, bool rootFolders, bool createSubs) {
    ctx.settings.TargetPath = target;
    ctx.settings.FullPaths = fullPaths;
    ctx.settings.RootFolders = rootFolders;
    ctx.settings.CreateSubs = createSubs;
  }
};

TEST_F(TargetPathsTest, FullPathsRebuildTheSourceBelowTheTarget) {
  Layout("/out", true, false, true);
  EXPECT_EQ(GetTargetFolder(ctx, "/data/sub/"), "/out/data/sub/");
  // The full path wins over the subfolder option.
  ctx.settings.CreateSubs = false;
  EXPECT_EQ(GetTargetFolder(ctx, "/data/sub/"), "/out/data/sub/");
  // A share loses its server name...
  EXPECT_EQ(GetTargetFolder(ctx, "//srv/share/x/"), "/out/share/x/");
  // ...which Root Folders keeps; a local path has no drive to keep, so nothing doubles.
  ctx.settings.RootFolders = true;
  EXPECT_EQ(GetTargetFolder(ctx, "//srv/share/x/"), "/out/srv/share/x/");
  EXPECT_EQ(GetTargetFolder(ctx, "/data/sub/"), "/out/data/sub/");
  // Colons are ordinary name characters here.
  EXPECT_EQ(GetTargetFolder(ctx, "/data/a:b/c:d/"), "/out/data/a:b/c:d/");
  // A target typed with its separator, or the root itself, gets no doubled one.
  Layout("/out/", true, false, true);
  EXPECT_EQ(GetTargetFolder(ctx, "/data/sub/"), "/out/data/sub/");
  Layout("/", true, false, true);
  EXPECT_EQ(GetTargetFolder(ctx, "/data/sub/"), "/data/sub/");
  EXPECT_EQ(GetTargetFolder(ctx, "/"), "/");
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(TargetPathsTest, WithoutFullPathsTheSourceRootFolderIsKeptBelowTheTarget) {
  Layout("/out", false, false, true);
  ctx.counters.CurrentSourceRoot = "/home/u/data";
  EXPECT_EQ(GetTargetFolder(ctx, "/home/u/data/"), "/out/data/");
  EXPECT_EQ(GetTargetFolder(ctx, "/home/u/data/sub/deeper/"), "/out/data/sub/deeper/");
  // A single file source: its folder is the root, so the file lands in the target itself.
  ctx.counters.CurrentSourceRoot = "/home/u/";
  EXPECT_EQ(GetTargetFolder(ctx, "/home/u/"), "/out/");
  // A whole-disk source.
  ctx.counters.CurrentSourceRoot = "/";
  EXPECT_EQ(GetTargetFolder(ctx, "/etc/x/"), "/out/etc/x/");
  Layout("/", false, false, true);
  ctx.counters.CurrentSourceRoot = "/home/u/data";
  EXPECT_EQ(GetTargetFolder(ctx, "/home/u/data/sub/"), "/data/sub/");
}

TEST_F(TargetPathsTest, WithNeitherFullPathsNorSubfoldersEverythingLandsInTheTarget) {
  ctx.counters.CurrentSourceRoot = "/home/u/data";
  Layout("/out", false, false, false);
  EXPECT_EQ(GetTargetFolder(ctx, "/home/u/data/sub/deeper/"), "/out/");
  EXPECT_EQ(GetTargetFilePath(ctx, "/home/u/data/sub/f.txt"), "/out/f.txt");
  Layout("/", false, false, false);
  EXPECT_EQ(GetTargetFolder(ctx, "/home/u/data/sub/"), "/");
  EXPECT_EQ(GetTargetFilePath(ctx, "/home/u/data/sub/f.txt"), "/f.txt");
}

TEST_F(TargetPathsTest, TargetFilePathRenamesOnlyInTheRenameMode) {
  const std::string out = dir.MakeDir("out");
  dir.WriteFile("out/data/f.txt", "existing");
  ctx.counters.CurrentSourceRoot = "/src/data";
  Layout(out, false, false, true);
  ctx.settings.Collision = kCollisionOverwrite;
  EXPECT_EQ(GetTargetFilePath(ctx, "/src/data/f.txt"), out + "/data/f.txt");
  ctx.settings.Collision = kCollisionRename;
  EXPECT_EQ(GetTargetFilePath(ctx, "/src/data/f.txt"), out + "/data/f(1).txt");
  EXPECT_EQ(GetTargetFilePath(ctx, "/src/data/new.txt"), out + "/data/new.txt");
}

TEST_F(TargetPathsTest, CollisionNamesTakeTheFirstFreeNumber) {
  const std::string a = dir.WriteFile("a.txt", "0");
  dir.WriteFile("a(1).txt", "1");
  dir.WriteFile("a(2).txt", "2");
  EXPECT_EQ(GetCollisionName(ctx, a), dir / "a(3).txt");
  // A gap is filled.
  const std::string c = dir.WriteFile("c.tar.gz", "0");
  dir.WriteFile("c.tar(2).gz", "2");
  EXPECT_EQ(GetCollisionName(ctx, c), dir / "c.tar(1).gz");
  // A free name comes back as it is.
  EXPECT_EQ(GetCollisionName(ctx, dir / "free.txt"), dir / "free.txt");
  // No extension.
  const std::string b = dir.WriteFile("b", "0");
  EXPECT_EQ(GetCollisionName(ctx, b), dir / "b(1)");
  // Only a file takes a name: a folder of the same name does not count as used.
  dir.MakeDir("b(1)");
  EXPECT_EQ(GetCollisionName(ctx, b), dir / "b(1)");
  // The dot is looked for in the whole path: one only in a folder name leaves the path as is.
  const std::string inDotted = dir.WriteFile("v1.0/readme", "0");
  EXPECT_EQ(GetCollisionName(ctx, inDotted), inDotted);
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(TargetPathsTest, CreateOneDirectoryGivesTheErrnoAndReportsNothing) {
  EXPECT_EQ(CreateOneDirectory(ctx, dir / "one/"), 0);
  EXPECT_TRUE(fs::is_directory(dir / "one"));
  EXPECT_EQ(CreateOneDirectory(ctx, dir / "one"), EEXIST);
  EXPECT_EQ(CreateOneDirectory(ctx, dir / "missing/two"), ENOENT);
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(TargetPathsTest, WithoutASourceEveryMissingLevelIsCreatedAndTheLastResultKept) {
  EXPECT_EQ(CreateTargetDirs(ctx, dir / "t/u/v/", ""), 0);
  EXPECT_TRUE(fs::is_directory(dir / "t/u/v"));
  // All present: nothing to do.
  EXPECT_EQ(CreateTargetDirs(ctx, dir / "t/u/v", "  "), 0);
  // A file in the way: the level below it can't be made, and that is what is returned.
  dir.WriteFile("t/file", "x");
  EXPECT_EQ(CreateTargetDirs(ctx, dir / "t/file/w", ""), ENOTDIR);
  EXPECT_EQ(CreateTargetDirs(ctx, "/", ""), 0);
}

// The source of each new level is looked up below S, built from the target's own levels: with
// a target D/out/leaf and a source /zz/leaf the last mismatch of the backward search is at the
// level of D itself, so S is D and the levels D/out, D/out/leaf are stamped from D + D/out and
// D + D/out/leaf.
TEST_F(TargetPathsTest, NewLevelsCarryTheTimesOfTheFolderFoundBelowTheSourceBase) {
  const std::string d = dir.path();
  const std::string sourceOfOut = dir.MakeDir(d.substr(1) + "/out");
  const std::string sourceOfLeaf = dir.MakeDir(d.substr(1) + "/out/leaf");
  const struct timespec outAccess = {1000000000, 100};
  const struct timespec outWrite = {1000000500, 200};
  const struct timespec leafAccess = {1100000000, 300};
  const struct timespec leafWrite = {1100000500, 400};
  SetTimes(sourceOfLeaf, leafAccess, leafWrite);
  SetTimes(sourceOfOut, outAccess, outWrite);

  EXPECT_EQ(CreateTargetDirs(ctx, d + "/out/leaf/", "/zz/leaf/"), 0);
  const struct statx leaf = Look(d + "/out/leaf");
  EXPECT_EQ(leaf.stx_atime.tv_sec, leafAccess.tv_sec);
  EXPECT_EQ(leaf.stx_mtime.tv_sec, leafWrite.tv_sec);
  EXPECT_EQ(leaf.stx_mtime.tv_nsec, 400u);
  // The level above was stamped at its creation; making the level below it moved its
  // modification time, which the folder pass puts right later, but not its access time.
  EXPECT_EQ(Look(d + "/out").stx_atime.tv_sec, outAccess.tv_sec);
  // The lookups left the source folders as they were.
  EXPECT_EQ(Look(sourceOfLeaf).stx_atime.tv_sec, leafAccess.tv_sec);
}

TEST_F(TargetPathsTest, AMissingSourceFolderLeavesTheTimesInHand) {
  const std::string d = dir.path();
  const std::string sourceOfOut = dir.MakeDir(d.substr(1) + "/out");
  const struct timespec outAccess = {1000000000, 0};
  const struct timespec outWrite = {1000000500, 0};
  SetTimes(sourceOfOut, outAccess, outWrite);

  EXPECT_EQ(CreateTargetDirs(ctx, d + "/out/leaf", "/zz/leaf"), 0);
  const struct statx leaf = Look(d + "/out/leaf");
  EXPECT_EQ(leaf.stx_atime.tv_sec, outAccess.tv_sec);
  EXPECT_EQ(leaf.stx_mtime.tv_sec, outWrite.tv_sec);
}

TEST_F(TargetPathsTest, WithNothingReadANewLevelKeepsItsOwnTimes) {
  // Same depth, and the first level below the root is shared: S is the root, and S + Y is the
  // new level itself, which does not exist yet. The zero times in hand change nothing.
  const std::string d = dir.path();
  const auto a = fs::path(d + "/t1/t2");
  std::string source;
  bool first = true;
  for (const auto& part : a.relative_path()) {
    source += "/" + (first ? part.string() : "nx-" + part.string());
    first = false;
  }
  const std::time_t before = std::time(nullptr);
  EXPECT_EQ(CreateTargetDirs(ctx, a.string(), source), 0);
  ASSERT_TRUE(fs::is_directory(a));
  EXPECT_GE(Look(a.string()).stx_mtime.tv_sec, before - 1);
  EXPECT_GE(Look(d + "/t1").stx_atime.tv_sec, before - 1);
}

TEST_F(TargetPathsTest, SameDepthWithNoLevelInCommonCreatesNothing) {
  const std::string d = dir.path();
  const auto a = fs::path(d + "/t1/t2");
  std::string source;
  for (const auto& part : a.relative_path()) source += "/nx-" + part.string();
  EXPECT_EQ(CreateTargetDirs(ctx, a.string() + "/", source + "/"), -1);
  EXPECT_FALSE(fs::exists(d + "/t1"));
  // A target with no level at all can't be compared either.
  EXPECT_EQ(CreateTargetDirs(ctx, "/", "/src"), -1);
  EXPECT_TRUE(dialogs.shown.empty());
}

}  // namespace
}  // namespace qr
