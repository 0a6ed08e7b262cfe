#include "platform/errors.h"

#include <cerrno>
#include <cstring>
#include <utility>

namespace qr {

RunError::RunError(int number, std::string description)
    : std::runtime_error(description), number_(number), description_(std::move(description)) {}

RunError SystemError(int err) { return RunError(err, std::strerror(err)); }

bool IsPlainAbsence(int err) {
  switch (err) {
    case ENOENT:
    case ENOTDIR:
    case EACCES:
    case EPERM:
    case ELOOP:
    case ENAMETOOLONG:
      return true;
    default:
      return false;
  }
}

}  // namespace qr
