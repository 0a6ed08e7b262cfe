#include "ui/main_window.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstddef>

#include "exec/resume.h"
#include "exec/run_driver.h"
#include "jobdef/settings_files.h"
#include "jobdef/source_list.h"
#include "platform/path_layer.h"
#include "platform/process.h"
#include "platform/text.h"
#include "platform/utf8.h"

namespace qr {

namespace {

// The text without its last character, counted as Utf8CharCount counts: a well-formed
// sequence, or one byte of none. Empty text stays empty.
std::string WithoutLast(const std::string& s) {
  size_t last = 0;
  for (size_t i = 0; i < s.size();) {
    last = i;
    char32_t c = 0;
    const size_t length = DecodeUtf8(s, i, c);
    i += length == 0 ? 1 : length;
  }
  return s.substr(0, last);
}

void Add(RunContext& ctx, std::string path) { AddSource(ctx, path); }

// Runs one of the two ways into ExecCopy; the form keeps still meanwhile.
template <typename Start>
bool RunGuarded(MainForm& f, Start start) {
  if (f.inRun) return false;
  f.inRun = true;
  std::optional<ExecResult> result = start();
  f.inRun = false;
  if (result && result->endProgram) f.endedByRun = true;
  return f.endedByRun;
}

constexpr int kTwipsPerPixel = 15;

}  // namespace

std::optional<std::string> TargetFollowsLog(const std::string& newTarget,
                                            const std::string& logText) {
  if (Utf8CharCount(newTarget) <= 1) return std::nullopt;
  if (logText == newTarget) return std::nullopt;
  if (logText == WithoutLast(newTarget) || newTarget == WithoutLast(logText)) return newTarget;
  return std::nullopt;
}

void txtTargetPath_Change(RunContext& ctx, const std::string& text) {
  ctx.settings.TargetPath = text;
  if (std::optional<std::string> log = TargetFollowsLog(text, ctx.settings.LogPath)) {
    ctx.settings.LogPath = *log;
  }
}

void txtLogPath_Change(RunContext& ctx, const std::string& text) { ctx.settings.LogPath = text; }

bool SourcesEditable(const MainForm& f) { return !f.inRun; }

void cmdAdd_Click(RunContext& ctx, MainForm& f) {
  if (!SourcesEditable(f)) return;
  std::string folder = ctx.dialogs.PickFolder("Add a Source Directory", "");
  if (!folder.empty()) Add(ctx, folder);
}

void mnuAddManual_Click(RunContext& ctx, MainForm& f) {
  if (!SourcesEditable(f)) return;
  std::optional<std::string> typed =
      ctx.dialogs.InputBox("Type the path you wish to add.", "Add Path Manually", "/");
  if (typed && !typed->empty()) Add(ctx, *typed);
}

bool mnuAddSourceFiles_Click(const MainForm& f) { return SourcesEditable(f); }

void mnuAddFromList_Click(RunContext& ctx, MainForm& f) {
  if (!SourcesEditable(f)) return;
  std::string list = ctx.dialogs.OpenFile("Select a file list", "All file lists (*.*)|*.*", "");
  if (!list.empty()) ctx.settings.Sources.push_back("[File List] " + list);
}

void cmdRemove_Click(RunContext& ctx, MainForm& f) {
  if (!SourcesEditable(f)) return;
  std::vector<std::string>& sources = ctx.settings.Sources;
  std::vector<int> rows = f.lstSourcesSelected;
  std::sort(rows.begin(), rows.end());
  rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
  rows.erase(
      std::remove_if(rows.begin(), rows.end(),
                     [&](int r) { return r < 0 || static_cast<size_t>(r) >= sources.size(); }),
      rows.end());
  f.lstSourcesSelected.clear();
  if (rows.empty()) return;
  for (auto it = rows.rbegin(); it != rows.rend(); ++it) sources.erase(sources.begin() + *it);
  if (sources.empty()) return;
  f.lstSourcesSelected = {std::min(rows.front(), static_cast<int>(sources.size()) - 1)};
}

void FormDropped(RunContext& ctx, MainForm& f, const std::vector<std::string>& paths) {
  if (!SourcesEditable(f)) return;
  for (const std::string& p : paths) {
    if (!Trim(p).empty()) Add(ctx, p);
  }
}

void cmdBrowseTarget_Click(RunContext& ctx, MainForm& f) {
  if (f.inRun) return;
  std::string folder = ctx.dialogs.PickFolder("Choose a Target Directory", ctx.settings.TargetPath);
  if (!folder.empty()) txtTargetPath_Change(ctx, folder);
}

void cmdBrowseLogPath_Click(RunContext& ctx, MainForm&) {
  std::string folder = ctx.dialogs.PickFolder("Choose a Path for Log Files", ctx.settings.LogPath);
  if (!folder.empty()) txtLogPath_Change(ctx, folder);
}

bool cmdRun_Click(RunContext& ctx, MainForm& f) {
  return RunGuarded(f, [&]() -> std::optional<ExecResult> { return ExecCopy(ctx); });
}

bool mnuResume_Click(RunContext& ctx, MainForm& f) {
  return RunGuarded(f, [&] { return ResumeClick(ctx); });
}

void cmdCancel_Click(RunContext& ctx, MainForm&) { ctx.counters.CancelRequested = true; }

void mnuSaveDefault_Click(RunContext& ctx) { SaveDefaults(ctx); }

bool frmMain_QueryUnload(RunContext& ctx, MainForm& f) {
  if (!f.inRun) return true;
  ctx.counters.CancelRequested = true;
  return false;
}

void mnuRavelinHelp_Click(RunContext& ctx, const std::string& opener) {
  const std::string& help = ctx.program.app.helpPath;
  if (!FileExists(help)) {
    ctx.Message("The help document could not be found:\r\n" + help, Icon::Exclamation);
    return;
  }
  StartResult started = StartHidden({opener, help});
  if (!started.started) {
    ctx.Message("The help document could not be opened: the program " + opener +
                    ", which opens documents on this desktop, could not be started.\r\n\r\n"
                    "The document is at " +
                    help,
                Icon::Exclamation);
    return;
  }
  // The opener hands the document to the desktop and ends; nobody waits for it.
  AbandonChild(started.pid);
}

std::string AboutText(const RunContext& ctx, const std::string& qtVersion) {
  return ctx.program.titleText + "\r\n" + "Version " + ctx.program.versionText + "\r\n\r\n" + "Qt " + qtVersion +
         "\r\n" + "SQLite " + sqlite3_libversion() + "\r\n\r\n" +
         "Quillon Ravelin: all rights reserved by its authors.\r\n"
         "Qt is used under the GNU Lesser General Public License version 3; SQLite is in the "
         "public domain.";
}

void mnuAboutRavelin_Click(RunContext& ctx, const std::string& qtVersion) {
  ctx.dialogs.MessageBox(AboutText(ctx, qtVersion), "About Quillon Ravelin", Icon::Information,
                         Buttons::Ok);
}

void KeepGeometry(WindowGeometry& geometry, int leftPx, int topPx, int widthPx, int heightPx) {
  geometry.leftTwips = leftPx * kTwipsPerPixel;
  geometry.topTwips = topPx * kTwipsPerPixel;
  geometry.widthTwips = widthPx * kTwipsPerPixel;
  geometry.heightTwips = heightPx * kTwipsPerPixel;
}

}  // namespace qr
