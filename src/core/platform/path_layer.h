#pragma once
// The existence tests through which the program touches the file system, and the single point
// where a plain path would be converted for a system call.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/report.h"

namespace qr {

// The single conversion point of a plain path into the form a system call takes. On this
// platform a plain path is already that form, so it is returned unchanged.
std::string LongPathPrefix(const std::string& path);
// The part of `text` in front of its first NUL.
std::string TrimAtNull(std::string_view text);
// True when `text` matches "??????~#.???" in the like-pattern language.
bool MatchesShortNamePattern(std::string_view text);
// A name that looks generated as a short name: the pattern and exactly 12 characters.
bool LooksLikeShortName(std::string_view name);

// The test for a regular file (links followed). A text that matches the short-name pattern as a
// whole is refused without touching the disk. A failure other than "not there" or "not
// permitted" is reported through `reporter` ("File determination failure") and gives false.
bool FileExists(const std::string& path, Reporter* reporter = nullptr);

// The test for a folder (empty fileName) or for a file in a folder. Folder mode: true when the
// folder can be listed, so a folder whose listing is denied counts as absent. File mode: the
// listing is searched for the bare name, case folded, passing over entries that carry only the
// normal attribute. Both empty: false without a lookup. Both given: folderPath is ignored.
bool FileOrDirExists(const std::string& fileName, const std::string& folderPath);

// True for a FIFO, socket or device node (links followed), found without opening it: a source
// that names one is recorded as an error rather than read, which could block for ever.
bool SpecialFileExists(const std::string& path);

// What a path names, links followed: the same folder reached by two spellings (a link, "..",
// a second mount) has one identity.
struct ObjectId {
  uint64_t device = 0;
  uint64_t inode = 0;
  bool operator==(const ObjectId&) const = default;
};
// Empty when nothing can be found there.
std::optional<ObjectId> IdentityOf(const std::string& path);

}  // namespace qr
