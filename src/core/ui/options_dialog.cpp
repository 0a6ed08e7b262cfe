#include "ui/options_dialog.h"

#include <algorithm>

#include "jobdef/settings_files.h"
#include "platform/errors.h"
#include "platform/text.h"

namespace qr {

namespace {

using E = JobSettings::Enabled;

void AddPattern(std::string& box, std::vector<std::string>& list) {
  if (Trim(box).empty()) return;
  list.push_back(box);
  box.clear();
}

void RemoveSelected(std::vector<int>& selected, std::vector<std::string>& list) {
  std::sort(selected.begin(), selected.end());
  selected.erase(std::unique(selected.begin(), selected.end()), selected.end());
  for (auto it = selected.rbegin(); it != selected.rend(); ++it) {
    if (*it >= 0 && static_cast<size_t>(*it) < list.size()) list.erase(list.begin() + *it);
  }
  selected.clear();
}

}  // namespace

const std::array<OptionCheck, 34> kOptionChecks = {{
    // frameGeneralOptions
    {"chkCreateSubs", &JobSettings::CreateSubs, nullptr, &E::CreateSubs},
    {"chkCreateHashList", &JobSettings::CreateHashList, nullptr, &E::CreateHashList},
    {"chkSkipDupes", &JobSettings::SkipDupes, nullptr, &E::SkipDupes},
    {"chkSkipSysFolders", &JobSettings::SkipSysFolders, nullptr, nullptr},
    {"chkSkipSystem", &JobSettings::SkipSystem, nullptr, nullptr},
    {"chkSkipTemp", &JobSettings::SkipTemp, nullptr, nullptr},
    {"chkHashFilter", &JobSettings::HashFilter, nullptr, &E::HashFilter},
    {"chkCreateTally", &JobSettings::CreateTally, nullptr, nullptr},
    {"chkCreateFileList", &JobSettings::CreateFileList, nullptr, nullptr},
    {"chkCopyFiles", &JobSettings::CopyFiles, nullptr, nullptr},
    {"chkCopySubs", &JobSettings::CopySubs, nullptr, nullptr},
    {"chkCopyEmpties", &JobSettings::CopyEmpties, nullptr, nullptr},
    {"chkSeparateTS", &JobSettings::SeparateTS, nullptr, nullptr},
    {"chkCreateLog", &JobSettings::CreateLog, &SetCreateLog, nullptr},
    {"chkHashSource", &JobSettings::HashSource, nullptr, &E::HashSource},
    {"chkHashDest", &JobSettings::HashDest, nullptr, &E::HashDest},
    {"chkSilent", &JobSettings::Silent, nullptr, nullptr},
    {"chkFullPaths", &JobSettings::FullPaths, &SetFullPaths, nullptr},
    {"chkRootFolders", &JobSettings::RootFolders, nullptr, &E::RootFolders},
    // frameRVoptions
    {"chkRavelin", &JobSettings::Ravelin, &SetRavelin, nullptr},
    {"chkSearchCreated", &JobSettings::SearchCreated, nullptr, nullptr},
    {"chkSearchModified", &JobSettings::SearchModified, nullptr, nullptr},
    {"chkSearchAccessed", &JobSettings::SearchAccessed, nullptr, nullptr},
    // frameRCOptions
    {"chkRobocopy", &JobSettings::Robocopy, &SetRobocopy, &E::Robocopy},
    {"chkManualFlags", &JobSettings::ManualFlags, &SetManualFlags, nullptr},
    {"chkCopyBackup", &JobSettings::CopyBackup, &SetCopyBackup, &E::RobocopyFlagBoxes},
    {"chkCopyRestartable", &JobSettings::CopyRestartable, &SetCopyRestartable,
     &E::RobocopyFlagBoxes},
    {"chkCopyZB", &JobSettings::CopyZB, &SetCopyZB, &E::RobocopyFlagBoxes},
    {"chkCopyData", &JobSettings::CopyData, nullptr, &E::RobocopyFlagBoxes},
    {"chkCopyAttributes", &JobSettings::CopyAttributes, nullptr, &E::RobocopyFlagBoxes},
    {"chkCopyTimestamps", &JobSettings::CopyTimestamps, nullptr, &E::RobocopyFlagBoxes},
    {"chkCopySecurity", &JobSettings::CopySecurity, nullptr, &E::RobocopyFlagBoxes},
    {"chkCopyOwner", &JobSettings::CopyOwner, nullptr, &E::RobocopyFlagBoxes},
    {"chkCopyAudit", &JobSettings::CopyAudit, nullptr, &E::RobocopyFlagBoxes},
}};

const std::array<OptionText, 11> kOptionTexts = {{
    {"txtExtensions", &JobSettings::Extensions, nullptr},
    {"txtExtListFile", &JobSettings::ExtListFile, nullptr},
    {"txtStartMonth", &JobSettings::StartMonth, nullptr},
    {"txtStartDay", &JobSettings::StartDay, nullptr},
    {"txtStartYear", &JobSettings::StartYear, nullptr},
    {"txtEndMonth", &JobSettings::EndMonth, nullptr},
    {"txtEndDay", &JobSettings::EndDay, nullptr},
    {"txtEndYear", &JobSettings::EndYear, nullptr},
    {"txtManualFlags", &JobSettings::ManualFlagsText, &E::ManualFlagsText},
    {"txtStartEx", &JobSettings::StartCommand, nullptr},
    {"txtShellEx", &JobSettings::EndCommand, nullptr},
}};

void OptionCheck_Click(JobSettings& s, const OptionCheck& box, bool on) {
  if (box.rule != nullptr) {
    box.rule(s, on);
  } else {
    s.*box.field = on;
  }
}

bool OptionEnabled(const JobSettings& s, bool JobSettings::Enabled::*enabled) {
  return enabled == nullptr || s.enabled.*enabled;
}

void FillOptionsForm(OptionsForm& f) {
  if (f.cboOptionTypes.empty()) {
    // The three pages a person needs most come first; the pattern and scripting pages follow,
    // so that the lists read from job files and settings can be seen and edited too.
    f.cboOptionTypes = {"General Options",
                        "Ravelin Options",
                        "Robocopy Options",
                        "File Name Inclusion Patterns",
                        "Exclusion Patterns",
                        "Scripting Options"};
    cboOptionTypes_Click(f, 0);
  }
  if (f.cboCollision.empty()) {
    f.cboCollision = {"Do Nothing", "Overwrite Existing File", "Rename File"};
  }
  if (f.cboExtension.size() < 2) {
    f.cboExtension = {"Copy only these extensions", "Do not copy these extensions"};
  }
  f.lblDirections =
      "Supported wildcard characters:\r\n"
      "? - Any single character\r\n"
      "* - Zero or more characters\r\n"
      "# - Any single digit\r\n"
      "[List of characters] - Any character in the list\r\n"
      "[!List of characters] - Any character not in the list\r\n"
      "\r\n"
      "List syntaxes may contain either a simple list ([1a7v]) or a range indicator ([0-9] or "
      "[a-f]).\r\n"
      "\r\n"
      "* Note: At time of comparison, all folders end with a / character.";
  f.lblInclusionInst =
      "Supported wildcard characters:\r\n"
      "? - Any single character\r\n"
      "* - Zero or more characters\r\n"
      "# - Any single digit\r\n"
      "[List of characters] - Any character in the list\r\n"
      "[!List of characters] - Any character not in the list\r\n"
      "List syntaxes may contain either a simple list ([1a7v]) or a range indicator ([0-9] or "
      "[a-f].\r\n"
      "\r\n"
      "Note: These filters are for FILE NAMES ONLY, not paths.\r\n"
      "Note: Comparisons are case insensitive";
}

void frmOptions_Load(RunContext& ctx, OptionsForm& f) {
  JobSettings& s = ctx.settings;
  try {
    FillOptionsForm(f);
    s.enabled.CreateHashList = false;
    s.enabled.SkipDupes = false;
    s.enabled.HashFilter = false;
    // Disabled whatever chkFullPaths shows: its first click settles the pair.
    s.enabled.RootFolders = false;
    s.CopySubs = true;
    SetCreateLog(s, true);
    s.HashSource = true;
    s.HashDest = true;
    s.Collision = kCollisionDoNothing;
    SetRavelin(s, true);
    s.Extension = kExtensionCopyOnly;
    SetCopyZB(s, true);
    s.CopyData = true;
    s.CopyAttributes = true;
    s.CopyTimestamps = true;
    GetDefaults(ctx);
  } catch (const RunError& e) {
    ctx.Message("Option Load Error. " + IntText(e.number()) + " : " + e.description(), Icon::None);
  }
}

void cboOptionTypes_Click(OptionsForm& f, int index) {
  f.cboOptionTypesIndex = index;
  f.visibleFrame = index >= 0 && static_cast<size_t>(index) < kOptionFrames.size()
                       ? kOptionFrames[static_cast<size_t>(index)]
                       : "";
}

void cmdAddExclusion_Click(RunContext& ctx, OptionsForm& f) {
  AddPattern(f.txtNewExclusion, ctx.settings.ExclusionPatterns);
}

void cmdAddInclusion_Click(RunContext& ctx, OptionsForm& f) {
  AddPattern(f.txtNewInclusion, ctx.settings.InclusionPatterns);
}

void cmdRemovePattern_Click(RunContext& ctx, OptionsForm& f) {
  RemoveSelected(f.listExclusionsSelected, ctx.settings.ExclusionPatterns);
}

void cmdRemoveInclusion_Click(RunContext& ctx, OptionsForm& f) {
  RemoveSelected(f.lstInclusionsSelected, ctx.settings.InclusionPatterns);
}

void cmdExtBrowse_Click(RunContext& ctx) {
  std::string file =
      ctx.dialogs.OpenFile("Select a file extension list", "All extension lists (*.*)|*.*", "");
  if (!file.empty()) ctx.settings.ExtListFile = file;
}

void OKButton_Click(RunContext& ctx, OptionsForm& f) {
  SetINIVals(ctx);
  f.visible = false;
}

void CancelButton_Click(OptionsForm& f) { f.visible = false; }

void OptionsDropped(const std::vector<std::string>& paths,
                    const std::function<void(const std::string&)>& addSource) {
  for (const std::string& path : paths) {
    if (!Trim(path).empty()) addSource(path);
  }
}

}  // namespace qr
