// The settings-file reader: the first line names the section, the second the key, the rest is
// the file.
#include <string_view>

#include "fuzz_support.h"
#include "jobdef/settings_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view in(reinterpret_cast<const char*>(data), size);
  auto line = [&in] {
    const size_t end = in.find('\n');
    std::string_view head = in.substr(0, end);
    in = end == std::string_view::npos ? std::string_view() : in.substr(end + 1);
    return std::string(head);
  };
  const std::string section = line();
  const std::string key = line();
  const std::string path = qr::fuzz::WriteInput(
      "settings.ini", reinterpret_cast<const uint8_t*>(in.data()), in.size());
  (void)qr::INIread(path, section, key);
  return 0;
}
