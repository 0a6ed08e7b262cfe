#include "platform/find_data.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

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

// The link's own times where the path is a link.
void SetTimes(const std::string& path, struct timespec atime, struct timespec mtime) {
  test::SetTimes(path, atime, mtime, false);
}

std::map<std::string, FindData> ListAll(const std::string& folder) {
  std::map<std::string, FindData> out;
  FolderListing listing(folder);
  EXPECT_TRUE(listing.ok()) << folder << " errno " << listing.error();
  FindData d;
  while (listing.Next(d)) out[d.name] = d;
  return out;
}

FindData Found(const std::string& path) {
  FindData d;
  EXPECT_TRUE(FindEntry(path, d)) << path;
  return d;
}

std::string Tags(const FindData& d) {
  return std::to_string(d.attributes) + "," + std::to_string(d.reparseTag);
}

// Kind, attributes, reparse tag, size and last write time of an entry, as one line.
std::string Record(const FindData& d) {
  return std::to_string(static_cast<int>(d.kind)) + " " + Tags(d) + " " + std::to_string(d.Size()) +
         " " + std::to_string(d.lastWriteTime);
}

TEST(FileTimeTest, TicksBefore1970AndAttributesTheListingDoesNotReach) {
  EXPECT_EQ(FileTimeFromUnix(-1, 0), 116444736000000000ULL - 10000000ULL);
  EXPECT_EQ(FileTimeFromUnix(-11644473600 - 1, 0), 0u);
  // Any write bit, even another's, keeps a file from being read-only.
  EXPECT_EQ(AttributesFromMode(S_IFREG | 0404 | 0020, "a.txt", false), kAttrArchive);
  EXPECT_EQ(AttributesFromMode(S_IFDIR | 0755, "..", false), kAttrDirectory);
  EXPECT_EQ(AttributesFromMode(S_IFIFO | 0444, "p", false), kAttrReadOnly);
  EXPECT_EQ(AttributesFromMode(S_IFSOCK | 0644, ".s", false), kAttrHidden);
}

// One folder holding every kind of entry, with known times.
class FindDataTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tmp.WriteFile(".hidden", "ab");
    SetTimes(tmp.WriteFile("plain.txt", "hello"), kAccess, kWrite);
    ASSERT_EQ(chmod((tmp / "plain.txt").c_str(), 0444), 0);
    SetTimes(tmp.MakeDir("sub"), kAccess, kWrite);
    ASSERT_EQ(symlink("sub", (tmp / "dirlink").c_str()), 0);
    ASSERT_EQ(symlink("gone/away", (tmp / "dangling").c_str()), 0);
    // Opening a FIFO without a writer would block the test forever.
    ASSERT_EQ(mkfifo((tmp / "fifo").c_str(), 0644), 0);
    for (const char* own : {"dirlink", "dangling", "fifo"}) {
      SetTimes(tmp / own, kAccess, kLinkWrite);
    }
  }
  TempDir tmp;
};

TEST_F(FindDataTest, ListsEveryKindOfEntryAsTheFindRecordSays) {
  const auto entries = ListAll(tmp.path());
  EXPECT_EQ(entries.size(), 8u);
  using K = EntryKind;
  auto entry = [](const char* name, K kind, uint32_t attributes, uint32_t size, FileTime written,
                  uint32_t tag = 0) {
    return FindData{.name = name, .attributes = attributes, .lastWriteTime = written,
                    .sizeLow = size, .reparseTag = tag, .kind = kind};
  };
  const uint32_t file = kAttrArchive;
  const uint32_t link = kAttrDirectory | kAttrReparsePoint;
  const FindData want[] = {
      entry(".", K::Directory, kAttrDirectory, 0, 0),
      entry(".hidden", K::Regular, file | kAttrHidden, 2, 0),
      entry("plain.txt", K::Regular, file | kAttrReadOnly, 5, kWriteTicks),
      entry("sub", K::Directory, kAttrDirectory, 0, kWriteTicks),
      // A link to a folder is a tagged folder with the link's own times; a dangling one stays as
      // a file with the link's own record. Links to files are followed, as the walk tests show.
      entry("dirlink", K::Directory, link, 0, kLinkWriteTicks, kReparseTagSymlink),
      entry("dangling", K::Regular, file, 9, kLinkWriteTicks),
      entry("fifo", K::Other, kAttrNormal, 0, kLinkWriteTicks),
  };
  for (const FindData& w : want) {
    ASSERT_TRUE(entries.count(w.name)) << w.name;
    FindData d = entries.at(w.name);
    if (w.lastWriteTime == 0) d.lastWriteTime = 0;  // times this test did not set
    EXPECT_EQ(Record(d), Record(w)) << w.name;
  }
  // FindEntry gives the same record, of the link itself behind a separator.
  EXPECT_EQ(Record(Found(tmp / "fifo")), Record(entries.at("fifo")));
  EXPECT_EQ(Found(tmp / "dirlink/").name, "dirlink");
  EXPECT_EQ(Record(Found(tmp / "dirlink/")), Record(entries.at("dirlink")));
  EXPECT_EQ(Found(tmp / "plain.txt").lastAccessTime, kAccessTicks);
}

