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
using test::TempDir;

// Every argument on a line of its own, a "--" line after each call.
std::vector<std::vector<std::string>> RecordedCalls(const std::string& path) {
  std::vector<std::vector<std::string>> calls(1);
  for (const std::string& line : SplitLines(test::ReadBytes(path))) {
    if (line == "--") {
      calls.emplace_back();
    } else {
      calls.back().push_back(line);
    }
  }
  calls.pop_back();
  return calls;
}

class RobocopyEngineTest : public ::testing::Test, protected test::RunFixture {
 protected:
  std::string bin = dir.MakeDir("bin");
  std::string src = dir.MakeDir("with space");
  std::string target = dir / "target";
  std::string logs = dir / "logs";
  std::string record = dir / "calls.txt";
  std::string go = dir / "go";
  test::EnvVar path{"PATH", bin + ":/usr/bin:/bin"};

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
        "#!/bin/sh\n"
        "printf '%s\\n' \"$@\" -- >> '" +
        record + "'\n" +
        (slow ? "n=0; while [ ! -e '" + go +
                    "' ] && [ $n -lt 400 ]; do sleep 0.05; "
                    "n=$((n+1)); done\n"
              : "") +
        "cp -p \"$1/$3\" \"$2/\" && touch -r \"$1/$3\" \"$2/$3\" &&\n"
        "echo \"$3\" >> '" +
        record + ".done'\n";
    const std::string tool = dir.WriteFile("bin/ROBOCOPY", script);
    ASSERT_EQ(chmod(tool.c_str(), 0755), 0);
  }

  // Lets the slow tools go, and the names they finished within 15 seconds.
  std::vector<std::string> LetToolsFinish(size_t expected) {
    dir.WriteFile("go", "");
    std::vector<std::string> done;
    for (int i = 0; i < 300 && done.size() < expected; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      done = SplitLines(test::ReadBytes(record + ".done"));
    }
    std::sort(done.begin(), done.end());
    return done;
  }

  // Presses a button (sets the flag) once the run is waiting for the tool.
  void PressWhileCopying(bool& button) {
    pump.onPump = [this, &button](int) {
      if (ctx.progress.lblCurrentProcess == "Current Process: Copying File") button = true;
    };
  }

  // The CSV has one line per file, each with matching hashes of source and copy.
  void ExpectVerified(size_t files) {
    std::vector<std::string> lines = test::Utf16FileLines(logs + "/_verification_log.csv");
    ASSERT_EQ(lines.size(), files + 1);
    for (size_t i = 1; i < lines.size(); ++i) {
      EXPECT_NE(lines[i].find(",Y,Y,"), std::string::npos) << lines[i];
    }
  }
};

// Each file is one call of the tool: its folder, its target folder and its name, each one
// argument whatever it holds (quotes and blanks that a command-line splitter would take for
// argument bounds), then the option flags as separate arguments.
TEST_F(RobocopyEngineTest, EveryFileIsCopiedByTheToolWithItsArguments) {
  InstallTool();
  const std::vector<std::pair<std::string, std::string>> files = {
      {"", "a b.txt"},
      {"/sub", "c.bin"},
      {"/\"sub dir\" x", "a\" \"b.txt"},
      {"/\"sub dir\" x", "odd\"quote.txt"},
      {"/\"sub dir\" x", "  two  blanks"},
      {"/\"sub dir\" x", "tab\there \"\".txt"}};
  for (const auto& [folder, name] : files) dir.WriteFile("with space" + folder + "/" + name, name);

  ASSERT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Completed);
  EXPECT_EQ(ctx.counters.FilesProcessed, static_cast<int>(files.size()));
  const std::vector<std::string> flags = Split(GetOptionString(ctx.settings), " ");
  std::vector<std::vector<std::string>> expected;
  std::vector<std::string> names;
  for (const auto& [folder, name] : files) {
    EXPECT_EQ(test::ReadBytes(target + "/with space" + folder + "/" + name), name);
    expected.push_back({src + folder, target + "/with space" + folder, name});
    expected.back().insert(expected.back().end(), flags.begin(), flags.end());
    names.push_back(name);
  }
  auto calls = RecordedCalls(record);
  std::sort(calls.begin(), calls.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(calls, expected);
  // The tool, not the fallback, made every copy.
  auto done = SplitLines(test::ReadBytes(record + ".done"));
  std::sort(done.begin(), done.end());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(done, names);

  ExpectVerified(files.size());
  EXPECT_EQ(ctx.progress.lblCurrentProcess, "Current Process: ");
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(RobocopyEngineTest, ManualFlagsReplaceTheOptionFlags) {
  InstallTool();
  dir.WriteFile("with space/f.txt", "x");
  SetManualFlags(ctx.settings, true);
  ctx.settings.ManualFlagsText = "/MIR  \"/X Y\"";

  ASSERT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Completed);
  EXPECT_EQ(RecordedCalls(record),
            (std::vector<std::vector<std::string>>{
                {src, target + "/with space", "f.txt", "/MIR", "/X Y"}}));
}

