// Whole collections through ExecCopy on real trees: what a user checks afterwards.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include <gtest/gtest.h>

#include "copy/robocopy_engine.h"
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
using Calls = std::vector<std::vector<std::string>>;

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

class CollectionTest : public ::testing::Test, protected test::RunFixture {
 protected:
  std::string src = dir.MakeDir("evidence");
  std::string target = dir / "target";
  std::string logs = dir / "logs";
  std::string csv = logs + "/_verification_log.csv";
  std::string database = logs + "/_job.sdb";

  void SetUp() override {
    ctx.program.flags.silent = true;  // no notice, no report box
    ctx.settings.Sources = {src};
    ctx.settings.TargetPath = target;
    ctx.settings.LogPath = logs;
  }

  // Times with nanoseconds on every object of the source, so that a lost digit would show.
  void StampSource() {
    long k = 0;
    std::vector<std::string> paths{src};
    for (auto& e : fs::recursive_directory_iterator(src)) paths.push_back(e.path().string());
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
        out[rel + "/" + e.name] = Take(root + rel + "/" + e.name);
        if (e.IsDirectory()) pending.push_back(rel + "/" + e.name);
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
  // Bytes, mode, access and modification times: the source as it was, the copy the same.
  EXPECT_TRUE(SnapshotTree(src) == before);
  EXPECT_TRUE(SnapshotTree(target + "/evidence") == before);
  // One CSV line per file: hashes match, exact times, short path, both hashes the content's.
  std::vector<std::string> lines = test::Utf16FileLines(csv);
  ASSERT_EQ(lines.size(), 8u);
  for (size_t i = 1; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i].find(",Y,Y,N,"), lines[i].find(',')) << lines[i];
  }
  EXPECT_EQ(Split(LinesNaming(csv, "mail.pst"), before["/mail.pst"].md5).size(), 3u);
  EXPECT_FALSE(fs::exists(logs + "/_errors.log"));
  EXPECT_EQ(Count(database, "Select file_key from tFiles where completed = '0' union all "
                            "Select folder_key from tFolders where completed = '0'"), 0);

  // Without copying, the walk's rows are all there is: nothing below the target.
  fs::remove_all(target);
  fs::remove_all(logs);
  ctx.settings.CopyFiles = false;
  ASSERT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Completed);
  EXPECT_FALSE(fs::exists(target + "/evidence"));
  EXPECT_EQ(Count(database, "Select * from tFiles where completed = '0'"), 7);
}

// A target file system of 1 MiB, mounted in a namespace of the child's own, fills up: the copy
// across file systems fails with the system's words, never worded as a source in use.
TEST_F(CollectionTest, ATargetThatFillsUpIsRecordedWithItsOwnWords) {
  dir.WriteFile("evidence/large.bin", std::string(2 << 20, 'x'));
  dir.MakeDir("target");
  test::ChildOutcome child = test::RunInChild([&](std::string& out) {
    if (!test::EnterPrivateMountNamespace() ||
        mount("tmpfs", target.c_str(), "tmpfs", 0, "size=1m") != 0) {
      return test::kChildCannotSetUp;
    }
    ExecResult r = ExecCopy(ctx);
    out = IntText(static_cast<int>(r.outcome)) + "|" + IntText(ctx.counters.ErrorCount) + "\n" +
          LinesNaming(csv, "large.bin") + test::Utf16FileText(logs + "/_errors.log");
    return 0;
  });
  if (child.exitCode == test::kChildCannotSetUp) GTEST_SKIP() << "needs a mount namespace";
  const std::string words = "(Copy failed: cannot write target: No space left on device) ";
  EXPECT_EQ(child.output.substr(0, child.output.find('\n')),
            IntText(static_cast<int>(ExecOutcome::Completed)) + "|1");
  // Once in the CSV line, once in _errors.log.
  const size_t first = child.output.find(words);
  ASSERT_NE(first, std::string::npos) << child.output;
  EXPECT_NE(child.output.find(words, first + 1), std::string::npos) << child.output;
  EXPECT_EQ(child.output.find("Source file in use"), std::string::npos) << child.output;
}

