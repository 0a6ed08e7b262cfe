// The runner's pieces that don't need a run: argument parsing, the terminal's message boxes and
// the pump.
#include <gtest/gtest.h>

#include <sstream>

#include "run_command.h"
#include "terminal_dialogs.h"

namespace qr::cli {
namespace {

TEST(RunnerUsage, WrongUsageExits64WithTheReasonAndTouchesNothing) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"-silent"}, "unknown option -silent"},
      {{"--target="}, "--target needs a folder"},
      {{"--log"}, "--log needs a folder"},
      {{"--log=a", "--log", "b"}, "--log is given more than once"},
      {{"--target", "t", "job.lsw"}, "a job file carries its own sources, target and log folder"},
      {{"a.lsw", "/x/b.rvj"}, "one job file at a time: /x/b.rvj"},
      {{"--resume", "src"}, "--resume needs a job file"},
      {{"-"}, "is no source path"},
  };
  for (const auto& [args, reason] : cases) {
    std::istringstream in;
    std::ostringstream out, err;
    EXPECT_EQ(RunCommand(args, in, out, err, false), kExitUsage) << reason;
    EXPECT_NE(err.str().find(reason), std::string::npos) << err.str();
    EXPECT_NE(err.str().find("--help"), std::string::npos) << reason;
    EXPECT_EQ(out.str(), "");
  }
}

TEST(RunnerUsage, HelpWinsAndOptionsAndSourcesAreReadInOrder) {
  std::istringstream in;
  std::ostringstream out, err;
  // --help answers even when the rest of the line would be wrong for a run.
  EXPECT_EQ(RunCommand({"--target", "x", "--help"}, in, out, err, false), 0);
  const std::string text = out.str();
  EXPECT_TRUE(text.starts_with("Usage: ravelin-run [--yes] [--silent] [--target DIR] [--log DIR]"));
  for (const char* status : {"\n  0 ", "\n  1 ", "\n  2 ", "\n  3 ", "\n  64 "}) {
    EXPECT_NE(text.find(status), std::string::npos) << status;
  }

  std::string error;
  auto cl = ParseCommandLine(
      {"b", "--yes", "--target=T", "a", "--silent", "--log", "L", "--", "--yes", "-q"}, error);
  ASSERT_TRUE(cl) << error;
  EXPECT_TRUE(cl->yes && cl->silent);
  EXPECT_EQ(cl->target, "T");
  EXPECT_EQ(cl->log, "L");
  // After "--" an argument that looks like an option is a source.
  EXPECT_EQ(cl->sources, (std::vector<std::string>{"b", "a", "--yes", "-q"}));
}

TEST(TerminalDialogs, EachBoxIsAnsweredFromYesTheTerminalOrRefused) {
  struct Box {
    Buttons buttons;
    bool yes;
    bool interactive;
    std::string typed;
    Answer expected;
  };
  const std::vector<Box> cases = {
      {Buttons::YesNo, true, false, "", Answer::Yes},
      // No terminal: questions are refused, a notice is taken as read.
      {Buttons::YesNo, false, false, "y\n", Answer::No},
      {Buttons::Ok, false, false, "", Answer::Ok},
      // A terminal: the person answers; anything unclear is asked again; the end of input at a
      // question refuses it.
      {Buttons::YesNo, false, true, "maybe\n\nNO\n", Answer::No},
      {Buttons::YesNo, false, true, "y\n", Answer::Yes},
      {Buttons::OkCancel, false, true, " Yes \n", Answer::Ok},
      {Buttons::OkCancel, false, true, "n\n", Answer::Cancel},
      {Buttons::YesNo, false, true, "", Answer::No},
  };
  for (const Box& c : cases) {
    SCOPED_TRACE(c.typed);
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
  // Bytes of no well-formed character (cut short, overlong, a surrogate); every line end plain.
  EXPECT_EQ(TerminalText("a\xe6\x97|\xc0\xaf\xed\xa0\x80"), "a\\xE6\\x97|\\xC0\\xAF\\xED\\xA0\\x80");
  EXPECT_EQ(TerminalText("a\r\n\r\nb\rc\nd"), "a\n\nb\nc\nd");
}

TEST(CliEventPump, ACtrlCBecomesACancelRequestAtTheNextPump) {
  volatile std::sig_atomic_t flag = 0;
  std::istringstream in;
  std::ostringstream err;
  TerminalDialogs dialogs(in, err, true, false);
  CliEventPump pump(flag);
  RunContext ctx(dialogs, pump);
  pump.Pump();  // not attached yet: nothing to set, and no crash
  pump.Attach(ctx);
  pump.Pump();
  EXPECT_FALSE(ctx.counters.CancelRequested);
  flag = 1;
  pump.Pump();
  EXPECT_TRUE(ctx.counters.CancelRequested);
  // The run clears the request at its start; a Ctrl-C pressed before then still counts.
  ctx.counters.CancelRequested = false;
  pump.Pump();
  EXPECT_TRUE(ctx.counters.CancelRequested);
}

}  // namespace
}  // namespace qr::cli
