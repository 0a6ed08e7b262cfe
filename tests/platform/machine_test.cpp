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

TEST(MachineTest, ComputerAndUserNames) {
  EXPECT_EQ(ComputerName(), FirstLine("/proc/sys/kernel/hostname"));
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to compare with user nobody";
  EXPECT_EQ(UserName(), "root");
  const auto outcome = test::RunInChild([](std::string& out) {
    if (!test::BecomeNobody()) return test::kChildCannotSetUp;
    out = UserName();
    return 0;
  });
  ASSERT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.output, "nobody");
}

TEST(MachineTest, ProgramFolderHoldsThisProgram) {
  const std::string folder = ProgramFolder();
  ASSERT_FALSE(folder.empty());
  EXPECT_NE(folder.back(), '/');
  struct stat self {};
  struct stat found {};
  ASSERT_EQ(stat("/proc/self/exe", &self), 0);
  ASSERT_EQ(stat((folder + "/" + program_invocation_short_name).c_str(), &found), 0);
  EXPECT_EQ(self.st_ino, found.st_ino);
  EXPECT_EQ(self.st_dev, found.st_dev);
}

TEST(MachineTest, MachineIdIsTheSystemsIdentifier) {
  const std::string system = FirstLine("/etc/machine-id");
  EXPECT_EQ(MachineId(), system.empty() ? ComputerName() : system);
}

TEST(MountPointTest, NearestMountOnAComponentBoundary) {
  struct stat root {};
  struct stat proc {};
  ASSERT_EQ(stat("/", &root), 0);
  if (stat("/proc", &proc) != 0 || proc.st_dev == root.st_dev) {
    GTEST_SKIP() << "/proc is not mounted here";
  }
  EXPECT_EQ(MountPointOf("/proc/self/fd"), "/proc");
  EXPECT_EQ(MountPointOf("/proc/"), "/proc");
  // Not below /proc, though the text begins with it.
  EXPECT_EQ(MountPointOf("/processes-that-do-not-exist/x"), "/");
  EXPECT_EQ(ProgramDrive("/proc/self"), "/proc");
  EXPECT_EQ(ProgramDrive("/processes-that-do-not-exist"), "");
}

TEST(MountPointTest, EscapedNamesAndReadOnlyMountsInAPrivateNamespace) {
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
    out = MountPointOf(odd + "/sub") + "\n" + ProgramDrive(odd + "/sub/") + "\n" +
          MountPointOf(odd + "x") + "\n" + (IsWritableFolder(readOnly) ? "writable" : "read-only") +
          "\n" + (IsWritableFolder(odd) ? "writable" : "read-only") + "\n";
    return 0;
  });
  if (outcome.exitCode == test::kChildCannotSetUp) {
    GTEST_SKIP() << "no permission to mount in a private mount namespace";
  }
  ASSERT_EQ(outcome.exitCode, 0);
  const std::string outer = MountPointOf(tmp.path());
  EXPECT_EQ(outcome.output, odd + "\n" + odd + "\n" + outer + "\nread-only\nwritable\n");
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
  const auto outcome = test::RunInChild([&](std::string& out) {
    if (!test::BecomeNobody()) return test::kChildCannotSetUp;
    out = std::string(IsWritableFolder(closed) ? "closed-writable " : "closed-no ") +
          (IsWritableFolder(open) ? "open-writable" : "open-no");
    return 0;
  });
  ASSERT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.output, "closed-no open-writable");
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
  {
    EnvVar xdg("XDG_CONFIG_HOME", std::nullopt);
    EXPECT_EQ(ConfigHome(), tmp / "home/.config");
  }
  {
    EnvVar xdg("XDG_CONFIG_HOME", "relative/cfg");
    EXPECT_EQ(ConfigHome(), tmp / "home/.config") << "a relative XDG folder is ignored";
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
    const std::string path = "/tmp/quillon-ravelin-" + std::to_string(geteuid());
    if (rmdir(path.c_str()) != 0 || mkdir(path.c_str(), 0777) != 0 ||
        chown(path.c_str(), 65534, 65534) != 0) {
      return test::kChildCannotSetUp;
    }
    out += RuntimeDir() + "\n";
    return 0;
  });
  if (outcome.exitCode == test::kChildCannotSetUp) {
    GTEST_SKIP() << "no permission to mount a private /tmp";
  }
  ASSERT_EQ(outcome.exitCode, 0);
  const std::string uid = std::to_string(geteuid());
  EXPECT_EQ(outcome.output, "/tmp/quillon-ravelin-" + uid + " " + std::to_string(0700) + " " + uid +
                                "\n/tmp/cfg/quillon-ravelin/run\n");
}

}  // namespace
}  // namespace qr
