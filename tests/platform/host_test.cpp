// The host: its names and folders, the device environment, and the programs it starts.
#include "platform/device_env.h"
#include "platform/drives.h"
#include "platform/machine.h"
#include "platform/process.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <tuple>

#include "support/child_process.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

namespace fs = std::filesystem;
using Tokens = std::vector<std::string>;
using test::ReadBytes;
using test::TempDir;

std::string FirstLine(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  return line;
}

TEST(MachineTest, NamesIdProgramFolderAndWhereUserNobodyMayWrite) {
  EXPECT_EQ(ComputerName(), FirstLine("/proc/sys/kernel/hostname"));
  const std::string id = FirstLine("/etc/machine-id");
  EXPECT_EQ(MachineId(), id.empty() ? ComputerName() : id);
  const std::string folder = ProgramFolder();
  ASSERT_NE(folder.back(), '/');
  EXPECT_TRUE(fs::equivalent("/proc/self/exe", folder + "/" + program_invocation_short_name));

  // Only a created file tells whether a folder is writable.
  TempDir tmp;
  EXPECT_FALSE(IsWritableFolder(tmp / "missing") || IsWritableFolder(tmp.WriteFile("file", "x")));
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to run the case as user nobody";
  EXPECT_EQ(UserName(), "root");
  const std::string closed = tmp.MakeDir("closed");
  const std::string open = tmp.MakeDir("open");
  ASSERT_EQ(chmod(tmp.path().c_str(), 0755) + chmod(closed.c_str(), 0755) +
                chmod(open.c_str(), 0777), 0);
  const auto outcome = test::RunAsNobody([&](std::string& out) {
    out = UserName() + " " + std::to_string(IsWritableFolder(closed)) +
          std::to_string(IsWritableFolder(open));
    return 0;
  });
  EXPECT_EQ(outcome.output, "nobody 01");
  EXPECT_TRUE(fs::is_empty(open)) << "the probe leaves nothing";
}

TEST(MountPointTest, NearestMountOnAComponentBoundaryWithEscapedNamesAndReadOnlyMounts) {
  TempDir tmp;
  const std::string odd = tmp.MakeDir("mnt a\tb\\c");
  const std::string readOnly = tmp.MakeDir("ro");
  const auto outcome = test::RunInChild([&](std::string& out) {
    if (!test::EnterPrivateMountNamespace() ||
        mount("tmpfs", odd.c_str(), "tmpfs", 0, "size=1m") != 0 ||
        mount("tmpfs", readOnly.c_str(), "tmpfs", MS_RDONLY, "size=1m") != 0 ||
        mkdir((odd + "/sub").c_str(), 0755) != 0) {
      return test::kChildCannotSetUp;
    }
    // odd + "x" begins with the mount point's text but is not below it.
    out = MountPointOf(odd + "/sub") + "\n" + ProgramDrive(odd + "/sub/") + "\n" +
          MountPointOf(odd + "x") + "\n" + std::to_string(IsWritableFolder(readOnly)) +
          std::to_string(IsWritableFolder(odd));
    // A name that doesn't exist yet is taken from the folder the program stands in.
    if (chdir((odd + "/sub").c_str()) != 0) return test::kChildCannotSetUp;
    out += "\n" + MountPointOf("not-there");
    return 0;
  });
  if (outcome.exitCode == test::kChildCannotSetUp) GTEST_SKIP() << "no permission to mount";
  ASSERT_EQ(outcome.exitCode, 0);
  const std::string outer = MountPointOf(tmp.path());
  EXPECT_EQ(outcome.output, odd + "\n" + odd + "\n" + outer + "\n01\n" + odd);
  EXPECT_EQ(ProgramDrive("/"), "") << "the root is no drive";
}

