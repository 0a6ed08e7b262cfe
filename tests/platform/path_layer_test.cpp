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

// The common forms are checked by the target path and walk tests; these are their edges.
TEST(PathFormsTest, LexicallyCleanTrimAtNullAndShortNames) {
  const std::pair<const char*, const char*> cases[] = {
      {"/a//b///c", "/a/b/c"}, {"/a/..b/.c/...", "/a/..b/.c/..."}, {"///a", "/a"},
      {"//srv/share/../x/", "//srv/x/"}, {"a/../../b", "b"}, {"", ""}};
  for (const auto& [in, out] : cases) EXPECT_EQ(LexicallyClean(in), out) << in;
  EXPECT_EQ(TrimAtNull(std::string_view("abc\0def", 7)), "abc");
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

TEST(FileExistsTest, UnexpectedFailureIsReportedAndADeniedFolderIsAbsence) {
  TempDir tmp;
  ASSERT_EQ(chmod(tmp.path().c_str(), 0700), 0);
  const std::string file = tmp.WriteFile("a.txt", "x");
  const std::string line = "File determination failure (" + file + ") 5 : " + std::strerror(EIO);
  const auto failing = test::RunInChild([&](std::string& out) {
    if (!FailStatCallsWith(EIO)) return test::kChildCannotSetUp;
    out = Looked(file) + "\n" + Looked(file, /*silent=*/true);
    return 0;
  });
  if (failing.exitCode != test::kChildCannotSetUp) {
    EXPECT_EQ(failing.output, "0:box(0) File determination failure:\r\n" + file + "\r\n5 : " +
                                  std::strerror(EIO) + "|" + line + "|\n0:" + line + "|");
  }
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to run the case as user nobody";
  const auto denied = test::RunAsNobody([&](std::string& out) {
    out = Looked(file);
    return 0;
  });
  EXPECT_EQ(denied.output, "0:") << "a denied folder is absence, not a failure";
}

TEST(FileOrDirExistsTest, FolderModeAndFileModeWhichFoldsCaseAndADeniedListing) {
  TempDir tmp;
  const std::string empty = tmp.MakeDir("empty folder");
  tmp.WriteFile("readme.TXT", "x");
  tmp.WriteFile("\xC3\xA4pfel, 'gr\xC3\xBCn'.txt", "x");
  ASSERT_EQ(mkfifo((tmp / "pipe").c_str(), 0644), 0);
  // A file given: the folder is ignored. A FIFO has only the normal attribute, which the file
  // mode passes over. A bare name has no folder to list.
  const std::tuple<std::string, std::string, bool> cases[] = {
      {"", empty, true}, {"", empty + "/", true}, {"", tmp / "missing", false}, {"", "", false},
      {"", tmp / "readme.TXT", false}, {tmp / "readme.TXT", "/no/such/folder", true},
      {tmp / "b.txt", tmp.path(), false}, {tmp / "README.txt", "", true},
      {tmp / "\xC3\x84PFEL, 'GR\xC3\x9CN'.TXT", "", true}, {tmp / "EMPTY FOLDER", "", true},
      {tmp / "readme.txt.bak", "", false}, {tmp / "pipe", "", false},
      {tmp / "missing/readme.TXT", "", false}, {"readme.TXT", "", false}};
  for (const auto& [file, folder, exists] : cases) {
    EXPECT_EQ(FileOrDirExists(file, folder), exists) << "'" << file << "' '" << folder << "'";
  }
  // A folder that can be searched but not listed: its file is reached, the folder and the file
  // through the folder's listing count as absent.
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to run the case as user nobody";
  ASSERT_EQ(chmod(tmp.path().c_str(), 0755) + chmod(empty.c_str(), 0711), 0);
  tmp.WriteFile("empty folder/a.txt", "x");
  const auto outcome = test::RunAsNobody([&](std::string& out) {
    out = std::to_string(FileOrDirExists("", tmp.path())) +
          std::to_string(FileOrDirExists("", empty)) +
          std::to_string(FileOrDirExists(empty + "/a.txt", ""));
    return 0;
  });
  EXPECT_EQ(outcome.output, "100");
  EXPECT_TRUE(FileOrDirExists(empty + "/a.txt", ""));
}

}  // namespace
}  // namespace qr
