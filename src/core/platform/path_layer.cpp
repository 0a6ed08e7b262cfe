#include "platform/path_layer.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "platform/errors.h"
#include "platform/find_data.h"
#include "platform/like_match.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "platform/unicode_text.h"

namespace qr {

namespace {

constexpr std::string_view kShortNamePattern = "??????~#.???";

}  // namespace

std::string LongPathPrefix(const std::string& path) { return path; }

std::string TrimAtNull(std::string_view text) {
  const size_t nul = text.find('\0');
  return std::string(nul == std::string_view::npos ? text : text.substr(0, nul));
}

bool MatchesShortNamePattern(std::string_view text) { return LikeMatch(text, kShortNamePattern); }

bool LooksLikeShortName(std::string_view name) {
  // Length as the system counts it: UTF-16 units.
  return MatchesShortNamePattern(name) && Utf8ToUtf16(name).size() == 12;
}

bool FileExists(const std::string& path, Reporter* reporter) {
  // A bare generated short name is refused without a look at the disk.
  if (MatchesShortNamePattern(path)) return false;
  struct stat st {};
  if (stat(LongPathPrefix(path).c_str(), &st) == 0) return S_ISREG(st.st_mode);
  const int err = errno;
  if (IsPlainAbsence(err) || reporter == nullptr) return false;
  const std::string number = std::to_string(err);
  const std::string description = std::strerror(err);
  if (!reporter->SilentOption()) {
    reporter->ShowMessage("File determination failure:" + std::string(kCrLf) + path +
                              std::string(kCrLf) + number + " : " + description,
                          Icon::None);
  }
  reporter->WriteSilentLog("File determination failure (" + path + ") " + number + " : " +
                           description);
  return false;
}

bool SpecialFileExists(const std::string& path) {
  struct stat st {};
  if (path.empty() || stat(LongPathPrefix(path).c_str(), &st) != 0) return false;
  return !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode);
}

std::optional<ObjectId> IdentityOf(const std::string& path) {
  struct stat st {};
  if (path.empty() || stat(LongPathPrefix(path).c_str(), &st) != 0) return std::nullopt;
  return ObjectId{static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino)};
}

bool FileOrDirExists(const std::string& fileName, const std::string& folderPath) {
  if (fileName.empty() && folderPath.empty()) return false;
  std::string folder;
  std::string bareName;
  if (!fileName.empty()) {
    folder = FolderPart(fileName);
    bareName = NamePart(fileName);
    // A bare name has no folder to be listed in.
    if (folder.empty()) return false;
  } else {
    folder = WithTrailingSep(folderPath);
  }
  FolderListing listing(LongPathPrefix(folder));
  // A folder that can't be listed counts as absent, even where it exists.
  if (!listing.ok()) return false;
  if (fileName.empty()) return true;

  const std::string wanted = LowerCase(bareName);
  FindData entry;
  while (listing.Next(entry)) {
    // An entry with only the normal attribute is passed over: that is what FileExists is for.
    if ((entry.attributes & kAttrNormal) != 0) continue;
    if (LowerCase(TrimAtNull(entry.name)) == wanted) return true;
  }
  return false;
}

}  // namespace qr
