#include "verify/hash_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
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

class HashFileTest : public ::testing::Test, protected test::RunFixture {};

TEST_F(HashFileTest, DigestsAndTheBarAcrossChunkBoundaries) {
  std::vector<int> percents;  // the byte bar at each pump
  pump.onPump = [&](int) { percents.push_back(ctx.progress.progress1Percent); };
  EXPECT_EQ(HashFile(ctx, dir.WriteFile("abc", "abc")), "900150983cd24fb0d6963f7d28e17f72");
  const struct {
    const char* what;
    size_t size;
    std::vector<int> percents;
  } cases[] = {
      {"empty: no pass, the bar left alone", 0, {}},
      {"one chunk: the position then equals the size, no pump", kChunk, {}},
      {"a byte more: one pump between the passes, 99.99996 % rounds up", kChunk + 1, {100}},
      {"two and a half chunks: never a pump after the last pass", kChunk * 5 / 2, {40, 80}},
  };
  for (const auto& c : cases) {
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

// In line and ahead on a second thread: the same digest, and the file's times left exactly as
// they were. An access time older than the modification time is what relatime refreshes on a
// read, and nanoseconds below 100 ns catch a write-back at file-time resolution.
TEST_F(HashFileTest, HashedInLineOrAheadTheTimesStayExactlyAsTheyWere) {
  const std::string bytes = Pattern(static_cast<size_t>(HashAhead::kMinimumSize) + kChunk / 2);
  const std::string path = dir.WriteFile("stamped", bytes);
  test::SetTimes(path, {1000000000, 123456789}, {1100000000, 987654321});
  auto stamps = [&] {
    struct statx st {};
    EXPECT_EQ(statx(AT_FDCWD, path.c_str(), 0, STATX_ATIME | STATX_MTIME | STATX_BTIME, &st), 0);
    return std::vector<int64_t>{st.stx_atime.tv_sec, st.stx_atime.tv_nsec, st.stx_mtime.tv_sec,
                                st.stx_mtime.tv_nsec, st.stx_btime.tv_sec, st.stx_btime.tv_nsec};
  };
  const auto before = stamps();
  FileTimes times;
  ASSERT_EQ(GetFileTimes(ctx, path, times), 1);

  EXPECT_EQ(HashFile(ctx, path), test::Md5Of(bytes));
  EXPECT_EQ(stamps(), before) << "in line";
  EXPECT_EQ(HashAhead(path).Finish(ctx, times), test::Md5Of(bytes));
  EXPECT_EQ(stamps(), before) << "ahead";
  // What is no regular file gives an empty text and no message, boxed or logged; a FIFO must
  // not be opened, let alone block.
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (bool silent : {false, true}) {
    ctx.settings.Silent = silent;
    for (const std::string& odd : {dir / "missing", dir.MakeDir("folder"), fifo}) {
      EXPECT_EQ(HashFile(ctx, odd), "") << odd;
    }
  }
  for (const std::string& odd : {dir / "missing", dir / "folder"}) {
    EXPECT_EQ(HashAhead(odd).Finish(ctx, times), "") << odd;
  }
  EXPECT_FALSE(std::ifstream(dir / "_silent.log").good());
  EXPECT_TRUE(dialogs.shown.empty());
}

}  // namespace
}  // namespace qr
