#include "copy/native_transfer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/find_data.h"
#include "platform/times_io.h"
#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

using test::ReadBytes;

constexpr size_t kMiB = 1024 * 1024;
constexpr size_t kChunk = 8 * kMiB;  // one chunk of the main transfer

using CopyRoutine = bool (*)(RunContext&, const std::string&, const std::string&);
const std::pair<const char*, CopyRoutine> kRoutines[] = {
    {"CopyFileWithProgress", CopyFileWithProgress},
    {"CopyFilePlain", CopyFilePlain},
    {"CopyFileManual", CopyFileManual}};

std::string RandomBytes(size_t n, unsigned seed) {
  std::mt19937_64 gen(seed);
  std::string bytes(n, '\0');
  for (char& c : bytes) c = static_cast<char>(gen() & 0xFF);
  return bytes;
}

struct statx Look(const std::string& path) {
  struct statx st {};
  EXPECT_EQ(statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS, &st), 0) << path;
  return st;
}
unsigned Mode(const std::string& path) { return Look(path).stx_mode & 07777; }

// What a write to a file would move: its times to the nanosecond, its mode, its change time.
std::vector<int64_t> Traces(const std::string& path) {
  const struct statx st = Look(path);
  return {st.stx_atime.tv_sec, st.stx_atime.tv_nsec, st.stx_mtime.tv_sec, st.stx_mtime.tv_nsec,
          st.stx_ctime.tv_sec, st.stx_ctime.tv_nsec, st.stx_mode};
}

// Old instants, so that relatime would move the access time on a read, with nanoseconds below
// the 100 ns a file time keeps, so that a rewrite of what was read would show.
void SetOldTimes(const std::string& path) {
  test::SetTimes(path, {1000000000, 123456789}, {1100000000, 987654321});
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// The target carries the source's times at 100 ns (creation only where it can be set).
void ExpectSameTimes(const std::string& source, const std::string& target) {
  FindData s, t;
  ASSERT_TRUE(FindEntry(source, s) && FindEntry(target, t)) << target;
  const bool created = CanSetCreationTime(target);
  EXPECT_EQ(std::vector<FileTime>({t.lastWriteTime, t.lastAccessTime, created ? t.creationTime : 0}),
            std::vector<FileTime>({s.lastWriteTime, s.lastAccessTime, created ? s.creationTime : 0}))
      << target;
}

class NativeTransferTest : public ::testing::Test, protected test::RunFixture {};

TEST_F(NativeTransferTest, EachRoutineCopiesBytesAndTimesAndLeavesTheSourceUntouched) {
  const std::pair<const char*, std::string> sources[] = {
      {"random", RandomBytes(3 * kMiB + 123, 1)},
      {"empty", ""},
      {"chunk-and-a-byte", RandomBytes(kChunk + 1, 2)},
      {"read-only", "locked"},
  };
  for (const auto& [routine, copy] : kRoutines) {
    for (const auto& [name, bytes] : sources) {
      SCOPED_TRACE(std::string(routine) + " " + name);
      const std::string source = dir.WriteFile(std::string("src/") + routine + name, bytes);
      const unsigned mode = std::string(name) == "read-only" ? 0444 : 0640;
      ASSERT_EQ(chmod(source.c_str(), mode), 0);
      SetOldTimes(source);
      const auto before = Traces(source);
      const std::string target = dir / (std::string(routine) + name);
      ctx.progress.lblCurrentProcess = "Current Process:";

      EXPECT_TRUE(copy(ctx, source, target));
      ExpectSameTimes(source, target);  // first: reading the copy moves its access time
      EXPECT_TRUE(ReadBytes(target) == bytes);
      // Nothing was written to the source, its mode never lowered and put back, and a read
      // that moved its access time would show in the nanoseconds.
      EXPECT_EQ(Traces(source), before);
      if (copy != CopyFileManual) {
        EXPECT_EQ(Mode(target), mode);
        EXPECT_EQ(ctx.progress.lblCurrentProcess, "Current Process: Copying File");
      }
    }
  }
}

// Each refusal leaves no new target, an old one as it was, and its words for the record.
TEST_F(NativeTransferTest, EachRefusalLeavesItsWordsAndTheTargetAsItWas) {
  const std::string source = dir.WriteFile("source", "new");
  const std::string readOnly = dir.WriteFile("ro", "keep me");
  ASSERT_EQ(chmod(readOnly.c_str(), 0444), 0);  // root could write it; the copy refuses all the same
  const std::string old = dir.WriteFile("old", "previous copy");
  const std::string otherName = dir / "link";
  ASSERT_EQ(link(source.c_str(), otherName.c_str()), 0);
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string folder = dir.MakeDir("folder");
  const struct {
    std::string from, to, words;
  } cases[] = {
      {source, readOnly, "target is read-only"},
      {source, source, "target is the source itself"},
      {source, otherName, "target is the source itself"},
      {source, fifo, "target is not a regular file"},
      {dir / "missing", old, "cannot open source: No such file or directory"},
      {dir / "missing", dir / "t", "cannot open source: No such file or directory"},
      {folder, dir / "t", "source is not a regular file"},
      {fifo, dir / "t", "source is not a regular file"},
      {source, dir / "no folder/t", "cannot create target: No such file or directory"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.from + " -> " + c.to);
    // In a child with an alarm: a FIFO that were opened would block for good.
    const auto outcome = test::RunInChild([&](std::string& out) {
      alarm(10);
      out = CopyFileWithProgress(ctx, c.from, c.to) ? "copied" : ctx.file.copyFailure;
      if (CopyFilePlain(ctx, c.from, c.to)) out += " but the plain copy went on";
      if (!dialogs.shown.empty()) out += " with a box";
      return 0;
    });
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.output, c.words);
    EXPECT_FALSE(Exists(dir / "t"));
  }
  EXPECT_EQ(ReadBytes(source), "new");
  EXPECT_EQ(ReadBytes(readOnly), "keep me");
  EXPECT_EQ(ReadBytes(old), "previous copy");
}

