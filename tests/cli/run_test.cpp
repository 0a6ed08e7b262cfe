// Whole runs of the runner, in-process and as the built program, on real temporary folders.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "run_command.h"
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

// The built program in `cwd`, standard input on /dev/null (no terminal).
Ran Binary(const std::vector<std::string>& args, const std::string& cwd) {
  TempDir io;
  const std::string outPath = io / "out", errPath = io / "err";
  pid_t pid = fork();
  if (pid == 0) {
    int devNull = open("/dev/null", O_RDONLY);
    int o = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    int e = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (devNull < 0 || o < 0 || e < 0 || chdir(cwd.c_str()) != 0) _exit(127);
    dup2(devNull, 0);
    dup2(o, 1);
    dup2(e, 2);
    std::vector<char*> argv;
    std::string program = RAVELIN_RUN_BINARY;
    argv.push_back(program.data());
    std::vector<std::string> copy = args;
    for (std::string& a : copy) argv.push_back(a.data());
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  Ran r;
  int ws = 0;
  if (pid > 0 && waitpid(pid, &ws, 0) == pid && WIFEXITED(ws)) r.status = WEXITSTATUS(ws);
  r.out = ReadBytes(outPath);
  r.err = ReadBytes(errPath);
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

}  // namespace
}  // namespace qr::cli
