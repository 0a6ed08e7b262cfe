#include "copy/native_transfer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "jobdb/job_database.h"
#include "platform/confined_io.h"
#include "platform/file_times.h"
#include "platform/logs.h"
#include "platform/path_layer.h"
#include "platform/text.h"
#include "platform/write_all.h"
#include "run/run_context.h"

namespace qr {

namespace {

// 8 MiB: large enough for copy_file_range to work efficiently, small enough that the progress
// routine (and with it the event pump) runs several times a second on an ordinary disk.
constexpr size_t kTransferChunk = 8u * 1024u * 1024u;
// The manual loop's 4 MiB chunk.
constexpr int32_t kManualChunk = 0x400000;

// What the progress routine answers, and why it was called.
constexpr int kProgressContinue = 0;
constexpr int kProgressCancel = 1;
constexpr int kCallbackChunkFinished = 0;
constexpr int kCallbackStreamSwitch = 1;

class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() { Close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }
  // False when the kernel reported a failure of the close itself (a write it could not finish).
  bool Close() {
    if (fd_ < 0) return true;
    const int rc = ::close(fd_);
    fd_ = -1;
    return rc == 0;
  }

 private:
  int fd_;
};

// Opens a source for reading. Only a regular file is opened: a FIFO would block the run and a
// device may act on being opened. O_NOATIME keeps the read from touching the access time where
// the kernel allows it (owner or CAP_FOWNER); elsewhere the times are written back afterwards.
// -1 when it can't be opened; else the record of the file opened is left in `st`.
int OpenSource(const std::string& path, struct stat& st) {
  if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return -1;
  const int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC;
  int fd = ::open(path.c_str(), flags | O_NOATIME);
  if (fd < 0 && errno == EPERM) fd = ::open(path.c_str(), flags);
  if (fd < 0) return -1;
  // The name may have been replaced by something else between the two looks.
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return -1;
  }
  return fd;
}

// The words of a failed transfer: what could not be done, and the system's reason.
std::string Failed(const char* what, int error) {
  return std::string(what) + ": " + std::strerror(error);
}

// Reads until `n` bytes are in or the file ends. The count read, or -1 on a failure.
ssize_t ReadFull(int fd, char* buffer, size_t n) {
  size_t done = 0;
  while (done < n) {
    const ssize_t got = ::read(fd, buffer + done, n - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) break;
    done += static_cast<size_t>(got);
  }
  return static_cast<ssize_t>(done);
}

// A byte count shown the way the progress notes always showed it: as a fixed-point number with
// four implied decimals, that is the count divided by 10000, trailing zeros dropped.
std::string FixedPointText(int64_t raw) {
  std::string text = IntText(raw / 10000);
  int64_t fraction = raw % 10000;
  if (fraction == 0) return text;
  std::string digits = IntText(fraction);
  digits.insert(0, 4 - digits.size(), '0');
  while (digits.back() == '0') digits.pop_back();
  return text + "." + digits;
}

// Called after each chunk of the main transfer (and once as the file's stream begins). Cancel
// and Skip requests that arrive in the pump are left for the caller: the file in hand is
// finished. Only a failure in here stops the copy.
int CopyFileProgressRoutine(RunContext& ctx, int64_t totalFileSize, int64_t totalBytesTransferred,
                            int callbackReason) {
  try {
    if (totalFileSize <= 0) return kProgressContinue;
    GoDebug("               (" + FixedPointText(totalBytesTransferred) + "/" +
            FixedPointText(totalFileSize) + ") *" + IntText(callbackReason) + "*");
    const double percent =
        static_cast<double>(totalBytesTransferred) * 100.0 / static_cast<double>(totalFileSize);
    ctx.progress.Progress1_Set(static_cast<int>(std::lround(percent)));
    ctx.pump.Pump();
    return kProgressContinue;
  } catch (...) {
    return kProgressCancel;
  }
}

