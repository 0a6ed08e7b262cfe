// The runner's live progress line: its text as a pure function, and its drawing on a real
// pseudo-terminal, with the throttle and the erasing (the whole runs show that nothing at all is
// drawn without a terminal).
#include "progress_line.h"

#include <gtest/gtest.h>

#include <sstream>

#include "pseudo_terminal.h"
#include "support/run_fixture.h"
#include "terminal_dialogs.h"

namespace qr::cli {
namespace {

using namespace std::chrono_literals;

constexpr const char* kFixed =
    "Files 3 of 10 | 12 of 41 MB | Elapsed 00:00:01:05 | Remaining 00:00:30";

TEST(ProgressLineText, CountsTimesAndTheCurrentFileShortenedToTheRoomLeft) {
  RunCounters c;
  c.RunActive = true;
  ProgressPane p;
  p.lblStatus = "Enumerating Files: 1234 Found";
  p.lblElapsedTime = "Elapsed Time: 00:00:01:05";
  p.lblCurrentFile = "Current File: left.over";  // before copying: not shown
  EXPECT_EQ(FormatProgressLine(c, p, 120), "Enumerating Files: 1234 Found | Elapsed 00:00:01:05");

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
  EXPECT_EQ(FormatProgressLine(c, p, 0), "");

  // Whatever the width, the line never takes the last column nor splits a character.
  p.lblCurrentFile = "Current File: \xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e_file\xe5\x90\x8d.txt";
  for (int columns = 1; columns <= 140; ++columns) {
    const std::string line = FormatProgressLine(c, p, columns);
    EXPECT_LE(DisplayWidth(line), columns - 1) << columns;
    EXPECT_EQ(PrintableText(line), line) << columns;
  }

  // Control characters in a name never reach the terminal.
  p.lblCurrentFile = "Current File: evil\r\n\x1b]0;title\x07name";
  EXPECT_EQ(FormatProgressLine(c, p, 200), std::string(kFixed) + " | evil???]0;title?name");
}

TEST(ProgressLineText, ControlCharactersAndBrokenUtf8BecomeQuestionMarks) {
  // Control characters, an overlong slash, a surrogate, a character cut short; good UTF-8 passes.
  EXPECT_EQ(PrintableText("a\nb\rc\x1b[2Jd\x7f\xc2\x9b"
                          "e\xff"
                          "f\xe2\x80\xae"
                          "g|\xc0\xaf|\xed\xa0\x80|t\xe6\x97"),
            "a?b?c?[2Jd??e?f?g|??|???|t??");
  EXPECT_EQ(PrintableText("ok \xc3\xa9\xf0\x9f\x93\x84"), "ok \xc3\xa9\xf0\x9f\x93\x84");
}

// A run whose copying has begun a minute ago.
struct LiveRun : test::RunFixture {
  LiveRun() {
    ctx.counters.RunActive = true;
    ctx.counters.CopyPhaseActive = true;
    ctx.counters.StartTime = Clock::now() - 60s;
    ctx.counters.CopyStartTime = ctx.counters.StartTime;
    ctx.counters.TotalFiles = 4;
    ctx.progress.lblCurrentFile = "Current File: " + std::string(100, 'n') + ".bin";
  }
};

TEST(ProgressLineDrawing, RedrawsInPlaceFourTimesASecondAtMostFitsAndIsErased) {
  test::PseudoTerminal tty(100);
  ASSERT_TRUE(tty.ok());
  LiveRun run;
  std::ostringstream err;
  ProgressLine line(err, tty.slave());
  const auto t0 = std::chrono::steady_clock::now();

  line.Refresh(run.ctx, t0);
  const std::string first = err.str();
  ASSERT_TRUE(first.starts_with("\rFiles 0 of 4 | 0 of 0 MB | Elapsed 00:00:01:0")) << first;
  ASSERT_TRUE(first.ends_with("nnn.bin\x1b[K")) << first;
  EXPECT_EQ(DisplayWidth(first.substr(1, first.size() - 4)), 99) << first;
  // The window's timer ticked with the redraw.
  EXPECT_TRUE(run.ctx.progress.lblElapsedTime.starts_with("Elapsed Time: 00:00:01:0"));

  line.Refresh(run.ctx, t0 + 249ms);
  EXPECT_EQ(err.str(), first) << "redrawn within a quarter of a second";
  run.ctx.counters.FilesProcessed = 1;
  line.Refresh(run.ctx, t0 + 250ms);
  EXPECT_TRUE(err.str().substr(first.size()).starts_with("\rFiles 1 of 4 |")) << err.str();

  // A box in the middle of a run (an error, a question) starts on a cleared line; a second erase
  // has nothing to clear. The whole runs can't show it: their line is gone before the closing box.
  std::istringstream in;
  TerminalDialogs boxes(in, err, true, false, &line);
  err.str("");
  boxes.MessageBox("Something to say.", "Title", Icon::Exclamation, Buttons::Ok);
  line.Erase();
  EXPECT_EQ(err.str(), "\r\x1b[K--- Title (warning) ---\nSomething to say.\n> OK (--yes)\n");

  // Drawn again, then the run ends: the next pump clears the line and draws nothing.
  line.Refresh(run.ctx, t0 + 1s);
  run.ctx.counters.RunActive = false;
  run.ctx.counters.CopyPhaseActive = false;
  err.str("");
  line.Refresh(run.ctx, t0 + 2s);
  line.Refresh(run.ctx, t0 + 3s);
  EXPECT_EQ(err.str(), "\r\x1b[K");
}

}  // namespace
}  // namespace qr::cli
