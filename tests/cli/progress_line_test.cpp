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
using test::PseudoTerminal;

struct Copying {
  RunCounters c;
  ProgressPane p;
  Copying() {
    c.RunActive = true;
    c.CopyPhaseActive = true;
    c.FilesProcessed = 3;
    c.TotalFiles = 10;
    c.BytesProcessed = 12 * 1024000 + 400000;  // 12.39 MB as the window counts them
    c.TotalBytes = 40 * 1024000 + 600000;      // 40.59
    p.lblElapsedTime = "Elapsed Time: 00:00:01:05";
    p.lblTimeRemaining = "Estimated Time Remaining: 00:00:30";
    p.lblCurrentFile = "Current File: report.pdf";
  }
};

constexpr const char* kFixed =
    "Files 3 of 10 | 12 of 41 MB | Elapsed 00:00:01:05 | Remaining 00:00:30";

TEST(ProgressLineText, CopyingShowsCountsTimesAndTheCurrentFile) {
  Copying s;
  EXPECT_EQ(FormatProgressLine(s.c, s.p, 200), std::string(kFixed) + " | report.pdf");

  // The window's start texts: no time yet, no estimate yet, no file yet.
  ProgressPane fresh;
  EXPECT_EQ(FormatProgressLine(s.c, fresh, 200),
            "Files 3 of 10 | 12 of 41 MB | Elapsed --:--:--:-- | Remaining --:--:--");

  // Blanks belong to a name: only the caption is taken off.
  s.p.lblCurrentFile = "Current File:  two  blanks ";
  EXPECT_EQ(FormatProgressLine(s.c, s.p, 200), std::string(kFixed) + " |  two  blanks ");
}

TEST(ProgressLineText, BeforeCopyingTheStatusAndElapsedTimeOnly) {
  ProgressPane p;
  RunCounters c;
  c.RunActive = true;
  p.lblStatus = "Enumerating Files: 1234 Found";
  p.lblElapsedTime = "Elapsed Time: 00:00:00:03";
  p.lblCurrentFile = "Current File: left.over";  // from an earlier run: not shown
  EXPECT_EQ(FormatProgressLine(c, p, 120), "Enumerating Files: 1234 Found | Elapsed 00:00:00:03");
}

TEST(ProgressLineText, ALongNameIsShortenedInTheMiddleToTheRoomLeft) {
  Copying s;
  s.p.lblCurrentFile = "Current File: a_very_long_file_name_of_a_report_2026.pdf";
  const int fixed = DisplayWidth(kFixed);
  // 20 columns for the name, one column kept free at the end.
  EXPECT_EQ(FormatProgressLine(s.c, s.p, fixed + 3 + 20 + 1),
            std::string(kFixed) + " | a_very_l..._2026.pdf");
  // Too little room for a name that says anything: no name.
  EXPECT_EQ(FormatProgressLine(s.c, s.p, fixed + 3 + 7 + 1), kFixed);
  // Narrower than the counts themselves: the line is cut.
  EXPECT_EQ(FormatProgressLine(s.c, s.p, 15), "Files 3 of 10 ");
  EXPECT_EQ(FormatProgressLine(s.c, s.p, 1), "");
  EXPECT_EQ(FormatProgressLine(s.c, s.p, 0), "");

  // Whatever the width, the line never takes the last column.
  s.p.lblCurrentFile = "Current File: \xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e_file\xe5\x90\x8d.txt";
  for (int columns = 1; columns <= 140; ++columns) {
    SCOPED_TRACE(columns);
    const std::string line = FormatProgressLine(s.c, s.p, columns);
    EXPECT_LE(DisplayWidth(line), columns - 1 > 0 ? columns - 1 : 0);
    EXPECT_EQ(PrintableText(line), line) << "a character was split";
  }
}

TEST(ProgressLineText, NamesAreShortenedByColumnsNeverSplittingACharacter) {
  EXPECT_EQ(ShortenMiddle("abcdefghij", 10), "abcdefghij");
  EXPECT_EQ(ShortenMiddle("abcdefghij", 9), "abc...hij");
  EXPECT_EQ(ShortenMiddle("abcdefghij", 3), "abc");

  // Wide characters take two columns each; the shortened name fits and stays whole.
  const std::string wide = "\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e\xe3\x81\xae.txt";  // 日本語の.txt
  EXPECT_EQ(DisplayWidth(wide), 12);
  EXPECT_EQ(ShortenMiddle(wide, 12), wide);
  EXPECT_EQ(ShortenMiddle(wide, 11), "\xe6\x97\xa5\xe6\x9c\xac....txt");  // 日本....txt

  // A combining mark takes no column and is never cut from its letter.
  const std::string accented = "cafe\xcc\x81_menu_e\xcc\x81t\xc3\xa9.txt";  // café_menu_été.txt
  EXPECT_EQ(DisplayWidth(accented), 17);
  EXPECT_EQ(ShortenMiddle(accented, 14), "cafe\xcc\x81_...t\xc3\xa9.txt");
}

