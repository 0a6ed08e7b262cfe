#include "copy/target_paths.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <vector>

#include "support/run_fixture.h"

namespace qr {
namespace {

namespace fs = std::filesystem;

struct statx Look(const std::string& path) {
  struct statx st {};
  EXPECT_EQ(statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &st), 0) << path;
  return st;
}

using test::SetTimes;

// Access and modification seconds of a folder.
std::vector<int64_t> Times(const std::string& path) {
  const struct statx st = Look(path);
  return {st.stx_atime.tv_sec, st.stx_mtime.tv_sec};
}

class TargetPathsTest : public ::testing::Test, protected test::RunFixture {
 protected:
  void TearDown() override { EXPECT_TRUE(dialogs.shown.empty()); }
};

TEST_F(TargetPathsTest, TargetFolderForEachLayout) {
  struct Case {
    const char* target;
    bool fullPaths, rootFolders, createSubs;
    const char* sourceRoot;
    const char* folder;
    const char* expected;
  };
  const Case cases[] = {
      // Full paths rebuild the source below the target, whatever the subfolder box says.
      {"/out", true, false, false, "", "/data/sub/", "/out/data/sub/"},
      // A share loses its server name, which Root Folders keeps; a local path has no drive to
      // keep, so nothing doubles.
      {"/out", true, false, true, "", "//srv/share/x/", "/out/share/x/"},
      {"/out", true, true, true, "", "//srv/share/x/", "/out/srv/share/x/"},
      {"/out", true, true, true, "", "/data/a:b/", "/out/data/a:b/"},  // colons are plain characters
      // A target typed with its separator, or the root itself, gets no doubled one.
      {"/out/", true, false, true, "", "/data/sub/", "/out/data/sub/"},
      {"/", true, false, true, "", "/data/sub/", "/data/sub/"},
      {"/", true, false, true, "", "/", "/"},
      // Without full paths the source root's own folder is kept below the target.
      {"/out", false, false, true, "/home/u/data", "/home/u/data/sub/deeper/",
       "/out/data/sub/deeper/"},
      // A single file source: its folder is the root, so the file lands in the target itself.
      {"/out", false, false, true, "/home/u/", "/home/u/", "/out/"},
      {"/out", false, false, true, "/", "/etc/x/", "/out/etc/x/"},  // a whole-disk source
      {"/", false, false, true, "/home/u/data", "/home/u/data/sub/", "/data/sub/"},
      // With neither full paths nor subfolders everything lands in the target.
      {"/out", false, false, false, "/home/u/data", "/home/u/data/sub/deeper/", "/out/"},
      {"/", false, false, false, "/home/u/data", "/home/u/data/sub/", "/"},
      // Dot parts of a source never climb out of the target.
      {"/out", true, false, true, "", "/tmp/../../tmp/x/src/", "/out/tmp/x/src/"},
      {"/out", true, false, true, "", "/a/./b/../", "/out/a/"},
      {"/out", false, false, true, "/x/src/..", "/x/src/../sub/", "/out/x/sub/"},
      {"/out", false, false, true, "/x/../../..", "/x/../../../etc/", "/out/etc/"},
      {"/out", false, false, true, "/x/./src", "/x/./src/./a/", "/out/src/a/"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << c.target << " full " << c.fullPaths << " root " << c.rootFolders << " subs "
                 << c.createSubs << " " << c.folder);
    ctx.settings.TargetPath = c.target;
    ctx.settings.FullPaths = c.fullPaths;
    ctx.settings.RootFolders = c.rootFolders;
    ctx.settings.CreateSubs = c.createSubs;
    ctx.counters.CurrentSourceRoot = c.sourceRoot;
    EXPECT_EQ(GetTargetFolder(ctx, c.folder), c.expected);
    if (!c.createSubs) {
      EXPECT_EQ(GetTargetFilePath(ctx, std::string(c.folder) + "f.txt"),
                c.expected + std::string("f.txt"));
    }
  }
}

TEST_F(TargetPathsTest, TargetFilePathRenamesOnlyInTheRenameMode) {
  const std::string out = dir.path();
  dir.WriteFile("data/f.txt", "existing");
  ctx.counters.CurrentSourceRoot = "/src/data";
  ctx.settings.TargetPath = out;
  ctx.settings.FullPaths = false;
  ctx.settings.Collision = kCollisionOverwrite;
  EXPECT_EQ(GetTargetFilePath(ctx, "/src/data/f.txt"), out + "/data/f.txt");
  ctx.settings.Collision = kCollisionRename;
  EXPECT_EQ(GetTargetFilePath(ctx, "/src/data/f.txt") + GetTargetFilePath(ctx, "/src/data/new.txt"),
            out + "/data/f(1).txt" + out + "/data/new.txt");
}

TEST_F(TargetPathsTest, CollisionNamesTakeTheFirstFreeNumber) {
  for (const char* taken :
       {"a.txt", "a(1).txt", "a(2).txt", "c.tar.gz", "c.tar(2).gz", "b", "v1.0/readme"}) {
    dir.WriteFile(taken, "0");
  }
  dir.MakeDir("b(1)");
  ASSERT_EQ(symlink("nowhere", (dir / "dangling.txt").c_str()), 0);
  const std::pair<const char*, const char*> cases[] = {
      {"a.txt", "a(3).txt"},
      {"c.tar.gz", "c.tar(1).gz"},  // a gap is filled
      {"free.txt", "free.txt"},     // a free name comes back as it is
      {"b", "b(1)"},                // no extension; a folder of that name does not count as used
      // A dot in a folder name is no extension: the name is numbered, never left to overwrite.
      {"v1.0/readme", "v1.0/readme(1)"},
      {"dangling.txt", "dangling(1).txt"},  // a link is an entry of that name, whatever it points at
  };
  for (const auto& [name, expected] : cases)
    EXPECT_EQ(GetCollisionName(ctx, dir / name), dir / expected);
}

TEST_F(TargetPathsTest, CreatingDirectoriesGivesTheErrnoOfTheLastLevel) {
  EXPECT_EQ(CreateOneDirectory(ctx, dir / "one/"), 0);
  EXPECT_EQ(CreateOneDirectory(ctx, dir / "one"), EEXIST);
  EXPECT_EQ(CreateOneDirectory(ctx, dir / "missing/two"), ENOENT);
  // Without a source every missing level is created.
  EXPECT_EQ(CreateTargetDirs(ctx, dir / "t/u/v/", ""), 0);
  EXPECT_TRUE(fs::is_directory(dir / "t/u/v"));
  EXPECT_EQ(CreateTargetDirs(ctx, dir / "t/u/v", "  "), 0);  // all present: nothing to do
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
  SetTimes(sourceOfLeaf, {1100000000, 300}, {1100000500, 400});
  SetTimes(sourceOfOut, {1000000000, 100}, {1000000500, 200});

  EXPECT_EQ(CreateTargetDirs(ctx, d + "/out/leaf/", "/zz/leaf/"), 0);
  EXPECT_EQ(Times(d + "/out/leaf"), (std::vector<int64_t>{1100000000, 1100000500}));
  EXPECT_EQ(Look(d + "/out/leaf").stx_mtime.tv_nsec, 400u);
  // The level above was stamped at its creation; making the level below it moved its
  // modification time, which the folder pass puts right later, but not its access time. The
  // lookups left the source folders as they were.
  EXPECT_EQ(Look(d + "/out").stx_atime.tv_sec, 1000000000);
  EXPECT_EQ(Look(sourceOfLeaf).stx_atime.tv_sec, 1100000000);

  // A missing source folder leaves the times in hand.
  fs::remove_all(sourceOfLeaf);
  fs::remove_all(d + "/out");
  SetTimes(sourceOfOut, {1000000000, 0}, {1000000500, 0});
  EXPECT_EQ(CreateTargetDirs(ctx, d + "/out/leaf", "/zz/leaf"), 0);
  EXPECT_EQ(Times(d + "/out/leaf"), (std::vector<int64_t>{1000000000, 1000000500}));
}

TEST_F(TargetPathsTest, SameDepthTargetsAndSources) {
  const std::string d = dir.path();
  const auto a = fs::path(d + "/t1/t2");
  std::string shared, foreign;
  for (const auto& part : a.relative_path()) {
    shared += std::string("/") + (shared.empty() ? "" : "nx-") + part.string();
    foreign += "/nx-" + part.string();
  }
  // No level in common: nothing can be compared, nothing is created.
  EXPECT_EQ(CreateTargetDirs(ctx, a.string() + "/", foreign + "/"), -1);
  EXPECT_FALSE(fs::exists(d + "/t1"));
  EXPECT_EQ(CreateTargetDirs(ctx, "/", "/src"), -1);  // a target with no level at all

  // The first level below the root shared: S is the root, and S + Y is the new level itself,
  // which does not exist yet. The zero times in hand change nothing.
  const std::time_t before = std::time(nullptr);
  EXPECT_EQ(CreateTargetDirs(ctx, a.string(), shared), 0);
  ASSERT_TRUE(fs::is_directory(a));
  EXPECT_GE(std::min(Look(a.string()).stx_mtime.tv_sec, Look(d + "/t1").stx_atime.tv_sec), before - 1);
}

}  // namespace
}  // namespace qr
