#include "enumerate/source_walk.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
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

struct Row {
  std::string source;
  std::string dest;
  std::string size;
  std::string extension;
};

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

  std::vector<Row> Files() {
    DbConnection db;
    EXPECT_TRUE(db.Open(ctx.paths.DatabasePath));
    ResultSet rs = db.Query("Select * from tFiles order by file_key asc");
    std::vector<Row> rows;
    for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext()) {
      rows.push_back({rs.Field("source_path").Text(), rs.Field("dest_path").Text(),
                      rs.Field("source_size").Text(), rs.Field("extension").Text()});
    }
    return rows;
  }

  std::vector<std::string> Folders() {
    DbConnection db;
    EXPECT_TRUE(db.Open(ctx.paths.DatabasePath));
    ResultSet rs = db.Query("Select source from tFolders order by folder_key asc");
    std::vector<std::string> out;
    for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext()) out.push_back(rs.Field("source").Text());
    return out;
  }

  std::vector<std::string> Sources() {
    std::vector<std::string> out;
    for (const auto& r : Files()) out.push_back(r.source);
    return out;
  }

  std::string Log(const std::string& name) { return ReadBytes(logs + "/" + name); }
};

TEST_F(WalkTest, RowsComeFolderByFolderDepthFirstWithTheirTargets) {
  dir.WriteFile("src/top1.txt", "12345");
  dir.WriteFile("src/top2.txt", "");
  dir.WriteFile("src/a/a1.doc", "a");
  dir.WriteFile("src/a/deep/d1", "dd");
  dir.WriteFile("src/b/b1.txt", "bbb");
  dir.MakeDir("src/empty");
  EXPECT_EQ(TallySource(src), 5);
  EXPECT_EQ(ctx.counters.TotalBytes, 11);

  std::vector<std::string> order = Sources();
  ASSERT_EQ(order.size(), 5u);
  auto index = [&](const std::string& p) {
    return std::find(order.begin(), order.end(), src + "/" + p) - order.begin();
  };
  // The root's files first; each folder's files before those of its subfolders; a subfolder
  // taken whole before its next sibling.
  EXPECT_LT(std::max(index("top1.txt"), index("top2.txt")), 2);
  EXPECT_LT(index("a/a1.doc"), index("a/deep/d1"));
  if (index("a/a1.doc") < index("b/b1.txt")) {
    EXPECT_LT(index("a/deep/d1"), index("b/b1.txt"));
  }

  for (const auto& r : Files()) {
    // The source root keeps its own name under the target.
    EXPECT_EQ(r.dest, dir / "target/src/" + r.source.substr(src.size() + 1)) << r.source;
  }
  std::map<std::string, Row> bySource;
  for (const auto& r : Files()) bySource[r.source] = r;
  EXPECT_EQ(bySource[src + "/top1.txt"].size, "5");
  EXPECT_EQ(bySource[src + "/a/a1.doc"].extension, "doc");
  EXPECT_EQ(bySource[src + "/a/deep/d1"].extension, "d1") << "no dot: the whole name";

  // With empty folders kept, every folder has a row, the root first.
  std::vector<std::string> folders = Folders();
  std::set<std::string> folderSet(folders.begin(), folders.end());
  EXPECT_EQ(folders.front(), src + "/");
  EXPECT_EQ(folderSet, (std::set<std::string>{src + "/", src + "/a/", src + "/a/deep/",
                                               src + "/b/", src + "/empty/"}));
}

TEST_F(WalkTest, WithoutEmptyFoldersOrSubfoldersLessIsRecorded) {
  dir.WriteFile("src/only/sub/f.txt", "x");
  ctx.settings.CopyEmpties = false;
  ctx.settings.CopySubs = false;
  EXPECT_EQ(TallySource(src), 0);
  EXPECT_TRUE(Files().empty());
  EXPECT_TRUE(Folders().empty());

  ctx.settings.CopySubs = true;
  EXPECT_EQ(TallySource(src), 1);
  EXPECT_TRUE(Folders().empty());
}

