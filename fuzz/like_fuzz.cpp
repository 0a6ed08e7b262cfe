// The file-name and path pattern matcher: the bytes before the first NUL are the text, those
// after it the pattern.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/like_match.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view in(reinterpret_cast<const char*>(data), size);
  const size_t nul = in.find('\0');
  std::string_view text = in.substr(0, nul);
  std::string_view pattern = nul == std::string_view::npos ? in : in.substr(nul + 1);
  (void)qr::LikeMatch(text, pattern);
  (void)qr::LikeMatchFolded(text, pattern);
  return 0;
}
