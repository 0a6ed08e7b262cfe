#include "platform/find_data.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "support/child_process.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::TempDir;

// Known instants and their tick counts, worked out by hand: (s + 11644473600) * 10^7 + ns / 100.
constexpr struct timespec kAccess = {900000000, 100};
constexpr FileTime kAccessTicks = 125444736000000001ULL;
constexpr struct timespec kWrite = {1000000000, 987654321};
constexpr FileTime kWriteTicks = 126444736009876543ULL;
constexpr struct timespec kLinkWrite = {1100000000, 5};
constexpr FileTime kLinkWriteTicks = 127444736000000000ULL;

void SetTimes(const std::string& path, struct timespec atime, struct timespec mtime) {
  const struct timespec ts[2] = {atime, mtime};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), ts, AT_SYMLINK_NOFOLLOW), 0) << path;
}

std::map<std::string, FindData> ListAll(const std::string& folder) {
  std::map<std::string, FindData> out;
  FolderListing listing(folder);
  EXPECT_TRUE(listing.ok()) << folder << " errno " << listing.error();
  FindData d;
  while (listing.Next(d)) out[d.name] = d;
  EXPECT_EQ(listing.error(), 0);
  return out;
}

// The direct children of "/" that are mount points, from the mount table.
std::set<std::string> MountedChildrenOfRoot() {
  std::set<std::string> out;
  std::ifstream in("/proc/self/mountinfo");
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string id, parent, device, root, mountPoint;
    if (!(fields >> id >> parent >> device >> root >> mountPoint)) continue;
    if (mountPoint.size() > 1 && mountPoint.find('/', 1) == std::string::npos &&
        mountPoint.find('\\') == std::string::npos) {
      out.insert(mountPoint.substr(1));
    }
  }
  return out;
}

TEST(FileTimeTest, ConvertsToTicksSince1601AndBack) {
  EXPECT_EQ(FileTimeFromUnix(0, 0), 116444736000000000ULL);
  EXPECT_EQ(FileTimeFromUnix(kWrite.tv_sec, kWrite.tv_nsec), kWriteTicks);
  // Before 1970 the ticks still count from 1601.
  EXPECT_EQ(FileTimeFromUnix(-1, 0), 116444736000000000ULL - 10000000ULL);
  EXPECT_EQ(FileTimeFromUnix(-11644473600 - 1, 0), 0u);

  int64_t s = 0;
  uint32_t ns = 0;
  UnixFromFileTime(kWriteTicks, s, ns);
  EXPECT_EQ(s, 1000000000);
  EXPECT_EQ(ns, 987654300u);  // 100 ns resolution
  UnixFromFileTime(116444736000000000ULL - 10000000ULL, s, ns);
  EXPECT_EQ(s, -1);
  EXPECT_EQ(ns, 0u);
}

TEST(AttributesTest, DerivedFromModeAndName) {
  EXPECT_EQ(AttributesFromMode(S_IFREG | 0644, "a.txt", false), kAttrArchive);
  EXPECT_EQ(AttributesFromMode(S_IFREG | 0444, "a.txt", false), kAttrArchive | kAttrReadOnly);
  // Any write bit, even another's, keeps a file from being read-only.
  EXPECT_EQ(AttributesFromMode(S_IFREG | 0404 | 0020, "a.txt", false), kAttrArchive);
  EXPECT_EQ(AttributesFromMode(S_IFREG | 0644, ".profile", false), kAttrArchive | kAttrHidden);
  EXPECT_EQ(AttributesFromMode(S_IFDIR | 0755, "d", false), kAttrDirectory);
  EXPECT_EQ(AttributesFromMode(S_IFDIR | 0755, "d", true), kAttrDirectory | kAttrReparsePoint);
  EXPECT_EQ(AttributesFromMode(S_IFDIR | 0755, ".", false), kAttrDirectory);
  EXPECT_EQ(AttributesFromMode(S_IFDIR | 0755, "..", false), kAttrDirectory);
  // Normal only where nothing else applies.
  EXPECT_EQ(AttributesFromMode(S_IFIFO | 0644, "p", false), kAttrNormal);
  EXPECT_EQ(AttributesFromMode(S_IFIFO | 0444, "p", false), kAttrReadOnly);
  EXPECT_EQ(AttributesFromMode(S_IFSOCK | 0644, ".s", false), kAttrHidden);
}

