#include "platform/machine.h"

#include <fcntl.h>
#include <limits.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <vector>

#include "platform/paths.h"
#include "platform/text.h"

namespace qr {

namespace {


// The mount points of this process's view, in table order.
std::vector<std::string> MountPoints() {
  std::vector<std::string> out;
  std::ifstream in("/proc/self/mountinfo");
  std::string line;
  while (std::getline(in, line)) {
    // id parent major:minor root mount-point ...
    std::istringstream fields(line);
    std::string id, parent, device, root, mountPoint;
    if (fields >> id >> parent >> device >> root >> mountPoint) {
      out.push_back(DecodeMountField(mountPoint));
    }
  }
  return out;
}

std::string CurrentFolder() {
  std::vector<char> buffer(PATH_MAX);
  while (getcwd(buffer.data(), buffer.size()) == nullptr) {
    if (errno != ERANGE) return {};
    buffer.resize(buffer.size() * 2);
  }
  return buffer.data();
}

// The path with links resolved where it exists, else made absolute as written.
std::string ResolvedPath(const std::string& path) {
  if (char* real = realpath(path.c_str(), nullptr)) {
    std::string out(real);
    std::free(real);
    return out;
  }
  if (!path.empty() && path[0] == kSep) return path;
  return WithTrailingSep(CurrentFolder()) + path;
}

bool IsUnder(const std::string& path, const std::string& mountPoint) {
  if (mountPoint == kSepText) return !path.empty() && path[0] == kSep;
  if (path.compare(0, mountPoint.size(), mountPoint) != 0) return false;
  return path.size() == mountPoint.size() || path[mountPoint.size()] == kSep;
}

std::string HomeFolder() {
  if (const char* home = std::getenv("HOME"); home != nullptr && home[0] != '\0') return home;
  long size = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 16384);
  struct passwd pw {};
  struct passwd* found = nullptr;
  while (getpwuid_r(geteuid(), &pw, buffer.data(), buffer.size(), &found) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  return found != nullptr && found->pw_dir != nullptr ? found->pw_dir : "";
}

// Creates each missing folder of `path` with `mode`; existing ones are left as they are.
void MakeFolders(const std::string& path, mode_t mode) {
  for (size_t pos = 1; pos <= path.size(); ++pos) {
    if (pos == path.size() || path[pos] == kSep) mkdir(path.substr(0, pos).c_str(), mode);
  }
}

// An absolute path from an XDG variable; relative ones are to be ignored.
std::string XdgFolder(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || value[0] != kSep) return {};
  return value;
}

}  // namespace

std::string DecodeMountField(std::string_view field) {
  std::string out;
  out.reserve(field.size());
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size()) {
      const char a = field[i + 1], b = field[i + 2], c = field[i + 3];
      if (a >= '0' && a <= '3' && b >= '0' && b <= '7' && c >= '0' && c <= '7') {
        out += static_cast<char>(((a - '0') << 6) | ((b - '0') << 3) | (c - '0'));
        i += 3;
        continue;
      }
    }
    out += field[i];
  }
  return out;
}

std::string ComputerName() {
  char name[HOST_NAME_MAX + 1] = {};
  if (gethostname(name, sizeof name - 1) != 0) return {};
  return name;
}

std::string UserName() {
  long size = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 16384);
  struct passwd pw {};
  struct passwd* found = nullptr;
  int rc = 0;
  while ((rc = getpwuid_r(geteuid(), &pw, buffer.data(), buffer.size(), &found)) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (rc != 0 || found == nullptr || found->pw_name == nullptr) return {};
  return found->pw_name;
}

std::string ProgramFolder() {
  std::vector<char> buffer(PATH_MAX);
  while (true) {
    const ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (n < 0) return {};
    if (static_cast<size_t>(n) < buffer.size()) {
      const std::string exe(buffer.data(), static_cast<size_t>(n));
      const std::string folder = ParentFolder(exe);
      // A program in "/" has "/" as its folder: a root is never emptied.
      return folder.empty() ? std::string(kSepText) : folder;
    }
    buffer.resize(buffer.size() * 2);
  }
}

std::string MountPointOf(const std::string& path) {
  const std::string resolved = ResolvedPath(path);
  std::string best;
  for (const std::string& mountPoint : MountPoints()) {
    // The longer mount point is the nearer one; of equal ones, the later is mounted on top.
    if (IsUnder(resolved, mountPoint) && mountPoint.size() >= best.size()) best = mountPoint;
  }
  return best.empty() ? std::string(kSepText) : best;
}

std::string ProgramDrive(const std::string& folder) {
  const std::string mountPoint = MountPointOf(folder);
  return mountPoint == kSepText ? std::string() : WithoutTrailingSep(mountPoint);
}

std::string MachineId() {
  std::ifstream in("/etc/machine-id");
  std::string id;
  std::getline(in, id);
  if (!id.empty() && id.back() == '\r') id.pop_back();
  id = Trim(id);
  return id.empty() ? ComputerName() : id;
}

bool IsWritableFolder(const std::string& folder) {
  // access(W_OK) says yes to root on a read-only mount and knows nothing of quotas or
  // immutable folders: only creating a file tells. An unnamed file leaves no trace even if the
  // program dies here; file systems without that fall back to a named file removed at once.
  const int fd = open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
  if (fd >= 0) {
    close(fd);
    return true;
  }
  if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) return false;
  static std::atomic<unsigned> counter{0};
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::string probe = WithTrailingSep(folder) + ".quillon-ravelin-probe-" +
                              std::to_string(getpid()) + "-" + std::to_string(counter++);
    const int named = open(probe.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
    if (named >= 0) {
      close(named);
      unlink(probe.c_str());
      return true;
    }
    if (errno != EEXIST) return false;
  }
  return false;
}

std::string ConfigHome() {
  std::string folder = XdgFolder("XDG_CONFIG_HOME");
  if (folder.empty()) {
    const std::string home = HomeFolder();
    if (home.empty()) return {};
    folder = WithTrailingSep(home) + ".config";
  }
  MakeFolders(folder, 0700);
  return folder;
}

std::string RuntimeDir() {
  std::string folder = XdgFolder("XDG_RUNTIME_DIR");
  if (!folder.empty()) return folder;
  // A folder of our own under /tmp, private to this user. One that someone else made, or that
  // is a link, is not used: its lock files could be taken or replaced by that other user.
  folder = "/tmp/quillon-ravelin-" + std::to_string(geteuid());
  mkdir(folder.c_str(), 0700);
  struct stat st {};
  if (lstat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == geteuid()) {
    if ((st.st_mode & 077) != 0) chmod(folder.c_str(), 0700);
    return folder;
  }
  const std::string config = ConfigHome();
  if (config.empty()) return {};
  folder = config + "/quillon-ravelin/run";
  MakeFolders(folder, 0700);
  return folder;
}

}  // namespace qr
