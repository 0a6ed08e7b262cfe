#include "copy/native_transfer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

// What a write to a file would move: its times to the nanosecond, its mode, its change time.
std::vector<int64_t> Traces(const std::string& path) {
  const struct statx st = Look(path);
  return {st.stx_atime.tv_sec, st.stx_atime.tv_nsec, st.stx_mtime.tv_sec, st.stx_mtime.tv_nsec,
          st.stx_ctime.tv_sec, st.stx_ctime.tv_nsec, st.stx_mode};
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

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
      // Old, so that relatime would move them on a read; nanoseconds below file-time resolution.
      test::SetTimes(source, {1000000000, 123456789}, {1100000000, 987654321});
      const auto before = Traces(source);
      const std::string target = dir / (std::string(routine) + name);
      ctx.progress.lblCurrentProcess = "Current Process:";

      EXPECT_TRUE(copy(ctx, source, target));
      FindData s, t;  // first: reading the copy moves its access time
      ASSERT_TRUE(FindEntry(source, s) && FindEntry(target, t));
      const bool created = CanSetCreationTime(target);  // creation only where it can be set
      EXPECT_EQ(std::vector<FileTime>({t.lastWriteTime, t.lastAccessTime, created ? t.creationTime : 0}),
                std::vector<FileTime>({s.lastWriteTime, s.lastAccessTime, created ? s.creationTime : 0}));
      EXPECT_TRUE(ReadBytes(target) == bytes);
      // Nothing written to the source, its mode never lowered and put back, its times kept.
      EXPECT_EQ(Traces(source), before);
      if (copy != CopyFileManual) {
        EXPECT_EQ(Look(target).stx_mode & 07777u, mode);
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

  // A failure in the progress routine abandons the copy and its target.
  pump.pumps = 0;
  pump.onPump = [](int n) {
    if (n == 2) throw std::runtime_error("window gone");
  };
  EXPECT_FALSE(
      CopyFileWithProgress(ctx, dir.WriteFile("s", RandomBytes(kChunk + 1, 5)), dir / "t"));
  EXPECT_FALSE(Exists(dir / "t"));
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