TEST(XdgFolderTest, ConfigHomeAndARuntimeFolderMadePrivateAndNeverSomeoneElses) {
  // A private /tmp, so the test leaves no folder in the real one; the variables are the child's.
  const auto outcome = test::RunInChild([](std::string& out) {
    if (!test::EnterPrivateMountNamespace() ||
        mount("tmpfs", "/tmp", "tmpfs", 0, "size=1m,mode=1777") != 0) {
      return test::kChildCannotSetUp;
    }
    setenv("HOME", "/tmp/home", 1);
    unsetenv("XDG_CONFIG_HOME");
    out += ConfigHome() + " ";
    setenv("XDG_CONFIG_HOME", "relative/cfg", 1);
    out += ConfigHome() + " ";
    setenv("XDG_CONFIG_HOME", "/tmp/cfg/deep", 1);
    out += ConfigHome();
    out += access("/tmp/cfg/deep", F_OK) == 0 ? " made\n" : " missing\n";

    unsetenv("XDG_RUNTIME_DIR");
    const std::string mine = RuntimeDir();
    struct stat st {};
    if (lstat(mine.c_str(), &st) != 0) return 2;
    out += mine + " " + std::to_string(st.st_mode & 07777) + " " + std::to_string(st.st_uid) + "\n";
    // Someone else's folder in our place is passed by.
    if (rmdir(mine.c_str()) != 0 || mkdir(mine.c_str(), 0777) != 0 ||
        chown(mine.c_str(), 65534, 65534) != 0) {
      return test::kChildCannotSetUp;
    }
    out += RuntimeDir();
    return 0;
  });
  if (outcome.exitCode == test::kChildCannotSetUp) GTEST_SKIP() << "no permission to mount /tmp";
  const std::string uid = std::to_string(geteuid());
  EXPECT_EQ(outcome.output, "/tmp/home/.config /tmp/home/.config /tmp/cfg/deep made\n"
                            "/tmp/quillon-ravelin-" + uid + " " + std::to_string(0700) + " " +
                                uid + "\n/tmp/cfg/deep/quillon-ravelin/run");
}

// Each mount table line with the drive it gives (an empty mount point: no drive). Escaped blanks
// and backslashes are decoded; pseudo file systems and system RAM folders are never drives.
TEST(DrivesTest, TheMountTableGivesDrivesWithTheirKinds) {
  const std::vector<std::tuple<std::string, std::string, DriveType>> lines = {
      {"22 27 0:21 / /proc rw,relatime - proc proc rw", "", {}},
      {"27 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw", "/", DriveType::Fixed},
      {"30 27 8:17 / /media/usb\\040stick rw,nosuid shared:5 master:2 - vfat /dev/sdb1 rw",
       "/media/usb stick", DriveType::Removable},
      {"31 27 0:40 / /mnt/share rw - cifs //server/share rw", "/mnt/share", DriveType::Remote},
      {"33 27 0:42 / /tmp rw - tmpfs tmpfs rw", "/tmp", DriveType::RamDisk},
      {"34 27 0:43 / /run rw,nosuid - tmpfs tmpfs rw", "", {}},
      {"37 27 11:0 / /media/cdrom ro - iso9660 /dev/sr0 ro", "/media/cdrom", DriveType::CdRom},
      {"38 27 0:46 / /mnt/remote\\134box rw - fuse.sshfs host: rw", "/mnt/remote\\box",
       DriveType::Remote},
      {"40 27 7:0 / /snap/core/1 ro - squashfs /dev/loop0 ro", "", {}},
      {"42 27 0:50 / /ram rw - ramfs ramfs rw", "/ram", DriveType::RamDisk},
      {"43 27 0:51 / /merged rw - overlay overlay rw,lowerdir=/a", "/merged", DriveType::Fixed},
      {"46 27 0:53 / /net rw - autofs systemd-1 rw", "", {}},
      {"broken line", "", {}}};
  std::string table;
  std::vector<std::pair<std::string, DriveType>> expected, got;
  for (const auto& [line, mountPoint, type] : lines) {
    table += line + "\n";
    if (!mountPoint.empty()) expected.emplace_back(mountPoint, type);
  }
  std::vector<std::string> asked;
  auto removable = [&asked](const std::string& device) {
    asked.push_back(device);
    return device == "8:17";
  };
  for (const Drive& d : ParseDrives(table, removable)) got.emplace_back(d.mountPoint, d.type);
  EXPECT_EQ(got, expected);
  // Only block-backed file systems are asked about; a network or RAM one has no device.
  std::sort(asked.begin(), asked.end());
  EXPECT_EQ(asked, (std::vector<std::string>{"254:0", "8:17"}));

  // The real mount table holds the root's file system.
  const std::vector<Drive> mounted = MountedDrives();
  EXPECT_TRUE(std::any_of(mounted.begin(), mounted.end(),
                          [](const Drive& d) { return d.mountPoint == MountPointOf("/"); }));
}

const DeviceDefaults kDefaults{"/opt/ravelin/", "/media/stick", "machine-42"};

