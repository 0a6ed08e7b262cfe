#include "enumerate/source_walk.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <set>

#include <gtest/gtest.h>

#include "jobdb/db_connection.h"
#include "jobdb/job_database.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "platform/unicode_text.h"
#include "run/job_connection.h"
#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

namespace fs = std::filesystem;
using test::ReadBytes;
using Lines = std::vector<std::string>;

class WalkTest : public ::testing::Test, protected test::RunFixture {
 protected:
  std::string src = dir.MakeDir("src");
  std::string logs = dir.MakeDir("logs");

  void SetUp() override {
    ctx.settings.TargetPath = dir / "target";
    ctx.settings.LogPath = logs;
    ctx.paths = ComputeRunPaths(logs);
    CreateJobDatabase(ctx, ctx.paths.DatabasePath);
  }

  int32_t TallySource(const std::string& folder) {
    ctx.counters.CurrentSourceRoot = folder;
    int32_t n = TallyFolder(ctx, folder);
    ctx.counters.TotalFiles += n;
    return n;
  }

  // One column of a table, in key order.
  Lines Column(const std::string& sql) {
    DbConnection db;
    EXPECT_TRUE(db.Open(ctx.paths.DatabasePath));
    ResultSet rs = db.Query(sql);
    Lines out;
    for (int i = 0; i < rs.RowCount(); ++i) out.push_back(rs.Value(i, 0).Text());
    return out;
  }
  Lines Sources() { return Column("Select source_path from tFiles order by file_key"); }
  Lines Folders() { return Column("Select source from tFolders order by folder_key"); }

  std::string Log(const std::string& name) { return ReadBytes(logs + "/" + name); }
  std::string ErrorLog() {
    EXPECT_EQ(Log("_errors.log").substr(0, 2), "\xFF\xFE");
    return test::Utf16FileText(logs + "/_errors.log");
  }
};

