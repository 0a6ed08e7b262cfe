#include "platform/machine.h"

#include <dirent.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "support/child_process.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::EnvVar;
using test::TempDir;

std::string FirstLine(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  return line;
}

size_t EntryCount(const std::string& folder) {
  size_t n = 0;
  DIR* d = opendir(folder.c_str());
  if (d == nullptr) return 0;
  while (readdir(d) != nullptr) ++n;
  closedir(d);
  return n;
}

TEST(MachineTest, NamesIdAndProgramFolder) {
  EXPECT_EQ(ComputerName(), FirstLine("/proc/sys/kernel/hostname"));
  const std::string id = FirstLine("/etc/machine-id");
  EXPECT_EQ(MachineId(), id.empty() ? ComputerName() : id);

  const std::string folder = ProgramFolder();
  ASSERT_FALSE(folder.empty());
  EXPECT_NE(folder.back(), '/');
  struct stat self {};
  struct stat found {};
  ASSERT_EQ(stat("/proc/self/exe", &self), 0);
  ASSERT_EQ(stat((folder + "/" + program_invocation_short_name).c_str(), &found), 0);
  EXPECT_EQ(self.st_ino, found.st_ino);

  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to compare with user nobody";
  EXPECT_EQ(UserName(), "root");
  const auto outcome = test::RunAsNobody([](std::string& out) {
    out = UserName();
    return 0;
  });
  EXPECT_EQ(outcome.output, "nobody");
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
          MountPointOf(odd + "x") + "\n" + (IsWritableFolder(readOnly) ? "writable" : "read-only") +
          "\n" + (IsWritableFolder(odd) ? "writable" : "read-only") + "\n";
    return 0;
  });
  if (outcome.exitCode == test::kChildCannotSetUp) GTEST_SKIP() << "no permission to mount";
  ASSERT_EQ(outcome.exitCode, 0);
  const std::string outer = MountPointOf(tmp.path());
  EXPECT_EQ(outcome.output, odd + "\n" + odd + "\n" + outer + "\nread-only\nwritable\n");
  EXPECT_EQ(ProgramDrive("/"), "") << "the root is no drive";
}

TEST(WritableFolderTest, OnlyACreatedFileTells) {
  TempDir tmp;
  EXPECT_TRUE(IsWritableFolder(tmp.path()));
  EXPECT_EQ(EntryCount(tmp.path()), 2u) << "the probe left something behind";
  EXPECT_FALSE(IsWritableFolder(tmp / "missing"));
  EXPECT_FALSE(IsWritableFolder(tmp.WriteFile("file", "x")));

  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to run the case as user nobody";
  ASSERT_EQ(chmod(tmp.path().c_str(), 0755), 0);
  const std::string closed = tmp.MakeDir("closed");
  const std::string open = tmp.MakeDir("open");
  ASSERT_EQ(chmod(closed.c_str(), 0755), 0);
  ASSERT_EQ(chmod(open.c_str(), 0777), 0);
  const auto outcome = test::RunAsNobody([&](std::string& out) {
    out = std::to_string(IsWritableFolder(closed)) + std::to_string(IsWritableFolder(open));
    return 0;
  });
  EXPECT_EQ(outcome.output, "01");
  EXPECT_EQ(EntryCount(open), 2u);
}

TEST(XdgFolderTest, ConfigHomeFromTheVariableElseTheHome) {
  TempDir tmp;
  {
    EnvVar xdg("XDG_CONFIG_HOME", tmp / "cfg/deep");
    EXPECT_EQ(ConfigHome(), tmp / "cfg/deep");
    EXPECT_EQ(access((tmp / "cfg/deep").c_str(), F_OK), 0) << "created when missing";
  }
  EnvVar home("HOME", tmp / "home");
  for (const std::optional<std::string>& xdg : {std::optional<std::string>(), {"relative/cfg"}}) {
    EnvVar unusable("XDG_CONFIG_HOME", xdg);
    EXPECT_EQ(ConfigHome(), tmp / "home/.config") << xdg.value_or("unset");
  }
}

TEST(XdgFolderTest, RuntimeDirMadePrivateUnderTmpAndNeverSomeoneElses) {
  // A private /tmp, so the test leaves no folder in the real one.
  const auto outcome = test::RunInChild([](std::string& out) {
    if (!test::EnterPrivateMountNamespace() ||
        mount("tmpfs", "/tmp", "tmpfs", 0, "size=1m,mode=1777") != 0) {
      return test::kChildCannotSetUp;
    }
    unsetenv("XDG_RUNTIME_DIR");
    setenv("XDG_CONFIG_HOME", "/tmp/cfg", 1);
    const std::string mine = RuntimeDir();
    struct stat st {};
    if (lstat(mine.c_str(), &st) != 0) return 2;
    out += mine + " " + std::to_string(st.st_mode & 07777) + " " + std::to_string(st.st_uid) + "\n";
    // Someone else's folder in our place is passed by.
    if (rmdir(mine.c_str()) != 0 || mkdir(mine.c_str(), 0777) != 0 ||
        chown(mine.c_str(), 65534, 65534) != 0) {
      return test::kChildCannotSetUp;
    }
    out += RuntimeDir() + "\n";
    return 0;
  });
  if (outcome.exitCode == test::kChildCannotSetUp) GTEST_SKIP() << "no permission to mount /tmp";
  ASSERT_EQ(outcome.exitCode, 0);
  const std::string uid = std::to_string(geteuid());
  EXPECT_EQ(outcome.output, "/tmp/quillon-ravelin-" + uid + " " + std::to_string(0700) + " " + uid +
                                "\n/tmp/cfg/quillon-ravelin/run\n");
}

}  // namespace
}  // namespace qr
