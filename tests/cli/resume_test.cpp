// A collection killed in the middle of copying and resumed from its job record: every file is
// copied and verified, nothing is lost, and only the row in hand at the kill is done twice.
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <thread>

#include <gtest/gtest.h>

#include "jobdb/db_connection.h"
#include "runner_process.h"

namespace qr {
namespace {

using test::Has;
using test::TempDir;

int CompletedRows(const std::string& db) {
  DbConnection c;
  try {
    return c.Open(db) ? c.Query("Select file_key from tFiles where completed = '1'").RowCount() : 0;
  } catch (const std::exception&) {
    return 0;
  }
}

TEST(ResumeAfterKill, EveryFileEndsCopiedAndVerifiedAndNothingIsLost) {
  TempDir t;
  constexpr int kFiles = 400;
  std::map<std::string, std::string> contents;
  for (int i = 0; i < kFiles; ++i) {
    std::string rel = "d" + std::to_string(i % 7) + "/f" + std::to_string(i) + ".bin";
    contents[rel] = std::string(40000 + i, static_cast<char>('a' + i % 26));
    t.WriteFile("src/" + rel, contents[rel]);
  }
  const pid_t first =
      test::StartRunner({"--yes", "--target", "out", "--log", "logs", "src"}, t.path(), -1, -1);
  // Killed once a good part of the files is done, while copying goes on.
  for (int i = 0; i < 3000 && CompletedRows(t / "logs/_job.sdb") < kFiles / 4; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  kill(first, SIGKILL);
  EXPECT_EQ(test::WaitFor(first), 128 + SIGKILL);
  const int atKill = CompletedRows(t / "logs/_job.sdb");
  ASSERT_TRUE(atKill > 0 && atKill < kFiles) << atKill << ": the run ended before the kill";

  EXPECT_EQ(test::RunRunner({"--yes", "--resume", "logs/_jobfile.rvj"}, t.path()).status, 0);
  // Each file copied and verified; only the one in hand at the kill may stand twice.
  std::map<std::string, int> seen;
  for (const std::string& line : test::Utf16FileLines(t / "logs/_verification_log.csv")) {
    const size_t at = line.find("/src/");
    if (at == std::string::npos) continue;
    ++seen[line.substr(at + 5, line.find(',', at) - at - 5)];
    EXPECT_TRUE(Has(line, ",Y,Y,N,")) << line;
  }
  int twice = 0;
  for (const auto& [rel, bytes] : contents) {
    EXPECT_EQ(test::ReadBytes(t / "out/src/" + rel), bytes) << rel;
    EXPECT_TRUE(seen[rel] == 1 || seen[rel] == 2) << rel << " " << seen[rel];
    twice += seen[rel] == 2;
  }
  EXPECT_LE(twice, 1);
}

// A [SHELLEX] line appended to a run's own job record runs only with --allow-end-command, and
// the runner prints the command before it starts it.
TEST(ResumeAJobRecord, AnEndCommandAddedToItRunsOnlyWhenAskedFor) {
  TempDir t;
  t.WriteFile("src/a.txt", "alpha");
  ASSERT_EQ(test::RunRunner({"--yes", "--target", "out", "--log", "logs", "src"}, t.path()).status,
            0);
  const std::string command = "touch '" + t.path() + "/PLANTED'";
  t.WriteFile("logs/_jobfile.rvj",
              test::ReadBytes(t / "logs/_jobfile.rvj") + "[SHELLEX]\t" + command + "\r\n");
  // The command is started and left to run: a moment for it to leave its mark.
  auto resume = [&](std::vector<std::string> args, int waits) {
    args.push_back("logs/_jobfile.rvj");
    test::Ran r = test::RunRunner(args, t.path());
    EXPECT_EQ(r.status, 0) << r.err;
    for (int i = 0; i < waits && !std::filesystem::exists(t / "PLANTED"); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return r.err;
  };
  std::string err = resume({"--yes", "--resume"}, 15);
  EXPECT_FALSE(std::filesystem::exists(t / "PLANTED"));
  EXPECT_TRUE(Has(err, "It will not be run:\n" + command)) << err;
  err = resume({"--yes", "--resume", "--allow-end-command"}, 200);
  EXPECT_TRUE(Has(err, "ravelin-run: Starting the end command: " + command + "\n")) << err;
  EXPECT_TRUE(std::filesystem::exists(t / "PLANTED"));
}

}  // namespace
}  // namespace qr
