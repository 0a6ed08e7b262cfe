#pragma once
// The MD5 of one file, leaving the file's times as they were found.
#include <cstdint>
#include <memory>
#include <string>

namespace qr {

class RunContext;
struct FileTimes;

// The digest as lower-case hexadecimal text, or an empty text when the file could not be hashed
// (every caller reads that as "Unable to hash"). A file that can't be opened gives no message.
std::string HashFile(RunContext& ctx, const std::string& path);
// The same for a caller that has just read the file's times: they are the ones put back.
std::string HashFileAfterTimes(RunContext& ctx, const std::string& path,
                               const FileTimes& timesJustRead);

// The MD5 of a large file computed on a second thread while the caller's thread does other work
// (hashing the other side of a copy): the same digest, the same times put back, the same
// reports as HashFile, all given on the caller's thread by Finish. The second thread only reads
// the file and feeds the digest; it touches nothing else of the run.
class HashAhead {
 public:
  // Files smaller than this are hashed in line: a thread costs more than it saves on them.
  static constexpr int64_t kMinimumSize = 32 * 1024 * 1024;

  // Opens the file, whose times the caller has just read, and starts its digest. Nothing is
  // started where it can't be opened: Finish then gives the empty text, as HashFile does.
  explicit HashAhead(const std::string& path);
  ~HashAhead();
  HashAhead(const HashAhead&) = delete;
  HashAhead& operator=(const HashAhead&) = delete;

  // Waits for the digest, pumping the interface meanwhile, then puts `timesJustRead` back as
  // HashFile does. The lower-case hex digest, or the empty text.
  std::string Finish(RunContext& ctx, const FileTimes& timesJustRead);

 private:
  struct Work;
  std::string path_;
  std::unique_ptr<Work> work_;
};

}  // namespace qr
