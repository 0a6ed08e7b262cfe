// The runner's pieces that don't need a run: argument parsing, the terminal's message boxes,
// path tidying and the pump.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <thread>

#include "absolute_path.h"
#include "platform/process.h"
#include "run_command.h"
#include "terminal_dialogs.h"

namespace qr::cli {
namespace {

std::string Cwd() { return std::filesystem::current_path().string(); }

struct Usage {
  std::vector<std::string> args;
  std::string reason;  // part of the message on standard error
};

TEST(RunnerUsage, WrongUsageExits64WithTheReasonAndTouchesNothing) {
  const std::vector<Usage> cases = {
      {{"--frobnicate"}, "unknown option --frobnicate"},
      {{"-silent"}, "unknown option -silent"},
      {{"--target"}, "--target needs a folder"},
      {{"--target="}, "--target needs a folder"},
      {{"--log"}, "--log needs a folder"},
      {{"--target", "a", "--target", "b"}, "--target is given more than once"},
      {{"--log=a", "--log", "b"}, "--log is given more than once"},
      {{"src", "job.lsw"}, "a job file carries its own sources, target and log folder"},
      {{"--target", "t", "/x/_jobfile.rvj"}, "a job file carries its own sources"},
      {{"a.lsw", "b.rvj"}, "one job file at a time: b.rvj"},
      {{"--resume", "src"}, "--resume needs a job file"},
      {{""}, "is no source path"},
      {{"-"}, "is no source path"},
  };
  for (const Usage& c : cases) {
    std::istringstream in;
    std::ostringstream out, err;
    int status = RunCommand(c.args, in, out, err, false);
    SCOPED_TRACE(c.reason);
    EXPECT_EQ(status, kExitUsage);
    EXPECT_NE(err.str().find(c.reason), std::string::npos) << err.str();
    EXPECT_NE(err.str().find("--help"), std::string::npos);
    EXPECT_EQ(out.str(), "");
  }
}

TEST(RunnerUsage, HelpWinsAndNamesEveryExitStatus) {
  std::istringstream in;
  std::ostringstream out, err;
  // --help answers even when the rest of the line would be wrong for a run.
  EXPECT_EQ(RunCommand({"--target", "x", "--help"}, in, out, err, false), 0);
  const std::string text = out.str();
  EXPECT_TRUE(text.starts_with("Usage: ravelin-run [--yes] [--silent] [--target DIR] [--log DIR]"));
  for (const char* status : {"\n  0 ", "\n  1 ", "\n  2 ", "\n  3 ", "\n  64 "}) {
    EXPECT_NE(text.find(status), std::string::npos) << status;
  }
  EXPECT_NE(text.find("without it the log\n                folder is the target folder"),
            std::string::npos);
  EXPECT_EQ(err.str(), "");
}

TEST(RunnerUsage, OptionsAndSourcesAreReadInOrder) {
  std::string error;
  auto cl = ParseCommandLine(
      {"b", "--yes", "--target=T", "a", "--silent", "--log", "L", "--", "--yes", "-q"}, error);
  ASSERT_TRUE(cl) << error;
  EXPECT_TRUE(cl->yes);
  EXPECT_TRUE(cl->silent);
  EXPECT_EQ(cl->target, "T");
  EXPECT_EQ(cl->log, "L");
  // After "--" an argument that looks like an option is a source.
  EXPECT_EQ(cl->sources, (std::vector<std::string>{"b", "a", "--yes", "-q"}));
}

TEST(AbsolutePath, RelativePathsAreAnchoredAtTheCurrentFolderAndTidied) {
  const std::string cwd = Cwd();
  EXPECT_EQ(AbsolutePath("src"), cwd + "/src");
  EXPECT_EQ(AbsolutePath("./a/./b/../c/"), cwd + "/a/c");
  EXPECT_EQ(AbsolutePath("."), cwd);
  EXPECT_EQ(AbsolutePath("/data//in/"), "/data/in");
  EXPECT_EQ(AbsolutePath("/"), "/");
  EXPECT_EQ(AbsolutePath("name with blanks, and 'quotes' \xc3\xa9"),
            cwd + "/name with blanks, and 'quotes' \xc3\xa9");
}

struct Box {
  Buttons buttons;
  bool yes;
  bool interactive;
  std::string typed;
  Answer expected;
};

TEST(TerminalDialogs, EachBoxIsAnsweredFromYesTheTerminalOrRefused) {
  // The whole runs also take the job notice and the report with --yes, and refuse the notice
  // without a terminal.
  const std::vector<Box> cases = {
      {Buttons::YesNo, true, false, "", Answer::Yes},
      // No terminal: questions are refused, a notice is taken as read.
      {Buttons::YesNo, false, false, "y\n", Answer::No},
      {Buttons::Ok, false, false, "", Answer::Ok},
      // A terminal: the person answers; anything unclear is asked again.
      {Buttons::YesNo, false, true, "y\n", Answer::Yes},
      {Buttons::YesNo, false, true, "maybe\n\nNO\n", Answer::No},
      {Buttons::OkCancel, false, true, " Yes \n", Answer::Ok},
      {Buttons::OkCancel, false, true, "n\n", Answer::Cancel},
      {Buttons::Ok, false, true, "\n", Answer::Ok},
      // The end of input at a question refuses it.
      {Buttons::YesNo, false, true, "", Answer::No},
      {Buttons::OkCancel, false, true, "what\n", Answer::Cancel},
  };
  int i = 0;
  for (const Box& c : cases) {
    SCOPED_TRACE(i++);
    std::istringstream in(c.typed);
    std::ostringstream err;
    TerminalDialogs d(in, err, c.yes, c.interactive);
    EXPECT_EQ(d.MessageBox("Question?", "Title", Icon::Question, c.buttons), c.expected);
    EXPECT_TRUE(err.str().starts_with("--- Title (question) ---\nQuestion?\n")) << err.str();
  }
}

TEST(TerminalDialogs, ControlCharactersInNamesAreShownEscaped) {
  // A name that would retitle the terminal, clear it, or start an 8-bit control sequence.
  const std::string name = "x\x1b]2;owned\x07y\x1b[2J\x7f\xc2\x9b\x9b\xff\x01.txt";
  const std::string shown = "x\\x1B]2;owned\\x07y\\x1B[2J\\x7F\\xC2\\x9B\\x9B\\xFF\\x01.txt";
  std::istringstream in;
  std::ostringstream err;
  TerminalDialogs d(in, err, true, false);
  d.MessageBox("Cannot access file:\r\n" + name, "T\x1b" + name, Icon::None, Buttons::Ok);
  EXPECT_EQ(err.str(), "--- T\\x1B" + shown + " ---\nCannot access file:\n" + shown +
                           "\n> OK (--yes)\n");
  // Printable text passes unchanged: tabs, accents, wide characters and emoji.
  const std::string fine = "caf\xc3\xa9\t\xe6\x97\xa5 \xf0\x9f\x93\x84 \xc2\xa0\\x41";
  EXPECT_EQ(TerminalText(fine), fine);
  // Bytes of no well-formed character: cut short, overlong, a surrogate.
  EXPECT_EQ(TerminalText("a\xe6\x97"), "a\\xE6\\x97");
  EXPECT_EQ(TerminalText("\xc0\xaf\xed\xa0\x80"), "\\xC0\\xAF\\xED\\xA0\\x80");
  // Every line end, CR LF or alone, is a plain one.
  EXPECT_EQ(TerminalText("a\r\n\r\nb\rc\nd"), "a\n\nb\nc\nd");
}

TEST(TerminalDialogs, InputBoxesAndPickersAskAtATerminalAndGetNothingWithoutOne) {
  std::istringstream typed("typed\n/somewhere\n");
  std::ostringstream err;
  TerminalDialogs none(typed, err, true, false);
  EXPECT_EQ(none.InputBox("Type the path you wish to add.", "Add Path Manually", "/"),
            std::nullopt);
  EXPECT_EQ(none.PickFolder("Choose a Target Directory", ""), "");
  EXPECT_EQ(none.OpenFile("Open", "", ""), "");
  EXPECT_EQ(none.SaveFile("Save", "", ""), "");
  EXPECT_EQ(err.str(), "");

  std::istringstream in("\nmine\nrel/dir\n\n");
  TerminalDialogs d(in, err, false, true);
  EXPECT_EQ(d.InputBox("Type the path you wish to add.", "Add Path Manually", "/"), "/");
  EXPECT_EQ(d.InputBox("Type the path you wish to add.", "Add Path Manually", "/"), "mine");
  EXPECT_EQ(d.PickFolder("Choose a Target Directory", ""), Cwd() + "/rel/dir");
  EXPECT_EQ(d.PickFolder("Choose a Target Directory", ""), "");
  // Input has run out: the box is cancelled.
  EXPECT_EQ(d.InputBox("Again?", "T", "x"), std::nullopt);
  EXPECT_NE(err.str().find("--- Choose a Target Directory ---"), std::string::npos);
}

TEST(CliEventPump, ACtrlCBecomesACancelRequestAtTheNextPump) {
  volatile std::sig_atomic_t flag = 0;
  std::istringstream in;
  std::ostringstream err;
  TerminalDialogs dialogs(in, err, true, false);
  CliEventPump pump(flag);
  RunContext ctx(dialogs, pump);
  RunCounters& counters = ctx.counters;
  pump.Pump();  // not attached yet: nothing to set, and no crash
  pump.Attach(ctx);
  pump.Pump();
  EXPECT_FALSE(counters.CancelRequested);
  flag = 1;
  pump.Pump();
  EXPECT_TRUE(counters.CancelRequested);
  // The run clears the request at its start; a Ctrl-C pressed before then still counts.
  counters.CancelRequested = false;
  pump.Pump();
  EXPECT_TRUE(counters.CancelRequested);
}

TEST(CliEventPump, ChildrenTheRunStoppedWaitingForAreReaped) {
  StartResult child = StartHidden({"true"});
  ASSERT_TRUE(child.started) << child.error;
  AbandonChild(child.pid);
  volatile std::sig_atomic_t flag = 0;
  CliEventPump pump(flag);
  bool reaped = false;
  for (int i = 0; i < 200 && !reaped; ++i) {
    pump.Pump();
    // WNOWAIT: look without reaping, so that only the pump can make the child go.
    siginfo_t info{};
    errno = 0;
    reaped =
        waitid(P_PID, static_cast<id_t>(child.pid), &info, WEXITED | WNOHANG | WNOWAIT) == -1 &&
        errno == ECHILD;
    if (!reaped) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_TRUE(reaped);
}

}  // namespace
}  // namespace qr::cli
