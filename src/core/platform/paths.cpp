#include "platform/paths.h"

namespace qr {

std::string WithTrailingSep(std::string_view path) {
  std::string out(path);
  if (out.empty() || out.back() != kSep) out += kSep;
  return out;
}

std::string WithoutTrailingSep(std::string_view path) {
  std::string out(path);
  if (!out.empty() && out.back() == kSep) out.pop_back();
  return out;
}

std::string FolderPart(std::string_view path) {
  size_t p = path.rfind(kSep);
  return p == std::string_view::npos ? std::string() : std::string(path.substr(0, p + 1));
}

std::string ParentFolder(std::string_view path) {
  size_t p = path.rfind(kSep);
  return p == std::string_view::npos ? std::string() : std::string(path.substr(0, p));
}

std::string NamePart(std::string_view path) {
  size_t p = path.rfind(kSep);
  return std::string(p == std::string_view::npos ? path : path.substr(p + 1));
}

}  // namespace qr
