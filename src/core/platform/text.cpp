#include "platform/text.h"

#include <cstdlib>
#include <cwctype>
#include <locale>

#include "platform/utf8.h"

namespace qr {

std::string Trim(std::string_view s) {
  size_t b = 0;
  size_t e = s.size();
  while (b < e && s[b] == ' ') ++b;
  while (e > b && s[e - 1] == ' ') --e;
  return std::string(s.substr(b, e - b));
}

namespace {

const std::ctype<wchar_t>* UnicodeCtype() {
  static const std::ctype<wchar_t>* facet = []() -> const std::ctype<wchar_t>* {
    try {
      static const std::locale loc("C.UTF-8");
      return &std::use_facet<std::ctype<wchar_t>>(loc);
    } catch (const std::exception&) {
      return nullptr;
    }
  }();
  return facet;
}

template <typename Fold>
std::string FoldCase(std::string_view s, Fold fold) {
  std::string out;
  out.reserve(s.size());
  size_t i = 0;
  while (i < s.size()) {
    char32_t c = 0;
    const size_t length = DecodeUtf8(s, i, c);
    if (length == 0) {
      // An invalid byte stays as it is, so that no byte of a name is ever lost.
      out += s[i++];
      continue;
    }
    i += length;
    AppendUtf8(fold(c), out);
  }
  return out;
}

}  // namespace

std::string LowerCase(std::string_view s) {
  const auto* ct = UnicodeCtype();
  return FoldCase(s, [ct](char32_t c) -> char32_t {
    if (c < 0x80) return (c >= 'A' && c <= 'Z') ? c + 32 : c;
    return ct ? static_cast<char32_t>(ct->tolower(static_cast<wchar_t>(c))) : c;
  });
}

std::string UpperCase(std::string_view s) {
  const auto* ct = UnicodeCtype();
  return FoldCase(s, [ct](char32_t c) -> char32_t {
    if (c < 0x80) return (c >= 'a' && c <= 'z') ? c - 32 : c;
    return ct ? static_cast<char32_t>(ct->toupper(static_cast<wchar_t>(c))) : c;
  });
}

std::string ReplaceAll(std::string_view s, std::string_view what, std::string_view with) {
  if (what.empty()) return std::string(s);
  std::string out;
  size_t pos = 0;
  while (true) {
    size_t hit = s.find(what, pos);
    if (hit == std::string_view::npos) break;
    out.append(s.substr(pos, hit - pos));
    out.append(with);
    pos = hit + what.size();
  }
  out.append(s.substr(pos));
  return out;
}

std::vector<std::string> Split(std::string_view s, std::string_view sep) {
  std::vector<std::string> out;
  if (s.empty()) return out;
  if (sep.empty()) {
    out.emplace_back(s);
    return out;
  }
  size_t pos = 0;
  while (true) {
    size_t hit = s.find(sep, pos);
    if (hit == std::string_view::npos) {
      out.emplace_back(s.substr(pos));
      return out;
    }
    out.emplace_back(s.substr(pos, hit - pos));
    pos = hit + sep.size();
  }
}

std::vector<std::string> SplitLines(std::string_view s) {
  std::vector<std::string> out;
  size_t pos = 0;
  while (pos < s.size()) {
    size_t end = s.find_first_of("\r\n", pos);
    if (end == std::string_view::npos) {
      out.emplace_back(s.substr(pos));
      break;
    }
    out.emplace_back(s.substr(pos, end - pos));
    pos = end + 1;
    if (s[end] == '\r' && pos < s.size() && s[pos] == '\n') ++pos;
  }
  return out;
}

bool IsNumeric(std::string_view s) {
  std::string t = Trim(s);
  size_t i = 0;
  if (i < t.size() && (t[i] == '+' || t[i] == '-')) ++i;
  bool digits = false;
  bool point = false;
  for (; i < t.size(); ++i) {
    if (t[i] >= '0' && t[i] <= '9') {
      digits = true;
    } else if (t[i] == '.' && !point) {
      point = true;
    } else {
      return false;
    }
  }
  return digits;
}

std::string IntText(int64_t n) { return std::to_string(n); }

}  // namespace qr
