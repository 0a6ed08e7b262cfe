// ravelin-run --jobs on the built program, copied beside a job folder as on a portable drive.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/machine.h"
#include "runner_process.h"

namespace qr::cli {
namespace {

using test::Has;
using test::ReadBytes;

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

}  // namespace
}  // namespace qr::cli
