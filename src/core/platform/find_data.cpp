#include "platform/find_data.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/paths.h"
#include "platform/times_io.h"

namespace qr {

namespace {

// Seconds from 1601-01-01 to 1970-01-01, both UTC.
constexpr int64_t kEpochOffsetSeconds = 11644473600;
constexpr int64_t kTicksPerSecond = 10000000;

constexpr unsigned kWanted = STATX_BASIC_STATS | STATX_BTIME;
// Never trigger an automounter just by looking at a folder.
constexpr int kNoFollow = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
constexpr int kFollow = AT_NO_AUTOMOUNT;

bool IsDotName(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

FileTime FromStatx(const struct statx_timestamp& ts) {
  return FileTimeFromUnix(ts.tv_sec, ts.tv_nsec);
}

uint64_t DeviceOf(const struct statx& st) { return makedev(st.stx_dev_major, st.stx_dev_minor); }

void SetSize(FindData& out, uint64_t size) {
  out.sizeHigh = static_cast<uint32_t>(size >> 32);
  out.sizeLow = static_cast<uint32_t>(size & 0xFFFFFFFFu);
}

// Times of `st`. Where the file system keeps no birth time, the modification time stands in:
// it is the oldest moment the file system can vouch for, and never a made-up value.
void SetTimes(FindData& out, const struct statx& st) {
  out.lastAccessTime = FromStatx(st.stx_atime);
  out.lastWriteTime = FromStatx(st.stx_mtime);
  out.hasBirthTime = (st.stx_mask & STATX_BTIME) != 0;
  out.creationTime = out.hasBirthTime ? FromStatx(st.stx_btime) : out.lastWriteTime;
  out.device = DeviceOf(st);
}

// The record of a plain (not link) object. A folder carries no size, as folders never do in a
// find record; its allocation is not content.
void Fill(FindData& out, const struct statx& st) {
  const uint32_t mode = st.stx_mode;
  SetTimes(out, st);
  out.reparseTag = 0;
  if (S_ISDIR(mode)) {
    out.kind = EntryKind::Directory;
    SetSize(out, 0);
  } else if (S_ISREG(mode)) {
    out.kind = EntryKind::Regular;
    SetSize(out, st.stx_size);
  } else {
    out.kind = EntryKind::Other;
    SetSize(out, 0);
  }
  out.attributes = AttributesFromMode(mode, out.name, false);
}

enum class Outcome { Found, Dangling, Failed };

// Describes `path` relative to `dirfd`. `isMountRoot` decides, for a folder that is no link,
// whether it is the root of another mounted file system.
template <typename MountTest>
Outcome Describe(int dirfd, const char* path, FindData& out, int& err, MountTest isMountRoot) {
  struct statx own {};
  if (statx(dirfd, path, kNoFollow, kWanted, &own) != 0) {
    err = errno;
    return Outcome::Failed;
  }
  if (!S_ISLNK(own.stx_mode)) {
    Fill(out, own);
    if (out.kind == EntryKind::Directory && !IsDotName(out.name.c_str()) && isMountRoot(own)) {
      out.attributes = AttributesFromMode(own.stx_mode, out.name, true);
      out.reparseTag = kReparseTagMountPoint;
    }
    return Outcome::Found;
  }
  struct statx target {};
  const int followed = statx(dirfd, path, kFollow, kWanted, &target);
  const int followError = errno;
  // Looking through the link moved its own access time; a listing leaves no trace.
  WriteLinkTimes(dirfd, path, FileTimeFromUnix(own.stx_atime.tv_sec, own.stx_atime.tv_nsec),
                 FileTimeFromUnix(own.stx_mtime.tv_sec, own.stx_mtime.tv_nsec));
  if (followed != 0) {
    // Dangling (or looping): the link's own record as a file, which then fails like a file
    // that vanished.
    err = followError;
    SetTimes(out, own);
    SetSize(out, own.stx_size);
    out.kind = EntryKind::Regular;
    out.reparseTag = 0;
    out.attributes = AttributesFromMode(S_IFREG | (own.stx_mode & 07777), out.name, false);
    return Outcome::Dangling;
  }
  if (S_ISDIR(target.stx_mode)) {
    // A link to a folder is a folder entry of its own, never descended into: the link's times.
    SetTimes(out, own);
    SetSize(out, 0);
    out.kind = EntryKind::Directory;
    out.reparseTag = kReparseTagSymlink;
    out.attributes = AttributesFromMode(S_IFDIR | (own.stx_mode & 07777), out.name, true);
    return Outcome::Found;
  }
  // A link to anything else is followed: the target's record under the link's name.
  Fill(out, target);
  return Outcome::Found;
}

bool HasMountRootFlag(const struct statx& st, bool& known) {
  known = (st.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0;
  return known && (st.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

int OpenFolder(const std::string& folder) {
  const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  int fd = open(folder.c_str(), flags | O_NOATIME);
  // O_NOATIME is only permitted to the owner (or a privileged user).
  if (fd < 0 && errno == EPERM) fd = open(folder.c_str(), flags);
  return fd;
}

}  // namespace

FileTime FileTimeFromUnix(int64_t seconds, uint32_t nanoseconds) {
  if (seconds < -kEpochOffsetSeconds) return 0;
  return static_cast<FileTime>(seconds + kEpochOffsetSeconds) * kTicksPerSecond + nanoseconds / 100;
}

void UnixFromFileTime(FileTime t, int64_t& seconds, uint32_t& nanoseconds) {
  seconds = static_cast<int64_t>(t / kTicksPerSecond) - kEpochOffsetSeconds;
  nanoseconds = static_cast<uint32_t>(t % kTicksPerSecond) * 100;
}

uint32_t AttributesFromMode(uint32_t mode, const std::string& name, bool reparse) {
  uint32_t attrs = 0;
  if (S_ISDIR(mode)) attrs |= kAttrDirectory;
  if ((mode & 0222) == 0) attrs |= kAttrReadOnly;
  // "." and ".." name the folder itself and its parent; they are not hidden entries.
  if (!name.empty() && name[0] == '.' && !IsDotName(name.c_str())) attrs |= kAttrHidden;
  if (S_ISREG(mode)) attrs |= kAttrArchive;
  if (reparse) attrs |= kAttrReparsePoint;
  if (attrs == 0) attrs = kAttrNormal;
  return attrs;
}

bool FindEntry(const std::string& path, FindData& out, int* error) {
  // A trailing separator would make the system follow a link to a folder; the entry itself is
  // wanted, so it is cut (but "/" stays "/").
  std::string p = path;
  while (p.size() > 1 && p.back() == kSep) p.pop_back();
  out = FindData{};
  out.name = NamePart(p);
  if (out.name.empty()) out.name = p;

  auto isMountRoot = [&p](const struct statx& st) {
    bool known = false;
    bool flagged = HasMountRootFlag(st, known);
    if (known && !flagged) return false;
    std::string parent = p + kSep + "..";
    struct statx up {};
    if (statx(AT_FDCWD, parent.c_str(), kFollow, STATX_INO, &up) != 0) return flagged;
    const bool sameObject = DeviceOf(up) == DeviceOf(st) && up.stx_ino == st.stx_ino;
    // The root of the whole tree is its own parent: it is no mount point of another system.
    if (known) return !sameObject;
    return DeviceOf(up) != DeviceOf(st);
  };
  int err = 0;
  Outcome r = Describe(AT_FDCWD, p.c_str(), out, err, isMountRoot);
  if (r == Outcome::Found) return true;
  if (error != nullptr) *error = err;
  return false;
}

FolderListing::FolderListing(const std::string& folder) {
  int fd = OpenFolder(folder);
  if (fd < 0) {
    error_ = errno;
    return;
  }
  struct stat st {};
  if (fstat(fd, &st) != 0) {
    error_ = errno;
    close(fd);
    return;
  }
  deviceOfFolder_ = st.st_dev;
  DIR* dir = fdopendir(fd);
  if (dir == nullptr) {
    error_ = errno;
    close(fd);
    return;
  }
  dir_ = dir;
  fd_ = fd;
}

FolderListing::~FolderListing() {
  if (dir_ != nullptr) closedir(static_cast<DIR*>(dir_));
}

bool FolderListing::Next(FindData& out) {
  if (dir_ == nullptr) return false;
  auto isMountRoot = [this](const struct statx& st) {
    bool known = false;
    bool flagged = HasMountRootFlag(st, known);
    return known ? flagged : DeviceOf(st) != deviceOfFolder_;
  };
  while (true) {
    errno = 0;
    struct dirent* de = readdir(static_cast<DIR*>(dir_));
    if (de == nullptr) {
      error_ = errno;
      return false;
    }
    out = FindData{};
    out.name = de->d_name;
    int err = 0;
    if (Describe(fd_, de->d_name, out, err, isMountRoot) != Outcome::Failed) return true;
    // Gone between the listing and the look: the listing would not have shown it.
    if (err == ENOENT) continue;
    // Listed but not searchable (a folder with read but no search permission): the name is
    // still reported, so the entry fails later where the failure is recorded, rather than
    // vanishing from the collection unseen.
    const uint32_t mode = de->d_type == DT_DIR ? S_IFDIR : de->d_type == DT_REG ? S_IFREG : 0;
    out.kind = de->d_type == DT_DIR   ? EntryKind::Directory
               : de->d_type == DT_REG ? EntryKind::Regular
                                      : EntryKind::Other;
    out.attributes = AttributesFromMode(mode | 0200, out.name, false);
    return true;
  }
}

}  // namespace qr
