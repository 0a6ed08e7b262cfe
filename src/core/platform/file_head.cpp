#include "platform/file_head.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/path_layer.h"

namespace qr {

HeadRead ReadFileHead(const std::string& path, size_t maxBytes, std::string& bytes, int* error) {
  bytes.clear();
  const std::string p = LongPathPrefix(path);
  auto fail = [error](HeadRead how, int err) {
    if (error != nullptr) *error = err;
    return how;
  };
  struct stat st {};
  if (::stat(p.c_str(), &st) != 0) return fail(HeadRead::NotOpened, errno);
  if (!S_ISREG(st.st_mode)) return fail(HeadRead::NotOpened, EINVAL);
  const int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC;
  // O_NOATIME is only permitted to the owner (or a privileged user).
  int fd = ::open(p.c_str(), flags | O_NOATIME);
  if (fd < 0 && errno == EPERM) fd = ::open(p.c_str(), flags);
  if (fd < 0) return fail(HeadRead::NotOpened, errno);
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return fail(HeadRead::NotOpened, EINVAL);
  }
  bytes.resize(maxBytes);
  size_t done = 0;
  while (done < maxBytes) {
    const ssize_t got = ::read(fd, bytes.data() + done, maxBytes - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      const int err = errno;
      ::close(fd);
      bytes.clear();
      return fail(HeadRead::ReadFailed, err);
    }
    if (got == 0) break;
    done += static_cast<size_t>(got);
  }
  ::close(fd);
  bytes.resize(done);
  return HeadRead::Read;
}

}  // namespace qr
