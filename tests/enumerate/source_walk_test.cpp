#include "enumerate/source_walk.h"

#include "enumerate/hash_list.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
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
  // A link to a file is followed; one to a folder is not descended.
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
  // The root's files first; each folder's files before those of its subfolders.
  EXPECT_LT(std::max(index("top1.txt"), index("file-link.txt")), 2);
  EXPECT_LT(index("a/a1.doc"), index("a/deep/d1"));
  std::set<std::string> got(order.begin(), order.end()), want;
  for (const auto& p : {"top1.txt", "file-link.txt", "a/a1.doc", "a/deep/d1"}) want.insert(src + "/" + p);
  for (const auto& n : odd) want.insert(src + "/odd/" + n);
  EXPECT_EQ(got, want);
  // Target, size and extension of a row (no dot: the whole name).
  EXPECT_EQ(Column("Select dest_path || '|' || source_size || '|' || extension from tFiles "
                   "where source_path like '%/d1'"),
            Lines{dir / "target/src/a/deep/d1|2|d1"});
  // With empty folders kept, every folder has a row, the root first, a linked one too.
  Lines folders = Folders();
  EXPECT_EQ(folders.front(), src + "/");
  EXPECT_EQ(std::set<std::string>(folders.begin(), folders.end()),
            (std::set<std::string>{src + "/", src + "/a/", src + "/a/deep/", src + "/b/",
                                   src + "/empty/", src + "/odd/", src + "/linked/"}));

  // Only the twelve-character generated look is logged, and the file is kept all the same.
  EXPECT_EQ(Log("_shortpaths_for_longs.log"), src + "/odd/ABCDEF~1.TXT\r\n");
  EXPECT_EQ(Log("_existings.log"), src + "/b/b1.txt\r\n");
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

// The first path of a hash is returned for later ones; the dump lists each hash once.
TEST_F(WalkTest, TheFirstPathOfAHashIsKeptAndTheDumpListsEachHashOnce) {
  const std::string out = dir / "hashlist.md5";
  const std::string hashA = "0cc175b9c0f1b6a831c399e269772661", hashB = "92eb5ffee6ae2fec3ad71c777531578f";
  DumpHashList(ctx, out);
  EXPECT_FALSE(fs::exists(out)) << "no rows, no file";
  const std::string first = "/src/it's here/o'neil.txt";
  EXPECT_EQ(RegisterFileHash(ctx, "/src/b", hashB), "");
  EXPECT_EQ(RegisterFileHash(ctx, first, hashA), "");
  EXPECT_EQ(RegisterFileHash(ctx, "/src/two.txt", hashA), first);
  EXPECT_EQ(RegisterFileHash(ctx, "/src/sub/three.txt", hashA), first);
  DropConnection(ctx);
  DumpHashList(ctx, out);
  EXPECT_EQ(ReadBytes(out), "0CC175B9C0F1B6A831C399E269772661\r\n92EB5FFEE6AE2FEC3AD71C777531578F\r\n");
  DumpHashList(ctx, dir.MakeDir("taken"));
  EXPECT_EQ(dialogs.Texts(), Lines{"Hash List Dump Error\r\n" + IntText(EISDIR) + ": " +
                                   std::strerror(EISDIR)});

  // A database without the table: the failure goes to the silent log with its stage.
  fs::remove(ctx.paths.DatabasePath);
  DbConnection db;
  ASSERT_TRUE(db.Create(ctx.paths.DatabasePath));
  EXPECT_EQ(RegisterFileHash(ctx, "/src/one.txt", hashA), "");
  const std::string log = Log("_silent.log");
  EXPECT_TRUE(log.starts_with("Duplicate determination error.\r\n1: no such table: tHashes") &&
              log.ends_with("\r\nStage: Querying Database\r\n"))
      << log;
  EXPECT_EQ(dialogs.shown.size(), 1u) << "reported to the log only";
}

}  // namespace
}  // namespace qr
