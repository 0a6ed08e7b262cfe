#include "progress_line.h"

#include <sys/ioctl.h>

#include <cstdint>
#include <vector>

#include "platform/dates.h"
#include "platform/text.h"
#include "platform/utf8.h"
#include "ui/progress_window.h"

namespace qr::cli {

namespace {

using namespace std::chrono_literals;

constexpr auto kRedrawInterval = 250ms;  // four redraws a second at most
constexpr int kFallbackColumns = 80;     // a terminal that won't tell its width
constexpr int kMinNameColumns = 8;       // below this a shortened name says nothing
constexpr std::string_view kEllipsis = "...";
constexpr std::string_view kSeparator = " | ";

// One character as it goes to the terminal, with the columns it takes.
struct Glyph {
  std::string bytes;
  int width = 1;
};

bool InRange(char32_t c, char32_t lo, char32_t hi) { return c >= lo && c <= hi; }

// Characters a terminal acts on or that change how a line reads: controls, and the invisible
// format characters (bidirectional overrides among them) that can disguise a name.
bool IsUnsafe(char32_t c) {
  return c < 0x20 || InRange(c, 0x7F, 0x9F) || InRange(c, 0x200B, 0x200F) ||
         InRange(c, 0x2028, 0x202E) || InRange(c, 0x2060, 0x206F) || c == 0xFEFF;
}

bool IsCombining(char32_t c) {
  return InRange(c, 0x0300, 0x036F) || InRange(c, 0x0483, 0x0489) || InRange(c, 0x0591, 0x05BD) ||
         InRange(c, 0x0610, 0x061A) || InRange(c, 0x064B, 0x065F) || InRange(c, 0x1AB0, 0x1AFF) ||
         InRange(c, 0x1DC0, 0x1DFF) || InRange(c, 0x20D0, 0x20FF) || InRange(c, 0xFE00, 0xFE0F) ||
         InRange(c, 0xFE20, 0xFE2F);
}

bool IsWide(char32_t c) {
  return InRange(c, 0x1100, 0x115F) || InRange(c, 0x2E80, 0x303E) || InRange(c, 0x3041, 0x33FF) ||
         InRange(c, 0x3400, 0x4DBF) || InRange(c, 0x4E00, 0x9FFF) || InRange(c, 0xA000, 0xA4CF) ||
         InRange(c, 0xAC00, 0xD7A3) || InRange(c, 0xF900, 0xFAFF) || InRange(c, 0xFE30, 0xFE4F) ||
         InRange(c, 0xFF00, 0xFF60) || InRange(c, 0xFFE0, 0xFFE6) || InRange(c, 0x1F300, 0x1F64F) ||
         InRange(c, 0x1F900, 0x1F9FF) || InRange(c, 0x20000, 0x2FFFD) ||
         InRange(c, 0x30000, 0x3FFFD);
}

std::vector<Glyph> Glyphs(std::string_view s) {
  std::vector<Glyph> out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    char32_t c = 0;
    const size_t len = DecodeUtf8(s, i, c);
    if (len == 0 || IsUnsafe(c)) {
      out.push_back({"?", 1});
      i += len == 0 ? 1 : len;
      continue;
    }
    out.push_back({std::string(s.substr(i, len)), IsCombining(c) ? 0 : IsWide(c) ? 2 : 1});
    i += len;
  }
  return out;
}

int Width(const std::vector<Glyph>& g, size_t from, size_t to) {
  int w = 0;
  for (size_t i = from; i < to; ++i) w += g[i].width;
  return w;
}

// The longest start of `text` that fits in `columns`.
std::string TakeColumns(std::string_view text, int columns) {
  std::string out;
  int used = 0;
  for (const Glyph& g : Glyphs(text)) {
    if (used + g.width > columns) break;
    used += g.width;
    out += g.bytes;
  }
  return out;
}

// The text of a label after its caption, or an empty text when it shows only the caption.
std::string LabelValue(const std::string& label, std::string_view caption) {
  if (!label.starts_with(caption)) return Trim(label);
  return Trim(std::string_view(label).substr(caption.size()));
}

// Megabytes as the window counts them: bytes ÷ 1024 ÷ 1000, rounded, halves to even.
int64_t Megabytes(int64_t bytes) {
  constexpr int64_t kDivisor = 1024 * 1000;
  if (bytes < 0) return -Megabytes(-bytes);
  int64_t q = bytes / kDivisor;
  const int64_t r = bytes % kDivisor;
  if (2 * r > kDivisor || (2 * r == kDivisor && q % 2 != 0)) ++q;
  return q;
}

}  // namespace

