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
  if (!c.Open(db)) return 0;
  try {
    return c.Query("Select file_key from tFiles where completed = '1'").RowCount();
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
  ASSERT_GT(atKill, 0);
  ASSERT_LT(atKill, kFiles) << "the run ended before it could be killed";

  EXPECT_EQ(test::RunRunner({"--yes", "--resume", "logs/_jobfile.rvj"}, t.path()).status, 0);
  EXPECT_EQ(CompletedRows(t / "logs/_job.sdb"), kFiles);
  for (const auto& [rel, bytes] : contents) {
    EXPECT_EQ(test::ReadBytes(t / "out/src/" + rel), bytes) << rel;
  }
  // Each file verified; only the one in hand at the kill may stand twice.
  std::map<std::string, int> seen;
  std::vector<std::string> lines = test::Utf16FileLines(t / "logs/_verification_log.csv");
  ASSERT_GT(lines.size(), 1u);
  for (size_t i = 1; i < lines.size(); ++i) {
    for (const auto& [rel, bytes] : contents) {
      if (Has(lines[i], "/src/" + rel + ",")) {
        ++seen[rel];
        EXPECT_TRUE(Has(lines[i], ",Y,Y,N,")) << lines[i];
        break;
      }
    }
  }
  int twice = 0;
  for (const auto& [rel, bytes] : contents) {
    EXPECT_GE(seen[rel], 1) << rel;
    EXPECT_LE(seen[rel], 2) << rel;
    if (seen[rel] == 2) ++twice;
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
  auto resume = [&](std::vector<std::string> args) {
    args.push_back("logs/_jobfile.rvj");
    test::Ran r = test::RunRunner(args, t.path());
    EXPECT_EQ(r.status, 0) << r.err;
    return r.err;
  };
  // The command is started and left to run: a moment for it to leave its mark.
  auto planted = [&](int waits) {
    for (int i = 0; i < waits && !std::filesystem::exists(t / "PLANTED"); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return std::filesystem::exists(t / "PLANTED");
  };
  std::string err = resume({"--yes", "--resume"});
  EXPECT_FALSE(planted(15));
  EXPECT_TRUE(Has(err, "It will not be run:\n" + command)) << err;

  err = resume({"--yes", "--resume", "--allow-end-command"});
  EXPECT_TRUE(Has(err, "ravelin-run: Starting the end command: " + command + "\n")) << err;
  EXPECT_TRUE(planted(200));
}

}  // namespace
}  // namespace qr
