#include "platform/single_instance.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "platform/machine.h"
#include "platform/paths.h"

namespace qr {

SingleInstanceLock::SingleInstanceLock(const std::string& key, const std::string& folder) {
  const std::string dir = folder.empty() ? RuntimeDir() : folder;
  const std::string path = WithTrailingSep(dir) + key + ".lock";
  // Close-on-exec: a started tool must not inherit the lock and hold it past our end.
  fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd_ < 0) {
    // Without a lock file no other instance can be seen either; refusing to start over a
    // missing runtime folder would lock the user out of the program for nothing.
    acquired_ = true;
    return;
  }
  int rc = 0;
  do {
    rc = flock(fd_, LOCK_EX | LOCK_NB);
  } while (rc != 0 && errno == EINTR);
  acquired_ = rc == 0;
  if (!acquired_) {
    close(fd_);
    fd_ = -1;
  }
}

SingleInstanceLock::~SingleInstanceLock() {
  // The file itself stays: removing it could let two processes lock two different files.
  if (fd_ >= 0) close(fd_);
}

}  // namespace qr
