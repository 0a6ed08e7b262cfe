// Whole runs of the runner, in-process and as the built program, on real temporary folders.
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>

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
// refusal.
TEST(RunnerRefusals, ARefusedRunExits2WithTheMessageBeforeAnythingIsWritten) {
  TempDir t;
  const std::string noSource = "You have to choose at least one source.";
  struct Case {
    std::vector<std::string> args;
    std::vector<std::string> shown;  // on standard error; none with --silent
  };
  const std::vector<Case> cases = {
      {{"--target", t / "out"}, {noSource}},
      {{"--silent", "--target", t / "out"}, {}},
      // A missing source is reported and dropped; with no source left the job is refused.
      {{"--yes", "--target", t / "out", "--log", t / "logs", t / "nowhere"},
       {t / "nowhere", "The path you have specified cannot be found on this machine.",
        noSource}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args.back());
    Ran r = InProcess(c.args);
    EXPECT_EQ(r.status, kExitRefused);
    EXPECT_TRUE(Has(r.out, "Outcome: refused")) << r.out;
    for (const std::string& part : c.shown) EXPECT_TRUE(Has(r.err, part)) << r.err;
    if (c.shown.empty()) {
      EXPECT_FALSE(Has(r.err, "---")) << r.err;
    }
    EXPECT_FALSE(fs::exists(t / "out"));
    EXPECT_FALSE(fs::exists(t / "logs"));
  }
}

TEST(RunnerRefusals, WithoutATerminalEveryQuestionIsRefused) {
  TempDir t;
  t.WriteFile("src/a.txt", "a");
  Ran r = test::RunRunner({"--target", "out", "--log", "logs", "src"}, t.path());
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_TRUE(Has(r.err, "Please close all applications before continuing.")) << r.err;
  EXPECT_TRUE(Has(r.err, "> Cancel (no terminal to ask; --yes accepts)")) << r.err;
  EXPECT_FALSE(fs::exists(t / "logs/_jobfile.rvj"));

  // The warning looks only at whether the file is there.
  t.WriteFile("out/_job.sdb", "");
  r = test::RunRunner({"--target", "out", "src"}, t.path());
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_TRUE(Has(r.err, "WARNING! A database already exists in this directory.")) << r.err;
  EXPECT_TRUE(Has(r.err, "\nDo you want to continue anyway?\n> No (no terminal to ask; --yes "
                         "accepts)")) << r.err;
  // Refused at the first question: the job notice never came, no job record was written.
  EXPECT_FALSE(Has(r.err, "Please close all applications")) << r.err;
  EXPECT_FALSE(fs::exists(t / "out/_jobfile.rvj"));
}

TEST(RunnerRefusals, AtATerminalThePersonDecides) {
  TempDir t;
  t.WriteFile("src/a.txt", "a");
  EXPECT_EQ(InProcess({"--target", t / "out", t / "src"}, "n\n", true).status, kExitRefused);
  EXPECT_FALSE(fs::exists(t / "out/_jobfile.rvj"));
  Ran yes = InProcess({"--target", t / "out", t / "src"}, "y\n", true);
  EXPECT_EQ(yes.status, kExitDone) << yes.err;
  EXPECT_TRUE(fs::exists(t / "out/_jobfile.rvj"));
}

// The report as the runner prints it, CR LF made plain, up to its elapsed time.
std::string ReportHead(const std::string& files, const std::string& bytes) {
  return "The process has completed successfully.\n\nFiles copied: " + files +
         "\nBytes copied: " + bytes + "\nErrors: 0\n\nTime Elapsed: 00:00:00:";
}

