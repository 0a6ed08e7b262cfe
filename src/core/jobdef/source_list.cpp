#include "jobdef/source_list.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <vector>

#include "platform/drives.h"
#include "platform/find_data.h"
#include "platform/machine.h"
#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "run/run_context.h"

namespace qr {

namespace {

// A trailing separator is cut, but a root stays a root.
void NormaliseFolder(std::string& p) {
  if (p.size() > 1 && p.back() == kSep) p.pop_back();
}

// The tests take the path before normalising, with case-sensitive substring searches; so the
// same folder added twice is listed twice, and a path given with a trailing separator finds no
// contained entries. The same rule serves job files and users alike.
void AddFolder(RunContext& ctx, std::string& p) {
  std::vector<std::string>& sources = ctx.settings.Sources;
  std::vector<std::string> contained;
  bool insideAnEntry = false;
  const std::string asParent = p + kSep;
  for (const auto& e : sources) {
    if (IsFileList(e)) continue;
    if (e.find(asParent) != std::string::npos) {
      if (FileOrDirExists("", e)) {
        contained.push_back(e);
      } else if (FileExists(e)) {
        std::string rest = ReplaceAll(e, p, "");
        if (!rest.empty() && rest[0] == kSep) contained.push_back(e);
      }
    }
    if (p.find(e + kSep) != std::string::npos) insideAnEntry = true;
  }
  if (insideAnEntry) {
    ctx.Message(
        "A directory containing the directory you have chosen has already been added to the "
        "source list. This directory will not be added.",
        Icon::Information);
    return;
  }
  if (!contained.empty()) {
    Answer a = ctx.Message(
        "One or more directories in the source list are contained in the directory you have "
        "chosen. Would you like to replace these with the one you have chosen?",
        Icon::Question, Buttons::OkCancel);
    if (a != Answer::Ok) return;
    for (const auto& c : contained) std::erase(sources, c);
  }
  NormaliseFolder(p);
  sources.push_back(p);
}

void AddFile(RunContext& ctx, const std::string& p) {
  std::vector<std::string>& sources = ctx.settings.Sources;
  // The entry is searched without a trailing separator, so a folder /abc also refuses a file
  // /abcdef.txt.
  bool contained = std::any_of(sources.begin(), sources.end(), [&p](const std::string& e) {
    return !IsFileList(e) && p.find(e) != std::string::npos && FileOrDirExists("", e);
  });
  if (contained) {
    ctx.Message(
        "A directory containing the file you have chosen has already been added to the source "
        "list. This file will not be added.",
        Icon::Information);
    return;
  }
  sources.push_back(p);
}

// --- Source keywords -------------------------------------------------------------------------

// The mount points that hold the program, the target and the log folder: a collection never
// reads the drive it runs from, nor the one it writes to. An empty path holds nothing.
std::string HoldingMountPoint(const std::string& path) {
  return Trim(path).empty() ? std::string() : MountPointOf(path);
}

std::string ProgramFolderOf(const RunContext& ctx) {
  return ctx.program.app.programFolder.empty() ? ProgramFolder()
                                       : WithoutTrailingSep(ctx.program.app.programFolder);
}

// Drives are added as their mount points, straight to the list: AddSource's nesting rules
// would refuse "/home" beside "/", though the walk never crosses from one file system into
// another.
void AddDrives(RunContext& ctx, bool remote, const std::string& targetPath,
               const std::string& logPath) {
  std::vector<std::string> leftOut = {HoldingMountPoint(ProgramFolderOf(ctx))};
  if (!remote) {
    leftOut.push_back(HoldingMountPoint(targetPath));
    leftOut.push_back(HoldingMountPoint(logPath));
  }
  for (const Drive& d : MountedDrives()) {
    const bool wanted = remote ? d.type == DriveType::Remote
                               : d.type == DriveType::Removable || d.type == DriveType::Fixed ||
                                     d.type == DriveType::RamDisk;
    if (!wanted) continue;
    // An empty card reader, or a mount this user may not list, is passed over.
    if (!FileOrDirExists("", d.mountPoint)) continue;
    if (std::find(leftOut.begin(), leftOut.end(), d.mountPoint) != leftOut.end()) continue;
    ctx.settings.Sources.push_back(d.mountPoint);
  }
}

std::string CurrentHome() {
  if (const char* home = std::getenv("HOME"); home != nullptr && home[0] != '\0') return home;
  const struct passwd* pw = getpwuid(geteuid());
  return pw != nullptr && pw->pw_dir != nullptr ? pw->pw_dir : "";
}

// The documents folder of a home: XDG_DOCUMENTS_DIR from its user-dirs.dirs, else Documents.
// A value that is the home itself means "no documents folder" there, and is not taken.
std::string DocumentsFolder(const std::string& home, const std::string& configFolder) {
  const std::string fallback = WithTrailingSep(home) + "Documents";
  std::ifstream in(WithTrailingSep(configFolder) + "user-dirs.dirs");
  std::string line;
  while (std::getline(in, line)) {
    line = Trim(line);
    const std::string key = "XDG_DOCUMENTS_DIR=";
    if (line.compare(0, key.size(), key) != 0) continue;
    std::string value = line.substr(key.size());
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
      value = value.substr(1, value.size() - 2);
    }
    if (value.compare(0, 5, "$HOME") == 0) {
      value = WithoutTrailingSep(home) + value.substr(5);
    }
    // Only an absolute path is valid in that file.
    if (value.empty() || value[0] != kSep) continue;
    if (WithoutTrailingSep(value) == WithoutTrailingSep(home)) continue;
    return WithoutTrailingSep(value);
  }
  return fallback;
}

std::string CurrentUserDocuments() {
  const std::string home = CurrentHome();
  if (home.empty()) return {};
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  const std::string config =
      xdg != nullptr && xdg[0] == kSep ? std::string(xdg) : WithTrailingSep(home) + ".config";
  return DocumentsFolder(home, config);
}

void OfferFolder(RunContext& ctx, std::string folder) {
  if (!folder.empty() && FileOrDirExists("", folder)) AddSource(ctx, folder);
}

void AddUserFolders(RunContext& ctx) {
  ctx.dialogs.MessageBox("Got Here", "", Icon::None, Buttons::Ok);
  std::vector<std::string> homes;
  {
    FolderListing listing("/home");
    FindData entry;
    while (listing.Next(entry)) {
      if (entry.name == "." || entry.name == ".." || !entry.IsDirectory()) continue;
      homes.push_back("/home/" + entry.name);
    }
  }
  std::sort(homes.begin(), homes.end());
  // root's home is looked into only where it can be listed: as root, or where it is open.
  if (FileOrDirExists("", "/root")) homes.push_back("/root");
  for (const std::string& home : homes) {
    OfferFolder(ctx, DocumentsFolder(home, home + "/.config"));
  }
}

}  // namespace