// The file copy under both the main transfer and the plain copy: the source is opened before
// the target is touched, so a source that can't be read leaves no target (and an existing one
// as it was). An existing target is overwritten unless no one has a write bit on it; root is
// refused too, since the kernel would let it write. A new target is private (0600) until its
// caller gives it the source's mode. A failure part-way leaves the partial target in place;
// only a cancel from the progress routine removes it. A failure leaves its words in `why`;
// `opened` tells whether the target was opened for writing at all.
// Where `mode` is asked for, a finished copy is given the permission bits of the source as
// opened (set-id and sticky bits left out) through its own descriptor, and `mode` says so; a
// copy that stopped part-way is left to the caller.
struct GivenMode {
  std::optional<mode_t> bits;  // the source's, once it was opened
  bool given = false;
};

bool TransferBytes(RunContext& ctx, const std::string& source, const std::string& target,
                   bool withProgress, std::string& why, bool& opened, GivenMode* mode = nullptr) {
  opened = false;
  errno = 0;
  struct stat from {};
  Descriptor in(OpenSource(LongPathPrefix(source), from));
  if (in.get() < 0) {
    why = errno != 0 ? Failed("cannot open source", errno) : "source is not a regular file";
    return false;
  }
  if (mode != nullptr) mode->bits = static_cast<mode_t>(from.st_mode & 0777);

  const std::string to = LongPathPrefix(target);
  struct stat existing {};
  // A link at the target's name is replaced, never followed: only a real file is checked here.
  if (StatNoFollow(to, existing) == 0 && !S_ISLNK(existing.st_mode)) {
    // Truncating the source through another of its names would destroy it.
    if (existing.st_dev == from.st_dev && existing.st_ino == from.st_ino) {
      why = "target is the source itself";
      return false;
    }
    // A FIFO would block the open; a folder can't be written anyway.
    if (!S_ISREG(existing.st_mode)) {
      why = "target is not a regular file";
      return false;
    }
    if ((existing.st_mode & 0222) == 0) {
      why = "target is read-only";
      return false;
    }
  }
  Descriptor out(OpenForWriting(to, O_WRONLY | O_CREAT | O_TRUNC, 0600));
  if (out.get() < 0) {
    why = Failed("cannot create target", errno);
    return false;
  }
  opened = true;

  const int64_t total = from.st_size;
  int64_t transferred = 0;
  auto progress = [&](int reason) {
    return withProgress ? CopyFileProgressRoutine(ctx, total, transferred, reason)
                        : kProgressContinue;
  };
  auto cancel = [&] {
    out.Close();
    RemoveFile(to);
    why = "cancelled";
    return false;
  };

  if (progress(kCallbackStreamSwitch) == kProgressCancel) return cancel();
  bool useRange = true;
  bool ended = false;
  std::vector<char> buffer;
  for (;;) {
    ssize_t n = 0;
    if (useRange) {
      // A short answer that reaches the size the open saw is the end of the file: asking again
      // would only be told so. A file that grew meanwhile gives a full answer or passes the
      // size, and is read on to its new end; one that shrank stops short of the size.
      if (ended) break;
      n = ::copy_file_range(in.get(), nullptr, out.get(), nullptr, kTransferChunk, 0);
      if (n < 0) {
        const int err = errno;
        if (err == EINTR) continue;
        if (err != EXDEV && err != EINVAL && err != ENOSYS && err != EOPNOTSUPP) {
          // Either side may have refused; the full disk or the broken medium is named.
          why = Failed("cannot write target", err);
          return false;
        }
        // Across file systems, or where the kernel can't: the same bytes by read and write.
        useRange = false;
        continue;
      }
      // Some file systems report nothing copied instead of refusing; read and write then
      // decide where the file really ends.
      if (n == 0 && transferred < total) {
        useRange = false;
        continue;
      }
      ended = n > 0 && static_cast<size_t>(n) < kTransferChunk && transferred + n == total;
    } else {
      if (buffer.empty()) buffer.resize(kTransferChunk);
      n = ReadFull(in.get(), buffer.data(), buffer.size());
      if (n < 0) {
        why = Failed("cannot read source", errno);
        return false;
      }
      if (n > 0 && !WriteAll(out.get(), std::string_view(buffer.data(), static_cast<size_t>(n)))) {
        why = Failed("cannot write target", errno);
        return false;
      }
    }
    if (n == 0) break;
    transferred += n;
    if (progress(kCallbackChunkFinished) == kProgressCancel) return cancel();
  }
  // Only where the bits differ: a chmod moves the change time even when it changes nothing.
  if (mode != nullptr) {
    struct stat now {};
    mode->given = ::fstat(out.get(), &now) == 0 &&
                  ((now.st_mode & 07777) == *mode->bits || ::fchmod(out.get(), *mode->bits) == 0);
  }
  // A network or full disk may refuse only here, at the close.
  if (!out.Close()) {
    why = Failed("cannot write target", errno);
    return false;
  }
  return true;
}