TEST(ProgressLineText, ControlCharactersAndBrokenUtf8NeverReachTheTerminal) {
  EXPECT_EQ(PrintableText("a\nb\rc\x1b[2Jd\x7f\xc2\x9b"
                          "e\xff"
                          "f\xe2\x80\xae"
                          "g"),
            "a?b?c?[2Jd??e?f?g");
  EXPECT_EQ(PrintableText("\xc0\xaf"), "??") << "an overlong slash";
  EXPECT_EQ(PrintableText("\xed\xa0\x80"), "???") << "a surrogate";
  EXPECT_EQ(PrintableText("tail\xe6\x97"), "tail??") << "a character cut short";
  EXPECT_EQ(PrintableText("ok \xc3\xa9\xf0\x9f\x93\x84"), "ok \xc3\xa9\xf0\x9f\x93\x84");

  Copying s;
  s.p.lblCurrentFile = "Current File: evil\r\n\x1b]0;title\x07name";
  const std::string line = FormatProgressLine(s.c, s.p, 200);
  for (char ch : line) EXPECT_GE(static_cast<unsigned char>(ch), 0x20) << line;
  EXPECT_TRUE(line.ends_with(" | evil???]0;title?name")) << line;
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

// The texts drawn: what stands between a carriage return and the clear-to-end-of-line.
std::vector<std::string> DrawnTexts(const std::string& out) {
  std::vector<std::string> texts;
  for (size_t end = out.find("\x1b[K"); end != std::string::npos;
       end = out.find("\x1b[K", end + 1)) {
    const size_t start = out.rfind('\r', end);
    texts.push_back(start == std::string::npos ? out.substr(0, end)
                                               : out.substr(start + 1, end - start - 1));
  }
  return texts;
}

TEST(ProgressLineDrawing, RedrawsInPlaceFourTimesASecondAtMostAndFitsTheTerminal) {
  PseudoTerminal tty(100);
  ASSERT_TRUE(tty.ok());
  LiveRun run;
  std::ostringstream err;
  ProgressLine line(err, tty.slave());
  const auto t0 = std::chrono::steady_clock::now();

  line.Refresh(run.ctx, t0);
  const std::string first = err.str();
  ASSERT_TRUE(first.starts_with("\r")) << first;
  ASSERT_TRUE(first.ends_with("\x1b[K")) << first;
  const std::vector<std::string> drawn = DrawnTexts(first);
  ASSERT_EQ(drawn.size(), 1u);
  EXPECT_EQ(DisplayWidth(drawn[0]), 99) << drawn[0];
  EXPECT_TRUE(drawn[0].starts_with("Files 0 of 4 | 0 of 0 MB | Elapsed 00:00:01:0")) << drawn[0];
  EXPECT_TRUE(drawn[0].ends_with("nnn.bin")) << drawn[0];
  // The window's timer ticked with the redraw.
  EXPECT_TRUE(run.ctx.progress.lblElapsedTime.starts_with("Elapsed Time: 00:00:01:0"));

  line.Refresh(run.ctx, t0 + 249ms);
  EXPECT_EQ(err.str(), first) << "redrawn within a quarter of a second";
  run.ctx.counters.FilesProcessed = 1;
  line.Refresh(run.ctx, t0 + 250ms);
  ASSERT_EQ(DrawnTexts(err.str()).size(), 2u);
  EXPECT_TRUE(DrawnTexts(err.str())[1].starts_with("Files 1 of 4 |"));

  // Erased once; a second erase has nothing to clear.
  err.str("");
  line.Erase();
  line.Erase();
  EXPECT_EQ(err.str(), "\r\x1b[K");

  // Drawn again, then the run ends: the next pump clears the line and draws nothing.
  line.Refresh(run.ctx, t0 + 1s);
  run.ctx.counters.RunActive = false;
  run.ctx.counters.CopyPhaseActive = false;
  err.str("");
  line.Refresh(run.ctx, t0 + 2s);
  line.Refresh(run.ctx, t0 + 3s);
  EXPECT_EQ(err.str(), "\r\x1b[K");
}

// A box in the middle of a run (an error, a question) starts on a cleared line. The whole run
// can't show it: its line is gone by the time the closing box comes.
TEST(ProgressLineDrawing, TheLineIsErasedBeforeABox) {
  PseudoTerminal tty(80);
  ASSERT_TRUE(tty.ok());
  LiveRun run;
  std::istringstream in;
  std::ostringstream err;
  ProgressLine line(err, tty.slave());
  TerminalDialogs boxes(in, err, true, false, &line);
  line.Refresh(run.ctx, std::chrono::steady_clock::now());
  const size_t drawnUpTo = err.str().size();
  boxes.MessageBox("Something to say.", "Title", Icon::Exclamation, Buttons::Ok);
  EXPECT_EQ(err.str().substr(drawnUpTo),
            "\r\x1b[K--- Title (warning) ---\nSomething to say.\n> OK (--yes)\n");
}

}  // namespace
}  // namespace qr::cli