// Unfinished rows among finished ones, over two batches, keys from three digits to four.
TEST_F(CollectionTest, AResumeWithGapsWorksEveryUnfinishedRowOnceInKeyOrder) {
  ctx.settings.Silent = true;
  ctx.settings.CreateLog = true;
  ctx.paths = ComputeRunPaths(logs);
  fs::create_directories(logs);
  ASSERT_TRUE(CreateUnicodeFile(csv));
  std::vector<std::string> expected;
  {
    DbConnection db;
    ASSERT_TRUE(db.Create(database));
    BuildJobSchema(db);
    db.Execute("BEGIN");
    for (int i = 1; i <= 2400; ++i) {
      const std::string key = std::to_string(3 * i), source = dir / ("gone/f" + key);
      if (i % 3 != 0) expected.push_back(source);
      db.Execute("Insert into tFiles(file_key, source_path, source_size, dest_path, completed) "
                 "values('" + key + "', '" + source + "', '0', '" + target + "/f" + key + "', '" +
                 (i % 3 == 0 ? "1" : "0") + "')");
    }
    db.Execute("COMMIT");
  }
  ProcessJobQueue(ctx);
  DropConnection(ctx);

  std::vector<std::string> handled;
  for (const std::string& line : test::Utf16FileLines(csv)) {
    const size_t from = line.find(dir / "gone/");
    ASSERT_NE(from, std::string::npos) << line;
    handled.push_back(line.substr(from, line.find(',', from) - from));
  }
  EXPECT_EQ(handled, expected);
  EXPECT_EQ(Count(database, "Select * from tFiles where completed = '0'"), 0);
}

// The external ROBOCOPY engine as a stand-in script that records its arguments and copies
// "$1/$3" into "$2/" with its times, as /COPY:DAT does.
class RobocopyTest : public CollectionTest {
 protected:
  std::string record = dir / "calls.txt";
  std::string spaced = dir.MakeDir("with space");
  test::EnvVar path{"PATH", dir.MakeDir("bin") + ":/usr/bin:/bin"};

  void SetUp() override {
    CollectionTest::SetUp();
    ctx.settings.Sources = {spaced};
    SetRobocopy(ctx.settings, true);
  }
  void InstallTool() {
    const std::string script = "#!/bin/sh\nprintf '%s\\n' \"$@\" -- >> '" + record +
                               "'\ncp -p \"$1/$3\" \"$2/\" && touch -r \"$1/$3\" \"$2/$3\"\n";
    ASSERT_EQ(chmod(dir.WriteFile("bin/ROBOCOPY", script).c_str(), 0755), 0);
  }
  Calls RecordedCalls() {
    Calls calls(1);
    for (const std::string& line : SplitLines(test::ReadBytes(record))) {
      if (line == "--") {
        calls.emplace_back();
      } else {
        calls.back().push_back(line);
      }
    }
    calls.pop_back();
    std::sort(calls.begin(), calls.end());
    return calls;
  }
  // Sources whose bytes are their own relative paths: run, each copied and verified.
  void CollectAndCheck(const std::vector<std::string>& paths) {
    for (const auto& p : paths) dir.WriteFile("with space/" + p, p);
    ASSERT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Completed);
    for (const auto& p : paths) EXPECT_EQ(test::ReadBytes(target + "/with space/" + p), p);
    const std::vector<std::string> lines = test::Utf16FileLines(csv);
    ASSERT_EQ(lines.size(), paths.size() + 1);
    for (size_t i = 1; i < lines.size(); ++i) EXPECT_NE(lines[i].find(",Y,Y,"), std::string::npos);
  }
};

// One call a file: folder, target folder and name, one argument each whatever quotes and blanks
// they hold, then the option flags.
TEST_F(RobocopyTest, EveryFileIsCopiedByTheToolWithItsArguments) {
  InstallTool();
  const std::vector<std::pair<std::string, std::string>> files = {
      {"", "a b.txt"}, {"sub/", "c.bin"}, {"\"sub dir\" x/", "a\" \"b.txt"},
      {"\"sub dir\" x/", "odd\"quote.txt"}, {"\"sub dir\" x/", "  two  blanks"},
      {"\"sub dir\" x/", "tab\there \"\".txt"}};
  std::vector<std::string> paths;
  Calls expected;
  const std::vector<std::string> flags = Split(GetOptionString(ctx.settings), " ");
  for (const auto& [folder, name] : files) {
    paths.push_back(folder + name);
    const std::string sub = folder.empty() ? "" : "/" + folder.substr(0, folder.size() - 1);
    expected.push_back({spaced + sub, target + "/with space" + sub, name});
    expected.back().insert(expected.back().end(), flags.begin(), flags.end());
  }
  CollectAndCheck(paths);
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(RecordedCalls(), expected);

}

// No ROBOCOPY anywhere on the search path: a silent run logs each file and the fallback copies.
TEST_F(RobocopyTest, AMissingToolIsReportedPerFileAndTheFallbackCopies) {
  ctx.settings.Silent = true;
  CollectAndCheck({"one.txt", "two.txt"});
  auto line = [&](const std::string& name) {
    return "Robocopy Error: ((ROBOCOPY \"" + spaced + "\" \"" + target + "/with space\" " + name + " " +
           GetOptionString(ctx.settings) + ")) 2 : No such file or directory";
  };
  std::vector<std::string> silent = SplitLines(test::ReadBytes(logs + "/_silent.log"));
  std::sort(silent.begin(), silent.end());
  EXPECT_EQ(silent, (std::vector<std::string>{line("one.txt"), line("two.txt")}));
  EXPECT_TRUE(dialogs.shown.empty());
}

}  // namespace
}  // namespace qr