TEST_F(WalkTest, OddNamesSurviveIntactAndShortNamesAreLogged) {
  const std::vector<std::string> names = {"it's here.txt", "a,b,c.csv", "  blanks  ",
                                          "caf\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac.txt",
                                          "ABCDEF~1.TXT", "PROGRA~12.TXT"};
  for (const auto& n : names) dir.WriteFile("src/" + n, n);
  EXPECT_EQ(TallySource(src), static_cast<int32_t>(names.size()));
  std::set<std::string> got;
  for (const auto& s : Sources()) got.insert(s.substr(src.size() + 1));
  EXPECT_EQ(got, std::set<std::string>(names.begin(), names.end()));
  // Only the twelve-character generated look is logged, and the file is kept all the same.
  EXPECT_EQ(Log("_shortpaths_for_longs.log"), src + "/ABCDEF~1.TXT\r\n");
}

TEST_F(WalkTest, LinksAndOtherKindsAreLoggedNotFollowed) {
  std::string outside = dir.MakeDir("outside");
  dir.WriteFile("outside/secret.txt", "s");
  dir.WriteFile("src/real.txt", "r");
  fs::create_directory_symlink(outside, src + "/linked");
  fs::create_symlink(outside + "/secret.txt", src + "/file-link.txt");
  ASSERT_EQ(mkfifo((src + "/pipe").c_str(), 0644), 0);

  TallySource(src);
  std::vector<std::string> all = Sources();
  std::set<std::string> got(all.begin(), all.end());
  // A link to a file is followed; a link to a folder is not descended, only logged.
  EXPECT_EQ(got, (std::set<std::string>{src + "/real.txt", src + "/file-link.txt"}));
  EXPECT_EQ(Log("_symlinkss.log"), src + "/linked\r\n");
  std::vector<std::string> folders = Folders();
  EXPECT_NE(std::find(folders.begin(), folders.end(), src + "/linked/"), folders.end())
      << "the row records that the folder exists";

  // A FIFO is never opened: one UTF-16 line in the error log, counted.
  EXPECT_EQ(ctx.counters.ErrorCount, 1);
  EXPECT_EQ(Log("_errors.log").substr(0, 2), "\xFF\xFE");
  EXPECT_EQ(test::Utf16FileText(logs + "/_errors.log"), src + "/pipe\t(Cannot access file: Not a regular file)\r\n");
  EXPECT_EQ(ctx.progress.listErrors, std::vector<std::string>{src + "/pipe (Not a regular file)"});
}

TEST_F(WalkTest, ExistingTargetsAreLeftOutOnlyWhenCollisionsDoNothing) {
  dir.WriteFile("src/a.txt", "new");
  dir.WriteFile("src/b.txt", "new");
  dir.WriteFile("target/src/a.txt", "old");
  EXPECT_EQ(TallySource(src), 1);
  EXPECT_EQ(Log("_existings.log"), src + "/a.txt\r\n");

  ctx.settings.Collision = kCollisionOverwrite;
  EXPECT_EQ(TallySource(src), 2);
}

TEST_F(WalkTest, AFileListIsWrittenInUtf16WithoutAMark) {
  ctx.settings.CreateFileList = true;
  ctx.paths.FileListPath = logs + "/filelist.txt";
  dir.WriteFile("logs/filelist.txt", "");
  dir.WriteFile("src/one.txt", "1");
  TallySource(src);
  std::string list = Log("filelist.txt");
  std::u16string text(reinterpret_cast<const char16_t*>(list.data()), list.size() / 2);
  EXPECT_EQ(Utf16ToUtf8(text), src + "/one.txt\r\n");
}

TEST_F(WalkTest, CancelStopsTheWalkAndKeepsTheRowsFound) {
  for (int i = 0; i < 20; ++i) dir.WriteFile("src/f" + std::to_string(i), "x");
  pump.onPump = [this](int n) {
    if (n == 6) ctx.counters.CancelRequested = true;
  };
  int32_t n = TallySource(src);
  EXPECT_GT(n, 0);
  EXPECT_LT(n, 20);
  EXPECT_EQ(Files().size(), static_cast<size_t>(n)) << "rows not yet flushed are flushed";
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
  ASSERT_EQ(child.exitCode, 0);
  EXPECT_EQ(child.output, "1|1|" + src + "/closed (Permission Denied)");
  EXPECT_EQ(test::Utf16FileText(logs + "/_errors.log"), src + "/closed\t(Cannot access folder: Permission denied)\r\n");
  EXPECT_EQ(Sources(), std::vector<std::string>{src + "/ok.txt"});
}