TEST_F(RobocopyEngineTest, AMissingToolIsReportedPerFileAndTheFallbackCopies) {
  // No ROBOCOPY anywhere on the search path.
  ctx.settings.Silent = true;
  dir.WriteFile("with space/one.txt", "1");
  dir.WriteFile("with space/two.txt", "22");

  ASSERT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Completed);
  EXPECT_EQ(ctx.counters.FilesProcessed, 2);
  EXPECT_EQ(test::ReadBytes(target + "/with space/one.txt"), "1");
  EXPECT_EQ(test::ReadBytes(target + "/with space/two.txt"), "22");
  ExpectVerified(2);

  auto line = [&](const std::string& name) {
    return "Robocopy Error: ((ROBOCOPY \"" + src + "\" \"" + target + "/with space\" " + name +
           " " + GetOptionString(ctx.settings) + ")) 2 : No such file or directory";
  };
  std::vector<std::string> silent = SplitLines(test::ReadBytes(logs + "/_silent.log"));
  std::sort(silent.begin(), silent.end());
  EXPECT_EQ(silent, (std::vector<std::string>{line("one.txt"), line("two.txt")}));
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(RobocopyEngineTest, AMissingToolShowsItsBoxWhenNotSilent) {
  test::TempDir other;
  RunRobocopyProcess(ctx, "ROBOCOPY " + other.path() + " /nowhere f.txt /R:4 /W:2",
                     RobocopyArguments(other.path(), "/nowhere", "f.txt", "/R:4 /W:2"));
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Robocopy Error:\r\n\r\nROBOCOPY " + other.path() +
                                       " /nowhere f.txt /R:4 /W:2\r\n\r\n2 : No such file or "
                                       "directory");
  EXPECT_TRUE(dialogs.shown[0].icon == Icon::Exclamation && dialogs.shown[0].title == ctx.program.titleText);
}

TEST_F(RobocopyEngineTest, SkipStopsTheWaitButNeverTheTool) {
  InstallTool(true);
  dir.WriteFile("with space/slow1.txt", "slow one");
  dir.WriteFile("with space/slow2.txt", "slow two");
  // Skip is pressed while the first tool is being waited for, and stays pressed.
  PressWhileCopying(ctx.counters.SkipRequested);

  ASSERT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Completed);
  // Neither tool was waited for: the fallback made both copies, and the record proves them.
  EXPECT_EQ(ctx.counters.FilesProcessed, 2);
  EXPECT_EQ(test::ReadBytes(target + "/with space/slow1.txt"), "slow one");
  EXPECT_EQ(test::ReadBytes(target + "/with space/slow2.txt"), "slow two");
  ExpectVerified(2);
  EXPECT_FALSE(fs::exists(record + ".done")) << "the run did not wait for the tools";

  // Both tools run on to their end by themselves.
  EXPECT_EQ(LetToolsFinish(2), (std::vector<std::string>{"slow1.txt", "slow2.txt"}));
  EXPECT_EQ(RecordedCalls(record).size(), 2u) << "each file still starts its tool";
}

TEST_F(RobocopyEngineTest, CancelStopsTheWaitAndTheRunFinishesTheFileInHand) {
  InstallTool(true);
  dir.WriteFile("with space/only.txt", "only");
  PressWhileCopying(ctx.counters.CancelRequested);
  EXPECT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Cancelled);
  EXPECT_EQ(test::ReadBytes(target + "/with space/only.txt"), "only");
  EXPECT_FALSE(fs::exists(record + ".done")) << "the run did not wait for the tool";
  EXPECT_EQ(LetToolsFinish(1), std::vector<std::string>{"only.txt"}) << "the tool was not killed";
}

}  // namespace
}  // namespace qr
