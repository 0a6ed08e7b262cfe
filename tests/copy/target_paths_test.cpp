#include "copy/target_paths.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "support/run_fixture.h"

namespace qr {
namespace {

namespace fs = std::filesystem;

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
      {"/out", true, false, false, "", "/data/sub/", "/out/data/sub/"},
      // A share loses its server name, which Root Folders keeps.
      {"/out", true, false, true, "", "//srv/share/x/", "/out/share/x/"},
      {"/out", true, true, true, "", "//srv/share/x/", "/out/srv/share/x/"},
      {"/out", true, true, true, "", "/data/a:b/", "/out/data/a:b/"},  // colons are plain characters
      {"/out/", true, false, true, "", "/data/sub/", "/out/data/sub/"},
      {"/", true, false, true, "", "/data/sub/", "/data/sub/"},
      {"/", true, false, true, "", "/", "/"},
      {"/out", false, false, true, "/home/u/data", "/home/u/data/sub/deeper/",
       "/out/data/sub/deeper/"},
      {"/out", false, false, true, "/home/u/", "/home/u/", "/out/"},
      {"/out", false, false, true, "/", "/etc/x/", "/out/etc/x/"},  // a whole-disk source
      {"/", false, false, true, "/home/u/data", "/home/u/data/sub/", "/data/sub/"},
      {"/out", false, false, false, "/home/u/data", "/home/u/data/sub/deeper/", "/out/"},
      {"/", false, false, false, "/home/u/data", "/home/u/data/sub/", "/"},
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
  // With a source, no level in common: nothing can be compared, nothing is created.
  std::string foreign;
  for (const auto& part : fs::path(dir / "x/y").relative_path()) foreign += "/nx-" + part.string();
  EXPECT_EQ(CreateTargetDirs(ctx, dir / "x/y/", foreign + "/"), -1);
  EXPECT_FALSE(fs::exists(dir / "x"));
  EXPECT_EQ(CreateTargetDirs(ctx, "/", "/src"), -1);  // a target with no level at all
}

}  // namespace
}  // namespace qr
