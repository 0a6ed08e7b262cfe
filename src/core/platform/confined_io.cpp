#include "platform/confined_io.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>

#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/text.h"

namespace qr {

namespace {

// The program has one thread, and the roots change only between runs.
std::vector<std::string>& Roots() {
  static std::vector<std::string> roots;
  return roots;
}

// The part of `path` below the longest root it lies under, without trailing separators; empty
// when it lies under none (the root itself included).
std::string BelowRoot(const std::string& path, std::string& root) {
  std::string rest;
  size_t best = 0;
  for (const std::string& r : Roots()) {
    const std::string prefix = WithTrailingSep(r);
    if (prefix.size() <= best || path.size() <= prefix.size() || !path.starts_with(prefix)) {
      continue;
    }
    std::string below = WithoutTrailingSep(path.substr(prefix.size()));
    while (!below.empty() && below.back() == kSep) below.pop_back();
    if (below.empty()) continue;
    best = prefix.size();
    root = r;
    rest = std::move(below);
  }
  return rest;
}

bool IsLinkOrSpecial(mode_t mode) { return !S_ISREG(mode) && !S_ISDIR(mode); }

// Folders below a root already reached this run, by root and relative folder: a file's steps
// (look, create, stamp, read back its times) and the next file's in the same folder reuse one
// descriptor instead of reaching the folder afresh each time. Anything that makes or renames a
// folder forgets them all, so a folder replaced during the run is reached anew.
class FolderCache {
 public:
  ~FolderCache() { Clear(); }
  int Find(const std::string& root, const std::string& folder) {
    for (Entry& e : entries_) {
      if (e.fd >= 0 && e.folder == folder && e.root == root) {
        e.used = ++clock_;
        return e.fd;
      }
    }
    return -1;
  }
  // Takes `fd` over. The least recently used entry goes: a rename holds two folders at once,
  // and neither is ever the one that goes.
  void Keep(const std::string& root, const std::string& folder, int fd) {
    Entry* victim = &entries_[0];
    for (Entry& e : entries_) {
      if (e.used < victim->used) victim = &e;
    }
    if (victim->fd >= 0) ::close(victim->fd);
    *victim = Entry{root, folder, fd, ++clock_};
  }
  void Clear() {
    for (Entry& e : entries_) {
      if (e.fd >= 0) ::close(e.fd);
      e = Entry{};
    }
  }

 private:
  struct Entry {
    std::string root, folder;
    int fd = -1;
    uint64_t used = 0;
  };
  // A run writes to a few folders at a time: the file's target folder, its parent, the logs.
  std::array<Entry, 4> entries_;
  uint64_t clock_ = 0;
};

FolderCache& Folders() {
  static FolderCache cache;
  return cache;
}

// The folder that holds a path and its last part, as the *at calls take them. Below a root the
// folder is reached from the root without following any link, and `noFollow` is
// AT_SYMLINK_NOFOLLOW; elsewhere it is AT_FDCWD and the whole path, as named.
class AtPath {
 public:
  explicit AtPath(const std::string& path) {
    std::string root;
    const std::string rest = BelowRoot(path, root);
    if (rest.empty()) {
      name_ = LongPathPrefix(path);
      return;
    }
    confined_ = true;
    std::vector<std::string> parts = Split(rest, kSepText);
    std::erase(parts, std::string());
    if (parts.empty()) {
      error_ = EINVAL;
      return;
    }
    std::string folder;
    for (size_t i = 0; i < parts.size(); ++i) {
      // A dot part would step out of the folder walked so far.
      if (parts[i] == "." || parts[i] == "..") {
        error_ = EACCES;
        return;
      }
      if (i + 1 == parts.size()) break;
      if (!folder.empty()) folder += kSep;
      folder += parts[i];
    }
    name_ = parts.back();
    dir_ = Folders().Find(root, folder);
    if (dir_ >= 0) return;
    const int fd = OpenFolder(root, folder, parts);
    if (fd < 0) {
      // A link where a folder should be is no folder here.
      error_ = errno == ELOOP ? ENOTDIR : errno;
      dir_ = AT_FDCWD;
      return;
    }
    Folders().Keep(root, folder, fd);
    dir_ = fd;
  }
  AtPath(const AtPath&) = delete;
  AtPath& operator=(const AtPath&) = delete;