TEST_F(NativeTransferTest, ProgressIsPumpedPerChunkAndCancelDoesNotStopTheFileInHand) {
  const std::string bytes = RandomBytes(2 * kChunk + 1, 3);
  std::vector<int> seen;
  pump.onPump = [&](int) {
    seen.push_back(ctx.progress.progress1Percent);
    ctx.counters.CancelRequested = true;
    ctx.counters.SkipRequested = true;
  };
  ASSERT_TRUE(CopyFileWithProgress(ctx, dir.WriteFile("big", bytes), dir / "copy"));
  EXPECT_TRUE(ReadBytes(dir / "copy") == bytes);
  ASSERT_GE(seen.size(), 3u);
  EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()) && seen[1] > 0 && seen[1] < 100);
  EXPECT_EQ(ctx.progress.progress1Width, ProgressPane::kProgress1FullWidth);

  // An empty file never reaches the bar.
  pump.pumps = 0;
  ctx.progress.Progress1_Set(40);
  EXPECT_TRUE(CopyFileWithProgress(ctx, dir.WriteFile("empty", ""), dir / "empty-copy"));
  EXPECT_EQ(pump.pumps, 0);
  EXPECT_EQ(ctx.progress.progress1Percent, 40);

  // The manual loop pumps before each of its 4 MiB chunks.
  seen.clear();
  EXPECT_TRUE(CopyFileManual(ctx, dir.WriteFile("m", RandomBytes(4 * kMiB + 1, 4)), dir / "m-copy"));
  EXPECT_EQ(seen, (std::vector<int>{0, 100}));

  // A failure in the progress routine abandons the copy and its target.
  pump.pumps = 0;
  pump.onPump = [](int n) {
    if (n == 2) throw std::runtime_error("window gone");
  };
  EXPECT_FALSE(
      CopyFileWithProgress(ctx, dir.WriteFile("s", RandomBytes(kChunk + 1, 5)), dir / "t"));
  EXPECT_FALSE(Exists(dir / "t"));
}