// One tree that holds every kind of trouble a walk meets, walked once.
TEST_F(WalkTest, OneWalkRecordsEveryFileOnceInOrderAndLogsWhatItLeavesOut) {
  dir.WriteFile("src/top1.txt", "12345");
  dir.WriteFile("src/a/a1.doc", "a");
  dir.WriteFile("src/a/deep/d1", "dd");
  dir.WriteFile("src/b/b1.txt", "bbb");
  dir.MakeDir("src/empty");
  const Lines odd = {"it's here.txt", "a,b,c.csv", "  blanks  ",
                     "caf\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac.txt", "ABCDEF~1.TXT", "PROGRA~12.TXT"};
  for (const auto& n : odd) dir.WriteFile("src/odd/" + n, n);
  // Links: one to a file is followed; one to a folder is not descended, only logged.
  const std::string outside = dir.MakeDir("outside");
  dir.WriteFile("outside/secret.txt", "s");
  fs::create_directory_symlink(outside, src + "/linked");
  fs::create_symlink(outside + "/secret.txt", src + "/file-link.txt");
  ASSERT_EQ(mkfifo((src + "/pipe").c_str(), 0644), 0);  // never opened
  dir.WriteFile("target/src/b/b1.txt", "old");  // an existing target, left out under Do Nothing
  ctx.settings.CreateFileList = true;
  ctx.paths.FileListPath = logs + "/filelist.txt";
  dir.WriteFile("logs/filelist.txt", "");

  EXPECT_EQ(TallySource(src), 10);
  EXPECT_EQ(ctx.counters.TotalBytes,
            std::accumulate(odd.begin(), odd.end(), 9, [](int n, auto& s) { return n + int(s.size()); }));

  Lines order = Sources();
  auto index = [&](const std::string& p) {
    return std::find(order.begin(), order.end(), src + "/" + p) - order.begin();
  };
  // The root's files first; each folder's files before those of its subfolders; a subfolder
  // taken whole before its next sibling.
  EXPECT_LT(std::max(index("top1.txt"), index("file-link.txt")), 2);
  EXPECT_LT(index("a/a1.doc"), index("a/deep/d1"));
  if (index("a/a1.doc") < index("odd/a,b,c.csv")) {
    EXPECT_LT(index("a/deep/d1"), index("odd/a,b,c.csv"));
  }
  std::set<std::string> got(order.begin(), order.end()), want;
  for (const auto& p : {"top1.txt", "file-link.txt", "a/a1.doc", "a/deep/d1"}) want.insert(src + "/" + p);
  for (const auto& n : odd) want.insert(src + "/odd/" + n);
  EXPECT_EQ(got, want);
  // Target, size and extension of a row (no dot: the whole name).
  EXPECT_EQ(Column("Select dest_path || '|' || source_size || '|' || extension from tFiles "
                   "where source_path like '%/d1'"),
            Lines{dir / "target/src/a/deep/d1|2|d1"});
  // With empty folders kept, every folder has a row, the root first; a linked folder's row
  // records that it exists.
  Lines folders = Folders();
  EXPECT_EQ(folders.front(), src + "/");
  EXPECT_EQ(std::set<std::string>(folders.begin(), folders.end()),
            (std::set<std::string>{src + "/", src + "/a/", src + "/a/deep/", src + "/b/",
                                   src + "/empty/", src + "/odd/", src + "/linked/"}));

  // Only the twelve-character generated look is logged, and the file is kept all the same.
  EXPECT_EQ(Log("_shortpaths_for_longs.log"), src + "/odd/ABCDEF~1.TXT\r\n");
  EXPECT_EQ(Log("_symlinkss.log"), src + "/linked\r\n");
  EXPECT_EQ(Log("_existings.log"), src + "/b/b1.txt\r\n");
  EXPECT_EQ(ErrorLog(), src + "/pipe\t(Cannot access file: Not a regular file)\r\n");
  EXPECT_EQ(ctx.progress.listErrors, Lines{src + "/pipe (Not a regular file)"});
  EXPECT_EQ(ctx.counters.ErrorCount, 1);
  // The file list is UTF-16 without a mark.
  const std::string list = Log("filelist.txt");
  EXPECT_EQ(Utf16ToUtf8(std::u16string(reinterpret_cast<const char16_t*>(list.data()),
                                       list.size() / 2)),
            std::accumulate(order.begin(), order.end(), std::string(),
                            [](std::string all, const std::string& p) { return all + p + "\r\n"; }));

  // Overwriting, the existing target is taken too.
  ctx.settings.Collision = kCollisionOverwrite;
  EXPECT_EQ(TallySource(src + "/b"), 1);
}

TEST_F(WalkTest, WithoutEmptyFoldersOrSubfoldersLessIsRecorded) {
  dir.WriteFile("src/only/sub/f.txt", "x");
  ctx.settings.CopyEmpties = false;
  ctx.settings.CopySubs = false;
  EXPECT_EQ(TallySource(src), 0);
  ctx.settings.CopySubs = true;
  EXPECT_EQ(TallySource(src), 1);
  EXPECT_EQ(Sources().size() * 10 + Folders().size(), 10u);
}

TEST_F(WalkTest, CancelStopsTheWalkAndKeepsTheRowsFound) {
  for (int i = 0; i < 20; ++i) dir.WriteFile("src/f" + std::to_string(i), "x");
  pump.onPump = [this](int n) {
    if (n == 6) ctx.counters.CancelRequested = true;
  };
  int32_t n = TallySource(src);
  EXPECT_TRUE(n > 0 && n < 20) << n;
  EXPECT_EQ(Sources().size(), static_cast<size_t>(n)) << "rows not yet flushed are flushed";
}

