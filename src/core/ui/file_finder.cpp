#include "ui/file_finder.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/drives.h"
#include "platform/errors.h"
#include "platform/find_data.h"
#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "platform/times_io.h"

namespace qr {

namespace {

std::string ErrorText(int err) { return std::to_string(err) + " : " + std::strerror(err); }

// The entries of a folder, its own times put back afterwards. False with errno in `error` when
// the folder could not be listed.
bool ListFolder(RunContext& ctx, const std::string& folder, std::vector<FindData>& entries,
                int& error) {
  FileTimes times;
  const bool timesRead = GetFolderTimes(ctx, folder, times);
  bool listed = false;
  {
    FolderListing listing(LongPathPrefix(folder));
    if (listing.ok()) {
      listed = true;
      FindData entry;
      while (listing.Next(entry)) {
        if (entry.name != "." && entry.name != "..") entries.push_back(entry);
      }
    } else {
      error = listing.error();
    }
  }
  if (timesRead) SetFolderTimes(ctx, folder, times);
  // A listing comes in the file system's own order; a person looks for a name alphabetically.
  std::sort(entries.begin(), entries.end(),
            [](const FindData& a, const FindData& b) { return a.name < b.name; });
  return listed;
}

}  // namespace

bool GetFolderTimes(RunContext& ctx, const std::string& folder, FileTimes& times) {
  FindData entry;
  int err = 0;
  if (FindEntry(LongPathPrefix(WithoutTrailingSep(folder)), entry, &err)) {
    times.created = entry.creationTime;
    times.accessed = entry.lastAccessTime;
    times.modified = entry.lastWriteTime;
    return true;
  }
  if (!IsPlainAbsence(err)) {
    ctx.Message("GetFileTime Error: " + std::string(kCrLf) + std::string(kCrLf) + ErrorText(err),
                Icon::Exclamation);
  }
  return false;
}

void SetFolderTimes(RunContext& ctx, const std::string& folder, const FileTimes& times) {
  int err = 0;
  if (WriteFileTimes(LongPathPrefix(WithoutTrailingSep(folder)), times.created, times.accessed,
                     times.modified, &err)) {
    return;
  }
  if (!IsPlainAbsence(err)) {
    ctx.Message("Time set failure:" + std::string(kCrLf) + std::string(kCrLf) + ErrorText(err),
                Icon::Exclamation);
  }
}

void frmFileFind_Load(FileFinderForm& f, const std::string& startFolder) {
  f.dDrives.clear();
  for (const Drive& d : MountedDrives()) {
    if (d.type != DriveType::Remote) f.dDrives.push_back(d.mountPoint);
  }
  // The drive that holds the start folder is the longest mount point it lies under.
  int best = -1;
  for (size_t i = 0; i < f.dDrives.size(); ++i) {
    const std::string root = WithTrailingSep(f.dDrives[i]);
    const bool holds = WithTrailingSep(startFolder).rfind(root, 0) == 0;
    if (holds && (best < 0 || f.dDrives[i].size() > f.dDrives[static_cast<size_t>(best)].size())) {
      best = static_cast<int>(i);
    }
  }
  if (best < 0 && !f.dDrives.empty()) best = 0;
  f.dDrivesIndex = best;
  f.dDirs = best < 0 ? std::string(kSepText) : f.dDrives[static_cast<size_t>(best)];
  f.lstFiles.clear();
  f.lstFilesSelected.clear();
}

void FillFileList(RunContext& ctx, FileFinderForm& f) {
  f.lstFiles.clear();
  f.lstFilesSelected.clear();
  if (Trim(f.txtSourceFolder).empty()) return;
  const std::string folder = WithTrailingSep(f.txtSourceFolder);
  std::vector<FindData> entries;
  int err = 0;
  if (!ListFolder(ctx, folder, entries, err)) {
    if (err == EACCES) {
      ctx.Message("You do not appear to have proper permissions to access this folder: " +
                      std::string(kCrLf) + std::string(kCrLf) + folder,
                  Icon::Exclamation);
    }
    return;
  }
  for (const FindData& entry : entries) {
    if (entry.IsDirectory()) continue;
    // Looking a file up does not move its times; they are still put back, so that nothing the
    // finder touches is left otherwise than it was found.
    const std::string path = folder + entry.name;
    FileTimes times;
    const bool timesRead = GetFolderTimes(ctx, path, times);
    f.lstFiles.push_back(entry.name);
    if (timesRead) SetFolderTimes(ctx, path, times);
  }
}

std::vector<std::string> ListSubfolders(RunContext& ctx, const std::string& folder) {
  std::vector<FindData> entries;
  int err = 0;
  std::vector<std::string> names;
  if (!ListFolder(ctx, WithTrailingSep(folder), entries, err)) return names;
  for (const FindData& entry : entries) {
    // A link to a folder or another file system's root is shown, as the walk names them, but a
    // person opens it like any folder.
    if (entry.IsDirectory()) names.push_back(entry.name);
  }
  return names;
}

void cmdSourceBrowse_Click(RunContext& ctx, FileFinderForm& f) {
  const std::string chosen = ctx.dialogs.PickFolder("Choose a Source Folder", f.txtSourceFolder);
  if (chosen.empty()) return;
  f.txtSourceFolder = chosen;
  FillFileList(ctx, f);
}

void dDirs_Change(RunContext& ctx, FileFinderForm& f, const std::string& folder) {
  f.dDirs = folder;
  f.txtSourceFolder = folder;
  FillFileList(ctx, f);
}

void dDrives_Change(RunContext& ctx, FileFinderForm& f, int index) {
  if (index < 0 || static_cast<size_t>(index) >= f.dDrives.size()) return;
  const std::string& drive = f.dDrives[static_cast<size_t>(index)];
  FindData entry;
  int err = 0;
  if (!FindEntry(LongPathPrefix(drive), entry, &err) || !entry.IsDirectory()) {
    ctx.Message(ErrorText(err == 0 ? ENOTDIR : err), Icon::Exclamation);
    return;  // the last good drive stays chosen
  }
  f.dDrivesIndex = index;
  // The tree's move to the drive is a change of the tree like any other.
  dDirs_Change(ctx, f, drive);
}

void txtSourceFolder_Change(RunContext& ctx, FileFinderForm& f, const std::string& text) {
  f.txtSourceFolder = text;
  FillFileList(ctx, f);
}

void OKButton_Click(const FileFinderForm& f,
                    const std::function<void(const std::string&)>& addSource) {
  const std::string folder = WithTrailingSep(f.txtSourceFolder);
  std::vector<int> rows = f.lstFilesSelected;
  std::sort(rows.begin(), rows.end());
  for (int row : rows) {
    if (row >= 0 && static_cast<size_t>(row) < f.lstFiles.size()) {
      addSource(folder + f.lstFiles[static_cast<size_t>(row)]);
    }
  }
}

void CancelButton_Click(FileFinderForm& f) { f.visible = false; }

}  // namespace qr
