#include "platform/paths.h"

#include <vector>

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

std::string LexicallyClean(std::string_view path) {
  size_t lead = 0;
  while (lead < path.size() && lead < 2 && path[lead] == kSep) ++lead;
  // Three or more leading separators are just a root.
  if (lead == 2 && path.size() > 2 && path[2] == kSep) lead = 1;
  std::vector<std::string_view> parts;
  size_t i = lead;
  while (i < path.size()) {
    size_t end = path.find(kSep, i);
    if (end == std::string_view::npos) end = path.size();
    const std::string_view part = path.substr(i, end - i);
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    i = end + 1;
  }
  std::string out(path.substr(0, lead));
  for (size_t k = 0; k < parts.size(); ++k) {
    if (k > 0) out += kSep;
    out += parts[k];
  }
  if (!parts.empty() && path.size() > lead && path.back() == kSep) out += kSep;
  return out;
}

}  // namespace qr
