// Whole runs of the runner, in-process and as the built program, on real temporary folders. The
// exit status is 0 only for a run with nothing recorded against it; otherwise one line on
// standard error says where to look.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <sstream>
#include <thread>

#include "jobdb/db_connection.h"
#include "platform/machine.h"
#include "progress_line.h"
#include "pseudo_terminal.h"
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

Ran InProcess(const std::vector<std::string>& args, const std::string& typed = "",
              bool terminal = false) {
  std::istringstream in(typed);
  std::ostringstream out, err;
  Ran r;
  r.status = RunCommand(args, in, out, err, terminal);
  r.out = out.str();
  r.err = err.str();
  return r;
}

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

// The built program with standard error on `tty`; `watch` sees the text grow until it exits.
Ran BinaryOnTerminal(const std::vector<std::string>& args, const std::string& cwd,
                     test::PseudoTerminal& tty,
                     const std::function<void(const std::string&, pid_t)>& watch = {}) {
  TempDir io;
  const std::string outPath = io / "out";
  int o = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  pid_t pid = test::StartRunner(args, cwd, o, tty.slave());
  close(o);
  tty.CloseSlave();  // the child holds the only writer: its end shows as the end of the text
  Ran r;
  int ws = 0;
  bool exited = false;
  while (pid > 0 && !exited) {
    // Keep reading while it runs, so that a full terminal never holds the program up.
    tty.ReadInto(r.err, 20);
    if (watch) watch(r.err, pid);
    exited = waitpid(pid, &ws, WNOHANG) == pid;
  }
  while (tty.ReadInto(r.err, 100) && r.err.size() < (1u << 24)) {
  }
  if (exited && WIFEXITED(ws)) r.status = WEXITSTATUS(ws);
  r.out = ReadBytes(outPath);
  return r;
}

// Each check's own message is the run's (tests/exec); here, what the runner makes of a refusal.
TEST(RunnerRefusals, ARefusedRunExits2WithItsMessageBeforeAnythingIsWritten) {
  TempDir t;
  Ran r = InProcess({"--yes", "--target", t / "out", "--log", t / "logs", t / "nowhere"});
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_TRUE(Has(r.err, t / "nowhere\n\nThe path you have specified cannot be found on this "
                             "machine.\n")) << r.err;
  EXPECT_TRUE(Has(r.err, "You have to choose at least one source.")) << r.err;
  EXPECT_TRUE(Has(r.out, "Outcome: refused")) << r.out;
  EXPECT_FALSE(fs::exists(t / "out") || fs::exists(t / "logs"));
  EXPECT_EQ(InProcess({"--silent", "--target", t / "out"}).err, "");
  // A job file that is no job is a clear error, not a crash.
  r = InProcess({"--yes", t.WriteFile("bad.rvj", "[LOG]\tyes\r\n")});
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_TRUE(Has(r.err, "the job file could not be read: 13 : Type mismatch")) << r.err;

  // Without a terminal every question is refused; at one the person decides.
  t.WriteFile("src/a.txt", "a");
  r = test::RunRunner({"--target", "out", "--log", "logs", "src"}, t.path());
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_TRUE(Has(r.err, "Please close all applications before continuing.\n> Cancel (no "
                         "terminal to ask; --yes accepts)")) << r.err;
  EXPECT_EQ(InProcess({"--target", t / "out", t / "src"}, "n\n", true).status, kExitRefused);
  EXPECT_FALSE(fs::exists(t / "out/_jobfile.rvj"));
  EXPECT_EQ(InProcess({"--target", t / "out", t / "src"}, "y\n", true).status, kExitDone);
}

