#include "platform/utf8.h"

namespace qr {

size_t DecodeUtf8(std::string_view s, size_t i, char32_t& out) {
  const auto b0 = static_cast<unsigned char>(s[i]);
  if (b0 < 0x80) {
    out = b0;
    return 1;
  }
  // C0 and C1 could only start overlong forms; F5 and above only values past U+10FFFF.
  size_t length = 0;
  char32_t c = 0;
  char32_t least = 0;
  if (b0 >= 0xC2 && b0 < 0xE0) {
    length = 2, c = b0 & 0x1Fu, least = 0x80;
  } else if (b0 >= 0xE0 && b0 < 0xF0) {
    length = 3, c = b0 & 0x0Fu, least = 0x800;
  } else if (b0 >= 0xF0 && b0 < 0xF5) {
    length = 4, c = b0 & 0x07u, least = 0x10000;
  } else {
    return 0;
  }
  if (length > s.size() - i) return 0;
  for (size_t k = 1; k < length; ++k) {
    const auto b = static_cast<unsigned char>(s[i + k]);
    if ((b & 0xC0) != 0x80) return 0;
    c = (c << 6) | (b & 0x3Fu);
  }
  if (c < least || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0;
  out = c;
  return length;
}

void AppendUtf8(char32_t c, std::string& out) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

size_t Utf8CharCount(std::string_view s) {
  size_t count = 0;
  for (size_t i = 0; i < s.size(); ++count) {
    char32_t c = 0;
    const size_t length = DecodeUtf8(s, i, c);
    i += length == 0 ? 1 : length;
  }
  return count;
}

}  // namespace qr
