#pragma once
// The machine's drives: the mounted file systems that hold files, each with its kind.
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qr {

// The kinds a drive can be, numbered as the drive-type codes that job authors know.
enum class DriveType {
  Unknown = 0,
  NoRootDir = 1,
  Removable = 2,
  Fixed = 3,
  Remote = 4,
  CdRom = 5,
  RamDisk = 6,
};

struct Drive {
  std::string mountPoint;
  DriveType type;
};

// Tells whether the block device with the given "major:minor" number is removable.
using RemovableTest = std::function<bool(const std::string& majorMinor)>;

// The drives of a mount table in /proc/self/mountinfo form, in table order. Pseudo file systems
// (proc, sysfs, cgroup and the like) are never drives; nor is a RAM file system mounted under
// /dev, /proc, /sys or /run, which holds the system's own state rather than anybody's files.
std::vector<Drive> ParseDrives(std::string_view mountinfo, const RemovableTest& removable);

// The kind of a file system type as the mount table names it; NoRootDir for a pseudo file system.
// A block-backed file system is Fixed here; ParseDrives makes it Removable by its device.
DriveType DriveTypeOf(std::string_view fsType);

// The drives of this process's view of the machine; empty when the mount table can't be read.
std::vector<Drive> MountedDrives();

}  // namespace qr
