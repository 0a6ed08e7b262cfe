#include "enumerate/source_walk.h"

#include <fcntl.h>
#include <unistd.h>

#include <vector>

#include "copy/target_paths.h"
#include "enumerate/filters.h"
#include "enumerate/hash_list.h"
#include "enumerate/job_rows.h"
#include "jobdb/job_database.h"
#include "platform/errors.h"
#include "platform/file_times.h"
#include "platform/find_data.h"
#include "platform/logs.h"
#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/plain_text.h"
#include "platform/text.h"
#include "platform/unicode_text.h"
#include "run/job_connection.h"
#include "run/run_context.h"
#include "verify/hash_file.h"

namespace qr {

namespace {

// The side logs take their names from the error log by a plain replacement over the whole
// path, so "_errors.log" gives "_symlinkss.log" and "_errors_2.log" "_symlinkss_2.log".
std::string SideLog(const RunContext& ctx, std::string_view from, std::string_view to) {
  return ReplaceAll(ctx.paths.ErrorLogPath, from, to);
}

void AppendPlain(const std::string& log, const std::string& line) {
  int err = 0;
  if (!AppendLine(log, line, &err)) throw SystemError(err);
}

// One line in the UTF-16 error log, counted as an error and shown in the progress window.
void RecordWalkError(RunContext& ctx, const std::string& path, const std::string& logWords,
                     const std::string& listWords) {
  const std::string& log = ctx.paths.ErrorLogPath;
  if (!FileExists(log)) CreateUnicodeFile(log);
  AppendUnicodeText(log, path + "\t" + logWords + "\r\n", false, &ctx);
  ++ctx.counters.ErrorCount;
  if (ctx.counters.ErrorCount > 0) ctx.progress.lblErrorCount = IntText(ctx.counters.ErrorCount);
  ctx.pump.Pump();
  ctx.progress.listErrors.push_back(path + listWords);
}

struct SubFolder {
  std::string name;
  FileTimes times;
};

FileTimes TimesOf(const FindData& e) { return {e.creationTime, e.lastWriteTime, e.lastAccessTime}; }

// The hash-list step for a file that passed the filters; its result is not used: a duplicate
// is not left out.
void HashListStep(RunContext& ctx, const std::string& path) {
  ctx.progress.lblCurrentProcess = "Current Process: Hashing file";
  RegisterFileHash(ctx, path, HashFile(ctx, path));
}

struct WalkTotals {
  int32_t folders = 0;
  int32_t files = 0;
  int64_t bytes = 0;
};

void EnumerateFolder(RunContext& ctx, std::string folder, WalkTotals& totals);

// One file entry of a listing.
void WalkFile(RunContext& ctx, const std::string& folder, const FindData& e,
              const std::optional<DateRange>& range, WalkTotals& totals) {
  const JobSettings& s = ctx.settings;
  const std::string path = folder + e.name;
  if (e.kind == EntryKind::Other) {
    // A FIFO, socket or device node is never opened: reading one could block the run forever.
    RecordWalkError(ctx, path, "(Cannot access file: Not a regular file)",
                    " (Not a regular file)");
    return;
  }
  if (LooksLikeShortName(e.name)) AppendPlain(SideLog(ctx, "_error", "_shortpaths_for_long"), path);
  bool passes = WalkedFilePasses(s, range, folder, e);
  if (passes && s.Collision == kCollisionDoNothing &&
      FileExists(GetTargetFilePath(ctx, path))) {
    AppendPlain(SideLog(ctx, "_error", "_existing"), path);
    passes = false;
  }
  if (passes) {
    if (s.CreateHashList && !s.CopyFiles) HashListStep(ctx, path);
    if (s.CreateFileList) AppendUnicodeText(ctx.paths.FileListPath, path + "\r\n", false, &ctx);
    std::string rowFolder = folder;
    InsertFileRow(ctx, rowFolder, e.name, e);
    totals.bytes += static_cast<int64_t>(e.Size());
    ctx.counters.TotalBytes += static_cast<int64_t>(e.Size());
    ++totals.files;
    ctx.progress.lblStatus = "Enumerating Files: " + IntText(totals.files) + " Found";
    ctx.pump.Pump();
  }
  ctx.pump.Pump();
}

// One folder entry of a listing; true when the walk is to descend into it.
bool WalkFolderEntry(RunContext& ctx, const std::string& folder, const FindData& e) {
  const JobSettings& s = ctx.settings;
  const std::string path = folder + e.name;
  bool descend = true;
  if ((e.attributes & kAttrReparsePoint) != 0) {
    // Two independent bit tests: a tag holding both patterns lands in both logs.
    if ((e.reparseTag & kReparseTagSymlink) == kReparseTagSymlink) {
      descend = false;
      AppendPlain(SideLog(ctx, "_error", "_symlinks"), path);
    }
    if ((e.reparseTag & kReparseTagMountPoint) == kReparseTagMountPoint) {
      descend = false;
      AppendPlain(SideLog(ctx, "_error", "_mountpoints"), path);
    }
  }
  if (descend && !FileOrDirExists("", path)) {
    descend = false;
    RecordWalkError(ctx, path, "(Cannot access folder: Permission denied)",
                    " (Permission Denied)");
  }
  // The row records that the folder exists, whatever becomes of its content.
  if (s.CopyEmpties) InsertFolderRow(ctx, path + kSep, e);
  if (descend && WalkedFolderExcluded(s, path + kSep)) descend = false;
  return descend;
}

void EnumerateFolder(RunContext& ctx, std::string folder, WalkTotals& totals) {
  try {
    ctx.progress.lblCurrentPath = "Current Path: " + folder;
    const std::optional<DateRange> range = BuildDateRange(ctx.settings);
    folder = WithTrailingSep(folder);
    FileTimes own;
    // The root "/" gives no times here and may go on; any other folder without times is left.
    if (GetFileTimes(ctx, folder, own) == 0 && folder != kSepText) return;

    // Remembered per level, so memory follows the depth of the tree and the width of one
    // folder, never its size.
    std::vector<SubFolder> subfolders;
    {
      FolderListing listing(LongPathPrefix(folder));
      if (!listing.ok()) return;
      FindData e;
      while (listing.Next(e)) {
        // A cancel leaves this level at once, its times not restored.
        if (ctx.counters.CancelRequested) return;
        if (e.IsDirectory()) {
          if (e.name == "." || e.name == "..") continue;
          if (WalkFolderEntry(ctx, folder, e)) {
            ++totals.folders;
            subfolders.push_back({e.name, TimesOf(e)});
          }
          ctx.pump.Pump();
        } else {
          WalkFile(ctx, folder, e, range, totals);
        }
      }
    }
    if (ctx.settings.CopySubs) {
      for (const auto& sub : subfolders) {
        EnumerateFolder(ctx, folder + sub.name, totals);
        // The walk leaves no trace on a subfolder's times.
        SetFileTimes(ctx, folder + sub.name, sub.times);
      }
    }
    SetFileTimes(ctx, folder, own);
  } catch (const RunError& err) {
    const std::string number = IntText(err.number());
    if (!ctx.settings.Silent) {
      ctx.ShowMessage("Enumeration error on\r\n" + folder + "\r\n" + number + " : " +
                          err.description(),
                      Icon::Exclamation);
    }
    ctx.WriteSilentLog("Enumeration error on " + folder + " : " + number + " : " +
                       err.description());
  }
}

// Reads a file list line by line (CR LF, CR or LF end a line) without holding it whole.
class LineReader {
 public:
  explicit LineReader(const std::string& path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (fd_ < 0) error_ = errno;
  }
  ~LineReader() {
    if (fd_ >= 0) close(fd_);
  }
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  bool ok() const { return fd_ >= 0; }
  int error() const { return error_; }

