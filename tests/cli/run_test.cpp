// Whole runs of the runner, in-process and as the built program, on real temporary folders.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <sstream>

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

// The built program in `cwd` with standard error on the terminal `tty` and standard output in
// a file. `watch` sees the terminal's text as it grows, with the child's id, until it exits.
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

// Each check's own message and order are the run's (tests/exec); here, what the runner makes of a
// refusal: exit 2 with the message, before anything is written.
TEST(RunnerRefusals, AMissingSourceIsReportedAndWithNoneLeftTheRunIsRefused) {
  TempDir t;
  Ran r = InProcess({"--yes", "--target", t / "out", "--log", t / "logs", t / "nowhere"});
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_TRUE(Has(r.err, t / "nowhere\n\nThe path you have specified cannot be found on this "
                             "machine.\n")) << r.err;
  EXPECT_TRUE(Has(r.err, "You have to choose at least one source.")) << r.err;
  EXPECT_TRUE(Has(r.out, "Outcome: refused")) << r.out;
  EXPECT_FALSE(fs::exists(t / "out") || fs::exists(t / "logs"));
  EXPECT_EQ(InProcess({"--silent", "--target", t / "out"}).err, "");
}

TEST(RunnerRefusals, WithoutATerminalEveryQuestionIsRefusedAndAtOneThePersonDecides) {
  TempDir t;
  t.WriteFile("src/a.txt", "a");
  Ran r = test::RunRunner({"--target", "out", "--log", "logs", "src"}, t.path());
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_TRUE(Has(r.err, "Please close all applications before continuing.\n> Cancel (no "
                         "terminal to ask; --yes accepts)")) << r.err;

  // The warning looks only at whether the file is there; refused, the notice never comes.
  t.WriteFile("out/_job.sdb", "");
  r = test::RunRunner({"--target", "out", "src"}, t.path());
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_TRUE(Has(r.err, "WARNING! A database already exists in this directory.")) << r.err;
  EXPECT_TRUE(Has(r.err, "\nDo you want to continue anyway?\n> No (no terminal to ask; --yes "
                         "accepts)")) << r.err;
  EXPECT_FALSE(Has(r.err, "Please close all applications")) << r.err;

  fs::remove(t / "out/_job.sdb");
  EXPECT_EQ(InProcess({"--target", t / "out", t / "src"}, "n\n", true).status, kExitRefused);
  EXPECT_FALSE(fs::exists(t / "out/_jobfile.rvj"));
  EXPECT_EQ(InProcess({"--target", t / "out", t / "src"}, "y\n", true).status, kExitDone);
}

TEST(RunnerRuns, AGoodRunExits0WithItsReportAndAJobRecordOfAbsolutePaths) {
  TempDir t;
  t.WriteFile("src/a.txt", "alpha");
  t.WriteFile("src/sub/b, c's.bin", std::string(3000, 'x'));
  t.WriteFile("second/one.txt", "1");
  Ran r = test::RunRunner({"--yes", "--target", "out", "--log", "./logs/", "src", "second"},
                          t.path());
  ASSERT_EQ(r.status, kExitDone) << r.err << r.out;
  // The report on standard output, CR LF made plain, then the outcome; the box still goes to
  // standard error, which is no terminal: no line is drawn on it.
  EXPECT_TRUE(r.out.starts_with("The process has completed successfully.\n\nFiles copied: 3 of "
                                "3\nBytes copied: 3006 of 3006\nErrors: 0\n\nTime Elapsed: "
                                "00:00:00:")) << r.out;
  EXPECT_TRUE(r.out.ends_with("\n\nOutcome: completed\n")) << r.out;
  EXPECT_TRUE(Has(r.err, "\nThe process has completed successfully.\n")) << r.err;
  EXPECT_FALSE(Has(r.err, "\r") || Has(r.err, "\x1b")) << r.err;
  EXPECT_TRUE(Has(ReadBytes(t / "logs/_jobfile.rvj"),
                  "[TARGET]\t" + t / "out" + "\r\n[JPATH]\t" + t / "logs" + "\r\n[SRC]\t" +
                      t / "src" + "\r\n[SRC]\t" + t / "second" + "\r\n"));

  // With --silent there is no box; without --log the job's outputs go to the target.
  TempDir u;
  u.WriteFile("src/a.txt", "alpha");
  r = InProcess({"--silent", "--target", u / "out", u / "src"});
  ASSERT_EQ(r.status, kExitDone) << r.err;
  EXPECT_TRUE(r.out.starts_with("The process has completed successfully.")) << r.out;
  EXPECT_FALSE(Has(r.err, "The process has")) << r.err;
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
  EXPECT_FALSE(Has(r.out, "\x1b")) << r.out;
  // Every file copied is whole: the one in hand was finished, not cut off.
  for (const auto& e : fs::recursive_directory_iterator(t / "out")) {
    if (e.is_regular_file() && e.path().filename().string().starts_with("f")) {
      EXPECT_EQ(ReadBytes(e.path().string()), "some bytes") << e.path();
    }
  }
}

// A prepared job's run is the --jobs test's; a job file that is no job is a clear error.
TEST(RunnerJobFiles, ABadJobFileIsAClearErrorNotACrash) {
  TempDir t;
  Ran r = InProcess({"--yes", t.WriteFile("bad.rvj", "[LOG]\tyes\r\n")});
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_TRUE(Has(r.err, "the job file could not be read: 13 : Type mismatch")) << r.err;
}

}  // namespace
}  // namespace qr::cli
