#include "ui/main_window.h"

#include <cstddef>

namespace qr {

namespace {

bool IsContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

size_t CodePoints(const std::string& s) {
  size_t n = 0;
  for (char c : s) {
    if (!IsContinuation(c)) ++n;
  }
  return n;
}

// The text without its last code point; empty text stays empty.
std::string WithoutLast(const std::string& s) {
  if (s.empty()) return s;
  size_t end = s.size() - 1;
  while (end > 0 && IsContinuation(s[end])) --end;
  return s.substr(0, end);
}

}  // namespace

std::optional<std::string> TargetFollowsLog(const std::string& newTarget,
                                            const std::string& logText) {
  if (CodePoints(newTarget) <= 1) return std::nullopt;
  if (logText == newTarget) return std::nullopt;
  if (logText == WithoutLast(newTarget) || newTarget == WithoutLast(logText)) return newTarget;
  return std::nullopt;
}

}  // namespace qr
