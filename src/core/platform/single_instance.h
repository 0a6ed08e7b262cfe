#pragma once
// Single instance keyed by a name: an flock on a file in the runtime folder, dropped by the
// kernel when the process dies, so a killed program never blocks the next start.
#include <string>

namespace qr {

class SingleInstanceLock {
 public:
  // `folder` empty means RuntimeDir().
  explicit SingleInstanceLock(const std::string& key, const std::string& folder = "");
  ~SingleInstanceLock();
  SingleInstanceLock(const SingleInstanceLock&) = delete;
  SingleInstanceLock& operator=(const SingleInstanceLock&) = delete;

  // False when another live process holds the key.
  bool acquired() const { return acquired_; }

 private:
  int fd_ = -1;
  bool acquired_ = false;
};

}  // namespace qr
