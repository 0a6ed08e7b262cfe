#include "enumerate/source_walk.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
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

std::string SideLog(const RunContext& ctx, std::string_view from, std::string_view to) {
  return SideLogPath(ctx.paths.ErrorLogPath, from, to);
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
  // The run's own target and log folders, which the walk never enters: a target inside a source
  // would otherwise collect the run's copies, its live database and its logs.
  std::vector<ObjectId> ownFolders;
};

std::vector<ObjectId> OwnFolders(const RunContext& ctx) {
  std::vector<ObjectId> own;
  for (const std::string* path : {&ctx.settings.TargetPath, &ctx.settings.LogPath}) {
    if (std::optional<ObjectId> id = IdentityOf(*path)) own.push_back(*id);
  }
  return own;
}

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
  // A walk that finishes an interrupted one passes over what the first one found.
  if (HasFileRow(ctx, path)) return;
  if (LooksLikeShortName(e.name)) AppendPlain(SideLog(ctx, "_error", "_shortpaths_for_long"), path);
  bool passes = WalkedFilePasses(s, range, folder, e);
  // A link at the target's name is an existing file too: it is left alone, never followed.
  if (passes && s.Collision == kCollisionDoNothing &&
      TargetNameTaken(ctx, GetTargetFilePath(ctx, path))) {
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
bool WalkFolderEntry(RunContext& ctx, const std::string& folder, const FindData& e,
                     const WalkTotals& totals) {
  const JobSettings& s = ctx.settings;
  const std::string path = folder + e.name;
  if ((e.attributes & kAttrReparsePoint) == 0 && !totals.ownFolders.empty()) {
    const std::optional<ObjectId> id = IdentityOf(path);
    if (id && std::find(totals.ownFolders.begin(), totals.ownFolders.end(), *id) !=
                  totals.ownFolders.end()) {
      return false;
    }
  }
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
          if (WalkFolderEntry(ctx, folder, e, totals)) {
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
    // Listing a folder its user doesn't own moves its access time for good: the record says so.
    FileTimes after;
    if (folder != kSepText && GetFileTimes(ctx, folder, after) == 1 &&
        after.accessed != own.accessed) {
      RecordWalkError(ctx, WithoutTrailingSep(folder),
                      "(Folder access time changed and could not be set back)",
                      " (Folder access time changed)");
    }
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
    int err = 0;
    // A named file that is gone (or can't be looked at) by the time of the walk is recorded:
    // nothing named for collection vanishes without a word.
    if (!FindEntry(LongPathPrefix(path), e, &err)) {
      const std::string why = err == 0 ? "No such file or directory" : std::strerror(err);
      RecordWalkError(ctx, path, "(Cannot access file: " + why + ")", " (" + why + ")");
      return;
    }
    if (e.kind == EntryKind::Other) {
      RecordWalkError(ctx, path, "(Cannot access file: Not a regular file)",
                      " (Not a regular file)");
      return;
    }
    if (HasFileRow(ctx, path)) return;
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
  totals.ownFolders = OwnFolders(ctx);
  EnumerateFolder(ctx, folder, totals);
  FlushQueryBuffer(ctx);
  DropConnection(ctx);
  return totals.files;
}

namespace {

void RecordMissingEntry(RunContext& ctx, const std::string& entry, const std::string& missingLog,
                        bool unicodeLog, std::string& stage) {
  ctx.failures.missingEntriesLog = missingLog;
  if (unicodeLog) {
    stage = "Reserving pointer to file list error file";
    if (!FileExists(missingLog)) CreateUnicodeFile(missingLog);
    stage = "Opening pointer to file list error file";
    AppendUnicodeText(missingLog, "Could not find " + entry + "\r\n", false, &ctx);
  } else {
    AppendPlain(missingLog, "Could not find " + entry);
  }
}

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
  if (SpecialFileExists(trimmed)) {
    // Found, but not a file to copy: the error line a walk gives it, never "Could not find".
    ctx.counters.CurrentSourceRoot = FolderPart(trimmed);
    TallySingleFile(ctx, trimmed);
    return;
  }
  RecordMissingEntry(ctx, trimmed, missingLog, unicodeLog, stage);
}

// An entry that holds a NUL byte names nothing on this system: it is recorded with the text
// before the NUL and never looked up, so "/tmp/\0x" can't stand for all of /tmp.
bool EndsAtNul(RunContext& ctx, const std::string& field, const std::string& missingLog,
               bool unicodeLog, std::string& stage) {
  const size_t nul = field.find('\0');
  if (nul == std::string::npos) return false;
  RecordMissingEntry(ctx, Trim(field.substr(0, nul)), missingLog, unicodeLog, stage);
  return true;
}

void TallyPlainList(RunContext& ctx, const std::string& path, const std::string& missingLog,
                    std::string& stage) {
  LineReader reader(path);
  if (!reader.ok()) throw SystemError(reader.error());
  std::string line;
  bool cancelled = false;
  bool first = true;
  while (!cancelled && reader.Next(line)) {
    // A UTF-8 byte-order mark belongs to the file, not to its first entry.
    if (first && line.starts_with("\xEF\xBB\xBF")) line.erase(0, 3);
    first = false;
    stage = "Grabbing first tab-delimited chunk";
    std::string field = line.substr(0, line.find('\t'));
    if (EndsAtNul(ctx, field, missingLog, false, stage)) continue;
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

// The path of a file-list entry: behind the marker and the blanks around it, however many, so
// that "[File List]/path" names its list too.
std::string FileListPath(const std::string& entry) {
  size_t at = entry.find("[File List]");
  if (at == std::string::npos) return std::string();
  at = entry.find_first_not_of(' ', at + std::string_view("[File List]").size());
  return at == std::string::npos ? std::string() : entry.substr(at);
}

// Reads the list whole: whole characters a read, so no read ends on half of one; lines end in
// CR LF or LF; the last line counts without a line end; a NUL ends its entry only. `first` is
// the first byte of text counting from 1: 3 behind the byte-order mark, 1 without one.
void TallyUnicodeList(RunContext& ctx, const std::string& path, const std::string& missingLog,
                      int64_t first, std::string& stage) {
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
  constexpr int64_t kChunk = 2048;  // even: a read never splits a character
  stage = "Initializing last position";
  int64_t position = first;
  stage = "Initializing line length";
  stage = "Determining length of file";
  const int64_t length = lseek(fd, 0, SEEK_END);
  if (length < 0) throw SystemError(errno);
  bool cancelled = false;
  auto takeLine = [&](std::u16string line) {
    if (!line.empty() && line.back() == u'\r') line.pop_back();
    stage = "Splitting line by tabs";
    stage = "Grabbing first tab-delimited chunk";
    const std::string field = Trim(Utf16ToUtf8(line.substr(0, line.find(u'\t'))));
    if (!EndsAtNul(ctx, field, missingLog, true, stage)) {
      TallyListEntry(ctx, field, missingLog, true, stage, cancelled);
    }
  };
  while (!cancelled) {
    stage = "Checking last position and file size loop conditions";
    if (position > length) break;
    stage = "Setting size of byte array";
    const int64_t want = std::min(kChunk, length - position + 1);
    std::vector<unsigned char> bytes(static_cast<size_t>(want), 0);
    stage = "Reading " + IntText(want) + " bytes beginning at " + IntText(position) +
            " from file of " + IntText(length) + " bytes.";
    const ssize_t got = pread(fd, bytes.data(), bytes.size(), position - 1);
    if (got < 0) throw SystemError(errno);
    if (got == 0) break;
    position += got;
    stage = "Setting input from byte array";
    // A stray last byte is half a character: nothing to read.
    std::u16string text = remainder;
    for (ssize_t i = 0; i + 1 < got; i += 2) {
      text += static_cast<char16_t>(bytes[i] | (bytes[i + 1] << 8));
    }
    stage = "Extracting lines from input";
    size_t start = 0;
    for (size_t end = text.find(u'\n'); !cancelled && end != std::u16string::npos;
         end = text.find(u'\n', start)) {
      stage = "Looping through lines";
      takeLine(text.substr(start, end - start));
      start = end + 1;
    }
    stage = "Setting new remainder string";
    remainder = text.substr(std::min(start, text.size()));
  }
  stage = "Checking for last line chunk";
  if (!cancelled && !remainder.empty()) takeLine(remainder);
}

// A list saved as UTF-16 without its byte-order mark: its first character is plain text with a
// zero high byte. Read as plain text it would give "/" for every line.
bool LooksLikeUtf16WithoutMark(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  unsigned char head[4] = {0, 0, 0, 0};
  const ssize_t n = pread(fd, head, sizeof head, 0);
  close(fd);
  return n == 4 && head[0] != 0 && head[1] == 0 && head[2] != 0 && head[3] == 0;
}

}  // namespace

void TallyFileList(RunContext& ctx, const std::string& entry) {
  std::string stage;
  try {
    const std::string path = FileListPath(entry);
    const std::string missingLog = SideLog(ctx, "error", "flist_err");
    if (IsUnicodeFile(path)) {
      TallyUnicodeList(ctx, path, missingLog, 3, stage);
    } else if (LooksLikeUtf16WithoutMark(path)) {
      TallyUnicodeList(ctx, path, missingLog, 1, stage);
    } else {
      TallyPlainList(ctx, path, missingLog, stage);
    }
  } catch (const RunError& err) {
    ctx.WriteSilentLog("File List Tally Error:\r\n" + IntText(err.number()) + ": " +
                       err.description() + "\r\nStage: " + stage);
  }
}

}  // namespace qr
