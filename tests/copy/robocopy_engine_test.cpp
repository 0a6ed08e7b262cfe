// Collections through the external ROBOCOPY engine, with a stand-in tool on the search path: a
// shell script that records its arguments and copies the one file it is given.
#include "copy/robocopy_engine.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include "exec/run_driver.h"
#include "platform/text.h"
#include "platform/unicode_text.h"
#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

namespace fs = std::filesystem;
using Calls = std::vector<std::vector<std::string>>;

std::vector<std::string> SortedLines(const std::string& path) {
  std::vector<std::string> lines = SplitLines(test::ReadBytes(path));
  std::sort(lines.begin(), lines.end());
  return lines;
}

// Every argument on a line of its own, a "--" line after each call; the calls sorted.
Calls RecordedCalls(const std::string& path) {
  Calls calls(1);
  for (const std::string& line : SplitLines(test::ReadBytes(path))) {
    if (line == "--") {
      calls.emplace_back();
    } else {
      calls.back().push_back(line);
    }
  }
  calls.pop_back();
  std::sort(calls.begin(), calls.end());
  return calls;
}

class RobocopyEngineTest : public ::testing::Test, protected test::RunFixture {
 protected:
  std::string src = dir.MakeDir("with space");
  std::string target = dir / "target";
  std::string logs = dir / "logs";
  std::string record = dir / "calls.txt";
  test::EnvVar path{"PATH", dir.MakeDir("bin") + ":/usr/bin:/bin"};

  void SetUp() override {
    ctx.program.flags.silent = true;  // no notice, no report box
    ctx.settings.Sources = {src};
    ctx.settings.TargetPath = target;
    ctx.settings.LogPath = logs;
    SetRobocopy(ctx.settings, true);
  }

  // The stand-in tool: records its call, copies "$1/$3" into "$2/" with its times (as /COPY:DAT
  // does; taken again after the read, which may move the source's access time) and then notes
  // that it has finished. A slow tool first waits until the test lets it go (giving up after 20
  // seconds, so that a program that waits for it still ends and fails the test).
  void InstallTool(bool slow = false) {
    const std::string script =
        "#!/bin/sh\nprintf '%s\\n' \"$@\" -- >> '" + record + "'\n" +
        (slow ? "n=0; while [ ! -e '" + dir / "go" +
                    "' ] && [ $n -lt 400 ]; do sleep 0.05; n=$((n+1)); done\n"
              : "") +
        "cp -p \"$1/$3\" \"$2/\" && touch -r \"$1/$3\" \"$2/$3\" &&\necho \"$3\" >> '" + record +
        ".done'\n";
    ASSERT_EQ(chmod(dir.WriteFile("bin/ROBOCOPY", script).c_str(), 0755), 0);
  }

  // Lets the slow tools go, and the names they finished within 15 seconds.
  std::vector<std::string> LetToolsFinish(size_t expected) {
    dir.WriteFile("go", "");
    std::vector<std::string> done;
    for (int i = 0; i < 300 && done.size() < expected; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      done = SortedLines(record + ".done");
    }
    return done;
  }

  // Presses a button (sets the flag) once the run is waiting for the tool.
  void PressWhileCopying(bool& button) {
    pump.onPump = [this, &button](int) {
      if (ctx.progress.lblCurrentProcess == "Current Process: Copying File") button = true;
    };
  }

  // Sources below the source root whose bytes are their own relative paths.
  void WriteSources(const std::vector<std::string>& paths) {
    for (const auto& p : paths) dir.WriteFile("with space/" + p, p);
  }
  // Each was copied, and its CSV line has matching hashes of source and copy.
  void ExpectCopiedAndVerified(const std::vector<std::string>& paths) {
    for (const auto& p : paths) EXPECT_EQ(test::ReadBytes(target + "/with space/" + p), p);
    std::vector<std::string> lines = test::Utf16FileLines(logs + "/_verification_log.csv");
    ASSERT_EQ(lines.size(), paths.size() + 1);
    for (size_t i = 1; i < lines.size(); ++i) {
      EXPECT_NE(lines[i].find(",Y,Y,"), std::string::npos) << lines[i];
    }
  }
};

