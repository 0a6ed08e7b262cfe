#include "platform/write_all.h"

#include <unistd.h>

#include <cerrno>

namespace qr {

bool WriteAll(int fd, std::string_view bytes) {
  const char* data = bytes.data();
  size_t size = bytes.size();
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) {
      errno = EIO;
      return false;
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

}  // namespace qr
