#include "platform/unicode_text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/confined_io.h"
#include "platform/path_layer.h"
#include "platform/utf8.h"
#include "platform/write_all.h"

namespace qr {

namespace {

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
    const size_t length = DecodeUtf8(text, i, c);
    i += length == 0 ? 1 : length;
    if (length == 0) {
      // Each byte that belongs to no well-formed sequence becomes one replacement character.
      out += static_cast<char16_t>(kReplacementChar);
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
      c = kReplacementChar;
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
  const int fd = OpenForWriting(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (fd < 0) return false;
  const bool written = WriteAll(fd, "\xFF\xFE");
  return (close(fd) == 0) && written;
}

namespace {

bool AppendFailed(Reporter* reporter, int err) {
  if (reporter != nullptr) {
    reporter->WriteSilentLog("UC Append API Failure (" + std::to_string(err) +
                             "): " + std::strerror(err));
  }
  return false;
}

// Opens an existing log to append to, and fills `bytes` with what must precede `text` there.
// The descriptor, or -1 with errno set.
int OpenToAppend(const std::string& path, std::string_view text, bool writeMark,
                 std::string& bytes) {
  // A link planted at a log's name is replaced by a new log with its mark, never written
  // through.
  if (RemoveLinkAt(path) && !CreateUnicodeFile(path)) return -1;
  // The file must exist: callers create it, with its mark, first.
  const int fd = OpenForWriting(path, O_RDWR | O_APPEND, 0666);
  if (fd < 0) return -1;
  struct stat st {};
  if (fstat(fd, &st) != 0 || (st.st_size == 3 && ftruncate(fd, 1) != 0)) {
    const int err = errno;
    close(fd);
    errno = err;
    return -1;
  }
  // A line cut short (a full disk, a kill) is realigned on a whole character and ended first,
  // so it never runs into the line written now.
  if (!writeMark && st.st_size > 3 && !text.empty() && text.back() == '\n') {
    char tail[2] = {0, 0};
    if (st.st_size % 2 != 0) {
      bytes += std::string("\0\r\0\n\0", 5);
    } else if (pread(fd, tail, 2, st.st_size - 2) == 2 && !(tail[0] == '\n' && tail[1] == 0)) {
      bytes += std::string("\r\0\n\0", 4);
    }
  }
  if (writeMark) bytes += "\xFF\xFE";
  return fd;
}

}  // namespace

bool AppendUnicodeText(const std::string& path, std::string_view text, bool writeMark,
                       Reporter* reporter) {
  std::string bytes;
  const int fd = OpenToAppend(path, text, writeMark, bytes);
  if (fd < 0) return AppendFailed(reporter, errno);
  bytes += Utf16LeBytes(Utf8ToUtf16(text));
  // Mark and text in one write, so no reader sees a mark without its line.
  if (!WriteAll(fd, bytes)) {
    const int err = errno;
    close(fd);
    return AppendFailed(reporter, err);
  }
  if (close(fd) != 0) return AppendFailed(reporter, errno);
  return true;
}

bool UnicodeAppender::Append(const std::string& path, std::string_view text, Reporter* reporter) {
  std::string bytes;
  if (fd_ < 0 || path != path_) {
    Close();
    fd_ = OpenToAppend(path, text, false, bytes);
    if (fd_ < 0) return AppendFailed(reporter, errno);
    path_ = path;
  }
  bytes += Utf16LeBytes(Utf8ToUtf16(text));
  if (!WriteAll(fd_, bytes)) {
    // Opened afresh next time, so a line this write cut short is ended first.
    const int err = errno;
    Close();
    return AppendFailed(reporter, err);
  }
  return true;
}

void UnicodeAppender::Close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  path_.clear();
}

}  // namespace qr
