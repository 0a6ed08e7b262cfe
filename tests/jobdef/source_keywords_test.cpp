// The source keywords that AddSource expands: drives from the mount table and users' documents
// folders.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <algorithm>
#include <array>
#include <tuple>
#include <filesystem>

#include "jobdef/source_list.h"
#include "platform/drives.h"
#include "platform/machine.h"
#include "platform/text.h"
#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

using Sources = std::vector<std::string>;

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

class SourceKeywordsTest : public ::testing::Test, protected test::RunFixture {
 protected:
  void Add(std::string p) { AddSource(ctx, p); }
  const Sources& List() const { return ctx.settings.Sources; }
};

TEST_F(SourceKeywordsTest, ADriveIsLeftOutOnlyWhileItHoldsTheTargetOrTheLog) {
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "mounting a RAM file system needs root";
  const std::string ram = dir.MakeDir("ram");
  // A RAM file system of our own, mounted in a mount namespace that no other process sees.
  test::ChildOutcome child = test::RunInChild([&](std::string& out) {
    if (!test::EnterPrivateMountNamespace() ||
        mount("tmpfs", ram.c_str(), "tmpfs", 0, "size=1m") != 0) {
      return test::kChildCannotSetUp;
    }
    test::FakeDialogs d;
    test::FakePump p;
    // {keyword, target, log}: listed as local; left out for the target, for the log; not remote.
    for (const auto& [keyword, target, log] : std::vector<std::array<std::string, 3>>{
             {"[LDrive]", "/nowhere/t", ""}, {"[LDrive]", ram + "/t", ""},
             {"[LDrive]", "/nowhere/t", ram + "/l"}, {"[MDrive]", "/nowhere/t", ""}}) {
      RunContext c{d, p};
      c.settings.TargetPath = target;
      c.settings.LogPath = log;
      std::string k = keyword;
      AddSource(c, k);
      out += std::count(c.settings.Sources.begin(), c.settings.Sources.end(), ram) ? "Y" : "N";
    }
    out += std::to_string(d.shown.size());
    umount(ram.c_str());
    return 0;
  });
  if (child.exitCode == test::kChildCannotSetUp) GTEST_SKIP() << "no mount namespace here";
  ASSERT_EQ(child.exitCode, 0);
  EXPECT_EQ(child.output, "YNNN0");
}

class UserFolderTest : public SourceKeywordsTest {
 protected:
  std::string home = dir.MakeDir("home/ann");
  test::EnvVar homeVar{"HOME", home};
  test::EnvVar configVar{"XDG_CONFIG_HOME", std::nullopt};
};

TEST_F(UserFolderTest, TheUsersDocumentsFolderPreferringTheXdgOne) {
  Add("[UserFolder]");  // no such folder yet; a keyword is never a missing path
  const std::string docs = dir.MakeDir("home/ann/Documents");
  Add("  [UserFolder]");
  Add("[userfolder]");  // keywords are case-sensitive
  EXPECT_EQ(List(), Sources{docs});
  EXPECT_EQ(dialogs.Texts(), std::vector<std::string>{
      "[userfolder]\r\n\r\nThe path you have specified cannot be found on this machine."});

  ctx.settings.Sources.clear();
  const std::string papers = dir.MakeDir("home/ann/My Papers");
  dir.WriteFile("home/ann/.config/user-dirs.dirs",
                "# written by xdg-user-dirs-update\n"
                "XDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
                "XDG_DOCUMENTS_DIR=\"$HOME/My Papers\"\n");
  Add("[UserFolder]");
  EXPECT_EQ(List(), Sources{papers});
}

}  // namespace
}  // namespace qr
