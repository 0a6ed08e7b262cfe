#include "verify/hash_file.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "jobdb/job_database.h"
#include "platform/errors.h"
#include "platform/file_times.h"
#include "platform/logs.h"
#include "platform/path_layer.h"
#include "platform/text.h"
#include "run/run_context.h"

namespace qr {

namespace {

// 2.5 MiB: one pump of the interface per chunk, and memory bounded whatever the file's size.
constexpr int64_t kHashChunk = 0x280000;

struct DigestContextFree {
  void operator()(EVP_MD_CTX* c) const { EVP_MD_CTX_free(c); }
};
using DigestContext = std::unique_ptr<EVP_MD_CTX, DigestContextFree>;

class Descriptor {
 public:
  Descriptor() = default;
  ~Descriptor() { Close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  void Reset(int fd) {
    Close();
    fd_ = fd;
  }
  int get() const { return fd_; }
  void Close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

RunError CryptoError() {
  const unsigned long code = ERR_get_error();
  ERR_clear_error();
  if (code == 0) return RunError(kInternalErrorNumber, "Internal error");
  char text[256];
  ERR_error_string_n(code, text, sizeof text);
  return RunError(kInternalErrorNumber, text);
}

// Only a regular file is hashed: a folder, a FIFO or a device node counts as a file that could
// not be opened (a FIFO would block the run, a device may act on being opened). O_NOATIME keeps
// the read from touching the access time where the kernel allows it (owner or CAP_FOWNER).
// The size is that of the file opened, whatever the name pointed at before.
int OpenForHashing(const std::string& path, int64_t& size) {
  const std::string p = LongPathPrefix(path);
  struct stat st {};
  if (::stat(p.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return -1;
  const int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC;
  int fd = ::open(p.c_str(), flags | O_NOATIME);
  if (fd < 0 && errno == EPERM) fd = ::open(p.c_str(), flags);
  if (fd < 0) return -1;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return -1;
  }
  size = st.st_size;
  return fd;
}

// MD5 is looked up once: a lookup by name on every file costs more than hashing a small one.
const EVP_MD* Md5() {
  static EVP_MD* const md5 = EVP_MD_fetch(nullptr, "MD5", nullptr);
  return md5;
}

// One read buffer for every hash of the thread, never zero-filled as a whole: a fresh buffer the
// size of each small file cost more than reading it.
unsigned char* HashBuffer() {
  thread_local std::unique_ptr<unsigned char[]> buffer(new unsigned char[kHashChunk]);
  return buffer.get();
}

// Fills `n` bytes from the file position as far as the file gives them. What a read could not
// fill stays zero and still goes to the digest, so a file that shrank or failed underneath
// shows up as a mismatch in the verification record rather than here.
void ReadChunk(int fd, unsigned char* buffer, size_t n) {
  size_t done = 0;
  while (done < n) {
    const ssize_t got = ::read(fd, buffer + done, n - done);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  std::fill(buffer + done, buffer + n, static_cast<unsigned char>(0));
}

std::string LowerHex(const unsigned char* bytes, unsigned int n) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(n * 2u);
  for (unsigned int i = 0; i < n; ++i) {
    out += kDigits[bytes[i] >> 4];
    out += kDigits[bytes[i] & 0x0F];
  }
  return out;
}

}  // namespace

namespace {

std::string Hash(RunContext& ctx, const std::string& path, const FileTimes* timesJustRead) {
  std::string words;
  DigestContext md;
  Descriptor file;
  auto report = [&](int number, const std::string& description) {
    const std::string n = IntText(number);
    ReportFailure(ctx, "Hash error on\r\n" + path + "\r\n" + n + " : " + description,
                  Icon::Exclamation,
                  "Hash error on " + path + ": " + words + ": Error:" + n + " : " + description);
  };
  try {
    GoDebug("                    Initialize security attr");
    int64_t chunk = kHashChunk;
    int64_t position = 0;

    GoDebug("                    Initializing MD5 Context");
    words = "Could not initialize MD5 context.";
    md.reset(EVP_MD_CTX_new());
    if (!md || Md5() == nullptr || EVP_DigestInit_ex(md.get(), Md5(), nullptr) != 1) {
      throw CryptoError();
    }

    GoDebug("                    Determine Subject TS");
    words = "Could not obtain original time stamps for source file.";
    FileTimes times;
    if (timesJustRead != nullptr) {
      times = *timesJustRead;
    } else {
      GetFileTimes(ctx, path, times);
    }

    GoDebug("                    Create Read Handle for Subject");
    words = "Could not create read handle for source file.";
    int64_t size = 0;
    file.Reset(OpenForHashing(path, size));
    if (file.get() < 0) {
      // Nothing was read, so there are no times to put back; the empty text tells the caller.
      GoDebug("                    Unable to Create Read Handle for Subject");
      return std::string();
    }

    // The size is the one the open took; a file just opened reads from its beginning.
    GoDebug("                    Determining File Size of Subject");
    words = "Could not determine file size of source file.";

    GoDebug("                    Assigning Read Buffer");
    words = "Could not assign read buffer.";
    if (size < kHashChunk) chunk = size;
    unsigned char* const buffer = HashBuffer();

    GoDebug("                    Set File Point to Beginning of Subject File");
    words = "Could not set file pointer in source file.";

    GoDebug("                    Stepping Through File and Updating MD5 Context");
    while (position < size) {
      if (size - position < chunk) chunk = size - position;
      const auto n = static_cast<size_t>(chunk);
      words = "Could not read " + IntText(chunk) + " bytes from source file.";
      ReadChunk(file.get(), buffer, n);
      words = "Could not update MD5 context.";
      if (EVP_DigestUpdate(md.get(), buffer, n) != 1) throw CryptoError();
      position += chunk;
      if (size > 0 && position < size) {
        const double percent = static_cast<double>(position) * 100.0 / static_cast<double>(size);
        ctx.progress.Progress1_Set(static_cast<int>(std::lround(percent)));
        ctx.pump.Pump();
      }
    }

    GoDebug("                    Closing Subject File Handle");
    words = "Could not close handle to source file.";
    file.Close();

    GoDebug("                    Finalizing MD5 Context");
    words = "Could not finalize MD5 context.";
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    if (EVP_DigestFinal_ex(md.get(), digest, &digestLength) != 1) throw CryptoError();

    GoDebug("                    Calculating MD5 Digest from Context");
    words = "Could not calculate MD5 hash value.";
    std::string text = LowerHex(digest, digestLength);

    GoDebug("                    Rolling Subject TS");
    words = "Could not set timestamps on source file.";
    SetFileTimes(ctx, path, times);

    words = "Could not exit function.";
    return text;
  } catch (const RunError& e) {
    report(e.number(), e.description());
  } catch (const std::exception& e) {
    report(kInternalErrorNumber, e.what());
  }
  return std::string();
}

}  // namespace

std::string HashFile(RunContext& ctx, const std::string& path) { return Hash(ctx, path, nullptr); }

std::string HashFileAfterTimes(RunContext& ctx, const std::string& path,
                               const FileTimes& timesJustRead) {
  return Hash(ctx, path, &timesJustRead);
}

struct HashAhead::Work {
  Descriptor file;
  int64_t size = 0;
  std::string text;        // the digest, once done
  std::string failure;     // the library's words when it failed
  std::string words;       // the step that failed
  std::promise<void> done;
  std::future<void> finished = done.get_future();
  std::thread thread;

  void Run() {
    DigestContext md(EVP_MD_CTX_new());
    try {
      words = "Could not initialize MD5 context.";
      if (!md || Md5() == nullptr || EVP_DigestInit_ex(md.get(), Md5(), nullptr) != 1) {
        throw CryptoError();
      }
      // Its own buffer: the caller's thread hashes the other side meanwhile with its own.
      unsigned char* const buffer = HashBuffer();
      int64_t position = 0;
      while (position < size) {
        const auto n = static_cast<size_t>(std::min<int64_t>(kHashChunk, size - position));
        words = "Could not read " + IntText(static_cast<int64_t>(n)) + " bytes from source file.";
        ReadChunk(file.get(), buffer, n);
        words = "Could not update MD5 context.";
        if (EVP_DigestUpdate(md.get(), buffer, n) != 1) throw CryptoError();
        position += static_cast<int64_t>(n);
      }
      words = "Could not finalize MD5 context.";
      unsigned char digest[EVP_MAX_MD_SIZE];
      unsigned int digestLength = 0;
      if (EVP_DigestFinal_ex(md.get(), digest, &digestLength) != 1) throw CryptoError();
      words = "Could not calculate MD5 hash value.";
      text = LowerHex(digest, digestLength);
    } catch (const RunError& e) {
      failure = e.description();
      text.clear();
    } catch (const std::exception& e) {
      failure = e.what();
      text.clear();
    }
    done.set_value();
  }
};

HashAhead::HashAhead(const std::string& path) : path_(path) {
  auto work = std::make_unique<Work>();
  work->file.Reset(OpenForHashing(path, work->size));
  if (work->file.get() < 0) return;
  Work* w = work.get();
  try {
    w->thread = std::thread([w] { w->Run(); });
  } catch (const std::system_error&) {
    // No second thread to be had: Finish hashes in line.
    return;
  }
  work_ = std::move(work);
}

HashAhead::~HashAhead() {
  if (work_ && work_->thread.joinable()) work_->thread.join();
}

std::string HashAhead::Finish(RunContext& ctx, const FileTimes& timesJustRead) {
  if (!work_) return HashFileAfterTimes(ctx, path_, timesJustRead);
  // The window stays alive while the digest is finished: the pump runs on this thread only.
  while (work_->finished.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
    ctx.pump.Pump();
  }
  work_->thread.join();
  work_->file.Close();
  if (!work_->failure.empty()) {
    const std::string n = IntText(kInternalErrorNumber);
    ReportFailure(ctx, "Hash error on\r\n" + path_ + "\r\n" + n + " : " + work_->failure,
                  Icon::Exclamation,
                  "Hash error on " + path_ + ": " + work_->words + ": Error:" + n + " : " +
                      work_->failure);
    return std::string();
  }
  SetFileTimes(ctx, path_, timesJustRead);
  return work_->text;
}

}  // namespace qr
