#pragma once
// Reading a small file without leaving a trace: a look that must not move its access time.
#include <cstddef>
#include <optional>
#include <string>

namespace qr {

// The whole file as bytes, opened with O_NOATIME where permitted (the owner, or a privileged
// user). nullopt when it can't be opened or read, or when it holds more than `maxBytes`: the
// caller only wants files of a known small kind and must not be made to hold a huge one.
std::optional<std::string> ReadSmallFileQuietly(const std::string& path, size_t maxBytes,
                                                int* error = nullptr);

}  // namespace qr
