#pragma once
// UTF-8: the one decoder and the one encoder. Names are bytes on this platform, so a byte that
// starts no well-formed sequence is never dropped here; each caller keeps it, shows it or
// replaces it as one character of its own.
#include <cstddef>
#include <string>
#include <string_view>

namespace qr {

inline constexpr char32_t kReplacementChar = 0xFFFD;

// The length of the well-formed sequence that starts at s[i], with its code point in `out`; 0,
// with `out` untouched, when the bytes there start none. Strict: a stray continuation byte, a
// sequence cut short or broken by another byte, an overlong form, an encoded surrogate and a
// value past U+10FFFF are all invalid.
size_t DecodeUtf8(std::string_view s, size_t i, char32_t& out);
// The UTF-8 form of a scalar value, appended.
void AppendUtf8(char32_t c, std::string& out);
// Characters as a person reads them: each well-formed sequence counts one, and so does each
// byte of none.
size_t Utf8CharCount(std::string_view s);

}  // namespace qr