class FindEntryTest : public ::testing::Test {
 protected:
  TempDir tmp;
};

TEST_F(FindEntryTest, RegularFileRecord) {
  const auto before = std::chrono::system_clock::now() - std::chrono::seconds(2);
  const std::string f = tmp.WriteFile("plain.txt", "hello");
  SetTimes(f, kAccess, kWrite);
  FindData d;
  ASSERT_TRUE(FindEntry(f, d));
  EXPECT_EQ(d.name, "plain.txt");
  EXPECT_EQ(d.kind, EntryKind::Regular);
  EXPECT_EQ(d.attributes, kAttrArchive);
  EXPECT_EQ(d.Size(), 5u);
  EXPECT_EQ(d.reparseTag, 0u);
  EXPECT_EQ(d.lastWriteTime, kWriteTicks);
  EXPECT_EQ(d.lastAccessTime, kAccessTicks);
  if (d.hasBirthTime) {
    // Born during this test, whatever its other times were set to.
    const auto since = std::chrono::duration_cast<std::chrono::seconds>(before.time_since_epoch());
    EXPECT_GE(d.creationTime, FileTimeFromUnix(since.count(), 0));
    EXPECT_NE(d.creationTime, kWriteTicks);
  } else {
    EXPECT_EQ(d.creationTime, d.lastWriteTime);
  }
}

TEST_F(FindEntryTest, SizeBeyondFourGigabytesSplitsIntoHalves) {
  const std::string f = tmp.WriteFile("sparse.bin", "");
  ASSERT_EQ(truncate(f.c_str(), (int64_t{1} << 32) + 7), 0);
  FindData d;
  ASSERT_TRUE(FindEntry(f, d));
  EXPECT_EQ(d.sizeHigh, 1u);
  EXPECT_EQ(d.sizeLow, 7u);
  EXPECT_EQ(d.Size(), (uint64_t{1} << 32) + 7);
}

TEST_F(FindEntryTest, LinkToFolderIsATaggedFolderWithTheLinksOwnTimes) {
  const std::string real = tmp.MakeDir("real");
  SetTimes(real, kAccess, kWrite);
  const std::string link = tmp / "link";
  ASSERT_EQ(symlink("real", link.c_str()), 0);
  SetTimes(link, kAccess, kLinkWrite);

  for (const std::string& path : {link, link + "/"}) {
    FindData d;
    ASSERT_TRUE(FindEntry(path, d)) << path;
    EXPECT_EQ(d.name, "link");
    EXPECT_EQ(d.kind, EntryKind::Directory);
    EXPECT_EQ(d.attributes, kAttrDirectory | kAttrReparsePoint);
    EXPECT_EQ(d.reparseTag, kReparseTagSymlink);
    EXPECT_EQ(d.lastWriteTime, kLinkWriteTicks) << "the target's times leaked into the link";
    EXPECT_EQ(d.Size(), 0u);
  }
  FindData plain;
  ASSERT_TRUE(FindEntry(real, plain));
  EXPECT_EQ(plain.attributes, kAttrDirectory);
  EXPECT_EQ(plain.reparseTag, 0u);
  EXPECT_EQ(plain.Size(), 0u);
}

