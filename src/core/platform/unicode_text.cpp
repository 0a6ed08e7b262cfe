#include "platform/unicode_text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/path_layer.h"

namespace qr {

namespace {

constexpr char16_t kReplacement = 0xFFFD;

// Decodes one well-formed UTF-8 sequence at s[i]; false (and i unchanged) when the byte there
// starts none: overlong forms, encoded surrogates and values past U+10FFFF are not well formed.
bool DecodeUtf8(std::string_view s, size_t& i, char32_t& out) {
  const auto b0 = static_cast<unsigned char>(s[i]);
  if (b0 < 0x80) {
    out = b0;
    ++i;
    return true;
  }
  size_t n = 0;
  char32_t c = 0;
  char32_t least = 0;
  if (b0 >= 0xC2 && b0 < 0xE0) {
    n = 1;
    c = b0 & 0x1Fu;
    least = 0x80;
  } else if (b0 >= 0xE0 && b0 < 0xF0) {
    n = 2;
    c = b0 & 0x0Fu;
    least = 0x800;
  } else if (b0 >= 0xF0 && b0 < 0xF5) {
    n = 3;
    c = b0 & 0x07u;
    least = 0x10000;
  } else {
    return false;
  }
  if (i + n >= s.size()) return false;
  for (size_t k = 1; k <= n; ++k) {
    const auto b = static_cast<unsigned char>(s[i + k]);
    if ((b & 0xC0) != 0x80) return false;
    c = (c << 6) | (b & 0x3Fu);
  }
  if (c < least || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return false;
  out = c;
  i += n + 1;
  return true;
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

bool WriteAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

std::string Utf16LeBytes(std::u16string_view text) {
  std::string bytes;
  bytes.reserve(text.size() * 2);
  for (char16_t u : text) {
    bytes += static_cast<char>(u & 0xFF);
    bytes += static_cast<char>(u >> 8);
  }
  return bytes;
}

}  // namespace

std::u16string Utf8ToUtf16(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    char32_t c = 0;
    if (!DecodeUtf8(text, i, c)) {
      // Each byte that belongs to no well-formed sequence becomes one replacement character.
      out += kReplacement;
      ++i;
    } else if (c < 0x10000) {
      out += static_cast<char16_t>(c);
    } else {
      c -= 0x10000;
      out += static_cast<char16_t>(0xD800 + (c >> 10));
      out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
    }
  }
  return out;
}

std::string Utf16ToUtf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00u);
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = kReplacement;
    }
    AppendUtf8(c, out);
  }
  return out;
}

bool IsUnicodeFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  unsigned char head[3] = {0, 0, 0};
  size_t got = 0;
  while (got < sizeof head) {
    const ssize_t n = read(fd, head + got, sizeof head - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  close(fd);
  return got >= 2 && head[0] == 0xFF && head[1] == 0xFE;
}

bool CreateUnicodeFile(const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  const bool written = WriteAll(fd, "\xFF\xFE", 2);
  return (close(fd) == 0) && written;
}

bool AppendUnicodeText(const std::string& path, std::string_view text, bool writeMark,
                       Reporter* reporter) {
  auto fail = [reporter](int err) {
    if (reporter != nullptr) {
      reporter->WriteSilentLog("UC Append API Failure (" + std::to_string(err) +
                               "): " + std::strerror(err));
    }
    return false;
  };
  // The file must exist: callers create it, with its mark, first.
  const int fd = open(LongPathPrefix(path).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  if (fd < 0) return fail(errno);
  struct stat st {};
  if (fstat(fd, &st) != 0 || (st.st_size == 3 && ftruncate(fd, 1) != 0)) {
    const int err = errno;
    close(fd);
    return fail(err);
  }
  std::string bytes;
  if (writeMark) bytes = "\xFF\xFE";
  bytes += Utf16LeBytes(Utf8ToUtf16(text));
  // Mark and text in one write, so no reader sees a mark without its line.
  if (!WriteAll(fd, bytes.data(), bytes.size())) {
    const int err = errno;
    close(fd);
    return fail(err);
  }
  if (close(fd) != 0) return fail(errno);
  return true;
}

}  // namespace qr
