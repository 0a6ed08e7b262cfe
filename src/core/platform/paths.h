#pragma once
// The one place that knows the path separator. Every path algorithm takes it from here.
#include <string>
#include <string_view>

namespace qr {

inline constexpr char kSep = '/';
inline constexpr std::string_view kSepText = "/";

// Adds the separator when the last character is not one.
std::string WithTrailingSep(std::string_view path);
// Cuts one trailing separator, if there is one.
std::string WithoutTrailingSep(std::string_view path);
// Up to and including the last separator; empty when there is none.
std::string FolderPart(std::string_view path);
// Up to the last separator, exclusive; empty when there is none.
std::string ParentFolder(std::string_view path);
// After the last separator; the whole text when there is none.
std::string NamePart(std::string_view path);
// The path with no "." or ".." part, worked out on the text alone (no link is looked at): a
// ".." takes away the part before it and never climbs above the start, and empty parts go. A
// leading separator (or the two of a share path) and a trailing one are kept.
std::string LexicallyClean(std::string_view path);

}  // namespace qr