TEST_F(FindEntryTest, LinkToFileIsFollowedButKeepsItsName) {
  const std::string target = tmp.WriteFile("target.txt", "abcdef");
  SetTimes(target, kAccess, kWrite);
  const std::string link = tmp / "alias";
  ASSERT_EQ(symlink("target.txt", link.c_str()), 0);
  SetTimes(link, kAccess, kLinkWrite);
  FindData d;
  ASSERT_TRUE(FindEntry(link, d));
  EXPECT_EQ(d.name, "alias");
  EXPECT_EQ(d.kind, EntryKind::Regular);
  EXPECT_EQ(d.attributes, kAttrArchive);
  EXPECT_EQ(d.reparseTag, 0u);
  EXPECT_EQ(d.Size(), 6u);
  EXPECT_EQ(d.lastWriteTime, kWriteTicks);
}

TEST_F(FindEntryTest, NothingFoundForMissingDanglingOrLoopingPaths) {
  ASSERT_EQ(symlink("nowhere", (tmp / "dangling").c_str()), 0);
  ASSERT_EQ(symlink("loop2", (tmp / "loop1").c_str()), 0);
  ASSERT_EQ(symlink("loop1", (tmp / "loop2").c_str()), 0);
  tmp.WriteFile("file", "x");
  const std::pair<std::string, int> cases[] = {
      {tmp / "missing", ENOENT},
      {tmp / "dangling", ENOENT},
      {tmp / "loop1", ELOOP},
      {tmp / "file/below", ENOTDIR},
  };
  for (const auto& [path, expected] : cases) {
    FindData d;
    int err = 0;
    EXPECT_FALSE(FindEntry(path, d, &err)) << path;
    EXPECT_EQ(err, expected) << path;
  }
}

TEST_F(FindEntryTest, FifoIsOtherAndNotOpened) {
  // Opening a FIFO without a writer would block this test forever.
  const std::string fifo = tmp / "pipe";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
  FindData d;
  ASSERT_TRUE(FindEntry(fifo, d));
  EXPECT_EQ(d.kind, EntryKind::Other);
  EXPECT_EQ(d.attributes, kAttrNormal);
}

TEST(FindEntryMountTest, RootIsAFolderAndMountedChildrenAreTagged) {
  FindData root;
  ASSERT_TRUE(FindEntry("/", root));
  EXPECT_EQ(root.attributes, kAttrDirectory) << "the root of the tree is no mount point of another";
  EXPECT_EQ(root.reparseTag, 0u);

  const auto mounted = MountedChildrenOfRoot();
  if (mounted.count("proc") == 0) GTEST_SKIP() << "/proc is not a mount point here";
  FindData proc;
  ASSERT_TRUE(FindEntry("/proc", proc));
  // /proc has no write bits, so it is read-only as well.
  EXPECT_EQ(proc.attributes & ~kAttrReadOnly, kAttrDirectory | kAttrReparsePoint);
  EXPECT_EQ(proc.reparseTag, kReparseTagMountPoint);
}

class FolderListingTest : public ::testing::Test {
 protected:
  TempDir tmp;
};

