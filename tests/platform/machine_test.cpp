#include "platform/machine.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/child_process.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

std::string FirstLine(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  return line;
}

// Entries in a folder besides "." and "..".
long EntryCount(const std::string& folder) {
  return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

TEST(MachineTest, NamesIdProgramFolderAndWhereUserNobodyMayWrite) {
  EXPECT_EQ(ComputerName(), FirstLine("/proc/sys/kernel/hostname"));
  const std::string id = FirstLine("/etc/machine-id");
  EXPECT_EQ(MachineId(), id.empty() ? ComputerName() : id);
  const std::string folder = ProgramFolder();
  ASSERT_NE(folder.back(), '/');
  EXPECT_TRUE(fs::equivalent("/proc/self/exe", folder + "/" + program_invocation_short_name));

  // Only a created file tells whether a folder is writable, and the probe leaves nothing.
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
  EXPECT_EQ(EntryCount(open), 0);
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
    return 0;
  });
  if (outcome.exitCode == test::kChildCannotSetUp) GTEST_SKIP() << "no permission to mount";
  ASSERT_EQ(outcome.exitCode, 0);
  const std::string outer = MountPointOf(tmp.path());
  EXPECT_EQ(outcome.output, odd + "\n" + odd + "\n" + outer + "\n01");
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

}  // namespace
}  // namespace qr
