#pragma once
// The logic of the main window that is not drawing: its menu, toolbar and button actions, the
// target that carries the log path along, dropped paths, help, about and the window's place.
// The sources and the two paths themselves are JobSettings'; what a run changes of the window
// (caption, enabled controls) is the run context's.
#include <optional>
#include <string>
#include <vector>

#include "run/run_context.h"

namespace qr {

// What the main window holds besides the settings and the run's view of it.
struct MainForm {
  // Rows of lstSources that are selected, in ascending order.
  std::vector<int> lstSourcesSelected;
  // ExecCopy is on the stack (a run, or a resume). Meanwhile no second run starts and the
  // source list keeps still: the run walks it.
  bool inRun = false;
  // A run ended the program (-silent, -q): the settings are not saved then.
  bool endedByRun = false;
};

// Called on each change of the target text. While the two boxes differ by one trailing
// character (typing or deleting at the end of the target), the log text takes the new target
// text; the returned value is that new log text, nullopt when the log stays. A target of one
// character or less never carries the log along. Texts are UTF-8, characters counted as
// Utf8CharCount counts them.
std::optional<std::string> TargetFollowsLog(const std::string& newTarget,
                                            const std::string& logText);

// The two path boxes, as typed or set: the target carries the log along (TargetFollowsLog).
void txtTargetPath_Change(RunContext& ctx, const std::string& text);
void txtLogPath_Change(RunContext& ctx, const std::string& text);

// True while the source list may change: not during a run.
bool SourcesEditable(const MainForm& f);

// cmdAdd, mnuAddSource, tbAddSource: a folder chosen goes to AddSource.
void cmdAdd_Click(RunContext& ctx, MainForm& f);
// mnuAddManual: a typed path (or keyword) goes to AddSource.
void mnuAddManual_Click(RunContext& ctx, MainForm& f);
// mnuAddSourceFiles, tbAddFiles: true when the file finder is to be shown, whose files then go
// to AddSource; never while a run holds the sources.
bool mnuAddSourceFiles_Click(const MainForm& f);
// mnuAddFromList, tbAddList: a file list is listed as it is, without AddSource's tests.
void mnuAddFromList_Click(RunContext& ctx, MainForm& f);
// Removes the selected entries, then selects the entry now at the first removed position, or
// the last entry when that position is past the end; an emptied list selects nothing.
void cmdRemove_Click(RunContext& ctx, MainForm& f);
// Files and folders dropped on the window or its controls: each path whose trimmed text is
// not empty goes to AddSource, in drop order.
void FormDropped(RunContext& ctx, MainForm& f, const std::vector<std::string>& paths);

// cmdBrowseTarget, mnuChooseTargetFolder, tbPickTarget; and cmdBrowseLogPath.
void cmdBrowseTarget_Click(RunContext& ctx, MainForm& f);
void cmdBrowseLogPath_Click(RunContext& ctx, MainForm& f);

// cmdRun: ExecCopy. mnuResume, tbResume: ResumeClick. Neither starts while a run is under way.
// True when the run ended the program (-silent, -q).
bool cmdRun_Click(RunContext& ctx, MainForm& f);
bool mnuResume_Click(RunContext& ctx, MainForm& f);
void cmdCancel_Click(RunContext& ctx, MainForm& f);

// mnuSaveDefault: "Save Current Options as Default".
void mnuSaveDefault_Click(RunContext& ctx);

// Closing the window: allowed outside a run; during one it asks the run to stop instead, and
// the window stays until the run has ended.
bool frmMain_QueryUnload(RunContext& ctx, MainForm& f);

// mnuRavelinHelp, tbHelp: the help document opened by the desktop's opener (`opener`, a
// program on the search path, given the document's path). A missing document or opener is
// said in a box.
void mnuRavelinHelp_Click(RunContext& ctx, const std::string& opener = "xdg-open");

// The about box: title text, version, the versions of Qt (given by the window program, as the
// core has no Qt) and SQLite, and the licence.
std::string AboutText(const RunContext& ctx, const std::string& qtVersion);
void mnuAboutRavelin_Click(RunContext& ctx, const std::string& qtVersion);

// The window's normal place and size, in pixels, kept in twips (15 to a pixel) for the
// settings written at close.
void KeepGeometry(WindowGeometry& geometry, int leftPx, int topPx, int widthPx, int heightPx);

}  // namespace qr
