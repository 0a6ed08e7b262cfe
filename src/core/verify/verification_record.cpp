#include "verify/verification_record.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <optional>

#include "jobdb/job_database.h"
#include "platform/dates.h"
#include "platform/errors.h"
#include "platform/file_times.h"
#include "platform/logs.h"
#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/plain_text.h"
#include "platform/text.h"
#include "platform/times_io.h"
#include "platform/unicode_text.h"
#include "run/job_settings.h"
#include "run/run_context.h"
#include "verify/hash_file.h"

namespace qr {

namespace {

// Times that differ by no more than this are "the same moment, kept imperfectly": they clear the
// exact match and are counted. Anything further apart is flagged instead.
constexpr int64_t kToleranceSeconds = 3;
// A target path this long, in system code page bytes, is past the 255-byte limit that many
// tools and file systems still keep; such paths are listed for the user.
constexpr size_t kLongPathBytes = 255;

// One side of the record: what its directory entry and its times show.
struct Side {
  bool found = false;
  bool timesRead = false;  // the times came from the hashing step (or the run-wide copies)
  FileTimes times;
  LocalDateTime created, accessed, modified;
  std::string createdText = "N/A";
  std::string modifiedText = "N/A";
  std::string accessedText = "N/A";
  std::string sizeText = "N/A";
};

int64_t SecondsApart(const LocalDateTime& a, const LocalDateTime& b) {
  const int64_t d = SecondsBetween(a, b);
  return d < 0 ? -d : d;
}

// The writer only says that it failed; the reason is asked of the file system again with the
// same open, so the handler can name it.
[[noreturn]] void ThrowAppendFailure(const std::string& path) {
  // Never through a link, and a FIFO can't stall the diagnosis.
  const int fd = ::open(LongPathPrefix(path).c_str(),
                        O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) throw SystemError(errno);
  ::close(fd);
  throw SystemError(EIO);
}

void AppendUnicodeLine(RunContext& ctx, const std::string& path, const std::string& text) {
  if (!AppendUnicodeText(path, text, false, &ctx)) ThrowAppendFailure(path);
}

void AppendPlainLine(const std::string& path, const std::string& text) {
  int err = 0;
  if (!AppendLine(path, text, &err)) throw SystemError(err != 0 ? err : EIO);
}

}  // namespace

std::string VerificationHeader(const JobSettings& s) {
  std::string h = "Date/Time Copied,";
  if (s.HashSource && s.HashDest) h += "Hashes Match,";
  h += "TS Exact Match,Long Path,Source Path,Source Created Date,Source Modified Date,"
       "Source Access Date,Source Size,";
  if (s.HashSource) h += "Source MD5,";
  h += "Dest Path,Dest Created Date,Dest Modified Date,Dest Access Date,Dest Size,";
  if (s.HashDest) h += "Dest MD5,";
  h += "Error Messages";
  return h;
}

std::string CsvEncapsulate(RunContext& ctx, std::string& text) {
  try {
    // One left-to-right pass removes every CR LF; the blank left behind can't form a new one,
    // so the second pass the record asks for has nothing left to find.
    std::string out = ReplaceAll(text, "\r\n", " ");
    // Inner double quotes are left as they are, as this log has always written them.
    if (out.find(',') != std::string::npos) out = "\"" + out + "\"";
    text = out;
  } catch (const std::exception& e) {
    const std::string number = IntText(kInternalErrorNumber);
    ReportFailure(
        ctx,
        "Cannot form encapsulation string for:\r\n\r\n" + text + "\r\n\r\n" + number + " : " +
            e.what(),
        Icon::Exclamation,
        "Cannot form encapsulation string for (" + text + "). " + number + " : " + e.what());
  }
  return text;
}

namespace {

// Empty when the source still carries the access and modification times read before the row
// began, put back where they had moved; otherwise the words of its record.
std::string SourceTimesNotKept(RunContext& ctx, const std::string& sourcePath) {
  const FileTimes& before = ctx.file.sourceTimes;
  FileTimes now;
  auto kept = [&] {
    return GetFileTimes(ctx, sourcePath, now) == 0 ||
           (now.accessed == before.accessed && now.modified == before.modified);
  };
  if (kept()) return std::string();
  SetFileTimes(ctx, sourcePath, before);
  if (kept()) return std::string();
  return now.modified != before.modified
             ? "Source times changed and could not be set back"
             : "Source access time changed and could not be set back";
}

}  // namespace

std::string VerificationDate(FileTime t) { return GeneralDate(LocalFromFileTime(t)); }

void WriteVerificationRecord(RunContext& ctx, std::string& sourcePath, std::string& targetPath,
                             const std::string& knownSourceHash, const std::string& /*unused*/) {
  const JobSettings& s = ctx.settings;
  std::string stage;
  // The path shown is the caller's, quoted by now if it holds a comma.
  auto report = [&](int number, const std::string& description) {
    const std::string n = IntText(number);
    ReportFailure(ctx,
                  "Logging Error:\r\n" + sourcePath + "\r\n" + n + " : " + description +
                      "\r\n\r\nStage = " + stage,
                  Icon::Critical, "Logging Error (" + n + ":" + description + "): stage: " + stage);
  };
  try {
    stage = "Setting security params";
    stage = "Initializing variables";
    bool exactMatch = true;
    bool timestampFlagged = false;
    bool error = false;
    bool unableToHashSource = false;
    bool unableToHashDest = false;
    Side source;
    Side dest;
    std::string sourceHash;
    std::string destHash;
    std::string errorString;

    stage = "Determining File Name";
    const std::string fileName = NamePart(sourcePath);

    // A large copy is hashed on a second thread while its source is hashed on this one: the
    // copy's times are read just before, as they would be just after, since hashing the source
    // does not touch the copy.
    std::optional<HashAhead> destAhead;
    FileTimes destAheadTimes;

    if (ctx.file.copyFailed) {
      // The transfer failed, so the source may have been disturbed: the times read before it are
      // the true ones, and a hash of the source would prove nothing about a copy.
      source.times.created = ctx.file.FCT;
      source.times.accessed = ctx.file.FLAT;
      source.times.modified = ctx.file.FLMT;
      source.timesRead = true;
    } else {
      stage = "Hashing source";
      if (s.HashSource) {
        stage = "Hash source: set progress";
        ctx.progress.lblCurrentProcess = "Current Process: Hashing source file";
        ctx.pump.Pump();
        stage = "Hash source: get times";
        FileTimes t;
        source.timesRead = GetFileTimes(ctx, sourcePath, t) == 1;
        stage = "Hash source: set SourceCT";
        source.times.created = t.created;
        stage = "Hash source: set SourceLAT";
        source.times.accessed = t.accessed;
        stage = "Hash source: set SourceLMT";
        source.times.modified = t.modified;
        if (s.HashDest && knownSourceHash.empty() && ctx.file.size >= HashAhead::kMinimumSize &&
            GetFileTimes(ctx, targetPath, destAheadTimes) == 1) {
          destAhead.emplace(targetPath);
        }
        stage = "Hash source: hash";
        // A digest the caller already holds is not computed a second time.
        // The times just read are the ones the hash puts back; an entry that was not found
        // is looked for again.
        if (!knownSourceHash.empty()) {
          sourceHash = knownSourceHash;
        } else {
          sourceHash = source.timesRead ? HashFileAfterTimes(ctx, sourcePath, t) : HashFile(ctx, sourcePath);
        }
        stage = "Hash source: set flags";
        if (Trim(sourceHash).empty()) {
          error = true;
          unableToHashSource = true;
        }
      }
    }

    // Reading a file moves its access time unless the reader owns it (or holds the right to
    // act as its owner), and only such a reader may put it back: a source whose times could
    // not be kept says so.
    stage = "Checking source times";
    std::string timesNotKept;
    if (ctx.file.sourceTimesRead) timesNotKept = SourceTimesNotKept(ctx, sourcePath);

    stage = "srcHash/hashSource";
    stage = "Hash dest";
    if (s.HashDest) {
      stage = "Hash dest: update progress";
      ctx.progress.lblCurrentProcess = "Current Process: Hashing destination file";
      ctx.pump.Pump();
      stage = "Hash dest: get times";
      FileTimes t;
      if (destAhead) {
        t = destAheadTimes;
        dest.timesRead = true;
      } else {
        dest.timesRead = GetFileTimes(ctx, targetPath, t) == 1;
      }
      stage = "Hash dest: set DestCT";
      dest.times.created = t.created;
      stage = "Hash dest: set DestLAT";
      dest.times.accessed = t.accessed;
      stage = "Hash dest: set DestLMT";
      dest.times.modified = t.modified;
      stage = "Hash dest: Hash dest";
      if (destAhead) {
        destHash = destAhead->Finish(ctx, t);
      } else {
        destHash =
            dest.timesRead ? HashFileAfterTimes(ctx, targetPath, t) : HashFile(ctx, targetPath);
      }
      stage = "Hash dest: set flags";
      if (Trim(destHash).empty()) {
        error = true;
        unableToHashDest = true;
      }
    }
    stage = "destHash/hashDest";

    stage = "Setting log path";
    std::string csvPath = s.LogPath;
    stage = "Modifying log path";
    csvPath = WithTrailingSep(csvPath);
    stage = "Appending log path";
    csvPath += "_verification_log.csv";
    stage = "Appending error path";

    // With a hash box off nothing read the times before, so the entry's own are shown.
    auto translate = [](Side& side, const FindData& entry) {
      side.found = true;
      side.sizeText = SizeText(entry.sizeHigh, entry.sizeLow);
      if (!side.timesRead) {
        side.times.created = entry.creationTime;
        side.times.accessed = entry.lastAccessTime;
        side.times.modified = entry.lastWriteTime;
      }
      side.created = LocalFromFileTime(side.times.created);
      side.accessed = LocalFromFileTime(side.times.accessed);
      side.modified = LocalFromFileTime(side.times.modified);
    };

    stage = "Zeroing memory";
    FindData entry;
    stage = "Setting ff pointer";
    if (FindEntry(LongPathPrefix(sourcePath), entry)) {
      stage = "Calculating source size";
      translate(source, entry);
      stage = "Source: Translating Creation Time";
      source.createdText = GeneralDate(source.created);
      stage = "Source: Translating Last Access Time";
      source.accessedText = GeneralDate(source.accessed);
      stage = "Source: Translating Last Modify Time";
      source.modifiedText = GeneralDate(source.modified);
      stage = "Source: closing ff handle";
    }

    stage = "Zeroing memory 2";
    entry = FindData{};
    stage = "Setting file pointer to destination file";
    if (FindEntry(LongPathPrefix(targetPath), entry)) {
      stage = "Calculating dest size";
      translate(dest, entry);
      stage = "Dest: Translating Creation Time";
      dest.createdText = GeneralDate(dest.created);
      stage = "Dest: Translating Last Access Time";
      dest.accessedText = GeneralDate(dest.accessed);
      stage = "Dest: Translating Last Modify Time";
      dest.modifiedText = GeneralDate(dest.modified);
      stage = "Dest: Closing file handle";
    }

    stage = "Inserting current time into CSV string";
    std::string now = GeneralDate(ToLocal(Clock::now()));
    std::string line = CsvEncapsulate(ctx, now) + ",";

    stage = "Comparing hashes for match";
    // An empty hash proves nothing: two of them are no match.
    if (s.HashSource && s.HashDest) {
      line += sourceHash == destHash && !Trim(sourceHash).empty() ? "Y," : "N,";
    }

    if (dest.found) {
      // A side that was not found shows "N/A": it has no date to compare, as a blank text has
      // none. Differences are taken from the same one-second values the columns show.
      const bool dated = source.found;
      // Most file systems here cannot be given a creation time, so the copy's can never equal
      // its source's: that is not a finding, and must not hide the other two comparisons.
      const bool creationKept = CanSetCreationTime(targetPath, entry.device);
      stage = "Comparing creation times for match";
      if (creationKept && LowHalf(source.times.created) != LowHalf(dest.times.created)) {
        stage = "Calculating creation time difference";
        if (dated) {
          stage = "Checking creation time discrepancy tolerance";
          if (SecondsApart(source.created, dest.created) > kToleranceSeconds) {
            stage = "Reporting creation timestamps within tolerance";
            timestampFlagged = true;
          } else {
            stage = "Reporting creation timestamp discrepancy";
            exactMatch = false;
            stage = "Incrementing time stamp discrepancy count for creation time discrepancy";
            ++ctx.counters.TimestampMismatches;
          }
        } else {
          timestampFlagged = true;
        }
      }
      if (!timestampFlagged) {
        stage = "Comparing last access times for match";
        if (LowHalf(source.times.accessed) != LowHalf(dest.times.accessed)) {
          stage = "Calculating last access time difference";
          if (dated) {
            stage = "Checking access time discrepancy tolerance";
            if (SecondsApart(source.accessed, dest.accessed) > kToleranceSeconds) {
              stage = "Reporting access timestamps within tolerance";
              timestampFlagged = true;
            } else {
              stage = "Checking prior state for access timestamps";
              if (exactMatch) {
                stage = "Updating access timestamp state";
                exactMatch = false;
                stage = "Incrementing time stamp discrepency count 2";
                ++ctx.counters.TimestampMismatches;
              }
            }
          } else {
            timestampFlagged = true;
          }
        }
      }
      if (!timestampFlagged) {
        stage = "Comparing last mod times for match";
        if (LowHalf(source.times.modified) != LowHalf(dest.times.modified)) {
          stage = "Calculating last mod time difference";
          if (dated) {
            if (SecondsApart(source.modified, dest.modified) > kToleranceSeconds) {
              timestampFlagged = true;
            } else if (exactMatch) {
              exactMatch = false;
              stage = "Incrementing time stamp discrepency count 3";
              ++ctx.counters.TimestampMismatches;
            }
          } else {
            timestampFlagged = true;
          }
        }
      }
    }

    // A source that no longer carries its own times matches nothing exactly.
    if (!timesNotKept.empty()) exactMatch = false;
    stage = "Adding 'Exact Match' value to CSV";
    line += exactMatch ? "Y," : "N,";

    stage = "Checking for long destination path";
    if (targetPath.size() >= kLongPathBytes) {
      stage = "Long path: Output 'Y' to CSV";
      line += "Y,";
      stage = "Opening pointer to _longpaths.log";
      const std::string longPathsLog = BesideErrorLog(ctx.paths.ErrorLogPath, "_longpaths.log");
      stage = "Outputting file path to _longpaths.log";
      AppendPlainLine(longPathsLog, targetPath);
      stage = "Closing pointer to _longpaths.log";
    } else {
      line += "N,";
    }

    stage = "Compiling source info to CSV string";
    line += CsvEncapsulate(ctx, sourcePath) + "," + CsvEncapsulate(ctx, source.createdText) + "," +
            CsvEncapsulate(ctx, source.modifiedText) + "," +
            CsvEncapsulate(ctx, source.accessedText) + "," + CsvEncapsulate(ctx, source.sizeText) +
            ",";
    stage = "Inserting source hash value into CSV string";
    if (s.HashSource) line += CsvEncapsulate(ctx, sourceHash) + ",";
    stage = "Compiling dest info to CSV string";
    line += CsvEncapsulate(ctx, targetPath) + "," + CsvEncapsulate(ctx, dest.createdText) + "," +
            CsvEncapsulate(ctx, dest.modifiedText) + "," + CsvEncapsulate(ctx, dest.accessedText) +
            "," + CsvEncapsulate(ctx, dest.sizeText) + ",";
    stage = "Inserting dest hash value into CSV string";
    if (s.HashDest) line += CsvEncapsulate(ctx, destHash) + ",";

    auto fault = [&](const std::string& words) {
      error = true;
      errorString += "(" + words + ") ";
      ctx.progress.listErrors.push_back(fileName + " (" + words + ")");
    };
    // The program's own transfer failed: its reason is the finding, never a source in use.
    if (ctx.file.copyFailed) {
      const std::string& why = ctx.file.copyFailure;
      fault(why.empty() ? std::string("Copy failed") : "Copy failed: " + why);
    }
    if (!timesNotKept.empty()) fault(timesNotKept);
    if (!source.found) fault("Source file not found");
    if (!dest.found) fault("Destination file not found");
    if (unableToHashSource) fault("Unable to hash source");
    if (unableToHashDest) fault("Unable to hash destination");
    // Size and hash verdicts also go straight into the line, ahead of the error string, so the
    // last column carries them twice: the layout this log has always had.
    if (source.sizeText != dest.sizeText) {
      fault("File size mismatch");
      line += "(File size mismatch) ";
    }
    if (s.HashSource && s.HashDest && sourceHash != destHash && !ctx.file.copyFailed) {
      if (Trim(sourceHash).empty()) {
        fault("Unable to validate. Source file in use.");
        line += "(Unable to validate. Source file in use.) ";
      } else {
        fault("Hash values do not match");
        line += "(Hash values do not match) ";
      }
    }

    stage = "Appending error reasons to output string";
    line += errorString;
    stage = "Appending line break to output string";
    line += "\r\n";
    stage = "Outputting CSV string to CSV file";
    if (!ctx.verificationLog.Append(csvPath, line, &ctx)) ThrowAppendFailure(csvPath);

    if (error) {
      stage = "Creating free file integer for log";
      if (!s.SeparateTS || !timestampFlagged) {
        const std::string& errorLog = ctx.paths.ErrorLogPath;
        stage = "Checking for existing error log 1";
        if (!FileExists(errorLog, &ctx)) {
          stage = "Initializing error log 1";
          if (!CreateUnicodeFile(errorLog)) {
            const int err = errno;
            throw SystemError(err != 0 ? err : EIO);
          }
        }
        stage = "Appending to error log 1";
        AppendUnicodeLine(ctx, errorLog, sourcePath + "\t" + errorString + "\r\n");
      } else {
        stage = "Opening discrepency log for output";
        const std::string& discrepancyLog = ctx.paths.TimestampLogPath;
        ctx.failures.timestampLogWritten = true;
        stage = "Outputting to discrepency log";
        AppendPlainLine(discrepancyLog, sourcePath + "\t" + errorString);
        stage = "Closing discrepency log";
      }

      // With SeparateTS on, a record whose timestamps were flagged went to the discrepancy log
      // and is not one of the run's errors.
      if (!timestampFlagged) {
        stage = "Incrementing error count (TS)";
        ++ctx.counters.ErrorCount;
        if (ctx.counters.ErrorCount > 0) {
          stage = "Updating progress caption for error count (TS)";
          ctx.progress.lblErrorCount = IntText(ctx.counters.ErrorCount);
        }
      } else if (!s.SeparateTS) {
        stage = "Incrementing error count (No TS)";
        ++ctx.counters.ErrorCount;
        if (ctx.counters.ErrorCount > 0) {
          stage = "Updating progress caption for error count (No TS)";
          ctx.progress.lblErrorCount = IntText(ctx.counters.ErrorCount);
        }
      }
    }

    stage = "Resetting 'Current Progress' caption in progress window";
    ctx.progress.lblCurrentProcess = "Current Process: ";
  } catch (const RunError& e) {
    report(e.number(), e.description());
  } catch (const std::exception& e) {
    report(kInternalErrorNumber, e.what());
  }
}

}  // namespace qr
