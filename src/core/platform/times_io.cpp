#include "platform/times_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <sys/sysmacros.h>

#include <cerrno>
#include <cstdint>
#include <map>

#include "platform/confined_io.h"

namespace qr {

namespace {

// The creation time of an NTFS volume as its drivers expose it: a FILETIME, little-endian.
constexpr const char* kCreationAttribute = "system.ntfs_crtime";
constexpr size_t kFileTimeBytes = 8;

// The creation time kept in the attribute, false where the file system keeps none there.
bool ReadCreationAttribute(const std::string& path, FileTime& out, int* error = nullptr) {
  unsigned char bytes[kFileTimeBytes] = {};
  const ssize_t n = getxattr(path.c_str(), kCreationAttribute, bytes, sizeof bytes);
  if (n != static_cast<ssize_t>(sizeof bytes)) {
    if (error != nullptr) *error = n < 0 ? errno : 0;
    return false;
  }
  out = 0;
  for (size_t i = kFileTimeBytes; i-- > 0;) out = (out << 8) | bytes[i];
  return true;
}

bool WriteCreationAttribute(const std::string& path, FileTime t) {
  unsigned char bytes[kFileTimeBytes] = {};
  for (size_t i = 0; i < kFileTimeBytes; ++i) {
    bytes[i] = static_cast<unsigned char>(t & 0xFFu);
    t >>= 8;
  }
  return setxattr(path.c_str(), kCreationAttribute, bytes, sizeof bytes, 0) == 0;
}

FileTime FromStatx(const struct statx_timestamp& ts) {
  return FileTimeFromUnix(ts.tv_sec, ts.tv_nsec);
}

// The timespec for one member: UTIME_OMIT for zero ("leave as it is") and for a value the object
// already carries at 100 ns resolution. Rewriting an equal value would cut the nanoseconds the
// file system keeps below that resolution.
struct timespec Wanted(FileTime wanted, FileTime current, bool& anything) {
  struct timespec ts {};
  if (wanted == 0 || wanted == current) {
    ts.tv_nsec = UTIME_OMIT;
    return ts;
  }
  int64_t seconds = 0;
  uint32_t nanoseconds = 0;
  UnixFromFileTime(wanted, seconds, nanoseconds);
  ts.tv_sec = seconds;
  ts.tv_nsec = nanoseconds;
  anything = true;
  return ts;
}

// Whether a file system takes a creation time is a fact of the file system, not of each file:
// a device that refused the attribute once is not asked again (times are written many times
// for every file collected).
std::map<uint64_t, bool>& DevicesWithoutCreationAttribute() {
  static std::map<uint64_t, bool> devices;
  return devices;
}

}  // namespace

bool WriteFileTimes(const std::string& path, FileTime created, FileTime accessed, FileTime modified,
                    int* error) {
  struct statx st {};
  int setError = 0;
  // No write bit is needed: root and the owner may set any time, so no mode is ever touched.
  const int e = StatxThenSetTimes(
      path, STATX_ATIME | STATX_MTIME, st,
      [&](const struct statx& now, struct timespec ts[2]) {
        bool anything = false;
        ts[0] = Wanted(accessed, FromStatx(now.stx_atime), anything);
        ts[1] = Wanted(modified, FromStatx(now.stx_mtime), anything);
        return anything;
      },
      setError);
  if (e != 0) {
    if (error != nullptr) *error = e;
    return false;
  }
  bool ok = setError == 0;
  int err = setError;
  const uint64_t device = makedev(st.stx_dev_major, st.stx_dev_minor);
  bool& without = DevicesWithoutCreationAttribute()[device];
  FileTime currentCreation = 0;
  int readError = 0;
  // The attribute calls name the path; below a root a link there is never written through.
  if (created != 0 && !without && !(IsConfined(path) && LinkOrSpecialAt(path))) {
    if (!ReadCreationAttribute(path, currentCreation, &readError)) {
      if (readError == EOPNOTSUPP || readError == ENOTSUP) without = true;
    } else if (currentCreation != created && !WriteCreationAttribute(path, created)) {
      if (ok) err = errno;
      ok = false;
    }
  }
  if (!ok && error != nullptr) *error = err;
  return ok;
}

bool ReadLinkTimes(int dirfd, const std::string& path, FileTime& accessed, FileTime& modified) {
  struct statx st {};
  if (statx(dirfd, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_ATIME | STATX_MTIME,
            &st) != 0 ||
      !S_ISLNK(st.stx_mode)) {
    return false;
  }
  accessed = FromStatx(st.stx_atime);
  modified = FromStatx(st.stx_mtime);
  return true;
}

bool WriteLinkTimes(int dirfd, const std::string& path, FileTime accessed, FileTime modified) {
  FileTime nowAccessed = 0;
  FileTime nowModified = 0;
  if (!ReadLinkTimes(dirfd, path, nowAccessed, nowModified)) return false;
  bool anything = false;
  const struct timespec ts[2] = {Wanted(accessed, nowAccessed, anything),
                                 Wanted(modified, nowModified, anything)};
  return !anything || utimensat(dirfd, path.c_str(), ts, AT_SYMLINK_NOFOLLOW) == 0;
}

bool CanSetCreationTime(const std::string& path) {
  FileTime ignored = 0;
  return ReadCreationAttribute(path, ignored);
}

}  // namespace qr

namespace qr {

bool CanSetCreationTime(const std::string& path, uint64_t device) {
  bool& without = DevicesWithoutCreationAttribute()[device];
  if (without) return false;
  FileTime ignored = 0;
  int error = 0;
  if (ReadCreationAttribute(path, ignored, &error)) return true;
  if (error == EOPNOTSUPP || error == ENOTSUP) without = true;
  return false;
}

}  // namespace qr