// A blank serial is no device: every default, over what was found, folders without their
// separator. Names match whole, and the scan stops at an empty entry.
TEST(DeviceEnvironmentTest, OnlyASerialMakesADeviceAndElseEveryDefaultCounts) {
  const auto local = ReadDeviceEnvironment(
      {"U3_DEVICE_SERIAL=   ", "U3_ENV_LANGUAGE=German", "U3_DAPI_CONNECT_STRING=x"}, kDefaults);
  EXPECT_FALSE(local.onDevice);
  EXPECT_EQ((std::vector<std::string>{local.U3_DEVICE_SERIAL, local.defaultSerialCopy,
                                      local.U3_DEVICE_PATH, local.U3_DEVICE_EXEC_PATH,
                                      local.U3_ENV_LANGUAGE, local.U3_DAPI_CONNECT_STRING}),
            (std::vector<std::string>{"machine-42", "machine-42", "/media/stick", "/opt/ravelin",
                                      "English", ""}));
  const auto device = ReadDeviceEnvironment(
      {"U3_DEVICE_SERIAL=0815", "U3_DAPI_CONNECT_STRING=a=b=c", "XU3_DEVICE_PRODUCT=prefixed",
       "U3_DEVICE_PRODUCTX=longer", "", "U3_ENV_LANGUAGE=Late"},
      kDefaults);
  EXPECT_TRUE(device.onDevice);
  EXPECT_EQ(device.U3_DAPI_CONNECT_STRING + "|" + device.U3_DEVICE_PRODUCT + "|" +
                device.U3_ENV_LANGUAGE + "|" + device.defaultSerialCopy,
            "a=b=c|||");
  test::EnvVar serial("U3_DEVICE_SERIAL", "from-the-process");
  EXPECT_EQ(ReadDeviceEnvironment(ProcessEnvironment(), kDefaults).U3_DEVICE_SERIAL,
            "from-the-process");
}

TEST(SplitCommandLineTest, BlanksEndTokensAndQuotesStay) {
  const std::pair<const char*, Tokens> cases[] = {
      {"", {""}}, {"-q  -silent", {"-q", "", "-silent"}}, {" -q ", {"", "-q", ""}},
      {"-lsw=\"/a b/x.lsw\" -resume", {"-lsw=\"/a b/x.lsw\"", "-resume"}},
      {"\"a b\"c d", {"\"a b\"c", "d"}},
      {"x \"y z", {"x", "\"y z"}},  // an unclosed quote runs to the end
      {"a\tb", {"a\tb"}},           // only blanks separate
  };
  for (const auto& [line, tokens] : cases) EXPECT_EQ(SplitCommandLine(line), tokens) << line;
}

TEST(StartHiddenTest, RunsWithoutAShellArgumentsAsTheyAreStreamsOnDevNull) {
  TempDir tmp;
  const std::string out = tmp / "seen.txt";
  // The shell here is the program started and $$ its own pid, so these are the streams it was
  // given; the output is redirected only for printf, after they have been read.
  const auto started = StartHidden(
      {"sh", "-c",
       "x=$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2); o=$1; shift; "
       "printf '%s\\n' \"$x\" > \"$o\"; printf '%s|' \"$@\" >> \"$o\"; exit 3",
       "sh", out, "a b", "\"q\"", "$HOME", "*", ""});
  ASSERT_TRUE(started.started) << started.error;
  EXPECT_EQ(WaitChild(started.pid), 3);
  EXPECT_EQ(ReadBytes(out), "/dev/null\n/dev/null\n/dev/null\na b|\"q\"|$HOME|*||");

  const auto missing = StartHidden({"ravelin-no-such-program-anywhere"});
  EXPECT_FALSE(missing.started);
  EXPECT_EQ(missing.error, ENOENT);
  EXPECT_FALSE(ProbeProgram({"ravelin-no-such-program-anywhere", "/?"}));
  EXPECT_TRUE(ProbeProgram({"true"}));
  // A shell command runs through /bin/sh.
  const auto shell = StartShellHidden("cd '" + tmp.path() + "' && echo done > 'it''s.txt'; exit 7");
  ASSERT_TRUE(shell.started);
  EXPECT_EQ(WaitChild(shell.pid), 7);
  EXPECT_EQ(ReadBytes(tmp / "its.txt"), "done\n");
}

}  // namespace
}  // namespace qr
