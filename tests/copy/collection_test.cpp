// Whole collections through ExecCopy on real trees: what a user checks afterwards.
#include <fcntl.h>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include <gtest/gtest.h>

#include "copy/work_queue.h"
#include "exec/run_driver.h"
#include "jobdb/db_connection.h"
#include "jobdb/job_database.h"
#include "platform/find_data.h"
#include "platform/text.h"
#include "platform/unicode_text.h"
#include "run/job_connection.h"
#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

namespace fs = std::filesystem;

// Mode, access and modification times, and the MD5 of the bytes.
struct Snapshot {
  mode_t mode = 0;
  FileTime atime = 0, mtime = 0;
  std::string md5;
  bool operator==(const Snapshot&) const = default;
};

Snapshot Take(const std::string& path) {
  FindData f;
  EXPECT_TRUE(FindEntry(path, f)) << path;
  struct stat st {};
  stat(path.c_str(), &st);
  return {st.st_mode, f.lastAccessTime, f.lastWriteTime,
          S_ISREG(st.st_mode) ? test::Md5Of(test::ReadBytesQuietly(path)) : std::string()};
}

// The log lines that name `name`.
std::string LinesNaming(const std::string& file, const std::string& name) {
  std::string out;
  for (const auto& l : test::Utf16FileLines(file)) {
    if (l.find(name) != std::string::npos) out += l + "\n";
  }
  return out;
}

int64_t Count(const std::string& database, const std::string& sql) {
  DbConnection db;
  EXPECT_TRUE(db.Open(database));
  return db.Query(sql).RowCount();
}

void GiveToNobody(const std::string& path) {
  const struct passwd* nobody = getpwnam("nobody");
  ASSERT_NE(nobody, nullptr);
  ASSERT_EQ(lchown(path.c_str(), nobody->pw_uid, nobody->pw_gid), 0) << path;
}

class CollectionTest : public ::testing::Test, protected test::RunFixture {
 protected:
  std::string src = dir.MakeDir("evidence");
  std::string target = dir / "target";
  std::string logs = dir / "logs";

  void SetUp() override {
    ctx.program.flags.silent = true;  // no notice, no report box
    ctx.settings.Sources = {src};
    ctx.settings.TargetPath = target;
    ctx.settings.LogPath = logs;
  }

  // Times with nanoseconds on every object of the source, so that a lost digit would show.
  void StampSource() {
    long k = 0;
    std::vector<std::string> paths;
    for (auto& e : fs::recursive_directory_iterator(src)) paths.push_back(e.path().string());
    paths.push_back(src);
    for (const auto& p : paths) {
      struct timespec ts[2] = {{1500000000 + k, 111111111}, {1400000000 + k, 987654321}};
      ++k;
      utimensat(AT_FDCWD, p.c_str(), ts, AT_SYMLINK_NOFOLLOW);
    }
  }

  // Walked with the program's own listing, which leaves folders' access times alone.
  std::map<std::string, Snapshot> SnapshotTree(const std::string& root) {
    std::map<std::string, Snapshot> out{{"", Take(root)}};
    std::vector<std::string> pending{""};
    while (!pending.empty()) {
      std::string rel = pending.back();
      pending.pop_back();
      FolderListing listing(root + rel);
      FindData e;
      while (listing.Next(e)) {
        if (e.name == "." || e.name == "..") continue;
        const std::string child = rel + "/" + e.name;
        out[child] = Take(root + child);
        if (e.IsDirectory()) pending.push_back(child);
      }
    }
    return out;
  }
};

TEST_F(CollectionTest, EveryCopyEqualsItsSourceAndTheSourceIsUntouched) {
  dir.WriteFile("evidence/mail.pst", std::string(3 << 20, 'm') + "tail");
  dir.WriteFile("evidence/empty.txt", "");
  dir.WriteFile("evidence/a,b c.doc", "comma");
  dir.WriteFile("evidence/it's/d\xc3\xa9j\xc3\xa0.txt", "unicode");
  dir.WriteFile("evidence/deep/er/x.bin", std::string(70000, '\x01'));
  dir.MakeDir("evidence/empty folder");
  dir.WriteFile("evidence/locked.txt", "read only");
  dir.WriteFile("evidence/ABCDEF~1.TXT", "named like a short name, kept as it is");
  chmod((src + "/locked.txt").c_str(), 0444);
  StampSource();
  auto before = SnapshotTree(src);

  ASSERT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Completed);
  EXPECT_EQ(ctx.counters.FilesProcessed, 7);
  EXPECT_EQ(ctx.counters.BytesProcessed, ctx.counters.TotalBytes);
  // The source as it was, and the copy the same: bytes, mode, access and modification times.
  EXPECT_TRUE(SnapshotTree(src) == before);
  EXPECT_TRUE(SnapshotTree(target + "/evidence") == before);

  // One CSV line per file behind the header: hashes match, exact times, short path; both
  // hashes the content's MD5.
  std::vector<std::string> lines = test::Utf16FileLines(logs + "/_verification_log.csv");
  ASSERT_EQ(lines.size(), 8u);
  for (size_t i = 1; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i].find(",Y,Y,N,"), lines[i].find(',')) << lines[i];
  }
  EXPECT_EQ(Split(LinesNaming(logs + "/_verification_log.csv", "mail.pst"), before["/mail.pst"].md5).size(), 3u);
  EXPECT_FALSE(fs::exists(logs + "/_errors.log"));
  // Every row finished, folders stamped.
  EXPECT_EQ(Count(logs + "/_job.sdb", "Select file_key from tFiles where completed = '0' union all "
                                      "Select folder_key from tFolders where completed = '0'"), 0);
}