// The source's permission bits for the copy. The set-id and sticky bits are left out: a copy
// made by root must not turn into a set-user-id program of root's.
std::optional<mode_t> PermissionBits(const std::string& path) {
  struct stat st {};
  if (::stat(LongPathPrefix(path).c_str(), &st) != 0) return std::nullopt;
  return static_cast<mode_t>(st.st_mode & 0777);
}

// Only where the bits differ: a chmod moves the change time even when it changes nothing.
void GivePermissionBits(const std::string& path, std::optional<mode_t> mode) {
  if (!mode) return;
  const std::string p = LongPathPrefix(path);
  struct stat st {};
  if (StatNoFollow(p, st) == 0 && (st.st_mode & 07777) == *mode) return;
  ChangeMode(p, *mode);
}

// The low 32 bits of the file's size as a signed number: a file of 2 GiB or more comes out
// negative (or small), as the manual loop always counted. An unusable descriptor gives -1.
int32_t ManualSize(int fd) {
  struct stat st {};
  if (::fstat(fd, &st) != 0) return -1;
  const auto low = static_cast<uint32_t>(static_cast<uint64_t>(st.st_size) & 0xFFFFFFFFu);
  return static_cast<int32_t>(low);
}

}  // namespace

static bool CopyWithProgress(RunContext& ctx, const std::string& source, const std::string& target,
                      const FileTimes* timesJustRead) {
  try {
    GoDebug("               Retrieve Source TS");
    FileTimes times;
    if (timesJustRead != nullptr) {
      times = *timesJustRead;
    } else {
      GetFileTimes(ctx, source, times);
    }

    // Linux needs no write bit to read a file, so the source's mode is only read, never
    // lowered to "normal" and put back. It is read from the source as the transfer opens it.
    GoDebug("               Retrieve File Attributes");

    GoDebug("               Begin Copy Callback");
    ctx.progress.lblCurrentProcess = "Current Process: Copying File";
    std::string why;
    bool opened = false;
    GivenMode mode;
    const bool copied = TransferBytes(ctx, source, target, true, why, opened, &mode);
    ctx.file.copyFailure = why;

    GoDebug("               Roll TS");
    SetFileTimes(ctx, source, times);

    if (!FileExists(target, &ctx)) {
      GoDebug("               Copy Failure");
      return false;
    }

    GoDebug("               Set Target TS");
    SetFileTimes(ctx, target, times);

    // Nothing to put back on the source: its mode was never changed.
    GoDebug("               Roll Attributes");

    GoDebug("               Set Attributes");
    // A target the transfer refused (read-only, the source itself) keeps its own mode; a
    // finished copy has had it given already.
    if (opened && !mode.given) GivePermissionBits(target, mode.bits);

    GoDebug("               Roll TS");
    SetFileTimes(ctx, source, times);

    if (!FileExists(target, &ctx)) {
      GoDebug("               Copy failure (2)");
      return false;
    }

    // A mode change moves the change time only, but the times go on last all the same.
    GoDebug("               Set Target TS (2)");
    SetFileTimes(ctx, target, times);

    if (copied) {
      GoDebug("               Copy successful");
      return true;
    }
    GoDebug("               Copy Failure (3)");
    return false;
  } catch (...) {
    return false;
  }
}

