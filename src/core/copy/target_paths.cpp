#include "copy/target_paths.h"

#include <sys/stat.h>

#include <cerrno>

#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/text.h"

namespace qr {

int32_t CreateOneDirectory(const std::string& path) {
  std::string p = LongPathPrefix(WithoutTrailingSep(path));
  if (mkdir(p.c_str(), 0777) != 0) return errno;
  return 0;
}

int32_t CreateTargetDirs(const std::string& targetFolder) {
  auto parts = Split(WithoutTrailingSep(targetFolder), kSepText);
  int32_t result = 0;
  std::string level = parts.empty() ? std::string() : parts[0];
  for (size_t i = 1; i < parts.size(); ++i) {
    level += kSep;
    level += parts[i];
    if (!FileOrDirExists("", level)) result = CreateOneDirectory(level);
  }
  return result;
}

}  // namespace qr