  bool ok() const { return error_ == 0; }
  int error() const { return error_; }
  bool confined() const { return confined_; }
  int dir() const { return dir_; }
  const char* name() const { return name_.c_str(); }
  int noFollow() const { return confined_ ? AT_SYMLINK_NOFOLLOW : 0; }

  // The entry itself (a link as a link); false when there is none.
  bool Look(struct stat& st) const {
    return ::fstatat(dir_, name(), &st, AT_SYMLINK_NOFOLLOW) == 0;
  }

 private:
  // The folder below `root` that holds the last of `parts`, reached without following any
  // link: in one call where the kernel has openat2 (it resolves below the root and refuses
  // links), else part by part with O_NOFOLLOW. A descriptor, or -1 with errno set.
  static int OpenFolder(const std::string& root, const std::string& folder,
                        const std::vector<std::string>& parts) {
    const int rootFd = ::open(LongPathPrefix(root).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (rootFd < 0 || folder.empty()) return rootFd;
    static bool noOpenat2 = false;
    if (!noOpenat2) {
      struct open_how how {};
      how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
      how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
      const long fd = ::syscall(SYS_openat2, rootFd, folder.c_str(), &how, sizeof how);
      const int err = errno;
      if (fd >= 0 || (err != ENOSYS && err != E2BIG)) {
        ::close(rootFd);
        errno = err;
        return static_cast<int>(fd);
      }
      noOpenat2 = true;
    }
    int fd = rootFd;
    for (size_t i = 0; i + 1 < parts.size(); ++i) {
      const int next =
          ::openat(fd, parts[i].c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      const int err = errno;
      ::close(fd);
      if (next < 0) {
        errno = err;
        return -1;
      }
      fd = next;
    }
    return fd;
  }

  bool confined_ = false;
  int dir_ = AT_FDCWD;
  int error_ = 0;
  std::string name_;
};

int Errno(int rc) { return rc == 0 ? 0 : errno; }

}  // namespace

void SetConfinedRoots(std::vector<std::string> roots) {
  std::erase_if(roots, [](const std::string& r) { return Trim(r).empty(); });
  Roots() = std::move(roots);
  Folders().Clear();
}

std::vector<std::string> ConfinedRoots() {
  return Roots();
}

bool IsConfined(const std::string& path) {
  std::string root;
  return !BelowRoot(path, root).empty();
}

namespace {

int OpenForWritingOnce(const std::string& path, int flags, mode_t mode) {
  AtPath at(path);
  if (!at.ok()) {
    errno = at.error();
    return -1;
  }
  if (!at.confined()) return ::open(at.name(), flags | O_CLOEXEC, mode);
  struct stat st {};
  if (at.Look(st) && IsLinkOrSpecial(st.st_mode)) {
    // Create-new keeps its meaning: a link is an existing entry.
    if ((flags & O_EXCL) != 0) {
      errno = EEXIST;
      return -1;
    }
    if (::unlinkat(at.dir(), at.name(), 0) != 0) return -1;
    flags |= O_CREAT;
  }
  // O_NONBLOCK: whatever slips in between the look and the open, a FIFO can't stall the run.
  const int fd = ::openat(at.dir(), at.name(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode);
  if (fd < 0) return -1;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    errno = EINVAL;
    return -1;
  }
  // O_NONBLOCK changes nothing for a regular file's reads and writes, so it stays set.
  return fd;
}

int MakeFolderOnce(const std::string& path, mode_t mode) {
  AtPath at(path);
  if (!at.ok()) return at.error();
  // A new folder may stand where a remembered one was removed: remember none of them.
  if (::mkdirat(at.dir(), at.name(), mode) == 0) {
    Folders().Clear();
    return 0;
  }
  const int err = errno;
  struct stat st {};
  if (err != EEXIST || !at.confined() || !at.Look(st) || !IsLinkOrSpecial(st.st_mode)) return err;
  if (::unlinkat(at.dir(), at.name(), 0) != 0) return errno;
  const int rc = Errno(::mkdirat(at.dir(), at.name(), mode));
  Folders().Clear();
  return rc;
}

}  // namespace

int OpenForWriting(const std::string& path, int flags, mode_t mode) {
  const int fd = OpenForWritingOnce(path, flags, mode);
  if (fd >= 0 || errno != ENOENT) return fd;
  // A folder removed and made again by someone else since it was reached: reach it afresh.
  Folders().Clear();
  return OpenForWritingOnce(path, flags, mode);
}

int MakeFolder(const std::string& path, mode_t mode) {
  const int err = MakeFolderOnce(path, mode);
  if (err != ENOENT) return err;
  Folders().Clear();
  return MakeFolderOnce(path, mode);
}

bool FolderExistsNoFollow(const std::string& path) {
  if (!IsConfined(path)) return FileOrDirExists("", path);
  AtPath at(path);
  struct stat st {};
  return at.ok() && at.Look(st) && S_ISDIR(st.st_mode);
}

bool NonFolderEntryExists(const std::string& path) {
  AtPath at(path);
  struct stat st {};
  return at.ok() && at.Look(st) && !S_ISDIR(st.st_mode);
}

int ChangeMode(const std::string& path, mode_t mode) {
  AtPath at(path);
  if (!at.ok()) return at.error();
  return Errno(::fchmodat(at.dir(), at.name(), mode, at.noFollow()));
}

int SetTimesAt(const std::string& path, const struct timespec ts[2]) {
  AtPath at(path);
  if (!at.ok()) return at.error();
  return Errno(::utimensat(at.dir(), at.name(), ts, at.noFollow()));
}

int StatxThenSetTimes(const std::string& path, unsigned int mask, struct statx& st,
                      const std::function<bool(const struct statx&, struct timespec ts[2])>& change,
                      int& setError) {
  setError = 0;
  AtPath at(path);
  if (!at.ok()) return at.error();
  if (::statx(at.dir(), at.name(), at.noFollow(), mask, &st) != 0) return errno;
  struct timespec ts[2] = {};
  if (change(st, ts)) setError = Errno(::utimensat(at.dir(), at.name(), ts, at.noFollow()));
  return 0;
}

int RenameNoReplace(const std::string& from, const std::string& to) {
  AtPath a(from);
  AtPath b(to);
  if (!a.ok()) return a.error();
  if (!b.ok()) return b.error();
  const int rc = Errno(::renameat2(a.dir(), a.name(), b.dir(), b.name(), RENAME_NOREPLACE));
  // What was renamed may be a remembered folder.
  Folders().Clear();
  return rc;
}

bool RemoveLinkAt(const std::string& path) {
  AtPath at(path);
  struct stat st {};
  if (!at.ok() || !at.confined() || !at.Look(st) || !IsLinkOrSpecial(st.st_mode)) return false;
  return ::unlinkat(at.dir(), at.name(), 0) == 0;
}

bool LinkOrSpecialAt(const std::string& path) {
  AtPath at(path);
  struct stat st {};
  return at.ok() && at.Look(st) && IsLinkOrSpecial(st.st_mode);
}

int StatNoFollow(const std::string& path, struct stat& st) {
  AtPath at(path);
  if (!at.ok()) return at.error();
  return Errno(::fstatat(at.dir(), at.name(), &st, at.noFollow()));
}

int StatxNoFollow(const std::string& path, unsigned int mask, struct statx& st) {
  AtPath at(path);
  if (!at.ok()) return at.error();
  return Errno(::statx(at.dir(), at.name(), at.noFollow(), mask, &st));
}

int RemoveFile(const std::string& path) {
  AtPath at(path);
  if (!at.ok()) return at.error();
  return Errno(::unlinkat(at.dir(), at.name(), 0));
}

}  // namespace qr
