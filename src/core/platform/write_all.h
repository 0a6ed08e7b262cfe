#pragma once
// Writing a whole buffer to a descriptor, through short writes and interruptions.
#include <string_view>

namespace qr {

// True when every byte went out; false with errno set when a write failed (EIO for a write
// that took nothing, which would otherwise loop for ever).
bool WriteAll(int fd, std::string_view bytes);

}  // namespace qr
