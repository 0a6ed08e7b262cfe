#include "platform/errors.h"

#include <cstring>
#include <utility>

namespace qr {

RunError::RunError(int number, std::string description)
    : std::runtime_error(description), number_(number), description_(std::move(description)) {}

RunError SystemError(int err) { return RunError(err, std::strerror(err)); }

}  // namespace qr
