#include "platform/quiet_read.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/path_layer.h"

namespace qr {

std::optional<std::string> ReadSmallFileQuietly(const std::string& path, size_t maxBytes,
                                                int* error) {
  auto fail = [error](int err) -> std::optional<std::string> {
    if (error != nullptr) *error = err;
    return std::nullopt;
  };
  const std::string p = LongPathPrefix(path);
  // O_NONBLOCK: a FIFO put in place of the file must not hang the reader.
  const int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
  int fd = ::open(p.c_str(), flags | O_NOATIME);
  if (fd < 0 && errno == EPERM) fd = ::open(p.c_str(), flags);
  if (fd < 0) return fail(errno);
  struct stat st {};
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || static_cast<size_t>(st.st_size) > maxBytes) {
    const int err = S_ISREG(st.st_mode) ? EFBIG : EINVAL;
    ::close(fd);
    return fail(err);
  }
  std::string out;
  char buffer[65536];
  while (out.size() <= maxBytes) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) continue;
      const int err = errno;
      ::close(fd);
      return fail(err);
    }
    if (n == 0) break;
    out.append(buffer, static_cast<size_t>(n));
  }
  ::close(fd);
  // The file grew while it was read.
  if (out.size() > maxBytes) return fail(EFBIG);
  return out;
}

}  // namespace qr
