// Whole runs of the built runner in which something goes wrong. Each named file ends copied and
// verified, or named in a log and counted; the exit status is 0 only for a run with nothing
// recorded against it, and otherwise one line on standard error says where to look.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "jobdb/db_connection.h"
#include "run_command.h"
#include "runner_process.h"

namespace qr::cli {
namespace {

namespace fs = std::filesystem;
using test::Has;
using test::Ran;
using test::ReadBytes;
using test::TempDir;
using Args = std::vector<std::string>;

// Runs a job record naming target out/, log folder logs/ and these sources, with extra tag lines.
Ran RunRecord(const TempDir& t, const Args& sources, const std::string& extra = "") {
  std::string r = "[TARGET]\t" + t / "out" + "\r\n[JPATH]\t" + t / "logs" + "\r\n";
  for (const std::string& s : sources) r += "[SRC]\t" + s + "\r\n";
  t.WriteFile("job.rvj", r + extra);
  return test::RunRunner({"--yes", "job.rvj"}, t.path());
}

// A good first run of src/, then a change to its database; the test resumes it.
void FirstRun(const TempDir& t, const std::vector<std::string>& statements) {
  EXPECT_EQ(test::RunRunner({"--yes", "--target", "out", "--log", "logs", "src"}, t.path()).status,
            kExitDone);
  DbConnection db;
  ASSERT_TRUE(db.Open(t / "logs/_job.sdb"));
  for (const std::string& s : statements) db.Execute(s);
}
Ran Resume(const TempDir& t) {
  return test::RunRunner({"--yes", "--resume", "logs/_jobfile.rvj"}, t.path());
}

// The line that says where failures were recorded; empty when there is none.
std::string FailureLine(const Ran& r) {
  const size_t at = r.err.find("ravelin-run: failures were recorded in: ");
  return at == std::string::npos ? "" : r.err.substr(at, r.err.find('\n', at) - at);
}

TEST(RunnerRecord, ACleanRunSkipsItsOwnFoldersAndLogsLinksBesideALogFolderNamedWithError) {
  TempDir t;
  t.WriteFile("src/a.txt", "a");
  t.WriteFile("src/sub/out/b.txt", "b");  // a folder that only shares the name
  t.WriteFile("src/out/old.txt", "from an earlier run");
  t.WriteFile("src/my_errors_logs/old.log", "from an earlier run");
  t.MakeDir("elsewhere");
  fs::create_directory_symlink(t / "elsewhere", t / "src/link");
  Ran r = test::RunRunner(
      {"--yes", "--target", "src/out", "--log", "src/my_errors_logs", "src"}, t.path());
  EXPECT_EQ(r.status, kExitDone) << r.err;
  EXPECT_EQ(FailureLine(r), "");
  EXPECT_TRUE(Has(r.out, "Files copied: 2 of 2")) << r.out;
  EXPECT_EQ(ReadBytes(t / "src/out/src/sub/out/b.txt"), "b");
  EXPECT_TRUE(Has(ReadBytes(t / "src/my_errors_logs/_symlinkss.log"), t / "src/link"));
}

TEST(RunnerRecord, UnfinishedRowsAndACollisionBoxAreFailures) {
  TempDir t;
  t.WriteFile("src/a.txt", "alpha");
  t.WriteFile("src/b.txt", "beta");
  Ran r = RunRecord(t, {t / "src"}, "[COPYFILES]\t0\r\n");
  EXPECT_EQ(r.status, kExitDoneWithErrors);
  EXPECT_TRUE(Has(FailureLine(r), t / "logs/_job.sdb (files not finished: 2)")) << r.err;

  // A list entry in the target's own folder, mapped flat onto itself.
  TempDir u;
  u.WriteFile("out/x.txt", "x");
  u.WriteFile("list.txt", u / "out/x.txt" + "\n");
  r = RunRecord(u, {"[File List] " + u / "list.txt"}, "[CREATESUBS]\t0\r\n[OVERWRITE]\t1\r\n");
  EXPECT_EQ(r.status, kExitDoneWithErrors);
  EXPECT_TRUE(Has(r.err, "Directory collision detected. Copy aborted.")) << r.err;
  EXPECT_TRUE(Has(FailureLine(r), "the messages above")) << r.err;
}

TEST(RunnerRecord, FileListsAndSpecialFilesEndInTheirLogs) {
  TempDir t;
  Args paths;
  for (int i = 0; i < 100; ++i) paths.push_back(t.WriteFile("src/f" + std::to_string(i), "b"));
  auto utf16 = [](const std::string& text) {
    std::string out;
    for (char ch : text) out += std::string{ch, '\0'};
    return out;
  };
  // 80 entries in UTF-16 with its mark and no last line end; 10 without a mark; then a UTF-8
  // mark and a first line with a NUL: that entry alone is recorded.
  std::string a, b, c = "\xEF\xBB\xBF" + t / std::string("src/\0f90", 8) + "\n";
  for (int i = 0; i < 80; ++i) a += (i ? "\r\n" : "") + paths[i];
  for (int i = 80; i < 90; ++i) b += paths[i] + "\r\n";
  for (int i = 91; i < 100; ++i) c += paths[i] + "\n";
  t.WriteFile("a.txt", "\xFF\xFE" + utf16(a));
  t.WriteFile("b.txt", utf16(b));
  t.WriteFile("c.txt", c);
  // A special file named directly or listed is an error of its own, as in a walk.
  ASSERT_EQ(mkfifo((t / "named").c_str(), 0600), 0);
  ASSERT_EQ(mkfifo((t / "listed").c_str(), 0600), 0);
  t.WriteFile("d.txt", t / "listed" + "\n/dev/null\n");
  Ran r = RunRecord(t, {"[File List] " + t / "a.txt", "[File List]" + t / "b.txt",
                        "[File List]   " + t / "c.txt", t / "named", "/dev/zero",
                        "[File List] " + t / "d.txt"});
  EXPECT_EQ(r.status, kExitDoneWithErrors);
  EXPECT_TRUE(Has(r.out, "Files copied: 99 of 99")) << r.out;
  const std::string line = FailureLine(r);
  EXPECT_TRUE(Has(line, t / "logs/_flist_errs.log") && Has(line, t / "logs/_errors.log")) << line;
  EXPECT_EQ(ReadBytes(t / "logs/_flist_errs.log"), "Could not find " + t / "src/\r\n");
  const std::string errors = test::Utf16FileText(t / "logs/_errors.log");
  for (const std::string& path : Args{t / "named", "/dev/zero", t / "listed", "/dev/null"}) {
    EXPECT_TRUE(Has(errors, path + "\t(Cannot access file: Not a regular file)")) << errors;
  }
}

TEST(RunnerRecord, AResumeRecordsAnOverflowingRowAndADamagedDatabase) {
  TempDir t;
  t.WriteFile("src/a.txt", "alpha");
  t.WriteFile("src/b.txt", "beta");
  FirstRun(t, {"UPDATE tFiles set completed = '0', source_created_low = '99999999999'"});
  Ran r = Resume(t);
  EXPECT_EQ(r.status, kExitDoneWithErrors);
  EXPECT_TRUE(Has(FailureLine(r), t / "logs/_silent.log")) << r.err;
  EXPECT_TRUE(Has(FailureLine(r), t / "logs/_job.sdb (files not finished: 2)")) << r.err;
  EXPECT_TRUE(Has(ReadBytes(t / "logs/_silent.log"), "File Data Error: "));

  // Damaged beyond its first pages: reported, and left as it was.
  TempDir u;
  for (int i = 0; i < 300; ++i) u.WriteFile("src/f" + std::to_string(i), "some bytes");
  FirstRun(u, {"UPDATE tFiles set completed = '0' where file_key > 100"});
  fs::resize_file(u / "logs/_job.sdb", 16384);
  const std::string damaged = ReadBytes(u / "logs/_job.sdb");
  r = Resume(u);
  EXPECT_EQ(r.status, kExitDoneWithErrors);
  EXPECT_TRUE(Has(r.err, "DB Validation Error: ")) << r.err;
  EXPECT_TRUE(Has(FailureLine(r), "the messages above")) << r.err;
  EXPECT_TRUE(Has(FailureLine(r), u / "logs/_job.sdb (which could not be read)")) << r.err;
  EXPECT_EQ(ReadBytes(u / "logs/_job.sdb"), damaged);
}

TEST(RunnerRecord, AnInterruptedWalkIsFinishedOnResumeAddingOnlyFilesWithoutARow) {
  TempDir t;
  auto rel = [](int i) { return "src/d" + std::to_string(i % 3) + "/f" + std::to_string(i); };
  for (int i = 0; i < 30; ++i) t.WriteFile(rel(i), std::to_string(i));
  // As a kill in the middle of the walk leaves it: the later rows never written, their files
  // never copied, the walk not recorded as ended.
  FirstRun(t, {});
  {
    DbConnection db;
    ASSERT_TRUE(db.Open(t / "logs/_job.sdb"));
    ResultSet lost = db.Query("Select dest_path from tFiles where file_key > 10");
    for (lost.MoveFirst(); !lost.Eof(); lost.MoveNext()) fs::remove(lost.Field("dest_path").Text());
    db.Execute("DELETE from tFiles where file_key > 10");
    db.Execute("PRAGMA user_version = 0");
  }
  Ran r = Resume(t);
  EXPECT_EQ(r.status, kExitDone) << r.err;
  EXPECT_EQ(FailureLine(r), "");
  EXPECT_TRUE(Has(r.out, "Files copied: 30 of 30")) << r.out;
  DbConnection db;
  ASSERT_TRUE(db.Open(t / "logs/_job.sdb"));
  EXPECT_EQ(db.Query("Select distinct source_path from tFiles").RowCount(), 30);
  EXPECT_EQ(db.Query("Select file_key from tFiles").RowCount(), 30);
  for (int i = 0; i < 30; ++i) EXPECT_EQ(ReadBytes(t / ("out/" + rel(i))), std::to_string(i));
  EXPECT_FALSE(fs::exists(t / "logs/_existings.log")) << "no copied file counts as existing";
}

}  // namespace
}  // namespace qr::cli
