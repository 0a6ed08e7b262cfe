// Arguments, message boxes, the progress line's text; its drawing is the cancelled run's.
#include <gtest/gtest.h>

#include <sstream>

#include "progress_line.h"
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

// The whole runs read the other options.
TEST(RunnerUsage, HelpWinsAndAfterTwoDashesEveryArgumentIsASource) {
  std::istringstream in;
  std::ostringstream out, err;
  // --help answers even when the rest of the line would be wrong for a run.
  EXPECT_EQ(RunCommand({"--target", "x", "--help"}, in, out, err, false), 0);
  EXPECT_TRUE(out.str().starts_with("Usage: ravelin-run ")) << out.str();
  std::string error;
  auto cl = ParseCommandLine({"b", "--target=T", "a", "--", "--yes", "-q"}, error);
  ASSERT_TRUE(cl) << error;
  EXPECT_EQ(cl->target, "T");
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
      // A terminal: the person answers; anything unclear is asked again; end of input refuses.
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

constexpr const char* kFixed =
    "Files 3 of 10 | 12 of 41 MB | Elapsed 00:00:01:05 | Remaining 00:00:30";

TEST(ProgressLineText, CountsTimesAndTheCurrentFileShortenedToTheRoomLeft) {
  RunCounters c;
  c.RunActive = true;
  ProgressPane p;
  p.lblElapsedTime = "Elapsed Time: 00:00:01:05";
  c.CopyPhaseActive = true;
  c.FilesProcessed = 3;
  c.TotalFiles = 10;
  c.BytesProcessed = 12 * 1024000 + 400000;  // 12.39 MB as the window counts them
  c.TotalBytes = 40 * 1024000 + 600000;      // 40.59
  // The window's start texts: no time yet, no estimate yet, no file yet.
  EXPECT_EQ(FormatProgressLine(c, ProgressPane{}, 200),
            "Files 3 of 10 | 12 of 41 MB | Elapsed --:--:--:-- | Remaining --:--:--");
  p.lblTimeRemaining = "Estimated Time Remaining: 00:00:30";
  // Blanks belong to a name: only the caption is taken off.
  p.lblCurrentFile = "Current File:  two  blanks ";
  EXPECT_EQ(FormatProgressLine(c, p, 200), std::string(kFixed) + " |  two  blanks ");
  // 20 columns for the name, one column kept free at the end.
  p.lblCurrentFile = "Current File: a_very_long_file_name_of_a_report_2026.pdf";
  const int fixed = DisplayWidth(kFixed);
  EXPECT_EQ(FormatProgressLine(c, p, fixed + 3 + 20 + 1),
            std::string(kFixed) + " | a_very_l..._2026.pdf");
  // Too little room for a name that says anything: no name; narrower still, the line is cut.
  EXPECT_EQ(FormatProgressLine(c, p, fixed + 3 + 7 + 1), kFixed);
  EXPECT_EQ(FormatProgressLine(c, p, 15), "Files 3 of 10 ");

  // Whatever the width, the line never takes the last column nor splits a character.
  p.lblCurrentFile = "Current File: \xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e_file\xe5\x90\x8d.txt";
  for (int columns = 1; columns <= 140; ++columns) {
    const std::string line = FormatProgressLine(c, p, columns);
    EXPECT_LE(DisplayWidth(line), columns - 1) << columns;
    EXPECT_EQ(PrintableText(line), line) << columns;
  }

  // Control characters in a name never reach the terminal, nor do an overlong slash, a
  // surrogate or a character cut short; good UTF-8 passes.
  p.lblCurrentFile = "Current File: evil\r\n\x1b]0;title\x07name";
  EXPECT_EQ(FormatProgressLine(c, p, 200), std::string(kFixed) + " | evil???]0;title?name");
  EXPECT_EQ(PrintableText("d\x7f\xc2\x9b"
                          "e\xff"
                          "f\xe2\x80\xae"
                          "g|\xc0\xaf|\xed\xa0\x80|t\xe6\x97|ok \xc3\xa9\xf0\x9f\x93\x84"),
            "d??e?f?g|??|???|t??|ok \xc3\xa9\xf0\x9f\x93\x84");
}

}  // namespace
}  // namespace qr::cli
