#include "copy/target_paths.h"

#include <sys/stat.h>

#include <cerrno>
#include <vector>

#include "platform/confined_io.h"
#include "platform/errors.h"
#include "platform/file_times.h"
#include "platform/logs.h"
#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "run/run_context.h"

namespace qr {

namespace {

// The "(n)" counter is a signed 16-bit number: past its last value the routine gives up.
constexpr int kLastCollisionNumber = 32767;

RunError InvalidArgument() { return RunError(5, "Invalid procedure call or argument"); }
RunError Overflow() { return RunError(6, "Overflow"); }
RunError SubscriptOutOfRange() { return RunError(9, "Subscript out of range"); }

// Up to the last separator, exclusive. A text without one can't be cut.
std::string CutAtLastSep(const std::string& s) {
  const size_t p = s.rfind(kSep);
  if (p == std::string::npos) throw InvalidArgument();
  return s.substr(0, p);
}

// After the first separator; the whole text when there is none.
std::string AfterFirstSep(const std::string& s) {
  const size_t p = s.find(kSep);
  return p == std::string::npos ? s : s.substr(p + 1);
}

bool BeginsWithDoubleSep(const std::string& s) {
  return s.size() >= 2 && s[0] == kSep && s[1] == kSep;
}

using Levels = std::vector<std::string>;

// A level by number; one that isn't there is a failure of the routine, not an empty name.
const std::string& Level(const Levels& levels, long i) {
  if (i < 0 || i >= static_cast<long>(levels.size())) throw SubscriptOutOfRange();
  return levels[static_cast<size_t>(i)];
}

// Levels 0 through `last` joined by separators. The first level is the root: an empty one
// stands for "/" and still takes the separator after it, so the result stays absolute.
std::string JoinLevels(const Levels& levels, long last) {
  std::string out = Level(levels, 0);
  for (long i = 1; i <= last; ++i) {
    out += kSep;
    out += Level(levels, i);
  }
  return out;
}

std::string ErrorFacts(const RunError& e) {
  return std::to_string(e.number()) + " : " + e.description();
}

// The form without a source: every missing level below the first is created.
int32_t CreateLevels(RunContext& ctx, const std::string& targetFolder) {
  const Levels a = Split(WithoutTrailingSep(targetFolder), kSepText);
  int32_t result = 0;
  std::string level = a.empty() ? std::string() : a[0];
  for (size_t i = 1; i < a.size(); ++i) {
    level += kSep;
    level += a[i];
    if (!FolderExistsNoFollow(level)) result = CreateOneDirectory(ctx, level);
  }
  return result;
}

// The form with a source. S, the path below which each new level's source folder is looked up,
// comes from comparing the two paths level by level; its quirks are kept as they are, since the
// folder pass stamps every target folder from its own record afterwards in any case.
int32_t CreateLevelsFromSource(RunContext& ctx, const std::string& targetFolder,
                               const std::string& sourceFolder) {
  const std::string target = WithoutTrailingSep(targetFolder);
  const std::string source = WithoutTrailingSep(sourceFolder);
  const Levels a = Split(target, kSepText);
  const Levels b = Split(source, kSepText);
  const long n = static_cast<long>(a.size()) - 1;
  const long m = static_cast<long>(b.size()) - 1;
  GoDebug("Original Path: " + source);
  GoDebug("Output Path: " + target);
  GoDebug("==>a(0) = " + Level(a, 0));
  GoDebug("==>b(0) = " + Level(b, 0));
  GoDebug("==>sizeof(a) = " + IntText(n));
  GoDebug("==>sizeof(b) = " + IntText(m));

  std::string s;
  if (n != m) {
    GoDebug("==> Going backward through b looking for discrepancy");
    // No early exit: each later mismatch overwrites the position.
    long p = 0;
    for (long i = 0; i <= m; ++i) {
      if (i >= n) {
        p = 0;
      } else if (Level(b, m - i) != Level(a, n - i)) {
        p = n - i;
      }
    }
    GoDebug("==> Discrepency found at position " + IntText(p));
    GoDebug("==> Building new path");
    if (p > 0) s = JoinLevels(a, p);
    GoDebug("==> New Path: " + s);
  } else {
    GoDebug("==> Start Matching Paths");
    if (n > 0) {
      long i = 0;
      bool goOn = true;
      do {
        s = i == 0 ? Level(b, 0) : s + kSep + Level(b, i);
        ++i;
        // Both sides are read before the range test: once every level differs, the read one
        // past the end ends the routine before anything is created.
        const bool differs = Level(a, i) != Level(b, i);
        goOn = differs && i <= n;
      } while (goOn);
    }
    GoDebug("==> End Matching Paths");
  }
  // A share-style start keeps a single separator.
  if (BeginsWithDoubleSep(s)) s.erase(0, 1);

  int32_t result = 0;
  // The times in hand: a source folder that can't be read leaves the last ones read.
  FileTimes times;
  for (long i = 1; i <= n; ++i) {
    std::string x = Level(a, 0);
    std::string y;
    for (long j = 1; j <= i; ++j) {
      x += kSep;
      x += Level(a, j);
      y += kSep;
      y += Level(a, j);
      if (!FolderExistsNoFollow(x)) {
        GetFileTimes(ctx, s + y, times);
        result = CreateOneDirectory(ctx, x);
        // Stamped at once, so the new folder never shows the moment of its creation.
        SetFileTimes(ctx, x, times);
      }
    }
  }
  return result;
}

}  // namespace

std::string GetTargetFolder(RunContext& ctx, const std::string& givenFolder) {
  const JobSettings& settings = ctx.settings;
  // No "." or ".." part of a source may reach the target's text: a mapped path stays below the
  // target root.
  const std::string sourceFolder = LexicallyClean(givenFolder);
  try {
    const std::string& t = settings.TargetPath;
    std::string result;
    if (settings.FullPaths) {
      GoDebug("          Creating full target path");
      std::string p = sourceFolder;
      if (BeginsWithDoubleSep(p)) {
        // A share path: the server name stays as a folder only with Root Folders on.
        p.erase(0, 2);
        if (!settings.RootFolders) p = AfterFirstSep(p);
      } else {
        // A local path has no drive to keep as a folder, so Root Folders changes nothing.
        p = AfterFirstSep(p);
      }
      result = CutAtLastSep(WithTrailingSep(t) + p);
    } else {
      // The parent of the source root; a root without a separator has none, and the whole
      // source folder is kept below the target.
      const std::string r = ParentFolder(LexicallyClean(ctx.counters.CurrentSourceRoot));
      result = WithTrailingSep(t);
      size_t start = r.size();
      if (start < sourceFolder.size() && sourceFolder[start] == kSep) ++start;
      if (start < sourceFolder.size()) result += sourceFolder.substr(start);
      result = CutAtLastSep(result);
    }
    if (!settings.FullPaths && !settings.CreateSubs) result = t;
    return WithTrailingSep(result);
  } catch (const RunError& e) {
    ReportFailure(ctx,
                  "Cannot determine target file path for:" + std::string(kCrLf) + givenFolder +
                      std::string(kCrLf) + ErrorFacts(e),
                  Icon::Exclamation,
                  "Cannot determine target folder for " + givenFolder + " : " + ErrorFacts(e));
    return std::string();
  }
}

std::string GetTargetFilePath(RunContext& ctx, const std::string& givenPath) {
  std::string stage;
  const std::string sourceFilePath = LexicallyClean(givenPath);
  try {
    stage = "Determining file name segment";
    const size_t slash = sourceFilePath.rfind(kSep);
    const std::string name =
        slash == std::string::npos ? sourceFilePath : sourceFilePath.substr(slash + 1);
    stage = "Determining directory segment";
    const std::string folder =
        slash == std::string::npos ? std::string() : sourceFilePath.substr(0, slash + 1);
    stage = "Calling GetTargetFolder";
    std::string result = GetTargetFolder(ctx, folder);
    stage = "Appending file name to destination path";
    result += name;
    if (ctx.settings.Collision == kCollisionRename) {
      stage = "Determining collision rename";
      result = GetCollisionName(ctx, result);
    }
    return result;
  } catch (const RunError& e) {
    ReportFailure(ctx,
                  "Cannot determine target file path for:" + std::string(kCrLf) + givenPath +
                      std::string(kCrLf) + ErrorFacts(e) + std::string(kCrLf) + "Stage: " + stage,
                  Icon::Exclamation,
                  "Cannot determine target file path for " + givenPath + " : " +
                      ErrorFacts(e) + std::string(kCrLf) + "Stage: " + stage);
    return std::string();
  }
}

bool TargetNameTaken(RunContext& ctx, const std::string& path) {
  return FileExists(path, &ctx) || NonFolderEntryExists(path);
}

std::string GetCollisionName(RunContext& ctx, const std::string& path) {
  if (!TargetNameTaken(ctx, path)) return path;
  try {
    // 1-based positions, 0 for "none". Only a dot of the name itself starts an extension: one
    // in a folder name would leave no free name, and the copy would overwrite.
    const size_t slashAt = path.rfind(kSep);
    size_t dotAt = path.rfind('.');
    if (slashAt != std::string::npos && dotAt != std::string::npos && dotAt < slashAt) {
      dotAt = std::string::npos;
    }
    const long slash = slashAt == std::string::npos ? 0 : static_cast<long>(slashAt) + 1;
    const long dot = dotAt == std::string::npos ? 0 : static_cast<long>(dotAt) + 1;
    const std::string folder = path.substr(0, static_cast<size_t>(slash));
    std::string base;
    std::string extension;
    if (dot > 0) {
      const long baseLength = dot - slash - 1;
      if (baseLength < 0) throw InvalidArgument();
      base = path.substr(static_cast<size_t>(slash), static_cast<size_t>(baseLength));
      extension = path.substr(static_cast<size_t>(dot - 1));
    } else {
      base = path.substr(static_cast<size_t>(slash));
    }
    for (int n = 1; n <= kLastCollisionNumber; ++n) {
      std::string candidate = folder + base + "(" + std::to_string(n) + ")" + extension;
      if (!TargetNameTaken(ctx, candidate)) return candidate;
    }
    throw Overflow();
  } catch (const RunError&) {
    return path;
  }
}

int32_t CreateOneDirectory(RunContext& ctx, const std::string& path) {
  int32_t result = 0;
  const std::string folder = WithoutTrailingSep(path);
  try {
    // A failed creation is a result, not a report: the transfer then fails and the
    // verification record says so.
    result = MakeFolder(LongPathPrefix(folder), 0777);
  } catch (const RunError& e) {
    ReportFailure(ctx,
                  "Cannot create directory:" + std::string(kCrLf) + folder + std::string(kCrLf) +
                      ErrorFacts(e),
                  Icon::Exclamation, "Cannot create directory " + folder + " : " + ErrorFacts(e));
  }
  return result;
}

int32_t CreateTargetDirs(RunContext& ctx, const std::string& targetFolder,
                         const std::string& sourceFolder) {
  try {
    if (Trim(sourceFolder).empty()) return CreateLevels(ctx, targetFolder);
    return CreateLevelsFromSource(ctx, targetFolder, sourceFolder);
  } catch (const RunError&) {
    return -1;
  }
}

}  // namespace qr