// The size read at the open is only where the file ended then: a file that grows under the
// copy is copied to its new end, one that shrinks to where it stops.
TEST_F(NativeTransferTest, AFileThatGrowsOrShrinksUnderTheCopyIsCopiedAsItEnds) {
  const std::pair<size_t, std::function<void(const std::string&)>> cases[] = {
      {kChunk,  // exactly one chunk, grown by 100 bytes once that chunk is in
       [](const std::string& path) {
         const int fd = open(path.c_str(), O_WRONLY | O_APPEND);
         ASSERT_EQ(write(fd, std::string(100, 'g').data(), 100), 100);
         close(fd);
       }},
      {2 * kChunk,  // two chunks, cut to one and a bit once the first is in
       [](const std::string& path) { ASSERT_EQ(truncate(path.c_str(), kChunk + 10), 0); }},
  };
  for (const auto& [size, change] : cases) {
    const std::string source = dir.WriteFile("changes", RandomBytes(size, 6));
    pump.pumps = 0;
    pump.onPump = [&](int n) {
      if (n == 2) change(source);
    };
    CopyFileWithProgress(ctx, source, dir / "copy");
    EXPECT_EQ(ReadBytes(dir / "copy").size(), size == kChunk ? kChunk + 100 : kChunk + 10);
    EXPECT_TRUE(ReadBytes(dir / "copy") == ReadBytes(source));
  }
}

// A copy that fails part-way (the file size limit stops the writes at 1 MiB) leaves the partial
// target, with the source's times; the manual loop doesn't look at its writes and reports a
// short target as a success.
TEST_F(NativeTransferTest, AFailedWriteLeavesThePartialTarget) {
  const std::string bytes = RandomBytes(3 * kMiB, 6);
  const std::string source = dir.WriteFile("s", bytes);
  ASSERT_EQ(chmod(source.c_str(), 0640), 0);
  SetOldTimes(source);
  const auto outcome = test::RunInChild([&](std::string& out) {
    signal(SIGXFSZ, SIG_IGN);
    const struct rlimit limit = {kMiB, kMiB};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return test::kChildCannotSetUp;
    out = CopyFileWithProgress(ctx, source, dir / "main") ? "T" : "F";
    const std::string words = ctx.file.copyFailure;
    out += (CopyFileManual(ctx, source, dir / "manual") ? "T" : "F") + words;
    return 0;
  });
  ASSERT_NE(outcome.exitCode, test::kChildCannotSetUp);
  EXPECT_EQ(outcome.output, "FTcannot write target: File too large");
  for (const std::string& target : {dir / "main", dir / "manual"}) {
    SCOPED_TRACE(target);
    ExpectSameTimes(source, target);
    const std::string partial = ReadBytes(target);
    EXPECT_TRUE(partial.size() > 0 && partial.size() <= kMiB && partial == bytes.substr(0, partial.size()));
  }
  EXPECT_EQ(Mode(dir / "main"), 0640u);
}

TEST_F(NativeTransferTest, TheManualLoopWritesOverAnExistingTargetInPlace) {
  const std::string target = dir.WriteFile("target", "0123456789ABCDEF");
  EXPECT_TRUE(CopyFileManual(ctx, dir.WriteFile("short", "abc"), target));
  EXPECT_EQ(ReadBytes(target), "abc3456789ABCDEF");
  // A source it can't open still reports success, with an empty target for verification to
  // expose.
  EXPECT_TRUE(CopyFileManual(ctx, dir / "missing", dir / "from-missing"));
  EXPECT_TRUE(Exists(dir / "from-missing") && ReadBytes(dir / "from-missing").empty());

  // The size is a signed 32-bit number: from 2 GiB on it is negative and nothing is copied.
  const std::string huge = dir / "huge";
  dir.WriteFile("huge", "");
  if (truncate(huge.c_str(), (off_t{1} << 31) + 5) != 0) GTEST_SKIP() << "cannot make a sparse file over 2 GiB here";
  pump.pumps = 0;
  EXPECT_TRUE(CopyFileManual(ctx, huge, dir / "huge-copy"));
  EXPECT_EQ(Look(dir / "huge-copy").stx_size + pump.pumps, 0u);
}

}  // namespace
}  // namespace qr