TEST_F(CollectionTest, CancelFinishesTheFileInHandAndLeavesTheRestForAResume) {
  for (int i = 0; i < 8; ++i) dir.WriteFile("evidence/f" + std::to_string(i), std::string(100, 'x'));
  // Pressed while the second file, already copied, is being verified.
  pump.onPump = [this](int) {
    if (ctx.counters.FilesProcessed == 2) ctx.counters.CancelRequested = true;
  };
  ctx.settings.CreateTally = true;
  EXPECT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Cancelled);
  EXPECT_EQ(test::ReadBytes(logs + "/tally.txt").substr(0, 30), "The process has been canceled.");
  // The file in hand finishes, with its record; the folder pass is skipped.
  EXPECT_EQ(Count(logs + "/_job.sdb", "Select * from tFiles where completed = '1'"), 2);
  EXPECT_EQ(Count(logs + "/_job.sdb", "Select * from tFiles where completed = '0'"), 6);
  EXPECT_EQ(test::Utf16FileLines(logs + "/_verification_log.csv").size(), 3u);
  EXPECT_EQ(Count(logs + "/_job.sdb", "Select * from tFolders where completed = '1'"), 0);
}

TEST_F(CollectionTest, ATargetThatFillsUpIsRecordedWithItsOwnWords) {
  dir.WriteFile("evidence/large.bin", std::string(2 << 20, 'x'));
  dir.MakeDir("target");
  test::ChildOutcome child = test::RunInChild([&](std::string& out) {
    // A target file system of 1 MiB, in a namespace of the child's own.
    if (!test::EnterPrivateMountNamespace() ||
        mount("tmpfs", target.c_str(), "tmpfs", 0, "size=1m") != 0) {
      return test::kChildCannotSetUp;
    }
    ExecResult r = ExecCopy(ctx);
    out = IntText(static_cast<int>(r.outcome)) + "|" + IntText(ctx.counters.ErrorCount) + "\n" +
          LinesNaming(logs + "/_verification_log.csv", "large.bin") +
          test::Utf16FileText(logs + "/_errors.log");
    return 0;
  });
  if (child.exitCode == test::kChildCannotSetUp) {
    GTEST_SKIP() << "needs a mount namespace of its own to mount a small tmpfs as the target";
  }
  ASSERT_EQ(child.exitCode, 0);
  const std::string words = "(Copy failed: cannot write target: No space left on device) ";
  EXPECT_EQ(child.output.substr(0, child.output.find('\n')),
            IntText(static_cast<int>(ExecOutcome::Completed)) + "|1")
      << child.output;
  // Once in the CSV line, once in _errors.log; never worded as a source in use.
  size_t first = child.output.find(words);
  ASSERT_NE(first, std::string::npos) << child.output;
  EXPECT_NE(child.output.find(words, first + 1), std::string::npos) << child.output;
  EXPECT_EQ(child.output.find("Source file in use"), std::string::npos) << child.output;
}