TEST(RunnerRuns, AGoodRunExits0LeavesTheJobRecordWithAbsolutePathsAndNoProgressLine) {
  TempDir t;
  t.WriteFile("src/a.txt", "alpha");
  t.WriteFile("src/sub/b, c's.bin", std::string(3000, 'x'));
  t.WriteFile("second/one.txt", "1");
  Ran r = test::RunRunner({"--yes", "--target", "out", "--log", "./logs/", "src", "second"},
                          t.path());
  ASSERT_EQ(r.status, kExitDone) << r.err << r.out;
  // The run's report goes to standard output, then the outcome.
  EXPECT_TRUE(r.out.starts_with(ReportHead("3 of 3", "3006 of 3006"))) << r.out;
  EXPECT_TRUE(r.out.ends_with("\n\nOutcome: completed\n")) << r.out;
  EXPECT_FALSE(Has(r.out, "\r")) << "CR LF is shown as a plain line end";
  // The report box itself still goes to standard error, as every box does.
  EXPECT_TRUE(Has(r.err, "\nThe process has completed successfully.\n")) << r.err;
  // Standard error is no terminal: no line is drawn on it.
  EXPECT_FALSE(Has(r.err, "\r") || Has(r.err, "\x1b") || Has(r.err, "| Elapsed ")) << r.err;

  const std::string record = ReadBytes(t / "logs/_jobfile.rvj");
  EXPECT_TRUE(Has(record, "[TARGET]\t" + (t / "out") + "\r\n")) << record;
  EXPECT_TRUE(Has(record, "[JPATH]\t" + (t / "logs") + "\r\n")) << record;
  // Sources in the order given.
  EXPECT_TRUE(Has(record, "[SRC]\t" + (t / "src") + "\r\n[SRC]\t" + (t / "second") + "\r\n"))
      << record;
  EXPECT_FALSE(fs::exists(t / "out/_jobfile.rvj"));
}

TEST(RunnerRuns, AnUnreadableSourceIsRecordedAndTheRunEndsWithErrors) {
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to run the case as user nobody";
  TempDir t;
  chmod(t.path().c_str(), 0777);
  t.WriteFile("src/readable.txt", "r");
  std::string closed = t.WriteFile("src/closed.txt", "secret");
  chmod((t / "src").c_str(), 0755);
  chmod((t / "src/readable.txt").c_str(), 0644);
  // Nobody's own, so that reading it leaves its times as they were.
  const struct passwd* nobody = getpwnam("nobody");
  ASSERT_NE(nobody, nullptr);
  ASSERT_EQ(chown((t / "src/readable.txt").c_str(), nobody->pw_uid, nobody->pw_gid), 0);
  ASSERT_EQ(chown((t / "src").c_str(), nobody->pw_uid, nobody->pw_gid), 0);
  chmod(closed.c_str(), 0600);  // root's own; nobody can't read it
  Ran r = test::RunRunner({"--yes", "--target", "out", "--log", "logs", "src"}, t.path(), true);
  ASSERT_NE(r.status, test::kChildCannotSetUp) << "could not become nobody";
  EXPECT_EQ(r.status, kExitDoneWithErrors) << r.err;
  EXPECT_TRUE(Has(r.out, "Errors: 1")) << r.out;
  EXPECT_EQ(ReadBytes(t / "out/src/readable.txt"), "r");
  EXPECT_FALSE(fs::exists(t / "out/src/closed.txt"));
  EXPECT_EQ(ReadBytes(closed), "secret");
}

// With --silent there is no box, and the report on standard output is all there is; without
// --log the job's outputs go to the target.
TEST(RunnerOutput, SilentRunsLeaveTheReportOnStandardOutputOnly) {
  TempDir t;
  t.WriteFile("src/a.txt", "alpha");
  Ran silent = InProcess({"--silent", "--target", t / "out", t / "src"});
  ASSERT_EQ(silent.status, kExitDone) << silent.err;
  EXPECT_TRUE(silent.out.starts_with(ReportHead("1 of 1", "5 of 5"))) << silent.out;
  EXPECT_FALSE(Has(silent.err, "The process has")) << silent.err;
  EXPECT_TRUE(Has(ReadBytes(t / "out/_jobfile.rvj"), "[JPATH]\t" + (t / "out") + "\r\n"));
}

