// Whole runs of the runner, in-process and as the built program, on real temporary folders.
#include <fcntl.h>
#include <pwd.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <sstream>

#include "progress_line.h"
#include "pseudo_terminal.h"
#include "run_command.h"
#include "runner_process.h"
#include "support/child_process.h"
#include "support/temp_dir.h"

namespace qr::cli {
namespace {

namespace fs = std::filesystem;
using test::ReadBytes;
using test::TempDir;

struct Ran {
  int status = -1;
  std::string out;
  std::string err;
};

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

// The built program in `cwd`, standard input on /dev/null (no terminal); `asNobody` drops to
// user nobody first, since tests run as root, which reads everything.
Ran Binary(const std::vector<std::string>& args, const std::string& cwd, bool asNobody = false) {
  TempDir io;
  if (asNobody) chmod(io.path().c_str(), 0777);
  const std::string outPath = io / "out", errPath = io / "err";
  int o = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  int e = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  pid_t pid = test::StartRunner(args, cwd, o, e, asNobody);
  close(o);
  close(e);
  Ran r;
  int ws = 0;
  if (pid > 0 && waitpid(pid, &ws, 0) == pid && WIFEXITED(ws)) r.status = WEXITSTATUS(ws);
  r.out = ReadBytes(outPath);
  r.err = ReadBytes(errPath);
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

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(RunnerRefusals, NoSourceIsRefusedWithTheRunsOwnMessage) {
  TempDir t;
  Ran r = InProcess({"--target", t / "out"});
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_TRUE(Has(r.err, "You have to choose at least one source.")) << r.err;
  EXPECT_TRUE(Has(r.out, "Outcome: refused")) << r.out;

  Ran bin = Binary({"--target", "out"}, t.path());
  EXPECT_EQ(bin.status, kExitRefused);
  EXPECT_TRUE(Has(bin.err, "You have to choose at least one source.")) << bin.err;
}

TEST(RunnerRefusals, SilentRefusesWithoutAnyBox) {
  TempDir t;
  Ran r = InProcess({"--silent", "--target", t / "out"});
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_FALSE(Has(r.err, "You have to choose at least one source.")) << r.err;
  EXPECT_FALSE(Has(r.err, "---")) << r.err;
}

TEST(RunnerRefusals, EachFailedCheckExits2WithItsMessage) {
  TempDir t;
  t.WriteFile("src/a.txt", "a");
  t.WriteFile("plainfile", "not a folder");
  struct Case {
    std::vector<std::string> args;
    std::string message;
  };
  const std::vector<Case> cases = {
      {{t / "src"}, "You have to choose a target path."},
      {{"--target", t / "plainfile/below", t / "src"},
       "The target path you have chosen does not exist and could not be created."},
      {{"--target", t / "out", "--log", t / "plainfile/logs", t / "src"},
       "The log file path you have chosen does not exist and could not be created."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    Ran r = InProcess(c.args);
    EXPECT_EQ(r.status, kExitRefused);
    EXPECT_TRUE(Has(r.err, c.message)) << r.err;
  }
}

TEST(RunnerRefusals, AMissingSourceIsReportedAndDroppedNothingIsWritten) {
  TempDir t;
  Ran r = InProcess({"--yes", "--target", t / "out", "--log", t / "logs", t / "nowhere"});
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_TRUE(Has(r.err, t / "nowhere")) << r.err;
  EXPECT_TRUE(Has(r.err, "The path you have specified cannot be found on this machine.")) << r.err;
  // Dropped, the job has no source left: refused before any folder or file exists.
  EXPECT_TRUE(Has(r.err, "You have to choose at least one source.")) << r.err;
  EXPECT_FALSE(fs::exists(t / "out"));
  EXPECT_FALSE(fs::exists(t / "logs"));
}

TEST(RunnerRefusals, WithoutATerminalTheJobNoticeIsRefused) {
  TempDir t;
  t.WriteFile("src/a.txt", "a");
  Ran r = Binary({"--target", "out", "--log", "logs", "src"}, t.path());
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_TRUE(Has(r.err, "Please close all applications before continuing.")) << r.err;
  EXPECT_TRUE(Has(r.err, "> Cancel (no terminal to ask; --yes accepts)")) << r.err;
  EXPECT_FALSE(fs::exists(t / "logs/_jobfile.rvj"));
}

TEST(RunnerRefusals, AtATerminalThePersonDecides) {
  TempDir t;
  t.WriteFile("src/a.txt", "a");
  Ran no = InProcess({"--target", t / "out", t / "src"}, "n\n", true);
  EXPECT_EQ(no.status, kExitRefused);
  EXPECT_FALSE(fs::exists(t / "out/_jobfile.rvj"));

  Ran yes = InProcess({"--target", t / "out", t / "src"}, "y\n", true);
  EXPECT_EQ(yes.status, kExitDone) << yes.err;
  EXPECT_TRUE(fs::exists(t / "out/_jobfile.rvj"));
}

TEST(RunnerRuns, AGoodRunExits0AndLeavesTheJobRecordWithAbsolutePaths) {
  TempDir t;
  t.WriteFile("src/a.txt", "alpha");
  t.WriteFile("src/sub/b, c's.bin", std::string(3000, 'x'));
  t.WriteFile("second/one.txt", "1");
  Ran r = Binary({"--yes", "--target", "out", "--log", "./logs/", "src", "second"}, t.path());
  ASSERT_EQ(r.status, kExitDone) << r.err << r.out;
  EXPECT_TRUE(Has(r.out, "Outcome: completed\n")) << r.out;
  EXPECT_TRUE(Has(r.out, "Errors: 0\n")) << r.out;
  EXPECT_TRUE(Has(r.out, "Files copied: ")) << r.out;

  const std::string record = ReadBytes(t / "logs/_jobfile.rvj");
  ASSERT_FALSE(record.empty());
  EXPECT_TRUE(Has(record, "[TARGET]\t" + (t / "out") + "\r\n")) << record;
  EXPECT_TRUE(Has(record, "[JPATH]\t" + (t / "logs") + "\r\n")) << record;
  // Sources in the order given.
  const size_t first = record.find("[SRC]\t" + (t / "src") + "\r\n");
  const size_t second = record.find("[SRC]\t" + (t / "second") + "\r\n");
  ASSERT_NE(first, std::string::npos) << record;
  ASSERT_NE(second, std::string::npos) << record;
  EXPECT_LT(first, second);
  EXPECT_FALSE(fs::exists(t / "out/_jobfile.rvj"));
}

TEST(RunnerRuns, WithoutLogTheJobsOutputsGoToTheTarget) {
  TempDir t;
  t.WriteFile("src/a.txt", "alpha");
  Ran r = InProcess({"--yes", "--target", t / "out", t / "src"});
  ASSERT_EQ(r.status, kExitDone) << r.err;
  const std::string record = ReadBytes(t / "out/_jobfile.rvj");
  EXPECT_TRUE(Has(record, "[JPATH]\t" + (t / "out") + "\r\n")) << record;
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
  Ran r = Binary({"--yes", "--target", "out", "--log", "logs", "src"}, t.path(), true);
  ASSERT_NE(r.status, test::kChildCannotSetUp) << "could not become nobody";
  EXPECT_EQ(r.status, kExitDoneWithErrors) << r.err;
  EXPECT_TRUE(Has(r.out, "Errors: 1")) << r.out;
  EXPECT_EQ(ReadBytes(t / "out/src/readable.txt"), "r");
  EXPECT_FALSE(fs::exists(t / "out/src/closed.txt"));
  EXPECT_EQ(ReadBytes(closed), "secret");
}

TEST(RunnerRefusals, AnExistingDatabaseIsAQuestionThatNobodyAnswersYes) {
  TempDir t;
  t.WriteFile("src/a.txt", "alpha");
  // The warning looks only at whether the file is there.
  t.WriteFile("out/_job.sdb", "");
  Ran refused = Binary({"--target", "out", "src"}, t.path());
  EXPECT_EQ(refused.status, kExitRefused);
  EXPECT_TRUE(Has(refused.err, "WARNING! A database already exists in this directory."))
      << refused.err;
  EXPECT_TRUE(Has(refused.err, "\nDo you want to continue anyway?\n")) << refused.err;
  EXPECT_TRUE(Has(refused.err, "> No (no terminal to ask; --yes accepts)")) << refused.err;
  // Refused at the first question: the job notice never came, no job record was written.
  EXPECT_FALSE(Has(refused.err, "Please close all applications")) << refused.err;
  EXPECT_FALSE(fs::exists(t / "out/_jobfile.rvj"));
}

// The report as the runner prints it, CR LF made plain, up to its elapsed time.
std::string ReportHead(const std::string& first, const std::string& files,
                       const std::string& bytes) {
  return first + "\n\nFiles copied: " + files + "\nBytes copied: " + bytes +
         "\nErrors: 0\n\nTime Elapsed: 00:00:00:";
}

TEST(RunnerOutput, TheRunsReportGoesToStandardOutputThenTheOutcome) {
  TempDir t;
  t.WriteFile("src/a.txt", "alpha");
  t.WriteFile("src/sub/b.bin", std::string(3000, 'x'));
  Ran r = InProcess({"--yes", "--target", t / "out", "--log", t / "logs", t / "src"});
  ASSERT_EQ(r.status, kExitDone) << r.err;
  EXPECT_TRUE(r.out.starts_with(
      ReportHead("The process has completed successfully.", "2 of 2", "3005 of 3005")))
      << r.out;
  EXPECT_TRUE(r.out.ends_with("\n\nOutcome: completed\n")) << r.out;
  EXPECT_EQ(r.out.find('\r'), std::string::npos) << "CR LF is shown as a plain line end";
  // The report box itself still goes to standard error, as every box does.
  EXPECT_TRUE(Has(r.err, "\nThe process has completed successfully.\n")) << r.err;

  // With -silent there is no box, and the report on standard output is all there is.
  TempDir u;
  u.WriteFile("src/a.txt", "alpha");
  Ran silent = InProcess({"--silent", "--target", u / "out", u / "src"});
  ASSERT_EQ(silent.status, kExitDone) << silent.err;
  EXPECT_TRUE(silent.out.starts_with(
      ReportHead("The process has completed successfully.", "1 of 1", "5 of 5")))
      << silent.out;
  EXPECT_FALSE(Has(silent.err, "The process has")) << silent.err;
}

TEST(RunnerOutput, WithoutATerminalOnStandardErrorThereIsNoProgressLine) {
  TempDir t;
  for (int i = 0; i < 50; ++i) t.WriteFile("src/f" + std::to_string(i), std::string(100, 'x'));
  Ran r = Binary({"--yes", "--target", "out", "src"}, t.path());
  ASSERT_EQ(r.status, kExitDone) << r.err;
  EXPECT_EQ(r.err.find('\r'), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find('\x1b'), std::string::npos) << r.err;
  EXPECT_FALSE(Has(r.err, "| Elapsed ")) << r.err;
  EXPECT_TRUE(r.out.starts_with(
      ReportHead("The process has completed successfully.", "50 of 50", "5000 of 5000")))
      << r.out;
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
  EXPECT_EQ(r.out.find('\x1b'), std::string::npos) << r.out;
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
      if (e.is_regular_file()) ++copied;
    }
  }
  EXPECT_LT(copied, 20u) << "the queue went on after the cancel";
}

TEST(RunnerCancel, CtrlCDuringCopyingFinishesTheFileInHandAndStopsTheQueue) {
  TempDir t;
  constexpr int kFiles = 4000;
  for (int i = 0; i < kFiles; ++i) {
    t.WriteFile("src/d" + std::to_string(i % 4) + "/f" + std::to_string(i), "some bytes");
  }
  test::PseudoTerminal tty(100);
  ASSERT_TRUE(tty.ok());
  bool sent = false;
  // The copying has begun once the line counts files: press Ctrl-C then.
  Ran r = BinaryOnTerminal({"--yes", "--target", "out", "--log", "logs", "src"}, t.path(), tty,
                           [&](const std::string& err, pid_t pid) {
                             if (!sent && Has(err, "Files ")) {
                               kill(pid, SIGINT);
                               sent = true;
                             }
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

TEST(RunnerJobFiles, APreparedJobRunsAsThePickerRunsItAndLeavesItsCompletionCopy) {
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
}

TEST(RunnerJobFiles, ANumberThatIsNoNumberIsAClearErrorNotACrash) {
  TempDir t;
  const std::string job = t.WriteFile("bad.rvj", "[LOG]\tyes\r\n");
  Ran r = InProcess({"--yes", job});
  EXPECT_EQ(r.status, kExitRefused);
  EXPECT_TRUE(Has(r.err, "the job file could not be read: 13 : Type mismatch")) << r.err;
}

}  // namespace
}  // namespace qr::cli
