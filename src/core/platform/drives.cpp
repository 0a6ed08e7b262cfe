#include "platform/drives.h"

#include <fstream>
#include <sstream>

#include "platform/machine.h"
#include "platform/text.h"

namespace qr {

namespace {

// Kernel interfaces and views of other objects: nothing a person keeps files on. An overlay is
// not among them: it is the root of every container and of live systems, and holds real files.
// Squashfs is: it is a read-only package image (snaps), not storage of anybody's own.
constexpr std::string_view kPseudo[] = {
    "proc",     "sysfs",    "cgroup",          "cgroup2",     "devtmpfs",   "devpts", "mqueue",
    "debugfs",  "tracefs",  "securityfs",      "pstore",      "bpf",        "autofs", "hugetlbfs",
    "configfs", "fusectl",  "binfmt_misc",     "efivarfs",    "rpc_pipefs", "nsfs",   "selinuxfs",
    "nfsd",     "squashfs", "fuse.gvfsd-fuse", "fuse.portal", "fuse.lxcfs"};

constexpr std::string_view kRemote[] = {
    "nfs",          "nfs4",        "cifs",           "smb3",        "smbfs",
    "ncpfs",        "sshfs",       "fuse.sshfs",     "9p",          "ceph",
    "fuse.ceph",    "glusterfs",   "fuse.glusterfs", "afs",         "coda",
    "davfs",        "fuse.davfs2", "fuse.s3fs",      "fuse.rclone", "lustre",
    "fuse.gcsfuse", "orangefs"};

bool IsUnderSystemArea(const std::string& mountPoint) {
  for (std::string_view area : {"/dev", "/proc", "/sys", "/run"}) {
    if (mountPoint.compare(0, area.size(), area) == 0 &&
        (mountPoint.size() == area.size() || mountPoint[area.size()] == '/')) {
      return true;
    }
  }
  return false;
}

bool SysfsRemovable(const std::string& majorMinor) {
  // A whole disk carries the flag itself; a partition's folder sits inside its disk's.
  const std::string base = "/sys/dev/block/" + majorMinor;
  for (const std::string& flag : {base + "/removable", base + "/../removable"}) {
    std::ifstream in(flag);
    char c = 0;
    if (in.get(c)) return c == '1';
  }
  return false;
}

}  // namespace

DriveType DriveTypeOf(std::string_view fsType) {
  for (std::string_view p : kPseudo) {
    if (fsType == p) return DriveType::NoRootDir;
  }
  if (fsType == "tmpfs" || fsType == "ramfs") return DriveType::RamDisk;
  if (fsType == "iso9660" || fsType == "udf") return DriveType::CdRom;
  for (std::string_view r : kRemote) {
    if (fsType == r) return DriveType::Remote;
  }
  return DriveType::Fixed;
}

std::vector<Drive> ParseDrives(std::string_view mountinfo, const RemovableTest& removable) {
  std::vector<Drive> drives;
  for (const std::string& line : SplitLines(mountinfo)) {
    // id parent major:minor root mount-point options [optional fields...] - type source options
    std::istringstream fields(line);
    std::string id, parent, device, root, mountPoint, field;
    if (!(fields >> id >> parent >> device >> root >> mountPoint)) continue;
    bool separatorSeen = false;
    while (fields >> field) {
      if (field == "-") {
        separatorSeen = true;
        break;
      }
    }
    std::string fsType;
    if (!separatorSeen || !(fields >> fsType)) continue;

    const std::string path = DecodeMountField(mountPoint);
    DriveType type = DriveTypeOf(fsType);
    if (type == DriveType::NoRootDir) continue;
    if (type == DriveType::RamDisk && IsUnderSystemArea(path)) continue;
    // Major number 0 is a file system without a block device of its own.
    if (type == DriveType::Fixed && device.compare(0, 2, "0:") != 0 && removable &&
        removable(device)) {
      type = DriveType::Removable;
    }
    drives.push_back({path, type});
  }
  return drives;
}

std::vector<Drive> MountedDrives() {
  std::ifstream in("/proc/self/mountinfo");
  if (!in) return {};
  std::ostringstream text;
  text << in.rdbuf();
  return ParseDrives(text.str(), SysfsRemovable);
}

}  // namespace qr
