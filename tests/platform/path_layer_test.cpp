#include "platform/path_layer.h"
#include "platform/paths.h"

#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

#include "support/child_process.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::RecordingReporter;
using test::TempDir;

// In a child: every stat-family system call fails with `err` from now on, as a failing disk
// would make it. False where the architecture is not known to this filter.
bool FailStatCallsWith(int err) {
#if defined(__x86_64__)
  const uint32_t arch = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
  const uint32_t arch = AUDIT_ARCH_AARCH64;
#else
  return false;
#endif
  std::vector<uint32_t> calls = {__NR_newfstatat, __NR_statx};
#ifdef __NR_stat
  calls.push_back(__NR_stat);
  calls.push_back(__NR_lstat);
#endif
  auto stmt = [](uint16_t code, uint32_t k) { return sock_filter{code, 0, 0, k}; };
  std::vector<sock_filter> filter = {
      stmt(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offsetof(seccomp_data, arch))),
      sock_filter{BPF_JMP | BPF_JEQ | BPF_K, 1, 0, arch},
      stmt(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      stmt(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offsetof(seccomp_data, nr))),
  };
  for (uint32_t nr : calls) {
    filter.push_back(sock_filter{BPF_JMP | BPF_JEQ | BPF_K, 0, 1, nr});
    filter.push_back(
        stmt(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | (static_cast<uint32_t>(err) & SECCOMP_RET_DATA)));
  }
  filter.push_back(stmt(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST(PathFormsTest, LexicallyCleanTrimAtNullAndShortNames) {
  const std::pair<const char*, const char*> cases[] = {
      {"/tmp/../../tmp/x/src", "/tmp/x/src"}, {"/a/./b/../c/", "/a/c/"}, {"/..", "/"},
      {"/../", "/"}, {"/a//b///c", "/a/b/c"}, {"/a/b/..", "/a"},
      {"/a/..b/.c/...", "/a/..b/.c/..."},  // names that merely begin with dots stay
      {"//srv/share/../x/", "//srv/x/"}, {"///a", "/a"}, {"a/../../b", "b"}, {"", ""},
  };
  for (const auto& [in, out] : cases) EXPECT_EQ(LexicallyClean(in), out) << in;

  EXPECT_EQ(TrimAtNull(std::string_view("abc\0def", 7)), "abc");
  EXPECT_EQ(TrimAtNull(std::string_view("\0x", 2)), "");

  EXPECT_TRUE(MatchesShortNamePattern("progra~9.txt"));
  EXPECT_TRUE(MatchesShortNamePattern("AB CD~~1.~~~"));
  for (const char* no : {"PROGRA~X.TXT", "PROGRAM~1.TXT", "PROGRA~1.TX", "/tmp/PROGRA~1.TXT"}) {
    EXPECT_FALSE(MatchesShortNamePattern(no)) << no;
  }
  // Twelve characters, one of them two bytes long; but one outside the BMP is two UTF-16 units.
  EXPECT_TRUE(LooksLikeShortName("ÄBCDEF~1.TXT"));
  EXPECT_TRUE(MatchesShortNamePattern("\xF0\x9F\x98\x80" "BCDEF~1.TXT"));
  EXPECT_FALSE(LooksLikeShortName("\xF0\x9F\x98\x80" "BCDEF~1.TXT"));
}

TEST(FileExistsTest, OnlyRegularFilesExistAndNothingIsReported) {
  TempDir tmp;
  RecordingReporter reporter;
  const std::string file = tmp.WriteFile("it's, a file.txt", "x");
  const std::string folder = tmp.MakeDir("folder");
  ASSERT_EQ(symlink(file.c_str(), (tmp / "filelink").c_str()), 0);
  ASSERT_EQ(symlink(folder.c_str(), (tmp / "dirlink").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", (tmp / "dangling").c_str()), 0);
  ASSERT_EQ(mkfifo((tmp / "fifo").c_str(), 0644), 0);
  tmp.WriteFile("PROGRA~1.TXT", "x");

  EXPECT_TRUE(FileExists(file, &reporter));
  EXPECT_TRUE(FileExists(tmp / "filelink", &reporter));
  for (const std::string& no : {folder, tmp / "dirlink", tmp / "dangling", tmp / "fifo",
                                tmp / "missing", file + "/below", std::string(),
                                tmp / std::string(5000, 'n')}) {
    EXPECT_FALSE(FileExists(no, &reporter)) << no;
  }
  EXPECT_TRUE(reporter.boxes.empty());
  EXPECT_TRUE(reporter.silentLines.empty());
  // A bare short name is refused without looking; with a folder in front it is looked up.
  const auto outcome = test::RunInChild([&](std::string& out) {
    if (chdir(tmp.path().c_str()) != 0) return test::kChildCannotSetUp;
    out = std::to_string(FileExists("./PROGRA~1.TXT")) + std::to_string(FileExists("PROGRA~1.TXT"));
    return 0;
  });
  ASSERT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.output, "10");
}

TEST(FileExistsTest, DeniedFolderIsAbsenceNotAFailure) {
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to run the case as user nobody";
  TempDir tmp;
  ASSERT_EQ(chmod(tmp.path().c_str(), 0700), 0);
  const std::string file = tmp.WriteFile("secret.txt", "x");
  const auto outcome = test::RunAsNobody([&](std::string& out) {
    RecordingReporter r;
    const bool exists = FileExists(file, &r);
    out = std::to_string(r.boxes.size() + r.silentLines.size());
    return exists ? 1 : 0;
  });
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.output, "0");
  EXPECT_TRUE(FileExists(file));
}

// Runs FileExists on a disk whose every look fails with EIO; returns what was reported.
test::ChildOutcome FileExistsOnFailingDisk(const std::string& path, bool silent) {
  return test::RunInChild([&](std::string& out) {
    RecordingReporter r;
    r.silent = silent;
    if (!FailStatCallsWith(EIO)) return test::kChildCannotSetUp;
    const bool exists = FileExists(path, &r);
    for (const auto& [text, icon] : r.boxes) {
      out += "box(" + std::to_string(static_cast<int>(icon)) + "):" + text + "\n";
    }
    for (const auto& line : r.silentLines) out += "silent:" + line + "\n";
    return exists ? 1 : 0;
  });
}

TEST(FileExistsTest, UnexpectedFailureIsReportedAndGivesFalse) {
  TempDir tmp;
  const std::string file = tmp.WriteFile("a.txt", "x");
  const std::string line = "File determination failure (" + file + ") 5 : " + std::strerror(EIO);

  const auto shown = FileExistsOnFailingDisk(file, false);
  if (shown.exitCode == test::kChildCannotSetUp) GTEST_SKIP() << "cannot inject a failure here";
  EXPECT_EQ(shown.exitCode, 0);
  EXPECT_EQ(shown.output, "box(0):File determination failure:\r\n" + file + "\r\n5 : " +
                              std::strerror(EIO) + "\nsilent:" + line + "\n");
  const auto silent = FileExistsOnFailingDisk(file, true);
  EXPECT_EQ(silent.exitCode, 0);
  EXPECT_EQ(silent.output, "silent:" + line + "\n");
}

TEST(FileOrDirExistsTest, FolderModeAndFileModeWhichFoldsCase) {
  TempDir tmp;
  const std::string empty = tmp.MakeDir("empty folder");
  EXPECT_TRUE(FileOrDirExists("", empty));
  EXPECT_TRUE(FileOrDirExists("", empty + "/"));
  EXPECT_FALSE(FileOrDirExists("", tmp / "missing"));
  EXPECT_FALSE(FileOrDirExists("", tmp.WriteFile("a.txt", "x")));
  EXPECT_FALSE(FileOrDirExists("", ""));
  EXPECT_TRUE(FileOrDirExists(tmp / "a.txt", "/no/such/folder")) << "a file given: folder ignored";
  EXPECT_FALSE(FileOrDirExists(tmp / "b.txt", tmp.path()));

  tmp.WriteFile("readme.TXT", "x");
  tmp.WriteFile("äpfel, 'grün'.txt", "x");
  ASSERT_EQ(mkfifo((tmp / "pipe").c_str(), 0644), 0);
  EXPECT_TRUE(FileOrDirExists(tmp / "README.txt", ""));
  EXPECT_TRUE(FileOrDirExists(tmp / "ÄPFEL, 'GRÜN'.TXT", ""));
  EXPECT_TRUE(FileOrDirExists(tmp / "EMPTY FOLDER", ""));
  EXPECT_FALSE(FileOrDirExists(tmp / "readme.txt.bak", ""));
  // A FIFO carries only the normal attribute, which this mode passes over.
  EXPECT_FALSE(FileOrDirExists(tmp / "pipe", ""));
  EXPECT_FALSE(FileOrDirExists(tmp / "missing/readme.TXT", ""));
  EXPECT_FALSE(FileOrDirExists("readme.TXT", "")) << "a bare name has no folder to list";
}

TEST(FileOrDirExistsTest, DeniedListingCountsAsAbsent) {
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to run the case as user nobody";
  TempDir tmp;
  ASSERT_EQ(chmod(tmp.path().c_str(), 0755), 0);
  const std::string denied = tmp.MakeDir("denied");
  tmp.WriteFile("denied/a.txt", "x");
  // Searchable but not readable: the folder and its file can be reached, not listed.
  ASSERT_EQ(chmod(denied.c_str(), 0711), 0);
  const auto outcome = test::RunAsNobody([&](std::string& out) {
    out = std::to_string(FileOrDirExists("", tmp.path())) + std::to_string(FileOrDirExists("", denied)) +
          std::to_string(FileOrDirExists(denied + "/a.txt", ""));
    return 0;
  });
  ASSERT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.output, "100");
  EXPECT_TRUE(FileOrDirExists(denied + "/a.txt", ""));
}

}  // namespace
}  // namespace qr
