#include "copy/file_pipeline.h"

#include <fcntl.h>
#include <stdio.h>

#include <cmath>

#include "copy/native_transfer.h"
#include "copy/robocopy_engine.h"
#include "copy/target_paths.h"
#include "platform/confined_io.h"
#include "platform/errors.h"
#include "platform/file_times.h"
#include "platform/find_data.h"
#include "platform/logs.h"
#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/plain_text.h"
#include "platform/text.h"
#include "platform/times_io.h"
#include "platform/unicode_text.h"
#include "run/run_context.h"
#include "verify/verification_record.h"

namespace qr {

std::string QuoteIfSpaces(const std::string& text) {
  return text.find(' ') == std::string::npos ? text : "\"" + text + "\"";
}

void ShellRenameFile(const std::string& from, const std::string& to) {
  RenameNoReplace(LongPathPrefix(from), LongPathPrefix(to));
}

namespace {

// The last `n` characters of a path, as the short-name test counts them.
std::optional<std::string> LastCharacters(const std::string& text, size_t n) {
  std::u16string units = Utf8ToUtf16(text);
  if (units.size() < n + 1) return std::nullopt;
  return Utf16ToUtf8(units.substr(units.size() - n));
}

// Megabytes as the progress caption counts them: by 1024 and then by 1000, rounded.
int64_t CaptionMegabytes(int64_t bytes) {
  return static_cast<int64_t>(std::nearbyint(static_cast<double>(bytes) / 1024.0 / 1000.0));
}

// The same block wherever a copy is counted as done.
void CountCopiedFile(RunContext& ctx, int64_t size) {
  RunCounters& c = ctx.counters;
  ++c.FilesProcessed;
  if (c.FilesProcessed < c.TotalFiles && c.TotalFiles > 0) {
    ctx.progress.Progress_Set(static_cast<int>(int64_t{c.FilesProcessed} * 100 / c.TotalFiles));
  }
  c.BytesProcessed += size;
  ctx.progress.lblFilesCopied =
      "Files Copied: " + IntText(c.FilesProcessed - c.HashExcludedFiles - c.ErrorCount + 1);
}

// Only the low halves are compared: a time that differs in its high half alone leaves the
// run-wide copy as it was.
void Globalize(FileTime& global, FileTime current) {
  if (static_cast<uint32_t>(global) != static_cast<uint32_t>(current)) global = current;
}

}  // namespace

void ProcessFileRow(RunContext& ctx, std::string& sourcePath, std::string& targetPath,
                    int64_t& size, int64_t /*key*/) {
  const JobSettings& s = ctx.settings;
  std::string stage;
  try {
    stage = "Initializing vars";
    ctx.file.copyFailed = false;
    ctx.file.copyFailure.clear();
    ctx.file.sourceTimesRead = false;
    ctx.file.size = size;
    bool shortName = false;
    // A source named through a symbolic link: every look through the link moves the link's own
    // access time, so its times are put back, the link not followed, whatever becomes of the row.
    struct LinkTimes {
      std::string path;
      FileTime accessed = 0;
      FileTime modified = 0;
      bool isLink = false;
      ~LinkTimes() {
        if (isLink) WriteLinkTimes(AT_FDCWD, path, accessed, modified);
      }
    } linkTimes{sourcePath};
    linkTimes.isLink = ReadLinkTimes(AT_FDCWD, sourcePath, linkTimes.accessed, linkTimes.modified);

    // A source named like a generated short name is written under a temporary name first and
    // gets its own name back after the transfer.
    stage = "Checking for 8.3";
    if (auto tail = LastCharacters(sourcePath, 12); tail && MatchesShortNamePattern(*tail)) {
      shortName = true;
      targetPath += ".tmp";
    }

    stage = "Setting source folder path";
    std::string sourceFolder = ParentFolder(sourcePath);

    // The collision test at copy time, whatever its stage says.
    stage = "Checking flavor for deNist, dedupe processing";
    if (s.Collision == kCollisionRename && TargetNameTaken(ctx, targetPath)) {
      targetPath = GetTargetFilePath(ctx, sourcePath);
    }

    // "Do Nothing" holds here too: a target that came to exist after the walk (two sources on
    // one flat name, a list entry onto an existing file) is left alone and listed. A link there,
    // even a dangling one, exists too: it is listed, never followed nor replaced.
    // The first row of a resumed queue is the one a kill may have left half copied: its target
    // is its own, and is written again.
    if (s.Collision == kCollisionDoNothing && !ctx.file.rowMayBeHalfCopied) {
      const std::string finalTarget =
          shortName ? targetPath.substr(0, targetPath.size() - 4) : targetPath;
      FindData existing;
      if (FindEntry(LongPathPrefix(finalTarget), existing) || NonFolderEntryExists(finalTarget)) {
        int err = 0;
        if (!AppendLine(SideLogPath(ctx.paths.ErrorLogPath, "_error", "_existing"), sourcePath,
                        &err)) {
          throw SystemError(err);
        }
        return;
      }
    }

    stage = "Getting host folder timestamps";
    FileTimes folderTimes;
    GetFileTimes(ctx, sourceFolder, folderTimes);
    stage = "Determining source file timestamps";
    FileTimes fileTimes;
    ctx.file.sourceTimesRead = GetFileTimes(ctx, sourcePath, fileTimes) == 1;
    ctx.file.sourceTimes = fileTimes;

    stage = "Globalizing FCT";
    Globalize(ctx.file.FCT, fileTimes.created);
    stage = "Globalizing FLAT";
    Globalize(ctx.file.FLAT, fileTimes.accessed);
    stage = "Globalizing FLMT";
    Globalize(ctx.file.FLMT, fileTimes.modified);

    stage = "Building RC string";
    std::string command = "ROBOCOPY ";

    stage = "Determining directories and file names";
    const std::string targetFolder = ParentFolder(targetPath);
    sourceFolder = ParentFolder(sourcePath);
    const std::string fileName = NamePart(sourcePath);

    stage = "Updating current file";
    ctx.progress.lblCurrentFile = "Current File: " + fileName;
    stage = "Updating Size Progress";
    const RunCounters& c = ctx.counters;
    ctx.progress.lblStatus =
        "Processed " + IntText(c.FilesProcessed) + " of " + IntText(c.TotalFiles) + " files (" +
        IntText(CaptionMegabytes(c.BytesProcessed + c.ResumeBaseBytes)) + " of " +
        IntText(CaptionMegabytes(c.TotalBytes)) + " MB)";
    stage = "Updating Current Path";
    ctx.progress.lblCurrentPath = "Current Path: " + sourceFolder;

    stage = "Detecting collision";
    if (targetFolder == sourceFolder) {
      ctx.ShowMessage("Directory collision detected. Copy aborted.\r\n\r\nSource File:\r\n" +
                      sourceFolder + kSep + fileName + "\r\n\r\nDestination File:\r\n" +
                      targetFolder + kSep + fileName,
                  Icon::Critical);
      return;
    }

    const std::string flags = s.ManualFlags ? s.ManualFlagsText : GetOptionString(s);
    command = "ROBOCOPY " + QuoteIfSpaces(sourceFolder) + " " + QuoteIfSpaces(targetFolder) +
              " " + QuoteIfSpaces(fileName) + " " + flags;

    // New folders get their stamps as they are created, and again from the folder pass.
    stage = "Checking whether this file is to be processed";
    if (!FolderExistsNoFollow(targetFolder)) {
      stage = "Recursively create target directories";
      CreateTargetDirs(ctx, targetFolder, sourceFolder);
    }

    if (s.Robocopy) {
      RunRobocopyProcess(ctx, command,
                         RobocopyArguments(sourceFolder, targetFolder, fileName, flags));
      if (FileExists(targetPath)) {
        CountCopiedFile(ctx, size);
      } else if (CopyFileManual(ctx, sourcePath, targetPath) ||
                 CopyFileWithProgress(ctx, sourcePath, targetPath)) {
        CountCopiedFile(ctx, size);
      }
    }
    if (s.Ravelin) {
      // Nothing has touched the source since its times were read (the external engine, which
      // may have, runs only in the other branch); a source not found is looked for again.
      const bool copied = ctx.file.sourceTimesRead && !s.Robocopy
                              ? CopyFileWithProgressAfterTimes(ctx, sourcePath, targetPath, fileTimes)
                              : CopyFileWithProgress(ctx, sourcePath, targetPath);
      if (copied) {
        CountCopiedFile(ctx, size);
      } else {
        ctx.file.copyFailed = true;
      }
    }

    if (shortName) {
      const std::string finalPath = targetPath.substr(0, targetPath.size() - 4);
      ShellRenameFile(targetPath, finalPath);
      targetPath = finalPath;
    }

    if (s.CreateLog) {
      stage = "Creating Log Entry";
      WriteVerificationRecord(ctx, sourcePath, targetPath, "", "");
    }

    // The target's times are written after every action that could change them.
    stage = "Target Set TS";
    SetFileTimes(ctx, targetPath, fileTimes);
    stage = "Source Roll TS";
    SetFileTimes(ctx, sourcePath, fileTimes);
    stage = "Set Target File TS";
    SetFileTimes(ctx, targetPath, fileTimes);
    stage = "Roll Source Folder TS";
    SetFileTimes(ctx, sourcePath, fileTimes);
    stage = "Set High-Order Target Folder TS";
    SetFileTimes(ctx, targetFolder, folderTimes);
    ctx.file.copyFailed = false;
  } catch (const std::exception& e) {
    const RunError* re = dynamic_cast<const RunError*>(&e);
    const std::string number = IntText(re ? re->number() : kInternalErrorNumber);
    const std::string description = re ? re->description() : e.what();
    if (!s.Silent) {
      ctx.ShowMessage("File DB processing error:\r\n" + sourcePath + "\r\n" + number + " : " +
                          description,
                      Icon::Exclamation);
    } else {
      ctx.WriteSilentLog("File DB processing error: " + sourcePath + " : " + number + " : " +
                         description);
    }
    ctx.progress.skipEnabled = false;
  }
}

}  // namespace qr
