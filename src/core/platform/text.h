#pragma once
// Text helpers with the semantics the rest of the program relies on: blanks-only trimming,
// exact case-sensitive search, and CR LF as the line end of every text file we write.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qr {

inline constexpr std::string_view kCrLf = "\r\n";

// Removes blanks (U+0020 only) from both ends, as the system's Trim does; tabs stay.
std::string Trim(std::string_view s);
// Case folding over UTF-8 (full Unicode where the C library knows the mapping, ASCII otherwise).
std::string LowerCase(std::string_view s);
std::string UpperCase(std::string_view s);
// Every occurrence, left to right, exact and case-sensitive. An empty `what` changes nothing.
std::string ReplaceAll(std::string_view s, std::string_view what, std::string_view with);
// Splits at every `sep`. An empty text gives no fields; "a,,b" gives three.
std::vector<std::string> Split(std::string_view s, std::string_view sep);
// Splits text into lines at CR LF, lone CR or lone LF; a final line end opens no extra line.
std::vector<std::string> SplitLines(std::string_view s);
// True for an optionally signed decimal number with at most one point, blanks around allowed.
bool IsNumeric(std::string_view s);
// A whole number as plain decimal text: 1000, never 1000.0 or 1e3.
std::string IntText(int64_t n);

}  // namespace qr