TEST(RunnerRuns, AGoodRunExits0WithItsReportAndAJobRecordOfAbsolutePaths) {
  TempDir t;
  t.WriteFile("src/a.txt", "alpha");
  t.WriteFile("src/sub/b, c's.bin", std::string(3000, 'x'));
  t.WriteFile("second/one.txt", "1");
  // The run's own folders inside a source are skipped and a link is logged: with a log folder
  // named with "error", still nothing counts as a failure.
  t.WriteFile("src/out/old.txt", "from an earlier run");
  t.WriteFile("src/my_errors_logs/old.log", "from an earlier run");
  t.MakeDir("elsewhere");
  fs::create_directory_symlink(t / "elsewhere", t / "src/link");
  Ran r = test::RunRunner(
      {"--yes", "--target", "src/out", "--log", "./src/my_errors_logs/", "src", "second"},
      t.path());
  ASSERT_EQ(r.status, kExitDone) << r.err << r.out;
  EXPECT_FALSE(Has(r.err, "failures were recorded")) << r.err;
  EXPECT_TRUE(Has(ReadBytes(t / "src/my_errors_logs/_symlinkss.log"), t / "src/link"));
  // The report, CR LF made plain, then the outcome; the box on standard error, with no line.
  EXPECT_TRUE(r.out.starts_with("The process has completed successfully.\n\nFiles copied: 3 of "
                                "3\nBytes copied: 3006 of 3006\nErrors: 0\n\nTime Elapsed: "
                                "00:00:00:")) << r.out;
  EXPECT_TRUE(r.out.ends_with("\n\nOutcome: completed\n")) << r.out;
  EXPECT_TRUE(Has(r.err, "\nThe process has completed successfully.\n")) << r.err;
  EXPECT_FALSE(Has(r.err, "\r") || Has(r.err, "\x1b")) << r.err;
  EXPECT_TRUE(Has(ReadBytes(t / "src/my_errors_logs/_jobfile.rvj"),
                  "[TARGET]\t" + t / "src/out" + "\r\n[JPATH]\t" + t / "src/my_errors_logs" +
                      "\r\n[SRC]\t" + t / "src" + "\r\n[SRC]\t" + t / "second" + "\r\n"));

  // Without --log the job's outputs go to the target.
  TempDir u;
  u.WriteFile("src/a.txt", "alpha");
  ASSERT_EQ(InProcess({"--yes", "--target", u / "out", u / "src"}).status, kExitDone);
  EXPECT_TRUE(Has(ReadBytes(u / "out/_jobfile.rvj"), "[JPATH]\t" + u / "out" + "\r\n"));
}

// At a terminal the line is drawn within its width and erased before the closing box.
TEST(RunnerCancel, CtrlCDuringCopyingFinishesTheFileInHandAndStopsTheQueue) {
  TempDir t;
  t.WriteFile("src/" + std::string(150, 'n') + ".txt", "long name");
  for (int i = 0; i < 4000; ++i) {
    t.WriteFile("src/d" + std::to_string(i % 4) + "/f" + std::to_string(i), "some bytes");
  }
  test::PseudoTerminal tty(50);
  ASSERT_TRUE(tty.ok());
  bool sent = false;
  // The copying has begun once the line counts files: press Ctrl-C then.
  Ran r = BinaryOnTerminal({"--yes", "--target", "out", "--log", "logs", "src"}, t.path(), tty,
                           [&](const std::string& err, pid_t pid) {
                             if (!sent && Has(err, "Files ")) sent = kill(pid, SIGINT) == 0;
                           });
  ASSERT_TRUE(sent) << "the copying was never seen on the line\n" << r.err;
  EXPECT_EQ(r.status, kExitCancelled) << r.err;
  EXPECT_TRUE(Has(r.err, "ravelin-run: cancelling after the file in hand")) << r.err;
  EXPECT_TRUE(Has(r.err, "The process has been canceled.")) << "the closing box";
  EXPECT_TRUE(r.out.starts_with("The process has been canceled.\n\nFiles copied: ")) << r.out;
  EXPECT_TRUE(r.out.ends_with("\nOutcome: cancelled\n")) << r.out;
  EXPECT_FALSE(Has(r.out, "Files copied: 4000 of 4000")) << r.out;
  for (size_t end = r.err.find("\x1b[K"); end != std::string::npos;
       end = r.err.find("\x1b[K", end + 1)) {
    const size_t start = r.err.rfind('\r', end);
    EXPECT_LE(DisplayWidth(r.err.substr(start + 1, end - start - 1)), 49);
  }
  const size_t box = r.err.rfind("--- Quillon Ravelin 2.2 Rover Edition (information) ---");
  ASSERT_NE(box, std::string::npos) << r.err;
  EXPECT_EQ(r.err.substr(box - 4, 4), "\r\x1b[K") << r.err;
  EXPECT_EQ(r.err.find("\x1b[K", box), std::string::npos) << "nothing drawn after it";
  // Every file copied is whole: the one in hand was finished, not cut off.
  for (const auto& e : fs::recursive_directory_iterator(t / "out")) {
    if (e.is_regular_file() && e.path().filename().string().starts_with("f")) {
      EXPECT_EQ(ReadBytes(e.path().string()), "some bytes") << e.path();
    }
  }
}

