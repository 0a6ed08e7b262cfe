#include "platform/like_match.h"

#include "platform/text.h"
#include "platform/utf8.h"

namespace qr {

namespace {

// A byte that starts no valid UTF-8 sequence stands for itself, as a character of its own that
// equals no code point (so an invalid name byte still counts as one character).
constexpr char32_t kInvalidBase = 0x110000;

// Decodes the character at s[i] and advances i past it.
char32_t NextChar(std::string_view s, size_t& i) {
  char32_t c = 0;
  const size_t length = DecodeUtf8(s, i, c);
  if (length == 0) return kInvalidBase + static_cast<unsigned char>(s[i++]);
  i += length;
  return c;
}

bool IsDigit(char32_t c) { return c >= '0' && c <= '9'; }

// Matches one pattern token (everything but "*") at p[pi] against the character c. Returns
// false when it doesn't match; `next` is set to the position after the token either way.
bool MatchToken(std::string_view p, size_t pi, char32_t c, size_t& next) {
  size_t i = pi;
  const char32_t t = NextChar(p, i);
  next = i;
  if (t == '?') return true;
  if (t == '#') return IsDigit(c);
  if (t != '[') return t == c;

  // A list runs to the next "]". Without one, the "[" is an
  // ordinary character: a literal "[" needs no escape when nothing closes it.
  size_t j = i;
  bool negate = false;
  if (j < p.size() && p[j] == '!') {
    negate = true;
    ++j;
  }
  const size_t close = p.find(']', j);
  if (close == std::string_view::npos) return c == '[';
  next = close + 1;
  // An empty list holds no character: "[]" matches nothing and "[!]" any one character.
  bool found = false;
  while (j < close) {
    const char32_t lo = NextChar(p, j);
    char32_t hi = lo;
    // "a-f" is a range; a "-" first or last in the list is itself.
    if (j + 1 < close && p[j] == '-') {
      ++j;
      hi = NextChar(p, j);
    }
    // A range written backwards ("f-a") holds nothing.
    if (c >= lo && c <= hi) found = true;
  }
  return found != negate;
}

}  // namespace

bool LikeMatch(std::string_view text, std::string_view pattern) {
  // Greedy star with one backtrack point: on a mismatch, the last "*" takes one more character.
  // Earlier stars never need revisiting, so the cost is at most text length times pattern length.
  size_t ti = 0;
  size_t pi = 0;
  size_t starPi = std::string_view::npos;
  size_t starTi = 0;
  while (ti < text.size()) {
    if (pi < pattern.size()) {
      if (pattern[pi] == '*') {
        while (pi < pattern.size() && pattern[pi] == '*') ++pi;
        starPi = pi;
        starTi = ti;
        continue;
      }
      size_t tNext = ti;
      const char32_t c = NextChar(text, tNext);
      size_t pNext = pi;
      if (MatchToken(pattern, pi, c, pNext)) {
        ti = tNext;
        pi = pNext;
        continue;
      }
    }
    if (starPi == std::string_view::npos) return false;
    NextChar(text, starTi);
    ti = starTi;
    pi = starPi;
  }
  while (pi < pattern.size() && pattern[pi] == '*') ++pi;
  return pi == pattern.size();
}

bool LikeMatchFolded(std::string_view text, std::string_view pattern) {
  return LikeMatch(LowerCase(Trim(text)), LowerCase(Trim(pattern)));
}

}  // namespace qr