// Each file is one call of the tool: its folder, its target folder and its name, each one
// argument whatever it holds (quotes and blanks that a command-line splitter would take for
// argument bounds), then the option flags as separate arguments; manual flags replace those.
TEST_F(RobocopyEngineTest, EveryFileIsCopiedByTheToolWithItsArguments) {
  InstallTool();
  const std::vector<std::pair<std::string, std::string>> files = {
      {"", "a b.txt"},
      {"sub/", "c.bin"},
      {"\"sub dir\" x/", "a\" \"b.txt"},
      {"\"sub dir\" x/", "odd\"quote.txt"},
      {"\"sub dir\" x/", "  two  blanks"},
      {"\"sub dir\" x/", "tab\there \"\".txt"}};
  std::vector<std::string> paths, names;
  Calls expected;
  const std::vector<std::string> flags = Split(GetOptionString(ctx.settings), " ");
  for (const auto& [folder, name] : files) {
    paths.push_back(folder + name);
    names.push_back(name);
    const std::string sub = folder.empty() ? "" : "/" + folder.substr(0, folder.size() - 1);
    expected.push_back({src + sub, target + "/with space" + sub, name});
    expected.back().insert(expected.back().end(), flags.begin(), flags.end());
  }
  WriteSources(paths);

  ASSERT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Completed);
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(RecordedCalls(record), expected);
  // The tool, not the fallback, made every copy.
  std::sort(names.begin(), names.end());
  EXPECT_EQ(SortedLines(record + ".done"), names);
  ExpectCopiedAndVerified(paths);

  fs::remove_all(target);
  fs::remove_all(logs);
  fs::remove(record);
  SetManualFlags(ctx.settings, true);
  ctx.settings.ManualFlagsText = "/MIR  \"/X Y\"";
  ctx.settings.Sources = {src + "/a b.txt"};
  ASSERT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Completed);
  EXPECT_EQ(RecordedCalls(record), (Calls{{src, target, "a b.txt", "/MIR", "/X Y"}}));
}

// No ROBOCOPY anywhere on the search path: a silent run logs each file and the fallback copies;
// otherwise a box says so.
TEST_F(RobocopyEngineTest, AMissingToolIsReportedPerFileAndTheFallbackCopies) {
  ctx.settings.Silent = true;
  WriteSources({"one.txt", "two.txt"});

  ASSERT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Completed);
  ExpectCopiedAndVerified({"one.txt", "two.txt"});
  auto line = [&](const std::string& name) {
    return "Robocopy Error: ((ROBOCOPY \"" + src + "\" \"" + target + "/with space\" " + name +
           " " + GetOptionString(ctx.settings) + ")) 2 : No such file or directory";
  };
  EXPECT_EQ(SortedLines(logs + "/_silent.log"),
            (std::vector<std::string>{line("one.txt"), line("two.txt")}));
  EXPECT_TRUE(dialogs.shown.empty());

  ctx.settings.Silent = false;
  RunRobocopyProcess(ctx, "ROBOCOPY " + src + " /nowhere f.txt /R:4 /W:2",
                     RobocopyArguments(src, "/nowhere", "f.txt", "/R:4 /W:2"));
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Robocopy Error:\r\n\r\nROBOCOPY " + src +
                                       " /nowhere f.txt /R:4 /W:2\r\n\r\n2 : No such file or "
                                       "directory");
  EXPECT_TRUE(dialogs.shown[0].icon == Icon::Exclamation &&
              dialogs.shown[0].title == ctx.program.titleText);
}

// Skip and Cancel stop the wait, never the tool: the fallback copies what is in hand.
TEST_F(RobocopyEngineTest, SkipAndCancelStopTheWaitButNeverTheTool) {
  InstallTool(true);
  WriteSources({"slow1.txt", "slow2.txt"});
  // Skip is pressed while the first tool is being waited for, and stays pressed.
  PressWhileCopying(ctx.counters.SkipRequested);
  ASSERT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Completed);
  ExpectCopiedAndVerified({"slow1.txt", "slow2.txt"});
  EXPECT_FALSE(fs::exists(record + ".done")) << "the run did not wait for the tools";
  EXPECT_EQ(LetToolsFinish(2), (std::vector<std::string>{"slow1.txt", "slow2.txt"}));

  fs::remove_all(target);
  fs::remove_all(logs);
  fs::remove(record + ".done");
  fs::remove(dir / "go");
  ctx.counters = {};
  PressWhileCopying(ctx.counters.CancelRequested);
  ctx.settings.Sources = {src + "/slow1.txt"};
  EXPECT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Cancelled);
  EXPECT_EQ(test::ReadBytes(target + "/slow1.txt"), "slow1.txt");
  EXPECT_FALSE(fs::exists(record + ".done")) << "the run did not wait for the tool";
  EXPECT_EQ(LetToolsFinish(1), std::vector<std::string>{"slow1.txt"}) << "the tool was not killed";
}

}  // namespace
}  // namespace qr