  // The next line; false at the end. A last line without a line end is still a line.
  bool Next(std::string& line) {
    line.clear();
    while (true) {
      if (pos_ == len_ && !Fill()) return !line.empty();
      char c = buf_[pos_++];
      if (c == '\n' && afterCr_) {
        afterCr_ = false;
        continue;
      }
      afterCr_ = false;
      if (c == '\r' || c == '\n') {
        afterCr_ = c == '\r';
        return true;
      }
      line += c;
    }
  }

 private:
  bool Fill() {
    ssize_t n = read(fd_, buf_, sizeof buf_);
    if (n <= 0) return false;
    pos_ = 0;
    len_ = static_cast<size_t>(n);
    return true;
  }
  int fd_ = -1;
  int error_ = 0;
  char buf_[65536];
  size_t pos_ = 0;
  size_t len_ = 0;
  bool afterCr_ = false;
};

}  // namespace

void TallySingleFile(RunContext& ctx, const std::string& path) {
  try {
    FindData e;
    // A single source that vanished leaves no row and no report.
    if (!FindEntry(LongPathPrefix(path), e)) return;
    if (e.kind == EntryKind::Other) {
      RecordWalkError(ctx, path, "(Cannot access file: Not a regular file)",
                      " (Not a regular file)");
      return;
    }
    if (FileExists(path, &ctx) && FilterSingleFile(ctx, path)) {
      std::string folder = FolderPart(path);
      InsertFileRow(ctx, folder, NamePart(path), e);
      ++ctx.counters.TotalFiles;
      ctx.counters.TotalBytes += static_cast<int64_t>(e.Size());
      ctx.progress.lblStatus = "Enumerating Files: " + IntText(ctx.counters.TotalFiles) + " Found";
      if (ctx.settings.CreateFileList) {
        AppendUnicodeText(ctx.paths.FileListPath, path + "\r\n", false, &ctx);
      }
    }
    // A single file commits at once.
    FlushQueryBuffer(ctx);
  } catch (const RunError& err) {
    const std::string text = "Single File Tally Error: \r\n" + path + "\r\n\r\n" +
                             IntText(err.number()) + " : " + err.description();
    if (!ctx.settings.Silent) {
      ctx.ShowMessage(text, Icon::None);
      ctx.WriteSilentLog(text);
    } else {
      GoDebug("Single File Tally Error: " + path + " : " + IntText(err.number()) + " : " +
              err.description());
    }
  }
}

int32_t TallyFolder(RunContext& ctx, const std::string& path) {
  std::string folder = WithTrailingSep(path);
  OpenConnection(ctx);
  if (ctx.settings.CopyEmpties) {
    // The root's row carries no times: a lookup of a folder path ending in its separator finds
    // nothing. The folder pass reads the source's times afresh in any case.
    InsertFolderRow(ctx, folder, FindData{});
  }
  WalkTotals totals;
  EnumerateFolder(ctx, folder, totals);
  FlushQueryBuffer(ctx);
  DropConnection(ctx);
  return totals.files;
}

namespace {

// What one file-list line names: a file, a folder, or nothing.
void TallyListEntry(RunContext& ctx, const std::string& field, const std::string& missingLog,
                    bool unicodeLog, std::string& stage, bool& cancelled) {
  stage = "Setting main current path to nothing";
  ctx.counters.CurrentSourceRoot.clear();
  stage = "Checking whether input path exists as a file";
  if (FileExists(Trim(field))) {
    stage = "Checking whether the cancel button was pressed (A1)";
    if (ctx.counters.CancelRequested) {
      stage = "Closing connection to file list (A1)";
      cancelled = true;
      return;
    }
    stage = "Setting main current path to file parent folder";
    ctx.counters.CurrentSourceRoot = FolderPart(field);
    stage = "Tallying up current input file";
    TallySingleFile(ctx, field);
    ctx.pump.Pump();
    return;
  }
  stage = "Trimming input path";
  const std::string trimmed = Trim(field);
  stage = "Determining if input path is a folder";
  if (FileOrDirExists("", trimmed)) {
    ctx.counters.CurrentSourceRoot = trimmed;
    stage = "Tallying up input folder";
    ctx.counters.TotalFiles += TallyFolder(ctx, trimmed);
    return;
  }
  if (unicodeLog) {
    stage = "Reserving pointer to file list error file";
    if (!FileExists(missingLog)) CreateUnicodeFile(missingLog);
    stage = "Opening pointer to file list error file";
    AppendUnicodeText(missingLog, "Could not find " + trimmed + "\r\n", false, &ctx);
  } else {
    AppendPlain(missingLog, "Could not find " + trimmed);
  }
}

void TallyPlainList(RunContext& ctx, const std::string& path, const std::string& missingLog,
                    std::string& stage) {
  LineReader reader(path);
  if (!reader.ok()) throw SystemError(reader.error());
  std::string line;
  bool cancelled = false;
  while (!cancelled && reader.Next(line)) {
    stage = "Grabbing first tab-delimited chunk";
    std::string field = line.substr(0, line.find('\t'));
    // The plain reader filters ahead of the tally, which filters again: the outcome is the same.
    ctx.counters.CurrentSourceRoot.clear();
    if (FileExists(Trim(field))) {
      if (ctx.counters.CancelRequested) return;
      if (FilterSingleFile(ctx, field)) {
        ctx.counters.CurrentSourceRoot = FolderPart(field);
        TallySingleFile(ctx, field);
      }
      ctx.pump.Pump();
      continue;
    }
    TallyListEntry(ctx, field, missingLog, false, stage, cancelled);
  }
}

// The UTF-16 reader takes 2049 bytes a read and does not realign, a last line without a line
// end never leaves the remainder: both are how lists of this kind have always been read.
void TallyUnicodeList(RunContext& ctx, const std::string& path, const std::string& missingLog,
                      std::string& stage) {
  stage = "Initializing remainder string";
  std::u16string remainder;
  stage = "Getting UC file pointer";
  stage = "Opening UC file for BA";
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw SystemError(errno);
  struct Closer {
    int fd;
    ~Closer() { close(fd); }
  } closer{fd};
  stage = "Initializing bytes to read";
  int64_t chunk = 2048;
  stage = "Initializing last position";
  int64_t position = 3;  // the first byte behind the mark, counting from 1
  stage = "Initializing line length";
  stage = "Determining length of file";
  const int64_t length = lseek(fd, 0, SEEK_END);
  stage = "Accounting for BTR overflow";
  if (length < 2048) chunk = length;
  bool cancelled = false;
  while (true) {
    stage = "Checking last position and file size loop conditions";
    if (position >= length) break;
    stage = "Setting size of byte array";
    std::vector<unsigned char> bytes(static_cast<size_t>(chunk + 1), 0);
    stage = "Setting Line Length";
    stage = "Reading " + IntText(chunk + 1) + " bytes beginning at " + IntText(position) +
            " from file of " + IntText(length) + " bytes.";
    // A read past the end leaves zero bytes at the tail.
    if (pread(fd, bytes.data(), bytes.size(), position - 1) < 0) throw SystemError(errno);
    position += chunk + 1;
    stage = "Setting input from byte array";
    std::u16string text;
    for (size_t i = 0; i < bytes.size(); i += 2) {
      char16_t lo = bytes[i];
      char16_t hi = i + 1 < bytes.size() ? bytes[i + 1] : 0;
      text += static_cast<char16_t>(lo | (hi << 8));
    }
    stage = "Adding remainder string to incoming line data";
    text = remainder + text;
    stage = "Setting new remainder string";
    const size_t lastEnd = text.rfind(u"\r\n");
    stage = "Setting line end position";
    if (lastEnd != std::u16string::npos) remainder = text.substr(lastEnd + 2);
    stage = "Grabbing path from input data";
    stage = "Extracting lines from input";
    if (lastEnd != std::u16string::npos) {
      stage = "Looping through lines";
      size_t start = 0;
      while (!cancelled && start <= lastEnd) {
        stage = "Checking for line data";
        size_t end = text.find(u"\r\n", start);
        std::u16string line = text.substr(start, end - start);
        start = end + 2;
        stage = "Checking for last line chunk";
        stage = "Splitting line by tabs";
        stage = "Comparing current path to remainder string";
        stage = "Grabbing first tab-delimited chunk";
        std::string field = Trim(Utf16ToUtf8(line.substr(0, line.find(u'\t'))));
        TallyListEntry(ctx, field, missingLog, true, stage, cancelled);
      }
      if (cancelled) return;
    }
    stage = "Setting new line position";
    if (chunk > length - position) chunk = length - position;
    stage = "Getting new line data";
  }
}

}  // namespace

void TallyFileList(RunContext& ctx, const std::string& entry) {
  std::string stage;
  try {
    const std::string path = entry.size() > kFileListMarker.size()
                                 ? entry.substr(kFileListMarker.size())
                                 : std::string();
    const std::string missingLog = SideLog(ctx, "error", "flist_err");
    if (IsUnicodeFile(path)) {
      TallyUnicodeList(ctx, path, missingLog, stage);
    } else {
      TallyPlainList(ctx, path, missingLog, stage);
    }
  } catch (const RunError& err) {
    ctx.WriteSilentLog("File List Tally Error:\r\n" + IntText(err.number()) + ": " +
                       err.description() + "\r\nStage: " + stage);
  }
}

}  // namespace qr
