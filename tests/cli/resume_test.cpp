// A collection killed in the middle of copying and resumed from its job record: every file is
// copied and verified, nothing is lost, and only the row in hand at the kill is done twice.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <thread>

#include <gtest/gtest.h>

#include "jobdb/db_connection.h"
#include "platform/text.h"
#include "platform/unicode_text.h"
#include "runner_process.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::TempDir;

pid_t Start(const std::vector<std::string>& args, const std::string& cwd) {
  return test::StartRunner(args, cwd, -1, -1);
}

int Wait(pid_t pid) {
  int ws = 0;
  waitpid(pid, &ws, 0);
  return WIFEXITED(ws) ? WEXITSTATUS(ws) : 128 + WTERMSIG(ws);
}

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
    std::string bytes(40000 + i, static_cast<char>('a' + i % 26));
    t.WriteFile("src/" + rel, bytes);
    contents[rel] = bytes;
  }
  pid_t first = Start({"--yes", "--target", "out", "--log", "logs", "src"}, t.path());
  // Killed once a good part of the files is done, while copying goes on.
  int done = 0;
  for (int i = 0; i < 3000 && done < kFiles / 4; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    done = CompletedRows(t / "logs/_job.sdb");
  }
  kill(first, SIGKILL);
  EXPECT_EQ(Wait(first), 128 + SIGKILL);
  const int atKill = CompletedRows(t / "logs/_job.sdb");
  ASSERT_GT(atKill, 0);
  ASSERT_LT(atKill, kFiles) << "the run ended before it could be killed";

  pid_t second = Start({"--yes", "--resume", "logs/_jobfile.rvj"}, t.path());
  EXPECT_EQ(Wait(second), 0);
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
      if (lines[i].find("/src/" + rel + ",") != std::string::npos) {
        ++seen[rel];
        EXPECT_NE(lines[i].find(",Y,Y,N,"), std::string::npos) << lines[i];
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
  ASSERT_EQ(Wait(Start({"--yes", "--target", "out", "--log", "logs", "src"}, t.path())), 0);
  const std::string record = t / "logs/_jobfile.rvj";
  const std::string planted = "[SHELLEX]\ttouch '" + t.path() + "/PLANTED'\r\n";
  t.WriteFile("logs/_jobfile.rvj", test::ReadBytes(record) + planted);

  const std::string errors = t / "err.txt";
  auto resume = [&](std::vector<std::string> extra) {
    std::vector<std::string> args = {"--yes", "--resume"};
    args.insert(args.end(), extra.begin(), extra.end());
    args.push_back("logs/_jobfile.rvj");
    const int err = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const int status = Wait(test::StartRunner(args, t.path(), -1, err));
    close(err);
    // The command is started and left to run: a moment for it to leave its mark.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    return status;
  };
  EXPECT_EQ(resume({}), 0);
  EXPECT_FALSE(std::filesystem::exists(t / "PLANTED"));
  EXPECT_NE(test::ReadBytes(errors).find("It will not be run:\ntouch '" + t.path() + "/PLANTED'"),
            std::string::npos)
      << test::ReadBytes(errors);

  EXPECT_EQ(resume({"--allow-end-command"}), 0);
  EXPECT_NE(test::ReadBytes(errors).find("ravelin-run: Starting the end command: touch '" +
                                         t.path() + "/PLANTED'\n"),
            std::string::npos)
      << test::ReadBytes(errors);
  for (int i = 0; i < 100 && !std::filesystem::exists(t / "PLANTED"); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_TRUE(std::filesystem::exists(t / "PLANTED"));
}

}  // namespace
}  // namespace qr
