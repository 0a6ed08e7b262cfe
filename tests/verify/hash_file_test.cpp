#include "verify/hash_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "run/run_context.h"
#include "support/fake_dialogs.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::TempDir;

constexpr size_t kChunk = 2621440;

// Bytes that differ from chunk to chunk, so that a chunk hashed twice or skipped shows.
std::string Pattern(size_t n) {
  std::string s(n, '\0');
  uint32_t x = 2463534242u;
  for (size_t i = 0; i < n; ++i) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    s[i] = static_cast<char>(x & 0xFF);
  }
  return s;
}


class HashFileTest : public ::testing::Test {
 protected:
  HashFileTest() {
    ctx.paths = ComputeRunPaths(dir.path());
    pump.onPump = [this](int) { percents.push_back(ctx.progress.progress1Percent); };
  }

  TempDir dir;
  test::FakeDialogs dialogs;
  test::FakePump pump;
  RunContext ctx{dialogs, pump};
  std::vector<int> percents;  // the byte bar at each pump
};

TEST_F(HashFileTest, KnownDigestsInLowerCase) {
  EXPECT_EQ(HashFile(ctx, dir.WriteFile("abc", "abc")), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(HashFile(ctx, dir.WriteFile("fox", "The quick brown fox jumps over the lazy dog")),
            "9e107d9d372bb6826bd81d3542a419d6");
  // Digests of runs of "a" as md5sum gives them.
  EXPECT_EQ(HashFile(ctx, dir.WriteFile("a1", std::string(kChunk, 'a'))),
            "f31ecd4106278b5fb1aeabdedd43036a");
  EXPECT_EQ(HashFile(ctx, dir.WriteFile("a2", std::string(kChunk + 1, 'a'))),
            "425ed7ad636038f6c570e6f8d3899f03");
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(HashFileTest, AnEmptyFileRunsNoPassAndLeavesTheBarAlone) {
  ctx.progress.Progress1_Set(37);
  EXPECT_EQ(HashFile(ctx, dir.WriteFile("empty", "")), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(ctx.progress.progress1Percent, 37);
  EXPECT_EQ(pump.pumps, 0);
}

TEST_F(HashFileTest, ChunkBoundaries) {
  // Exactly one chunk: one pass and no pump, as the position then equals the size.
  std::string bytes = Pattern(kChunk);
  EXPECT_EQ(HashFile(ctx, dir.WriteFile("one", bytes)), test::Md5Of(bytes));
  EXPECT_EQ(pump.pumps, 0);

  // One byte more: a second pass of one byte, with one pump between the two.
  bytes = Pattern(kChunk + 1);
  EXPECT_EQ(HashFile(ctx, dir.WriteFile("two", bytes)), test::Md5Of(bytes));
  EXPECT_EQ(percents, std::vector<int>{100}) << "99.99996 % rounds to 100";

  // Two and a half chunks: the bar at 40 % and 80 %, never after the last pass.
  percents.clear();
  bytes = Pattern(kChunk * 5 / 2);
  EXPECT_EQ(HashFile(ctx, dir.WriteFile("three", bytes)), test::Md5Of(bytes));
  EXPECT_EQ(percents, (std::vector<int>{40, 80}));

  // A small file is one pass of its own size.
  percents.clear();
  bytes = Pattern(1000);
  EXPECT_EQ(HashFile(ctx, dir.WriteFile("small", bytes)), test::Md5Of(bytes));
  EXPECT_TRUE(percents.empty());
  EXPECT_TRUE(dialogs.shown.empty());
}

struct Stamps {
  struct statx_timestamp atime, mtime, btime;
  bool hasBirth;
};

Stamps StampsOf(const std::string& path) {
  struct statx st {};
  EXPECT_EQ(statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW,
                  STATX_ATIME | STATX_MTIME | STATX_BTIME, &st),
            0);
  return {st.stx_atime, st.stx_mtime, st.stx_btime, (st.stx_mask & STATX_BTIME) != 0};
}

bool Same(const struct statx_timestamp& a, const struct statx_timestamp& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

TEST_F(HashFileTest, TheFilesTimesAreLeftExactlyAsTheyWere) {
  const std::string path = dir.WriteFile("stamped", Pattern(kChunk + 5));
  // An access time older than the modification time is what relatime refreshes on a read, and
  // nanoseconds below 100 ns catch a write-back at file-time resolution.
  const struct timespec ts[2] = {{1000000000, 123456789}, {1100000000, 987654321}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), ts, 0), 0);
  const Stamps before = StampsOf(path);

  EXPECT_EQ(HashFile(ctx, path), test::Md5Of(Pattern(kChunk + 5)));

  const Stamps after = StampsOf(path);
  EXPECT_TRUE(Same(before.atime, after.atime))
      << before.atime.tv_sec << "." << before.atime.tv_nsec << " became " << after.atime.tv_sec
      << "." << after.atime.tv_nsec;
  EXPECT_TRUE(Same(before.mtime, after.mtime));
  if (before.hasBirth) {
    EXPECT_TRUE(Same(before.btime, after.btime));
  }
}

TEST_F(HashFileTest, WhatIsNoRegularFileGivesAnEmptyTextAndNoMessage) {
  const std::string folder = dir.MakeDir("folder");
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (bool silent : {false, true}) {
    ctx.settings.Silent = silent;
    EXPECT_EQ(HashFile(ctx, folder), "");
    EXPECT_EQ(HashFile(ctx, fifo), "") << "a FIFO must not be opened, let alone block";
    EXPECT_EQ(HashFile(ctx, dir / "missing"), "");
  }
  EXPECT_TRUE(dialogs.shown.empty());
  EXPECT_FALSE(std::filesystem::exists(dir / "_silent.log"));
}

TEST_F(HashFileTest, AFileThatCannotBeOpenedGivesAnEmptyTextAndNoMessage) {
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root and a user nobody to deny a read";
  // Reachable by nobody, but not readable; the log folder writable, so a stray silent line
  // would land there rather than fail.
  ASSERT_EQ(chmod(dir.path().c_str(), 0777), 0);
  const std::string path = dir.WriteFile("secret", "abc");
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);

  const auto outcome = test::RunInChild([&](std::string& out) {
    if (!test::BecomeNobody()) return test::kChildCannotSetUp;
    if (access(path.c_str(), R_OK) == 0) return test::kChildCannotSetUp;
    for (bool silent : {false, true}) {
      test::FakeDialogs childDialogs;
      test::FakePump childPump;
      RunContext child{childDialogs, childPump};
      child.paths = ComputeRunPaths(dir.path());
      child.settings.Silent = silent;
      out += "[" + HashFile(child, path) + "]" + std::to_string(childDialogs.shown.size());
    }
    return 0;
  });
  ASSERT_NE(outcome.exitCode, test::kChildCannotSetUp) << "could not become nobody";
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.output, "[]0[]0");
  EXPECT_FALSE(std::filesystem::exists(dir / "_silent.log"));
  // The same file is fine for its owner.
  EXPECT_EQ(HashFile(ctx, path), "900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
}  // namespace qr