bool CopyFileWithProgress(RunContext& ctx, const std::string& source, const std::string& target) {
  return CopyWithProgress(ctx, source, target, nullptr);
}

bool CopyFileWithProgressAfterTimes(RunContext& ctx, const std::string& source,
                                    const std::string& target,
                                    const FileTimes& sourceTimesJustRead) {
  return CopyWithProgress(ctx, source, target, &sourceTimesJustRead);
}

bool CopyFileManual(RunContext& ctx, const std::string& source, const std::string& target) {
  // Each step's failure words are kept, as they always were, and never shown to anyone.
  std::string words;
  try {
    const std::string to = LongPathPrefix(target);

    words = "Could not obtain original time stamps for source file.";
    FileTimes times;
    GetFileTimes(ctx, source, times);

    // Create-new: an existing target is kept, and written over in place below.
    words = "Could not open destination file for output.";
    Descriptor created(OpenForWriting(to, O_WRONLY | O_CREAT | O_EXCL, 0666));

    words = "Could not close destination file.";
    created.Close();

    words = "Could not determine if destination file exists.";
    if (!FileExists(target, &ctx)) {
      words = "Could not exit function.";
      return false;
    }

    // Read-only: a collection never needs to write to its source.
    words = "Could not create read handle for source file.";
    struct stat opened {};
    Descriptor in(OpenSource(LongPathPrefix(source), opened));

    // Not truncated: a longer old target keeps its tail, which verification then exposes.
    words = "Could not create read/write handle for destination file.";
    Descriptor out(OpenForWriting(to, O_RDWR, 0));

    words = "Could not determine file size of source file.";
    const int32_t size = ManualSize(in.get());

    words = "Could not assign read buffer.";
    int32_t chunk = kManualChunk;
    if (size < chunk) chunk = size;

    words = "Could not set file pointer in source file.";
    ::lseek(in.get(), 0, SEEK_SET);

    // What read and write achieve is not looked at: a short read writes the zeroed rest of the
    // buffer, and a failed write leaves a short target, both of which the hashes then show.
    int32_t position = 0;
    while (position < size) {
      if (size > 0) {
        const double percent = static_cast<double>(position) * 100.0 / static_cast<double>(size);
        ctx.progress.Progress1_Set(static_cast<int>(std::lround(percent)));
        ctx.pump.Pump();
      }
      if (size - position < chunk) chunk = size - position;
      std::vector<char> buffer(static_cast<size_t>(chunk));
      const auto n = static_cast<size_t>(chunk);

      words = "Could not read " + IntText(chunk) + " bytes from source file.";
      ReadFull(in.get(), buffer.data(), n);

      words = "Could not write " + IntText(chunk) + " bytes to destination file.";
      WriteAll(out.get(), std::string_view(buffer.data(), n));

      words = "Could not flush file buffer.";
      ::fsync(out.get());

      position += chunk;
    }

    words = "Could not close handle to source file.";
    in.Close();

    words = "Could not close handle to destination file.";
    out.Close();

    words = "Could not set timestamps on source file.";
    SetFileTimes(ctx, source, times);

    words = "Could not set timestamps on destination file.";
    SetFileTimes(ctx, target, times);

    words = "Could not exit function.";
    return true;
  } catch (...) {
    return false;
  }
}

bool CopyFilePlain(RunContext& ctx, const std::string& source, const std::string& target) {
  try {
    FileTimes times;
    GetFileTimes(ctx, source, times);
    ctx.progress.lblCurrentProcess = "Current Process: Copying File";
    const std::optional<mode_t> mode = PermissionBits(source);
    std::string why;  // the companion file's own caller reports it
    bool opened = false;
    const bool copied = TransferBytes(ctx, source, target, false, why, opened);
    // The copy carries the source's mode, as a plain file copy does.
    if (copied) GivePermissionBits(target, mode);
    SetFileTimes(ctx, source, times);
    if (FileExists(target, &ctx)) {
      SetFileTimes(ctx, target, times);
      return copied;
    }
    return false;
  } catch (...) {
    return false;
  }
}

}  // namespace qr
