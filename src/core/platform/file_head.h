#pragma once
// The first bytes of a file, read so that the read leaves no trace on its access time.
#include <cstddef>
#include <string>

namespace qr {

enum class HeadRead { Read, NotOpened, ReadFailed };

// Up to `maxBytes` from the start of a regular file (links followed) into `bytes`; a smaller
// file gives its size. Anything but a regular file counts as not opened: a FIFO would block, a
// device may act on being opened. errno in `error` when it was not Read.
HeadRead ReadFileHead(const std::string& path, size_t maxBytes, std::string& bytes,
                      int* error = nullptr);

}  // namespace qr
