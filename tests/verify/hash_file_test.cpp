#include "verify/hash_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/file_times.h"
#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

constexpr size_t kChunk = 2621440;

// Bytes that differ from chunk to chunk, so that a chunk hashed twice or skipped shows.
std::string Pattern(size_t n) {
  std::string s(n, '\0');
  uint32_t x = 2463534242u;
  for (char& c : s) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    c = static_cast<char>(x & 0xFF);
  }
  return s;
}

class HashFileTest : public ::testing::Test, protected test::RunFixture {
 protected:
  HashFileTest() {
    pump.onPump = [this](int) { percents.push_back(ctx.progress.progress1Percent); };
  }

  std::vector<int> percents;  // the byte bar at each pump
};

TEST_F(HashFileTest, DigestsAndTheBarAcrossChunkBoundaries) {
  // A digest known from md5sum, in lower case.
  EXPECT_EQ(HashFile(ctx, dir.WriteFile("abc", "abc")), "900150983cd24fb0d6963f7d28e17f72");
  struct Case {
    const char* what;
    size_t size;
    std::vector<int> percents;
  };
  const Case cases[] = {
      {"empty: no pass, the bar left alone", 0, {}},
      {"small: one pass of its own size", 1000, {}},
      {"one chunk: the position then equals the size, no pump", kChunk, {}},
      {"a byte more: one pump between the passes, 99.99996 % rounds up", kChunk + 1, {100}},
      {"two and a half chunks: never a pump after the last pass", kChunk * 5 / 2, {40, 80}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    percents.clear();
    ctx.progress.Progress1_Set(37);
    const std::string bytes = Pattern(c.size);
    EXPECT_EQ(HashFile(ctx, dir.WriteFile(std::to_string(c.size), bytes)), test::Md5Of(bytes));
    EXPECT_EQ(percents, c.percents);
    if (c.size == 0) {
      EXPECT_EQ(ctx.progress.progress1Percent, 37);
    }
  }
  EXPECT_TRUE(dialogs.shown.empty());
}

// A file cut short under the hash ends the hash: what is missing counts as zeros, so the
// record shows a mismatch rather than the run waiting for bytes that never come.
TEST_F(HashFileTest, AFileThatShrinksWhileHashedEndsWithZerosForWhatIsGone) {
  const std::string bytes = Pattern(kChunk * 5 / 2);
  const std::string path = dir.WriteFile("shrinks", bytes);
  pump.onPump = [&](int) { ASSERT_EQ(truncate(path.c_str(), kChunk + 10), 0); };
  // In a child with an alarm, so that a hash that waits for good fails at once.
  const auto outcome = test::RunInChild([&](std::string& out) {
    alarm(20);
    out = HashFile(ctx, path);
    return 0;
  });
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.output, test::Md5Of(bytes.substr(0, kChunk + 10) +
                                        std::string(bytes.size() - kChunk - 10, '\0')));
}

TEST_F(HashFileTest, TheFilesTimesAreLeftExactlyAsTheyWere) {
  const std::string path = dir.WriteFile("stamped", Pattern(kChunk + 5));
  // An access time older than the modification time is what relatime refreshes on a read, and
  // nanoseconds below 100 ns catch a write-back at file-time resolution.
  test::SetTimes(path, {1000000000, 123456789}, {1100000000, 987654321});
  auto stamps = [&] {
    struct statx st {};
    EXPECT_EQ(statx(AT_FDCWD, path.c_str(), 0, STATX_ATIME | STATX_MTIME | STATX_BTIME, &st), 0);
    std::vector<int64_t> out = {st.stx_atime.tv_sec, st.stx_atime.tv_nsec, st.stx_mtime.tv_sec,
                                st.stx_mtime.tv_nsec};
    if (st.stx_mask & STATX_BTIME)
      out.insert(out.end(), {st.stx_btime.tv_sec, st.stx_btime.tv_nsec});
    return out;
  };
  const auto before = stamps();

  EXPECT_EQ(HashFile(ctx, path), test::Md5Of(Pattern(kChunk + 5)));
  EXPECT_EQ(stamps(), before);
}

// Hashed on a second thread: the same digest and the same untouched times as in line, and
// nothing at all for what can't be opened.
TEST_F(HashFileTest, HashedAheadTheDigestAndTheTimesAreThoseOfHashFile) {
  const std::string bytes = Pattern(static_cast<size_t>(HashAhead::kMinimumSize) + kChunk / 2);
  const std::string path = dir.WriteFile("large", bytes);
  test::SetTimes(path, {1000000000, 123456789}, {1100000000, 987654321});
  FileTimes before;
  ASSERT_EQ(GetFileTimes(ctx, path, before), 1);
  {
    HashAhead ahead(path);
    EXPECT_EQ(ahead.Finish(ctx, before), test::Md5Of(bytes));
  }
  FileTimes after;
  ASSERT_EQ(GetFileTimes(ctx, path, after), 1);
  EXPECT_EQ(after.accessed, before.accessed);
  EXPECT_EQ(after.modified, before.modified);
  struct statx st {};
  ASSERT_EQ(statx(AT_FDCWD, path.c_str(), 0, STATX_ATIME, &st), 0);
  EXPECT_EQ(st.stx_atime.tv_nsec, 123456789) << "times already in place are not rewritten";

  for (const std::string& gone : {dir / "missing", dir.MakeDir("folder")}) {
    HashAhead ahead(gone);
    EXPECT_EQ(ahead.Finish(ctx, before), "");
  }
  EXPECT_TRUE(dialogs.shown.empty());
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
  EXPECT_NE(access((dir / "_silent.log").c_str(), F_OK), 0);
}

}  // namespace
}  // namespace qr
