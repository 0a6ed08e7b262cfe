// ravelin-run --jobs on the built program, copied beside a job folder as on a portable drive.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "platform/machine.h"
#include "support/temp_dir.h"

namespace qr::cli {
namespace {

namespace fs = std::filesystem;
using test::ReadBytes;

// Standard output of the program with `args` (quoted for the shell), standard error after it;
// `status` gets the exit status.
std::string Runner(const std::string& program, const std::string& args, int& status) {
  FILE* p = popen(("'" + program + "' " + args + " 2>&1 </dev/null").c_str(), "r");
  std::string out;
  char buffer[4096];
  for (size_t n; p != nullptr && (n = fread(buffer, 1, sizeof buffer, p)) > 0;)
    out.append(buffer, n);
  status = p == nullptr ? -1 : WEXITSTATUS(pclose(p));
  return out;
}

TEST(RunnerJobs, ListsTheJobsDueHereAndRunsOneByNameUntilItIsDone) {
  test::TempDir t;
  const std::string program = t / "drive/ravelin-run";
  t.WriteFile("src/a.txt", "alpha");
  for (std::string name : {"Mail", "Locked"}) {
    t.WriteFile("drive/_lsw/" + name + ".lsw",
                "[JNAME]\t" + name + "\r\n[JINSTRUCT]\tPlug in, then wait.\r\n[TARGET]\t" +
                    t / "out" + "\r\n[JPATH]\t" + t / "logs" + "\r\n[SRC]\t" + t / "src" +
                    (name == "Locked" ? "\r\n[CNAME]\t" + ComputerName() + "x" : "") + "\r\n");
  }
  fs::copy_file(RAVELIN_RUN_BINARY, program);
  int status = -1;
  std::string out = Runner(program, "--jobs", status);
  EXPECT_EQ(status, 0);
  EXPECT_NE(out.find("\nMail\n    Plug in, then wait.\n"), std::string::npos) << out;
  EXPECT_EQ(out.find("Locked"), std::string::npos) << out;

  out = Runner(program, "--jobs Locked", status);
  EXPECT_EQ(status, 2);
  EXPECT_NE(out.find("no prepared job named 'Locked' is due on this computer"), std::string::npos);

  out = Runner(program, "--yes --jobs=mail", status);
  EXPECT_EQ(status, 0) << out;
  EXPECT_EQ(ReadBytes(t / "out/src/a.txt"), "alpha");
  EXPECT_EQ(ReadBytes(t / "logs/Mail.lsd"), ReadBytes(t / "drive/_lsw/Mail.lsw"));
  EXPECT_NE(Runner(program, "--jobs", status).find("No prepared job is due"), std::string::npos);
  Runner(program, "--jobs --target x", status);
  EXPECT_EQ(status, 64);
}

}  // namespace
}  // namespace qr::cli