TEST_F(CollectionTest, ASourceTimeThatCouldNotBeKeptIsAnErrorOfThatFile) {
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to run the case as user nobody";
  dir.WriteFile("evidence/mine.txt", "mine");
  dir.WriteFile("evidence/theirs.txt", "theirs");
  chmod(dir.path().c_str(), 0755);
  chmod(src.c_str(), 0755);
  chmod((src + "/theirs.txt").c_str(), 0644);  // root's: nobody may read it, not set its times
  const std::string sealed = dir.MakeDir("evidence/sealed");  // root's too, listed all the same
  // Old times, so that a read moves the access time whatever the mount's atime rule.
  StampSource();
  GiveToNobody(src + "/mine.txt");
  GiveToNobody(src);
  chmod(dir.MakeDir("target").c_str(), 0777);
  chmod(dir.MakeDir("logs").c_str(), 0777);
  const Snapshot mine = Take(src + "/mine.txt");
  test::ChildOutcome child = test::RunInChild([&](std::string& out) {
    if (!test::BecomeNobody()) return test::kChildCannotSetUp;
    ExecCopy(ctx);
    out = IntText(ctx.counters.ErrorCount) + "|" + IntText(ctx.counters.FilesProcessed);
    return 0;
  });
  ASSERT_NE(child.exitCode, test::kChildCannotSetUp) << "could not become nobody";
  ASSERT_EQ(child.exitCode, 0);
  EXPECT_EQ(child.output, "2|2");
  EXPECT_EQ(test::ReadBytes(target + "/evidence/theirs.txt"), "theirs");
  const std::string words = "(Source access time changed and could not be set back) ";
  const std::string theirsLine = LinesNaming(logs + "/_verification_log.csv", "theirs.txt");
  const std::string mineLine = LinesNaming(logs + "/_verification_log.csv", "mine.txt");
  // Date, "Hashes Match", "TS Exact Match": the hashes match, the times do not.
  EXPECT_TRUE(theirsLine.find(",Y,N,") == theirsLine.find(',') && theirsLine.ends_with(words + "\n"))
      << theirsLine;
  EXPECT_TRUE(mineLine.find(",Y,Y,") == mineLine.find(',') && mineLine.ends_with(",\n")) << mineLine;
  EXPECT_EQ(test::Utf16FileText(logs + "/_errors.log"),
            sealed + "\t(Folder access time changed and could not be set back)\r\n" + src +
                "/theirs.txt\t" + words + "\r\n");
  // The owner's file read without a trace.
  EXPECT_EQ(Take(src + "/mine.txt").atime, mine.atime);
}

TEST_F(CollectionTest, ASourceNamedThroughALinkLeavesTheLinksOwnTimes) {
  const std::string outside = dir.WriteFile("outside.txt", "through the link");
  ASSERT_EQ(symlink(outside.c_str(), (src + "/link.txt").c_str()), 0);
  const struct timespec old[2] = {{1400000000, 123456700}, {1300000000, 765432100}};
  ASSERT_EQ(utimensat(AT_FDCWD, (src + "/link.txt").c_str(), old, AT_SYMLINK_NOFOLLOW), 0);
  // Met in the walk and named on its own as well, where the run's checks look through it too.
  ctx.settings.Sources = {src, src + "/link.txt"};

  ASSERT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Completed);
  EXPECT_EQ(test::ReadBytes(target + "/evidence/link.txt"), "through the link");
  struct stat st {};
  ASSERT_EQ(lstat((src + "/link.txt").c_str(), &st), 0);
  EXPECT_EQ(std::vector<long>({st.st_atim.tv_sec, st.st_atim.tv_nsec, st.st_mtim.tv_sec}),
            std::vector<long>({old[0].tv_sec, old[0].tv_nsec, old[1].tv_sec}));
}

// A resumed job whose unfinished rows are scattered among finished ones, over more than one
// batch of the queue, and whose keys pass from three digits to four: every unfinished row is
// handed on once, in ascending key order, and none of the finished ones.
TEST_F(CollectionTest, AResumeWithGapsWorksEveryUnfinishedRowOnceInKeyOrder) {
  ctx.settings.Silent = true;
  ctx.settings.CreateLog = true;
  ctx.paths.DatabasePath = logs + "/_job.sdb";
  ctx.paths.ErrorLogPath = logs + "/_errors.log";
  fs::create_directories(logs);
  ASSERT_TRUE(CreateUnicodeFile(logs + "/_verification_log.csv"));
  {
    DbConnection db;
    ASSERT_TRUE(db.Create(ctx.paths.DatabasePath));
    BuildJobSchema(db);
    db.Execute("BEGIN");
    for (int i = 1; i <= 2400; ++i) {
      // Sources that are gone: each row still gets its line, cheaply.
      const std::string key = std::to_string(3 * i);
      db.Execute("Insert into tFiles(file_key, source_path, source_size, dest_path, completed) "
                 "values('" + key + "', '" + dir / ("gone/f" + key) + "', '0', '" + target +
                 "/f" + key + "', '" + (i % 3 == 0 ? "1" : "0") + "')");
    }
    db.Execute("COMMIT");
  }
  ProcessJobQueue(ctx);
  DropConnection(ctx);

  std::vector<std::string> expected;
  for (int i = 1; i <= 2400; ++i) {
    if (i % 3 != 0) expected.push_back(dir / ("gone/f" + std::to_string(3 * i)));
  }
  std::vector<std::string> handled;
  for (const std::string& line : test::Utf16FileLines(logs + "/_verification_log.csv")) {
    const size_t from = line.find(dir / "gone/");
    ASSERT_NE(from, std::string::npos) << line;
    handled.push_back(line.substr(from, line.find(',', from) - from));
  }
  EXPECT_EQ(handled, expected);
  EXPECT_EQ(Count(ctx.paths.DatabasePath, "Select * from tFiles where completed = '0'"), 0);
}

}  // namespace
}  // namespace qr