// --jobs on the built program, copied beside a job folder as on a portable drive.
TEST(RunnerJobs, ListsTheJobsDueHereAndRunsOneByNameUntilItIsDone) {
  TempDir t;
  const std::string program = t / "drive/ravelin-run";
  t.WriteFile("src/a.txt", "alpha");
  for (std::string name : {"Mail", "Locked"}) {
    t.WriteFile("drive/_lsw/" + name + ".lsw",
                "[JNAME]\t" + name + "\r\n[JINSTRUCT]\tPlug in, then wait.\r\n[TARGET]\t" +
                    t / "out" + "\r\n[JPATH]\t" + t / "logs" + "\r\n[SRC]\t" + t / "src" +
                    (name == "Locked" ? "\r\n[CNAME]\t" + ComputerName() + "x" : "") + "\r\n");
  }
  std::filesystem::copy_file(RAVELIN_RUN_BINARY, program);
  auto run = [&](const std::vector<std::string>& args) {
    return test::RunRunner(args, t.path(), false, program);
  };
  test::Ran r = run({"--jobs"});
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(Has(r.out, "\nMail\n    Plug in, then wait.\n")) << r.out;
  EXPECT_FALSE(Has(r.out, "Locked")) << r.out;

  r = run({"--jobs", "Locked"});
  EXPECT_EQ(r.status, 2);
  EXPECT_TRUE(Has(r.err, "no prepared job named 'Locked' is due on this computer")) << r.err;

  r = run({"--yes", "--jobs=mail"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(ReadBytes(t / "out/src/a.txt"), "alpha");
  EXPECT_EQ(ReadBytes(t / "logs/Mail.lsd"), ReadBytes(t / "drive/_lsw/Mail.lsw"));
  EXPECT_TRUE(Has(run({"--jobs"}).out, "No prepared job is due")) << "a done job is not due";
  EXPECT_EQ(run({"--jobs", "--target", "x"}).status, 64);
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
  // A list in UTF-8 with its mark whose first line holds a NUL: that entry alone is recorded.
  std::string list = "\xEF\xBB\xBF" + t / std::string("src/\0f0", 7) + "\n";
  for (int i = 1; i < 10; ++i) list += t.WriteFile("src/f" + std::to_string(i), "b") + "\n";
  // A special file named directly or listed is an error of its own, as in a walk.
  ASSERT_EQ(mkfifo((t / "named").c_str(), 0600), 0);
  ASSERT_EQ(mkfifo((t / "listed").c_str(), 0600), 0);
  t.WriteFile("a.txt", list + t / "listed" + "\n/dev/null\n");
  Ran r = RunRecord(t, {"[File List]   " + t / "a.txt", t / "named", "/dev/zero"});
  EXPECT_EQ(r.status, kExitDoneWithErrors);
  EXPECT_TRUE(Has(r.out, "Files copied: 9 of 9")) << r.out;
  const std::string line = FailureLine(r);
  EXPECT_TRUE(Has(line, t / "logs/_flist_errs.log") && Has(line, t / "logs/_errors.log")) << line;
  EXPECT_EQ(ReadBytes(t / "logs/_flist_errs.log"), "Could not find " + t / "src/\r\n");
  const std::string errors = test::Utf16FileText(t / "logs/_errors.log");
  for (const std::string& path : Args{t / "named", "/dev/zero", t / "listed", "/dev/null"}) {
    EXPECT_TRUE(Has(errors, path + "\t(Cannot access file: Not a regular file)")) << errors;
  }
}

// A database damaged beyond its first pages: reported, and left as it was.
TEST(RunnerRecord, AResumeOfADamagedDatabaseReportsItAndLeavesItAsItWas) {
  TempDir u;
  for (int i = 0; i < 300; ++i) u.WriteFile("src/f" + std::to_string(i), "some bytes");
  FirstRun(u, {"UPDATE tFiles set completed = '0' where file_key > 100"});
  fs::resize_file(u / "logs/_job.sdb", 16384);
  const std::string damaged = ReadBytes(u / "logs/_job.sdb");
  Ran r = Resume(u);
  EXPECT_EQ(r.status, kExitDoneWithErrors);
  EXPECT_TRUE(Has(r.err, "DB Validation Error: ")) << r.err;
  EXPECT_TRUE(Has(FailureLine(r), "the messages above")) << r.err;
  EXPECT_TRUE(Has(FailureLine(r), u / "logs/_job.sdb (which could not be read)")) << r.err;
  EXPECT_EQ(ReadBytes(u / "logs/_job.sdb"), damaged);
}

// An end command added to the record by hand runs only with --allow-end-command, announced.
TEST(RunnerRecord, AnInterruptedWalkIsFinishedOnResumeAndAnAddedEndCommandRunsOnlyWhenAskedFor) {
  TempDir t;
  auto rel = [](int i) { return "src/d" + std::to_string(i % 3) + "/f" + std::to_string(i); };
  for (int i = 0; i < 30; ++i) t.WriteFile(rel(i), std::to_string(i));
  // As a kill in the middle of the walk leaves it: later rows and copies missing, walk not ended.
  FirstRun(t, {});
  {
    DbConnection db;
    ASSERT_TRUE(db.Open(t / "logs/_job.sdb"));
    ResultSet lost = db.Query("Select dest_path from tFiles where file_key > 10");
    for (lost.MoveFirst(); !lost.Eof(); lost.MoveNext()) fs::remove(lost.Field("dest_path").Text());
    db.Execute("DELETE from tFiles where file_key > 10");
    db.Execute("PRAGMA user_version = 0");
  }
  const std::string command = "touch '" + t.path() + "/PLANTED'";
  t.WriteFile("logs/_jobfile.rvj",
              ReadBytes(t / "logs/_jobfile.rvj") + "[SHELLEX]\t" + command + "\r\n");
  Ran r = Resume(t);
  EXPECT_EQ(r.status, kExitDone) << r.err;
  EXPECT_EQ(FailureLine(r), "");
  EXPECT_TRUE(Has(r.out, "Files copied: 30 of 30")) << r.out;
  EXPECT_TRUE(Has(r.err, "It will not be run:\n" + command)) << r.err;
  EXPECT_FALSE(Has(r.err, "Starting the end command")) << r.err;
  DbConnection db;
  ASSERT_TRUE(db.Open(t / "logs/_job.sdb"));
  EXPECT_EQ(db.Query("Select distinct source_path from tFiles").RowCount(), 30);
  EXPECT_EQ(db.Query("Select file_key from tFiles").RowCount(), 30);
  for (int i = 0; i < 30; ++i) EXPECT_EQ(ReadBytes(t / ("out/" + rel(i))), std::to_string(i));
  EXPECT_FALSE(fs::exists(t / "logs/_existings.log")) << "no copied file counts as existing";

  r = test::RunRunner({"--yes", "--resume", "--allow-end-command", "logs/_jobfile.rvj"}, t.path());
  EXPECT_TRUE(Has(r.err, "ravelin-run: Starting the end command: " + command + "\n")) << r.err;
  // The command is started and left to run: a moment for it to leave its mark.
  for (int i = 0; i < 200 && !fs::exists(t / "PLANTED"); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_TRUE(fs::exists(t / "PLANTED"));
}

}  // namespace
}  // namespace qr::cli