TEST_F(FindDataTest, SizeHalvesAndNothingFoundForMissingDanglingOrLoopingPaths) {
  const std::string big = tmp.WriteFile("big.bin", "");
  ASSERT_EQ(truncate(big.c_str(), (int64_t{1} << 32) + 7), 0);
  const FindData d = Found(big);
  EXPECT_EQ(d.Size(), (uint64_t{1} << 32) + 7);
  EXPECT_TRUE(d.hasBirthTime || d.creationTime == d.lastWriteTime);

  ASSERT_EQ(symlink("loop2", (tmp / "loop1").c_str()), 0);
  ASSERT_EQ(symlink("loop1", (tmp / "loop2").c_str()), 0);
  const std::pair<std::string, int> cases[] = {
      {tmp / "dangling", ENOENT}, {tmp / "loop1", ELOOP}, {tmp / "plain.txt/below", ENOTDIR}};
  for (const auto& [path, expected] : cases) {
    FindData none;
    int err = 0;
    EXPECT_FALSE(FindEntry(path, none, &err)) << path;
    EXPECT_EQ(err, expected) << path;
  }
  // A listing that can't be opened fails with the system's error too, and lists nothing.
  FolderListing notAFolder(tmp / "plain.txt");
  FindData none;
  EXPECT_FALSE(notAFolder.ok() || notAFolder.Next(none));
  EXPECT_EQ(notAFolder.error(), ENOTDIR);
}

TEST_F(FindDataTest, ListingLeavesTheFoldersAccessTime) {
  const std::string control = tmp.MakeDir("control");
  const std::string watched = tmp.MakeDir("watched");
  for (const std::string& folder : {control, watched}) {
    tmp.WriteFile(folder.substr(tmp.path().size() + 1) + "/f", "x");
    SetTimes(folder, kAccess, kWrite);
  }
  // A plain listing must move the access time here, or this test could prove nothing.
  DIR* plain = opendir(control.c_str());
  ASSERT_NE(plain, nullptr);
  while (readdir(plain) != nullptr) {
  }
  closedir(plain);
  if (Found(control).lastAccessTime == kAccessTicks) GTEST_SKIP() << "no access times here";
  ListAll(watched);
  EXPECT_EQ(Found(watched).lastAccessTime, kAccessTicks);
}

TEST(FolderListingNamespaceTest, TagsTmpfsAndBindMountsOfTheSameFileSystem) {
  TempDir tmp;
  tmp.WriteFile("src/inside.txt", "x");
  tmp.MakeDir("mnt a b");
  tmp.MakeDir("bound");
  const auto outcome = test::RunInChild([&](std::string& out) {
    if (!test::EnterPrivateMountNamespace() ||
        mount("tmpfs", (tmp / "mnt a b").c_str(), "tmpfs", 0, "size=1m") != 0 ||
        mount((tmp / "src").c_str(), (tmp / "bound").c_str(), nullptr, MS_BIND, nullptr) != 0) {
      return test::kChildCannotSetUp;
    }
    for (const auto& [name, d] : ListAll(tmp.path())) {
      if (name[0] != '.') out += name + "=" + Tags(d) + " ";
    }
    out += "FindEntry=" + Tags(Found(tmp / "bound"));
    return 0;
  });
  if (outcome.exitCode == test::kChildCannotSetUp) {
    GTEST_SKIP() << "no permission to mount in a private mount namespace";
  }
  ASSERT_EQ(outcome.exitCode, 0);
  const std::string m = std::to_string(kAttrDirectory | kAttrReparsePoint) + "," +
                        std::to_string(kReparseTagMountPoint);
  const std::string plain = std::to_string(kAttrDirectory) + ",0";
  EXPECT_EQ(outcome.output, "bound=" + m + " mnt a b=" + m + " src=" + plain + " FindEntry=" + m);
  EXPECT_EQ(Tags(Found("/")), plain) << "the root of the tree is no mount point of another";
}

TEST(FolderListingPermissionTest, UnsearchableFolderStillNamesItsEntries) {
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to run the case as user nobody";
  TempDir tmp;
  ASSERT_EQ(chmod(tmp.path().c_str(), 0755), 0);
  const std::string folder = tmp.MakeDir("readonly-listing");
  tmp.WriteFile("readonly-listing/f.txt", "x");
  // Readable but not searchable: names can be listed, the entries can't be looked at.
  ASSERT_EQ(chmod(folder.c_str(), 0744), 0);
  const auto outcome = test::RunAsNobody([&](std::string& out) {
    const auto entries = ListAll(folder);
    const bool regular = entries.count("f.txt") && entries.at("f.txt").kind == EntryKind::Regular;
    out = regular ? "regular" : "?";
    return 0;
  });
  ASSERT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.output, "regular");
}

}  // namespace
}  // namespace qr
