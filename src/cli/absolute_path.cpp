#include "absolute_path.h"

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace qr::cli {

std::string AbsolutePath(const std::string& path) {
  if (path.empty()) return {};
  std::error_code ec;
  fs::path p = fs::absolute(fs::path(path), ec);
  if (ec) return {};
  std::string text = p.lexically_normal().string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

}  // namespace qr::cli
