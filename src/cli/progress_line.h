#pragma once
// The runner's live progress line: one line on a terminal's error stream, redrawn in place a
// few times a second while a run works, and erased before anything else is printed there.
#include <chrono>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "run/job_settings.h"
#include "run/progress_pane.h"
#include "run/run_context.h"

namespace qr::cli {

// Text that is safe to put on a terminal: control characters (C0, DEL, C1) and bytes that are
// not UTF-8 become '?', so that a file name can't move the cursor or start an escape sequence.
std::string PrintableText(std::string_view text);
// Terminal columns of printable UTF-8 text: East Asian wide characters and emoji take two,
// combining marks none, everything else one.
int DisplayWidth(std::string_view text);
// Printable text shortened to at most `columns` columns by putting "..." in its middle, so that
// both the start of a name and its extension stay readable. Never splits a character.
std::string ShortenMiddle(std::string_view text, int columns);

// The line for the run's state at a terminal `columns` wide. It never takes the last column,
// so the cursor can't wrap and "\r" always returns to the start of this line. While copying:
// files done of all, MB done of all (1,024,000 bytes each, as the window counts them), elapsed
// time, the estimate of the time left, and the current file, shortened in the middle to the
// room that is left. Before copying: the window's status text and the elapsed time.
std::string FormatProgressLine(const RunCounters& c, const ProgressPane& p, int columns);

class ProgressLine {
 public:
  // `terminalFd`: the terminal behind `err`, whose width is asked on each redraw; -1 when `err`
  // is not a terminal, and then nothing is ever written.
  ProgressLine(std::ostream& err, int terminalFd) : err_(err), fd_(terminalFd) {}

  bool Enabled() const { return fd_ >= 0; }
  // Ticks the window's timer and redraws, at most four times a second while the run is
  // active; erases the line once it is not.
  void Refresh(RunContext& ctx, std::chrono::steady_clock::time_point now);
  // Clears the line, if one is shown, leaving the cursor at the start of the empty line.
  void Erase();

 private:
  int Columns() const;

  std::ostream& err_;
  int fd_;
  bool shown_ = false;
  std::optional<std::chrono::steady_clock::time_point> lastDraw_;
};

}  // namespace qr::cli
