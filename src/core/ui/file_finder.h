#pragma once
// The logic of "Add File(s) as Sources": picks single files out of one folder for the main
// window's source list. Listing a folder moves its access time, so every folder listed and every
// file shown has its times read first and written back afterwards.
#include <functional>
#include <string>
#include <vector>

#include "platform/file_times.h"
#include "run/run_context.h"

namespace qr {

struct FileFinderForm {
  // The mounted local file systems, by mount point, and the one the tree shows.
  std::vector<std::string> dDrives;
  int dDrivesIndex = -1;
  // The folder chosen in the tree: the root of the tree is the chosen drive.
  std::string dDirs;
  std::string txtSourceFolder;
  std::vector<std::string> lstFiles;
  std::vector<int> lstFilesSelected;
  bool visible = false;
};

// A folder's (or file's) created, accessed and modified times. False when they could not be
// read: a failure other than absence shows "GetFileTime Error: ".
bool GetFolderTimes(RunContext& ctx, const std::string& folder, FileTimes& times);
// Writes them back; a failure other than absence shows "Time set failure:".
void SetFolderTimes(RunContext& ctx, const std::string& folder, const FileTimes& times);

// The finder's load: the drive list, the tree on the drive that holds `startFolder` (the root
// when none does), the file list empty until a folder is chosen.
void frmFileFind_Load(FileFinderForm& f, const std::string& startFolder);

// Rebuilds lstFiles from txtSourceFolder: every entry of the folder that isn't a folder, by
// name. A folder that can't be listed leaves the list empty; a denied one says so.
void FillFileList(RunContext& ctx, FileFinderForm& f);

// The subfolders of `folder` for the tree, sorted by name, with the folder's times put back.
// The tree asks for one level as a person opens it.
std::vector<std::string> ListSubfolders(RunContext& ctx, const std::string& folder);

// A folder browser titled "Choose a Source Folder"; a folder chosen is listed.
void cmdSourceBrowse_Click(RunContext& ctx, FileFinderForm& f);
// A folder chosen in the tree goes to txtSourceFolder and is listed.
void dDirs_Change(RunContext& ctx, FileFinderForm& f, const std::string& folder);
// The tree moves to the chosen drive, which is then listed; a drive that can't be read says why and
// the choice goes back to the last good drive.
void dDrives_Change(RunContext& ctx, FileFinderForm& f, int index);
// A folder typed by hand is listed.
void txtSourceFolder_Change(RunContext& ctx, FileFinderForm& f, const std::string& text);

// Each selected file, in list order, goes to `addSource`. The finder stays open and keeps its
// selection, so that more can be added.
void OKButton_Click(const FileFinderForm& f,
                    const std::function<void(const std::string&)>& addSource);
// "Finished": hides the finder.
void CancelButton_Click(FileFinderForm& f);

}  // namespace qr
