#include "platform/plain_text.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/confined_io.h"
#include "platform/text.h"
#include "platform/write_all.h"

namespace qr {

namespace {

bool Fail(int* error, int err) {
  if (error != nullptr) *error = err;
  return false;
}

bool WriteFile(const std::string& path, std::string_view bytes, int flags, int* error) {
  const int fd = OpenForWriting(path, O_WRONLY | O_CREAT | flags, 0666);
  if (fd < 0) return Fail(error, errno);
  if (!WriteAll(fd, bytes)) {
    const int err = errno;
    close(fd);
    return Fail(error, err);
  }
  if (close(fd) != 0) return Fail(error, errno);
  return true;
}

}  // namespace

bool AppendLine(const std::string& path, std::string_view text, int* error) {
  const int fd = OpenForWriting(path, O_RDWR | O_CREAT | O_APPEND, 0666);
  if (fd < 0) return Fail(error, errno);
  // A line cut short (a full disk, a kill) is ended first, so it never runs into this one.
  std::string line;
  char last = '\n';
  const off_t size = lseek(fd, 0, SEEK_END);
  if (size > 0 && pread(fd, &last, 1, size - 1) == 1 && last != '\n') line = kCrLf;
  line += text;
  line += kCrLf;
  if (!WriteAll(fd, line)) {
    const int err = errno;
    close(fd);
    return Fail(error, err);
  }
  if (close(fd) != 0) return Fail(error, errno);
  return true;
}

bool WriteWholeFile(const std::string& path, std::string_view text, int* error) {
  return WriteFile(path, text, O_TRUNC, error);
}

std::optional<std::string> ReadWholeFile(const std::string& path, int* error) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    Fail(error, errno);
    return std::nullopt;
  }
  std::string out;
  char buffer[65536];
  while (true) {
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) continue;
      const int err = errno;
      close(fd);
      Fail(error, err);
      return std::nullopt;
    }
    if (n == 0) break;
    out.append(buffer, static_cast<size_t>(n));
  }
  close(fd);
  return out;
}

std::optional<std::vector<std::string>> ReadLines(const std::string& path, int* error) {
  auto whole = ReadWholeFile(path, error);
  if (!whole) return std::nullopt;
  return SplitLines(*whole);
}

}  // namespace qr