TEST_F(WalkTest, AFolderThatCannotBeListedIsLoggedAndCounted) {
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to run the case as user nobody";
  dir.WriteFile("src/ok.txt", "ok");
  dir.WriteFile("src/closed/inside.txt", "hidden");
  chmod((src + "/closed").c_str(), 0700);
  // nobody must reach the source and write the logs.
  chmod(dir.path().c_str(), 0755);
  chmod(src.c_str(), 0755);
  chmod((src + "/ok.txt").c_str(), 0644);
  chmod(logs.c_str(), 0777);
  // nobody's own, so that listing it leaves its times as they were.
  const struct passwd* nobody = getpwnam("nobody");
  ASSERT_NE(nobody, nullptr);
  ASSERT_EQ(chown(src.c_str(), nobody->pw_uid, nobody->pw_gid), 0);
  chmod(ctx.paths.DatabasePath.c_str(), 0666);
  test::ChildOutcome child = test::RunInChild([&](std::string& out) {
    if (!test::BecomeNobody()) return test::kChildCannotSetUp;
    int32_t n = TallySource(src);
    out = IntText(n) + "|" + IntText(ctx.counters.ErrorCount) + "|" +
          (ctx.progress.listErrors.empty() ? "" : ctx.progress.listErrors[0]);
    return 0;
  });
  ASSERT_NE(child.exitCode, test::kChildCannotSetUp) << "could not become nobody";
  EXPECT_EQ(child.output, "1|1|" + src + "/closed (Permission Denied)");
  EXPECT_EQ(ErrorLog(), src + "/closed\t(Cannot access folder: Permission denied)\r\n");
}

TEST_F(WalkTest, ASingleFileSourceIsOneRowAtOnce) {
  std::string f = dir.WriteFile("src/single.txt", "abc");
  ctx.counters.CurrentSourceRoot = src + "/";
  TallySingleFile(ctx, f);
  EXPECT_EQ(ctx.progress.lblStatus, "Enumerating Files: 1 Found");
  // A named file gone before the walk leaves no row and no box, but is recorded.
  TallySingleFile(ctx, src + "/gone.txt");
  EXPECT_EQ(Column("Select dest_path from tFiles"), Lines{dir / "target/single.txt"});
  EXPECT_TRUE(dialogs.shown.empty());
  EXPECT_EQ(ErrorLog(), src + "/gone.txt\t(Cannot access file: No such file or directory)\r\n");
}

class FileListTest : public WalkTest {
 protected:
  void TallyList(const std::string& listPath) {
    TallyFileList(ctx, std::string(kFileListMarker) + listPath);
  }
};

// A list names files and folders by its first field, plain or UTF-16 with a mark, the last line
// without a line end counting too; what it names that is missing is logged.
TEST_F(FileListTest, AListNamesFilesAndFoldersByItsFirstField) {
  std::string f1 = dir.WriteFile("src/\xc3\xa9t\xc3\xa9.txt", "1");
  std::string f2 = dir.WriteFile("src/it's two.txt", "22");
  std::string sub = dir.MakeDir("src/sub");
  dir.WriteFile("src/sub/three.txt", "333");
  std::string list = dir.WriteFile(
      "list.txt", f1 + "\tcomment\tmore\n" + f2 + "\r\n\r\n" + sub + "\n" + dir / "gone.txt" +
                      "\n" + f1);
  TallyList(list);
  EXPECT_EQ(Sources(), (Lines{f1, f2, sub + "/three.txt", f1}))
      << "two entries naming one file give two rows";
  EXPECT_EQ(ctx.counters.TotalFiles, 4);
  EXPECT_EQ(Log("_flist_errs.log"), "Could not find \r\nCould not find " + dir / "gone.txt" + "\r\n");

  fs::remove(logs + "/_flist_errs.log");
  const std::u16string text = Utf8ToUtf16(f2 + "\tx\r\n" + dir / "gone.txt" + "\r\n" + f1);
  dir.WriteFile("list16.txt", "\xFF\xFE" + std::string(reinterpret_cast<const char*>(text.data()),
                                                       text.size() * 2));
  TallyList(dir / "list16.txt");
  EXPECT_EQ(Sources(), (Lines{f1, f2, sub + "/three.txt", f1, f2, f1}));
  EXPECT_EQ(Log("_flist_errs.log").substr(0, 2), "\xFF\xFE");
  EXPECT_EQ(test::Utf16FileText(logs + "/_flist_errs.log"), "Could not find " + dir / "gone.txt" + "\r\n");

  TallyList(dir / "no-such-list.txt");
  EXPECT_TRUE(Log("_silent.log").starts_with("File List Tally Error:\r\n")) << Log("_silent.log");
}

}  // namespace
}  // namespace qr