TEST_F(FolderListingTest, ListsEveryKindOfEntryAsTheFindRecordSays) {
  const std::string names[] = {"it's here.txt",       "a,b.txt",
                               "two  blanks .txt",    "Ünïcødé 名前.txt",
                               "bad\xff\xfename.txt", ".hidden"};
  for (const auto& n : names) tmp.WriteFile(n, n);
  tmp.MakeDir("sub");
  tmp.WriteFile("target.txt", "1234567");
  ASSERT_EQ(symlink("sub", (tmp / "dirlink").c_str()), 0);
  ASSERT_EQ(symlink("target.txt", (tmp / "filelink").c_str()), 0);
  ASSERT_EQ(symlink("gone/away", (tmp / "dangling").c_str()), 0);
  SetTimes(tmp / "dangling", kAccess, kLinkWrite);
  ASSERT_EQ(mkfifo((tmp / "fifo").c_str(), 0644), 0);

  const auto entries = ListAll(tmp.path());
  std::set<std::string> seen;
  for (const auto& [name, d] : entries) seen.insert(name);
  std::set<std::string> expected(std::begin(names), std::end(names));
  expected.insert({".", "..", "sub", "target.txt", "dirlink", "filelink", "dangling", "fifo"});
  EXPECT_EQ(seen, expected);

  for (const auto& n : names) {
    const FindData& d = entries.at(n);
    EXPECT_EQ(d.kind, EntryKind::Regular) << n;
    EXPECT_EQ(d.Size(), n.size()) << n;
    EXPECT_EQ(d.attributes, kAttrArchive | (n[0] == '.' ? kAttrHidden : 0)) << n;
  }
  EXPECT_EQ(entries.at(".").attributes, kAttrDirectory);
  EXPECT_EQ(entries.at("..").attributes, kAttrDirectory);
  EXPECT_EQ(entries.at("sub").kind, EntryKind::Directory);
  EXPECT_EQ(entries.at("sub").reparseTag, 0u);

  const FindData& dirlink = entries.at("dirlink");
  EXPECT_EQ(dirlink.attributes, kAttrDirectory | kAttrReparsePoint);
  EXPECT_EQ(dirlink.reparseTag, kReparseTagSymlink);

  const FindData& filelink = entries.at("filelink");
  EXPECT_EQ(filelink.kind, EntryKind::Regular);
  EXPECT_EQ(filelink.Size(), 7u);
  EXPECT_EQ(filelink.reparseTag, 0u);

  // A dangling link stays in the listing as a file with the link's own record.
  const FindData& dangling = entries.at("dangling");
  EXPECT_EQ(dangling.kind, EntryKind::Regular);
  EXPECT_EQ(dangling.attributes, kAttrArchive);
  EXPECT_EQ(dangling.Size(), std::string("gone/away").size());
  EXPECT_EQ(dangling.lastWriteTime, kLinkWriteTicks);

  EXPECT_EQ(entries.at("fifo").kind, EntryKind::Other);
}

TEST_F(FolderListingTest, EmptyFolderHoldsDotAndDotDot) {
  const auto entries = ListAll(tmp.MakeDir("empty"));
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_TRUE(entries.count(".") && entries.count(".."));
}

TEST_F(FolderListingTest, FailsWithTheSystemsError) {
  FolderListing missing(tmp / "missing");
  EXPECT_FALSE(missing.ok());
  EXPECT_EQ(missing.error(), ENOENT);
  FindData d;
  EXPECT_FALSE(missing.Next(d));

  FolderListing notAFolder(tmp.WriteFile("f.txt", "x"));
  EXPECT_FALSE(notAFolder.ok());
  EXPECT_EQ(notAFolder.error(), ENOTDIR);
}

TEST_F(FolderListingTest, ListingLeavesTheFoldersAccessTime) {
  const std::string control = tmp.MakeDir("control");
  const std::string watched = tmp.MakeDir("watched");
  tmp.WriteFile("control/f", "x");
  tmp.WriteFile("watched/f", "x");
  SetTimes(control, kAccess, kWrite);
  SetTimes(watched, kAccess, kWrite);

  // A plain listing must move the access time here, or this test could prove nothing.
  DIR* plain = opendir(control.c_str());
  ASSERT_NE(plain, nullptr);
  while (readdir(plain) != nullptr) {
  }
  closedir(plain);
  FindData c;
  ASSERT_TRUE(FindEntry(control, c));
  if (c.lastAccessTime == kAccessTicks) {
    GTEST_SKIP() << "this file system does not record access times of listings";
  }

  ListAll(watched);
  FindData w;
  ASSERT_TRUE(FindEntry(watched, w));
  EXPECT_EQ(w.lastAccessTime, kAccessTicks);
}

