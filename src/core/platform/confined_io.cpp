#include "platform/confined_io.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

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
    int fd = ::open(LongPathPrefix(root).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
      error_ = errno;
      return;
    }
    const std::vector<std::string> parts = Split(rest, kSepText);
    if (WalkAtOnce(fd, parts)) return;
    for (size_t i = 0; i < parts.size(); ++i) {
      const std::string& part = parts[i];
      if (part.empty()) continue;
      // A dot part would step out of the folder walked so far.
      if (part == "." || part == "..") {
        ::close(fd);
        error_ = EACCES;
        return;
      }
      if (i + 1 == parts.size()) {
        name_ = part;
        break;
      }
      const int next = ::openat(fd, part.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      const int err = errno;
      ::close(fd);
      if (next < 0) {
        // A link where a folder should be is no folder here.
        error_ = err == ELOOP ? ENOTDIR : err;
        return;
      }
      fd = next;
    }
    dir_ = fd;
  }
  ~AtPath() {
    if (confined_ && dir_ >= 0) ::close(dir_);
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
  // The folder part in one call: the kernel resolves it below the root and refuses any link on
  // the way, which is what the walk part by part does with a call per part. False where the
  // kernel lacks the call; the walk then does it. Takes `rootFd` over either way it returns
  // true.
  bool WalkAtOnce(int rootFd, const std::vector<std::string>& parts) {
    static bool unavailable = false;
    if (unavailable) return false;
    std::string folder;
    size_t last = parts.size();
    while (last > 0 && parts[last - 1].empty()) --last;
    if (last == 0) return false;
    for (size_t i = 0; i < last; ++i) {
      const std::string& part = parts[i];
      if (part.empty()) continue;
      // A dot part would step out of the folder walked so far.
      if (part == "." || part == "..") {
        ::close(rootFd);
        error_ = EACCES;
        return true;
      }
      if (i + 1 == last) {
        name_ = part;
        break;
      }
      if (!folder.empty()) folder += kSep;
      folder += part;
    }
    if (folder.empty()) {
      dir_ = rootFd;
      return true;
    }
    struct open_how how {};
    how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    const long fd = ::syscall(SYS_openat2, rootFd, folder.c_str(), &how, sizeof how);
    const int err = errno;
    if (fd < 0 && (err == ENOSYS || err == E2BIG)) {
      unavailable = true;
      name_.clear();
      return false;
    }
    ::close(rootFd);
    if (fd < 0) {
      // A link where a folder should be is no folder here.
      error_ = err == ELOOP ? ENOTDIR : err;
      return true;
    }
    dir_ = static_cast<int>(fd);
    return true;
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
}

std::vector<std::string> ConfinedRoots() {
  return Roots();
}

bool IsConfined(const std::string& path) {
  std::string root;
  return !BelowRoot(path, root).empty();
}

int OpenForWriting(const std::string& path, int flags, mode_t mode) {
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
  if ((flags & O_NONBLOCK) == 0) ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  return fd;
}

int MakeFolder(const std::string& path, mode_t mode) {
  AtPath at(path);
  if (!at.ok()) return at.error();
  if (::mkdirat(at.dir(), at.name(), mode) == 0) return 0;
  const int err = errno;
  struct stat st {};
  if (err != EEXIST || !at.confined() || !at.Look(st) || !IsLinkOrSpecial(st.st_mode)) return err;
  if (::unlinkat(at.dir(), at.name(), 0) != 0) return errno;
  return Errno(::mkdirat(at.dir(), at.name(), mode));
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
  return Errno(::renameat2(a.dir(), a.name(), b.dir(), b.name(), RENAME_NOREPLACE));
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