void AddSource(RunContext& ctx, std::string& path) {
  // Taken at once: a keyword compares the drives with the target and log as they stand now.
  const std::string targetPath = ctx.settings.TargetPath;
  const std::string logPath = ctx.settings.LogPath;
  const std::string trimmed = Trim(path);
  if (trimmed.empty()) return;
  if (IsFileList(path)) {
    ctx.settings.Sources.push_back(path);
    return;
  }
  if (FileOrDirExists("", path)) {
    AddFolder(ctx, path);
  } else if (FileExists(path) || SpecialFileExists(path)) {
    // A special file is listed like a file: the run then records it as an error of its own.
    AddFile(ctx, path);
  } else if (trimmed == "[LDrive]" || trimmed == "[MDrive]" || trimmed == "[UserFolder]" ||
             trimmed == "[UserFolders]") {
    // A failure inside a scan ends it quietly; what it found so far stays listed.
    try {
      if (trimmed == "[LDrive]") {
        AddDrives(ctx, false, targetPath, logPath);
      } else if (trimmed == "[MDrive]") {
        AddDrives(ctx, true, targetPath, logPath);
      } else if (trimmed == "[UserFolder]") {
        OfferFolder(ctx, CurrentUserDocuments());
      } else {
        AddUserFolders(ctx);
      }
    } catch (const std::exception&) {
    }
  } else if (!ctx.program.flags.silent) {
    ctx.Message(path + "\r\n\r\nThe path you have specified cannot be found on this machine.",
                Icon::Exclamation);
  }
}

}  // namespace qr