TEST(RunnerOutput, AtATerminalTheLineFitsAndIsErasedBeforeBoxesAndTheSummary) {
  TempDir t;
  t.WriteFile("src/" + std::string(150, 'n') + ".txt", "long name");
  test::PseudoTerminal tty(50);
  ASSERT_TRUE(tty.ok());
  Ran r = BinaryOnTerminal({"--yes", "--target", "out", "src"}, t.path(), tty);
  ASSERT_EQ(r.status, kExitDone) << r.err;

  // Drawn at least once, every drawing within 49 columns.
  size_t drawings = 0;
  for (size_t end = r.err.find("\x1b[K"); end != std::string::npos;
       end = r.err.find("\x1b[K", end + 1)) {
    const size_t start = r.err.rfind('\r', end);
    ASSERT_NE(start, std::string::npos);
    const std::string text = r.err.substr(start + 1, end - start - 1);
    EXPECT_LE(DisplayWidth(text), 49) << text;
    if (!text.empty()) ++drawings;
  }
  EXPECT_GE(drawings, 1u) << r.err;
  // The closing box starts on a cleared line, and nothing is drawn after it.
  const size_t box = r.err.rfind("--- Quillon Ravelin 2.2 Rover Edition (information) ---");
  ASSERT_NE(box, std::string::npos) << r.err;
  EXPECT_EQ(r.err.substr(box - 4, 4), "\r\x1b[K") << r.err;
  EXPECT_EQ(r.err.find("\x1b[K", box), std::string::npos) << r.err;
  EXPECT_FALSE(Has(r.out, "\x1b")) << r.out;
  EXPECT_TRUE(Has(r.out, "Outcome: completed\n")) << r.out;
}

TEST(RunnerCancel, ACtrlCBeforeTheRunCancelsItAsTheCancelButtonDoes) {
  TempDir t;
  for (int i = 0; i < 20; ++i) t.WriteFile("src/f" + std::to_string(i), "x");
  InterruptFlag() = 1;
  Ran r = InProcess({"--yes", "--target", t / "out", "--log", t / "logs", t / "src"});
  InterruptFlag() = 0;
  EXPECT_EQ(r.status, kExitCancelled) << r.err;
  EXPECT_TRUE(r.out.starts_with("The process has been canceled.\n\nFiles copied: ")) << r.out;
  EXPECT_TRUE(r.out.ends_with("\nOutcome: cancelled\n")) << r.out;
  size_t copied = 0;
  if (fs::exists(t / "out/src")) {
    for (const auto& e : fs::recursive_directory_iterator(t / "out/src")) {
      copied += e.is_regular_file() ? 1 : 0;
    }
  }
  EXPECT_LT(copied, 20u) << "the queue went on after the cancel";
}

TEST(RunnerCancel, CtrlCDuringCopyingFinishesTheFileInHandAndStopsTheQueue) {
  TempDir t;
  for (int i = 0; i < 4000; ++i) {
    t.WriteFile("src/d" + std::to_string(i % 4) + "/f" + std::to_string(i), "some bytes");
  }
  test::PseudoTerminal tty(100);
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
  EXPECT_TRUE(r.out.starts_with("The process has been canceled.\n\nFiles copied: ")) << r.out;
  EXPECT_TRUE(r.out.ends_with("\nOutcome: cancelled\n")) << r.out;
  EXPECT_FALSE(Has(r.out, "Files copied: 4000 of 4000")) << r.out;
  // Every file copied is whole: the one in hand was finished, not cut off.
  for (const auto& e : fs::recursive_directory_iterator(t / "out")) {
    if (e.is_regular_file() && e.path().filename().string().starts_with("f")) {
      EXPECT_EQ(ReadBytes(e.path().string()), "some bytes") << e.path();
    }
  }
}

TEST(RunnerJobFiles, APreparedJobRunsAsThePickerRunsItAndABadOneIsAClearError) {
  TempDir t;
  t.WriteFile("src/a.txt", "alpha");
  const std::string job = t.WriteFile(
      "jobs/case.lsw", "[JNAME]\tCase\r\n[TARGET]\t" + t / "out" + "\r\n[JPATH]\t" + t / "logs" +
                           "\r\n[SRC]\t" + t / "src" + "\r\n[ENGINE]\tRV\r\n[LOG]\t1\r\n");
  Ran r = InProcess({"--yes", job});
  EXPECT_EQ(r.status, kExitDone) << r.err;
  EXPECT_EQ(ReadBytes(t / "out/src/a.txt"), "alpha");
  EXPECT_EQ(ReadBytes(t / "logs/case.lsd"), ReadBytes(job)) << "the job is marked done";
  EXPECT_TRUE(Has(r.err, "Running job: Case")) << r.err;

  // A number that is no number is a clear error, not a crash.
  r = InProcess({"--yes", t.WriteFile("bad.rvj", "[LOG]\tyes\r\n")});
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_TRUE(Has(r.err, "the job file could not be read: 13 : Type mismatch")) << r.err;
}

}  // namespace
}  // namespace qr::cli
