#pragma once
// The find record: what one directory entry tells about itself, read from readdir plus statx
// without following links (a link to a file is followed, as the listing of the system did).
#include <cstdint>
#include <string>

namespace qr {

// 100 ns ticks since 1601-01-01 UTC.
using FileTime = uint64_t;

inline constexpr uint32_t kAttrReadOnly = 0x1;
inline constexpr uint32_t kAttrHidden = 0x2;
inline constexpr uint32_t kAttrDirectory = 0x10;
inline constexpr uint32_t kAttrArchive = 0x20;
inline constexpr uint32_t kAttrNormal = 0x80;
inline constexpr uint32_t kAttrReparsePoint = 0x400;

inline constexpr uint32_t kReparseTagSymlink = 0xA000000C;
inline constexpr uint32_t kReparseTagMountPoint = 0xA0000003;

enum class EntryKind { Regular, Directory, Other };

struct FindData {
  std::string name;  // the bare name of the entry
  uint32_t attributes = 0;
  FileTime creationTime = 0;
  FileTime lastAccessTime = 0;
  FileTime lastWriteTime = 0;
  uint32_t sizeHigh = 0;
  uint32_t sizeLow = 0;
  uint32_t reparseTag = 0;
  EntryKind kind = EntryKind::Other;
  // False where the file system keeps no birth time and creationTime is the stand-in.
  bool hasBirthTime = false;
  // The file system the entry lies on (for a followed link, its target's).
  uint64_t device = 0;

  uint64_t Size() const { return (uint64_t{sizeHigh} << 32) | sizeLow; }
  bool IsDirectory() const { return (attributes & kAttrDirectory) != 0; }
};

FileTime FileTimeFromUnix(int64_t seconds, uint32_t nanoseconds);
// Inverse of FileTimeFromUnix, to 100 ns resolution.
void UnixFromFileTime(FileTime t, int64_t& seconds, uint32_t& nanoseconds);

// Attributes from mode and name: directory 0x10, read-only 0x1 (no write bit for anyone),
// hidden 0x2 (name begins with "."), archive 0x20 on every regular file, reparse 0x400 as
// given, normal 0x80 only where nothing else applies.
uint32_t AttributesFromMode(uint32_t mode, const std::string& name, bool reparse);

// The record of the entry at `path`, the way a listing of its folder reports it:
// - a symbolic link to a folder: a folder entry with the symbolic-link tag and the link's own
//   times; a link to a file is followed; a dangling link finds nothing;
// - a folder that is the root of another mounted file system: the mount-point tag.
// Returns false when nothing is there; `error` then holds errno.
// Creation time is the birth time (STATX_BTIME) where the file system keeps one; elsewhere the
// modification time stands in (hasBirthTime false), the oldest moment the system can vouch for.
bool FindEntry(const std::string& path, FindData& out, int* error = nullptr);

// A listing of one folder, "." and ".." included as the listing of the system gave them, opened
// with O_NOATIME where permitted so that listing leaves no trace. A dangling link is reported as
// a file entry (with the link's own record), which then fails later like a vanished file.
class FolderListing {
 public:
  explicit FolderListing(const std::string& folder);
  ~FolderListing();
  FolderListing(const FolderListing&) = delete;
  FolderListing& operator=(const FolderListing&) = delete;

  bool ok() const { return dir_ != nullptr; }
  int error() const { return error_; }
  // The next entry; false at the end.
  bool Next(FindData& out);

 private:
  void* dir_ = nullptr;  // DIR*
  int fd_ = -1;
  int error_ = 0;
  uint64_t deviceOfFolder_ = 0;
};

}  // namespace qr
