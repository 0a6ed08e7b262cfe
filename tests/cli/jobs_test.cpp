// ravelin-run --jobs on the built program, copied into a program folder of its own as it would
// sit on a portable drive beside its _lsw job folder.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "job_list.h"
#include "platform/machine.h"
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

Ran RunProgram(const std::string& program, std::vector<std::string> args, const TempDir& t) {
  const std::string outPath = t / "stdout", errPath = t / "stderr";
  const pid_t pid = fork();
  if (pid == 0) {
    int in = open("/dev/null", O_RDONLY);
    int o = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    int e = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (in < 0 || o < 0 || e < 0 || chdir(t.path().c_str()) != 0) _exit(127);
    dup2(in, 0);
    dup2(o, 1);
    dup2(e, 2);
    std::vector<char*> argv = {const_cast<char*>(program.c_str())};
    for (std::string& a : args) argv.push_back(a.data());
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

TEST(RunnerJobs, ListsTheJobsDueHereAndRunsOneByNameUntilItIsDone) {
  TempDir t;
  const std::string program = t / "drive/ravelin-run";
  fs::create_directories(t / "drive/_lsw");
  fs::copy_file(RAVELIN_RUN_BINARY, program);
  t.WriteFile("src/a.txt", "alpha");
  auto job = [&](const std::string& name, const std::string& extra) {
    return "[JNAME]\t" + name + "\r\n[JINSTRUCT]\tPlug in, then wait.\r\n[TARGET]\t" + t / "out" +
           "\r\n[JPATH]\t" + t / ("logs/" + name) + "\r\n[SRC]\t" + t / "src" +
           "\r\n[ENGINE]\tRV\r\n[LOG]\t1\r\n" + extra;
  };
  t.WriteFile("drive/_lsw/mail.lsw", job("Mail", ""));
  t.WriteFile("drive/_lsw/locked.lsw", job("Locked", "[CNAME]\t" + ComputerName() + "x\r\n"));

  Ran listed = RunProgram(program, {"--jobs"}, t);
  EXPECT_EQ(listed.status, 0) << listed.err;
  EXPECT_TRUE(Has(listed.out, "\nMail\n    Plug in, then wait.\n")) << listed.out;
  EXPECT_FALSE(Has(listed.out, "Locked")) << listed.out;

  Ran unknown = RunProgram(program, {"--jobs", "Locked"}, t);
  EXPECT_EQ(unknown.status, 2);
  EXPECT_TRUE(Has(unknown.err, "no prepared job named 'Locked' is due on this computer"))
      << unknown.err;
  EXPECT_FALSE(fs::exists(t / "out"));

  Ran ran = RunProgram(program, {"--yes", "--jobs", "mail"}, t);
  EXPECT_EQ(ran.status, 0) << ran.err;
  EXPECT_EQ(ReadBytes(t / "out/src/a.txt"), "alpha");
  EXPECT_EQ(ReadBytes(t / "logs/Mail/mail.lsd"), ReadBytes(t / "drive/_lsw/mail.lsw"));

  Ran after = RunProgram(program, {"--jobs"}, t);
  EXPECT_EQ(after.status, 0);
  EXPECT_TRUE(Has(after.out, "No prepared job is due on this computer")) << after.out;
}

TEST(RunnerJobs, ANameSharedByTwoJobsIsRefusedAndJobsTakesNoSources) {
  std::vector<JobEntry> due = {{"/j/a.lsw", "Same", "", ""}, {"/j/b.lsw", "same", "", ""},
                               {"/j/c.lsw", "Other", "", ""}};
  std::string error;
  EXPECT_EQ(FindDueJob(due, "same", error), "/j/b.lsw") << "the name as listed comes first";
  EXPECT_EQ(FindDueJob(due, "OTHER", error), "/j/c.lsw");
  EXPECT_FALSE(FindDueJob(due, "SAME", error));
  EXPECT_TRUE(Has(error, "/j/a.lsw /j/b.lsw")) << error;

  TempDir t;
  EXPECT_EQ(RunProgram(RAVELIN_RUN_BINARY, {"--jobs", "--target", "x"}, t).status, 64);
  EXPECT_EQ(RunProgram(RAVELIN_RUN_BINARY, {"--jobs="}, t).status, 64);
}

}  // namespace
}  // namespace qr::cli