class FileListTest : public WalkTest {
 protected:
  std::string ListEntry(const std::string& listPath) {
    return std::string(kFileListMarker) + listPath;
  }
  void TallyList(const std::string& listPath) { TallyFileList(ctx, ListEntry(listPath)); }
  static std::string Utf16(const std::string& utf8, bool mark) {
    std::u16string u = Utf8ToUtf16(utf8);
    std::string bytes = mark ? "\xFF\xFE" : "";
    bytes.append(reinterpret_cast<const char*>(u.data()), u.size() * 2);
    return bytes;
  }
};

TEST_F(FileListTest, APlainListNamesFilesAndFoldersByItsFirstField) {
  std::string f1 = dir.WriteFile("src/one.txt", "1");
  std::string f2 = dir.WriteFile("src/it's two.txt", "22");
  std::string sub = dir.MakeDir("src/sub");
  dir.WriteFile("src/sub/three.txt", "333");
  std::string list = dir.WriteFile(
      "list.txt", f1 + "\tcomment\tmore\n" + f2 + "\r\n\r\n" + sub + "\n" + dir / "gone.txt" +
                      "\n" + f1);
  TallyList(list);
  EXPECT_EQ(Sources(), (std::vector<std::string>{f1, f2, sub + "/three.txt", f1}))
      << "two entries naming one file give two rows";
  EXPECT_EQ(ctx.counters.TotalFiles, 4);
  EXPECT_EQ(Log("_flist_errs.log"), "Could not find \r\nCould not find " + dir / "gone.txt" + "\r\n");
}

TEST_F(FileListTest, AUtf16ListIsReadWhole) {
  std::string f1 = dir.WriteFile("src/\xc3\xa9t\xc3\xa9.txt", "1");
  std::string f2 = dir.WriteFile("src/two.txt", "2");
  // The last line counts without a line end.
  std::string list = dir.WriteFile(
      "list16.txt", Utf16(f1 + "\tx\r\n" + dir / "gone.txt" + "\r\n" + f2, true));
  TallyList(list);
  EXPECT_EQ(Sources(), (std::vector<std::string>{f1, f2}));
  EXPECT_EQ(Log("_flist_errs.log").substr(0, 2), "\xFF\xFE");
  EXPECT_EQ(test::Utf16FileText(logs + "/_flist_errs.log"), "Could not find " + dir / "gone.txt" + "\r\n");
}

TEST_F(FileListTest, AMissingListReportsToTheSilentLog) {
  TallyList(dir / "no-such-list.txt");
  EXPECT_TRUE(Files().empty());
  std::string silent = Log("_silent.log");
  EXPECT_EQ(silent.substr(0, 24), "File List Tally Error:\r\n") << silent;
  EXPECT_NE(silent.find("Stage: "), std::string::npos);
}

TEST_F(WalkTest, ASingleFileSourceIsOneRowAtOnce) {
  std::string f = dir.WriteFile("src/single.txt", "abc");
  ctx.counters.CurrentSourceRoot = src + "/";
  TallySingleFile(ctx, f);
  EXPECT_EQ(ctx.counters.TotalFiles, 1);
  EXPECT_EQ(ctx.progress.lblStatus, "Enumerating Files: 1 Found");
  ASSERT_EQ(Files().size(), 1u);
  EXPECT_EQ(Files()[0].dest, dir / "target/single.txt");
  // A named file gone before the walk leaves no row and no box, but is recorded.
  TallySingleFile(ctx, src + "/gone.txt");
  EXPECT_EQ(Files().size(), 1u);
  EXPECT_TRUE(dialogs.shown.empty());
  EXPECT_EQ(ctx.counters.ErrorCount, 1);
  EXPECT_EQ(test::Utf16FileText(logs + "/_errors.log"),
            src + "/gone.txt\t(Cannot access file: No such file or directory)\r\n");
}

}  // namespace
}  // namespace qr
