// The command-line splitter and the switches read from what it gives.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "exec/startup.h"
#include "platform/process.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view in(reinterpret_cast<const char*>(data), size);
  const std::vector<std::string> args = qr::SplitCommandLine(in);
  (void)qr::ParseSwitches(args);
  return 0;
}