std::string PrintableText(std::string_view text) {
  std::string out;
  for (const Glyph& g : Glyphs(text)) out += g.bytes;
  return out;
}

int DisplayWidth(std::string_view text) {
  const std::vector<Glyph> g = Glyphs(text);
  return Width(g, 0, g.size());
}

std::string ShortenMiddle(std::string_view text, int columns) {
  const std::vector<Glyph> g = Glyphs(text);
  if (Width(g, 0, g.size()) <= columns) return PrintableText(text);
  const int ellipsis = static_cast<int>(kEllipsis.size());
  if (columns <= ellipsis) return TakeColumns(text, columns);
  // The end gets the odd column: it holds the extension, which tells most about a file.
  const int room = columns - ellipsis;
  const int headRoom = room / 2;
  const int tailRoom = room - headRoom;
  size_t head = 0;
  int used = 0;
  while (head < g.size() && used + g[head].width <= headRoom) used += g[head++].width;
  size_t tail = g.size();
  used = 0;
  while (tail > head && used + g[tail - 1].width <= tailRoom) used += g[--tail].width;
  // A combining mark belongs to the character before it: don't start the tail with one.
  while (tail < g.size() && g[tail].width == 0) ++tail;
  std::string out;
  for (size_t i = 0; i < head; ++i) out += g[i].bytes;
  out += kEllipsis;
  for (size_t i = tail; i < g.size(); ++i) out += g[i].bytes;
  return out;
}

std::string FormatProgressLine(const RunCounters& c, const ProgressPane& p, int columns) {
  const int budget = columns - 1;
  if (budget <= 0) return {};
  std::string elapsed = LabelValue(p.lblElapsedTime, "Elapsed Time:");
  if (elapsed.empty()) elapsed = "--:--:--:--";

  std::string fixed;
  std::string name;
  if (c.CopyPhaseActive) {
    std::string remaining = LabelValue(p.lblTimeRemaining, "Estimated Time Remaining:");
    if (remaining.empty()) remaining = "--:--:--";
    fixed = "Files " + IntText(c.FilesProcessed) + " of " + IntText(c.TotalFiles) + " | " +
            IntText(Megabytes(c.BytesProcessed)) + " of " + IntText(Megabytes(c.TotalBytes)) +
            " MB | Elapsed " + elapsed + " | Remaining " + remaining;
    // The name exactly as the pane holds it after its caption: blanks can belong to a name.
    constexpr std::string_view kCaption = "Current File: ";
    if (p.lblCurrentFile.starts_with(kCaption)) name = p.lblCurrentFile.substr(kCaption.size());
  } else {
    fixed = PrintableText(p.lblStatus) + " | Elapsed " + elapsed;
  }

  if (DisplayWidth(fixed) > budget) return TakeColumns(fixed, budget);
  const int room = budget - DisplayWidth(fixed) - static_cast<int>(kSeparator.size());
  if (name.empty() || room < kMinNameColumns) return fixed;
  return fixed + std::string(kSeparator) + ShortenMiddle(name, room);
}

void ProgressLine::Refresh(RunContext& ctx, std::chrono::steady_clock::time_point now) {
  if (!Enabled()) return;
  if (!ctx.counters.RunActive) {
    Erase();
    return;
  }
  if (lastDraw_ && now - *lastDraw_ < kRedrawInterval) return;
  lastDraw_ = now;
  ProgressTimerTick(ctx, Clock::now());
  // One write for the whole redraw, so that nothing printed between two writes (the Ctrl-C
  // notice) can land in the middle of the line. ESC [ K clears what an older, longer line left.
  const std::string text =
      "\r" + FormatProgressLine(ctx.counters, ctx.progress, Columns()) + "\x1b[K";
  err_ << text << std::flush;
  shown_ = true;
}

void ProgressLine::Erase() {
  if (!shown_) return;
  err_ << "\r\x1b[K" << std::flush;
  shown_ = false;
}

int ProgressLine::Columns() const {
  winsize ws{};
  if (ioctl(fd_, TIOCGWINSZ, &ws) != 0 || ws.ws_col == 0) return kFallbackColumns;
  return ws.ws_col;
}

}  // namespace qr::cli
