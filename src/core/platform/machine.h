#pragma once
// Facts about this machine and this program.
#include <string>
#include <string_view>

namespace qr {

// gethostname; empty when it can't be had.
std::string ComputerName();
// The effective user's login name; empty when it can't be had.
std::string UserName();
// The folder of the running executable, without a trailing separator.
std::string ProgramFolder();
// A field of /proc/self/mountinfo with its octal escapes (blanks, tabs, line ends and
// backslashes in paths) decoded.
std::string DecodeMountField(std::string_view field);
// The mount point (from /proc/self/mountinfo) that holds `path`.
std::string MountPointOf(const std::string& path);
// The program's drive: the mount point holding `folder`, without a trailing separator;
// empty when that is "/".
std::string ProgramDrive(const std::string& folder);
// A stable text for this machine: /etc/machine-id, else the computer's name.
std::string MachineId();
// True when a file can be created in `folder`.
bool IsWritableFolder(const std::string& folder);
// $XDG_CONFIG_HOME, else ~/.config.
std::string ConfigHome();
// $XDG_RUNTIME_DIR, else a per-user folder under /tmp (created when missing).
std::string RuntimeDir();

}  // namespace qr
