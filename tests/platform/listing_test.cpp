// What is on disk: the find record of each kind of entry, folder listings, and the existence
// checks built on them.
#include "platform/find_data.h"
#include "platform/path_layer.h"
#include "platform/paths.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>

#include "support/child_process.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::RecordingReporter;
using test::TempDir;

// Known instants and their tick counts, worked out by hand: (s + 11644473600) * 10^7 + ns / 100.
constexpr struct timespec kAccess = {900000000, 100};
constexpr FileTime kAccessTicks = 125444736000000001ULL;
constexpr struct timespec kWrite = {1000000000, 987654321};
constexpr FileTime kWriteTicks = 126444736009876543ULL;

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

// A folder holding every kind of entry, with known times; a link's own times are set apart.
TEST(FindDataTest, ListsEveryKindOfEntryAndFindsNothingWhereNothingIs) {
  // Times before 1970 are counted back from it, and never below the epoch of the ticks.
  EXPECT_EQ(FileTimeFromUnix(-1, 0), 116444736000000000ULL - 10000000ULL);
  EXPECT_EQ(FileTimeFromUnix(-11644473600 - 1, 0), 0u);
  TempDir tmp;
  const std::string plain = tmp.WriteFile("plain.txt", "hello");
  test::SetTimes(plain, kAccess, kWrite);
  ASSERT_EQ(chmod(plain.c_str(), 0444), 0);
  test::SetTimes(tmp.MakeDir("sub"), kAccess, kWrite);
  ASSERT_EQ(symlink("sub", (tmp / "dirlink").c_str()), 0);
  ASSERT_EQ(symlink("gone/away", (tmp / "dangling").c_str()), 0);
  // Opening a FIFO without a writer would block the test forever.
  ASSERT_EQ(mkfifo((tmp / "fifo").c_str(), 0644), 0);
  for (const char* own : {"dirlink", "dangling", "fifo"}) {
    test::SetTimes(tmp / own, kAccess, kAccess, false);
  }
  const auto entries = ListAll(tmp.path());
  EXPECT_EQ(entries.size(), 7u);
  const std::string link = std::to_string(kAttrDirectory | kAttrReparsePoint) + "," +
                           std::to_string(kReparseTagSymlink);
  const std::string access = std::to_string(kAccessTicks);
  const std::string write = std::to_string(kWriteTicks);
  // A link to a folder is a tagged folder with the link's own times; a dangling one stays as
  // a file with the link's own record. Links to files are followed, as the walk tests show.
  const std::pair<const char*, std::string> want[] = {
      {"plain.txt", "0 " + std::to_string(kAttrArchive | kAttrReadOnly) + ",0 5 " + write},
      {"sub", "1 " + std::to_string(kAttrDirectory) + ",0 0 " + write},
      {"dirlink", "1 " + link + " 0 " + access},
      {"dangling", "0 " + std::to_string(kAttrArchive) + ",0 9 " + access},
      {"fifo", "2 " + std::to_string(kAttrNormal) + ",0 0 " + access},
  };
  for (const auto& [name, record] : want) {
    ASSERT_TRUE(entries.count(name)) << name;
    EXPECT_EQ(Record(entries.at(name)), record) << name;
  }
  // FindEntry gives the same record, of the link itself behind a separator.
  EXPECT_EQ(Record(Found(tmp / "fifo")), want[4].second);
  EXPECT_EQ(Found(tmp / "dirlink/").name, "dirlink");
  EXPECT_EQ(Record(Found(tmp / "dirlink/")), want[2].second);
  EXPECT_EQ(Found(plain).lastAccessTime, kAccessTicks);

  const std::string big = tmp.WriteFile("big.bin", "");
  ASSERT_EQ(truncate(big.c_str(), (int64_t{1} << 32) + 7), 0);
  const FindData d = Found(big);
  EXPECT_EQ(d.Size(), (uint64_t{1} << 32) + 7);
  EXPECT_TRUE(d.hasBirthTime || d.creationTime == d.lastWriteTime);

  ASSERT_EQ(symlink("loop2", (tmp / "loop1").c_str()), 0);
  ASSERT_EQ(symlink("loop1", (tmp / "loop2").c_str()), 0);
  const std::pair<std::string, int> cases[] = {
      {tmp / "dangling", ENOENT}, {tmp / "loop1", ELOOP}, {plain + "/below", ENOTDIR}};
  for (const auto& [path, expected] : cases) {
    FindData none;
    int err = 0;
    EXPECT_FALSE(FindEntry(path, none, &err)) << path;
    EXPECT_EQ(err, expected) << path;
  }
  // A listing that can't be opened fails with the system's error too, and lists nothing.
  FolderListing notAFolder(plain);
  FindData none;
  EXPECT_FALSE(notAFolder.ok() || notAFolder.Next(none));
  EXPECT_EQ(notAFolder.error(), ENOTDIR);
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

// The common forms are checked by the target path and walk tests; these are their edges.
TEST(PathFormsTest, LexicallyCleanAndShortNames) {
  const std::pair<const char*, const char*> cases[] = {
      {"/a//b///c", "/a/b/c"}, {"/a/..b/.c/...", "/a/..b/.c/..."}, {"///a", "/a"},
      {"//srv/share/../x/", "//srv/x/"}, {"a/../../b", "b"}, {"", ""}};
  for (const auto& [in, out] : cases) EXPECT_EQ(LexicallyClean(in), out) << in;
  EXPECT_TRUE(MatchesShortNamePattern("AB CD~~1.~~~"));
  EXPECT_FALSE(MatchesShortNamePattern("PROGRA~1.TX"));
  // Twelve characters, one of them two bytes long; but one outside the BMP is two UTF-16 units.
  EXPECT_TRUE(LooksLikeShortName("\xC3\x84" "BCDEF~1.TXT"));
  EXPECT_TRUE(MatchesShortNamePattern("\xF0\x9F\x98\x80" "BCDEF~1.TXT"));
  EXPECT_FALSE(LooksLikeShortName("\xF0\x9F\x98\x80" "BCDEF~1.TXT"));
}

// What each look reports, as "exists:boxes/silent lines".
std::string Looked(const std::string& path, bool silent = false) {
  RecordingReporter r;
  r.silent = silent;
  std::string out = std::to_string(FileExists(path, &r)) + ":";
  for (const auto& [text, icon] : r.boxes) {
    out += "box(" + std::to_string(static_cast<int>(icon)) + ") " + text + "|";
  }
  for (const auto& line : r.silentLines) out += line + "|";
  return out;
}

TEST(FileExistsTest, OnlyRegularFilesExistAndNothingIsReported) {
  TempDir tmp;
  const std::string file = tmp.WriteFile("it's, a file.txt", "x");
  const std::string folder = tmp.MakeDir("folder");
  ASSERT_EQ(symlink(file.c_str(), (tmp / "filelink").c_str()), 0);
  ASSERT_EQ(symlink(folder.c_str(), (tmp / "dirlink").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", (tmp / "dangling").c_str()), 0);
  ASSERT_EQ(mkfifo((tmp / "fifo").c_str(), 0644), 0);
  tmp.WriteFile("PROGRA~1.TXT", "x");
  EXPECT_EQ(Looked(file) + Looked(tmp / "filelink"), "1:1:");
  for (const std::string& no : {folder, tmp / "dirlink", tmp / "dangling", tmp / "fifo",
                                file + "/below", std::string(), tmp / std::string(5000, 'n')}) {
    EXPECT_EQ(Looked(no), "0:") << no;
  }
  // A bare short name is refused without looking; with a folder in front it is looked up.
  const auto outcome = test::RunInChild([&](std::string& out) {
    if (chdir(tmp.path().c_str()) != 0) return test::kChildCannotSetUp;
    out = Looked("./PROGRA~1.TXT") + Looked("PROGRA~1.TXT");
    return 0;
  });
  EXPECT_EQ(outcome.output, "1:0:");
}

// The program asks only about folders; by file, the name is looked up in its folder's listing.
TEST(FileOrDirExistsTest, AFolderThatCantBeListedIsAbsentAndAFileIsFoundWhateverItsCase) {
  TempDir tmp;
  const std::string empty = tmp.MakeDir("empty folder");
  tmp.WriteFile("\xC3\xA4pfel.txt", "x");
  ASSERT_EQ(mkfifo((tmp / "pipe").c_str(), 0644), 0);
  // A FIFO has only the normal attribute, which the file mode passes over; a bare name has no
  // folder to list.
  const std::tuple<std::string, std::string, bool> cases[] = {
      {"", empty + "/", true}, {"", "", false}, {"", tmp / "pipe", false},
      {tmp / "\xC3\x84PFEL.TXT", "/no/such/folder", true}, {tmp / "pipe", "", false},
      {"pipe", "", false}};
  for (const auto& [file, folder, exists] : cases) {
    EXPECT_EQ(FileOrDirExists(file, folder), exists) << "'" << file << "' '" << folder << "'";
  }
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to run the case as user nobody";
  ASSERT_EQ(chmod(tmp.path().c_str(), 0755) + chmod(empty.c_str(), 0711), 0);
  const auto outcome = test::RunAsNobody([&](std::string& out) {
    out = std::to_string(FileOrDirExists("", tmp.path())) + std::to_string(FileOrDirExists("", empty));
    return 0;
  });
  EXPECT_EQ(outcome.output, "10") << "searchable but not listable";
}

}  // namespace
}  // namespace qr