TEST(FolderListingRootTest, TagsExactlyTheMountedFoldersOfTheRoot) {
  const auto mounted = MountedChildrenOfRoot();
  const auto entries = ListAll("/");
  int tagged = 0;
  for (const auto& [name, d] : entries) {
    if (name == "." || name == ".." || d.kind != EntryKind::Directory) continue;
    if (d.reparseTag == kReparseTagSymlink) continue;
    const bool isMount = mounted.count(name) > 0;
    EXPECT_EQ(d.reparseTag == kReparseTagMountPoint, isMount) << "/" << name;
    EXPECT_EQ((d.attributes & kAttrReparsePoint) != 0, isMount) << "/" << name;
    tagged += isMount ? 1 : 0;
  }
  if (tagged == 0) GTEST_SKIP() << "no folder of / is a mount point here";
}

TEST(FolderListingNamespaceTest, TagsTmpfsAndBindMountsOfTheSameFileSystem) {
  TempDir tmp;
  tmp.MakeDir("src");
  tmp.WriteFile("src/inside.txt", "x");
  tmp.MakeDir("mnt a b");
  tmp.MakeDir("bound");
  tmp.MakeDir("plain");
  const auto outcome = test::RunInChild([&](std::string& out) {
    if (!test::EnterPrivateMountNamespace() ||
        mount("tmpfs", (tmp / "mnt a b").c_str(), "tmpfs", 0, "size=1m") != 0 ||
        mount((tmp / "src").c_str(), (tmp / "bound").c_str(), nullptr, MS_BIND, nullptr) != 0) {
      return test::kChildCannotSetUp;
    }
    FolderListing listing(tmp.path());
    FindData d;
    while (listing.Next(d)) {
      out +=
          d.name + "=" + std::to_string(d.attributes) + "," + std::to_string(d.reparseTag) + "\n";
    }
    FindData single;
    if (FindEntry(tmp / "bound", single)) {
      out += "FindEntry bound=" + std::to_string(single.attributes) + "," +
             std::to_string(single.reparseTag) + "\n";
    }
    return 0;
  });
  if (outcome.exitCode == test::kChildCannotSetUp) {
    GTEST_SKIP() << "no permission to mount in a private mount namespace";
  }
  ASSERT_EQ(outcome.exitCode, 0);
  const std::string folder = std::to_string(kAttrDirectory);
  const std::string mountPoint = std::to_string(kAttrDirectory | kAttrReparsePoint) + "," +
                                 std::to_string(kReparseTagMountPoint);
  EXPECT_NE(outcome.output.find("mnt a b=" + mountPoint + "\n"), std::string::npos)
      << outcome.output;
  EXPECT_NE(outcome.output.find("\nbound=" + mountPoint + "\n"), std::string::npos)
      << outcome.output;
  EXPECT_NE(outcome.output.find("FindEntry bound=" + mountPoint + "\n"), std::string::npos)
      << outcome.output;
  EXPECT_NE(outcome.output.find("plain=" + folder + ",0\n"), std::string::npos) << outcome.output;
  EXPECT_NE(outcome.output.find("src=" + folder + ",0\n"), std::string::npos) << outcome.output;
}

TEST(FolderListingPermissionTest, UnsearchableFolderStillNamesItsEntries) {
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to run the case as user nobody";
  TempDir tmp;
  ASSERT_EQ(chmod(tmp.path().c_str(), 0755), 0);
  const std::string folder = tmp.MakeDir("readonly-listing");
  tmp.WriteFile("readonly-listing/f.txt", "x");
  // Readable but not searchable: names can be listed, the entries can't be looked at.
  ASSERT_EQ(chmod(folder.c_str(), 0744), 0);
  const auto outcome = test::RunInChild([&](std::string& out) {
    if (!test::BecomeNobody()) return test::kChildCannotSetUp;
    FolderListing listing(folder);
    if (!listing.ok()) return 2;
    FindData d;
    while (listing.Next(d)) {
      if (d.name == "f.txt") out += d.kind == EntryKind::Regular ? "regular" : "other";
    }
    return 0;
  });
  ASSERT_NE(outcome.exitCode, test::kChildCannotSetUp) << "could not become nobody";
  ASSERT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.output, "regular");
}

}  // namespace
}  // namespace qr
