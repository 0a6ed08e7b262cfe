#pragma once
// The logic of the "Copy Options" dialog that is not drawing: its pages, the pattern lists, the
// extension list picker, OK and Cancel, dropped paths, and the table that ties each check box
// and text box to its JobSettings field, its click rule and its enabled state.
#include <array>
#include <functional>
#include <string>
#include <vector>

#include "run/run_context.h"

namespace qr {

// What the dialog holds besides JobSettings, which its boxes show.
struct OptionsForm {
  std::vector<std::string> cboOptionTypes;
  int cboOptionTypesIndex = -1;
  // The objectName of the one frame shown, empty when none is.
  std::string visibleFrame;
  std::vector<std::string> cboCollision;
  std::vector<std::string> cboExtension;
  std::string txtNewExclusion;
  std::string txtNewInclusion;
  // Indexes of the selected entries of listExclusions and lstInclusions.
  std::vector<int> listExclusionsSelected;
  std::vector<int> lstInclusionsSelected;
  std::string lblDirections;
  std::string lblInclusionInst;
  bool visible = false;
};

// The dialog's height at start-up; its pages sit on one spot below cboOptionTypes.
inline constexpr int kOptionsHeightTwips = 7000;

// The page frames, in the order of the entries of cboOptionTypes.
inline constexpr std::array<const char*, 6> kOptionFrames = {
    "frameGeneralOptions", "frameRVoptions",   "frameRCOptions",
    "frameInclusions",     "frameExclusions", "frameScripting"};

// The dialog's own lists and labels and its first page. Lists already filled are kept, so a
// second call adds nothing.
void FillOptionsForm(OptionsForm& f);

// The dialog's load as the program's start runs it, before the settings files are read: the
// lists and labels, the options that the dialog itself sets on or disables, then defaults.ini.
// A failure is shown as "Option Load Error. " with its number and description.
void frmOptions_Load(RunContext& ctx, OptionsForm& f);

// Selecting entry `index` shows its frame and hides every other one; an index without a frame
// hides them all.
void cboOptionTypes_Click(OptionsForm& f, int index);

// Adds the text of the input box when its trimmed text is not empty, and empties the box.
void cmdAddExclusion_Click(RunContext& ctx, OptionsForm& f);
void cmdAddInclusion_Click(RunContext& ctx, OptionsForm& f);
// Removes the selected entries; with none selected nothing happens.
void cmdRemovePattern_Click(RunContext& ctx, OptionsForm& f);
void cmdRemoveInclusion_Click(RunContext& ctx, OptionsForm& f);

// The extension list picker: a file chosen goes to txtExtListFile.
void cmdExtBrowse_Click(RunContext& ctx);

// OK saves robocopy_settings.ini and hides the dialog. Cancel only hides it: the changes made
// stay in the options for the next run, unsaved, as there is no earlier copy to go back to.
void OKButton_Click(RunContext& ctx, OptionsForm& f);
void CancelButton_Click(OptionsForm& f);

// Each dropped path whose trimmed text is not empty goes to `addSource`.
void OptionsDropped(const std::vector<std::string>& paths,
                    const std::function<void(const std::string&)>& addSource);

// A check box of the dialog: its field, the rule its click runs (none for a plain box) and the
// flag that enables it (none for a box that is always enabled).
struct OptionCheck {
  const char* control;
  bool JobSettings::*field;
  void (*rule)(JobSettings&, bool);
  bool JobSettings::Enabled::*enabled;
};
extern const std::array<OptionCheck, 34> kOptionChecks;

// A text box of the dialog and the flag that enables it (none: always enabled).
struct OptionText {
  const char* control;
  std::string JobSettings::*field;
  bool JobSettings::Enabled::*enabled;
};
extern const std::array<OptionText, 11> kOptionTexts;

// A click on a check box: the box takes the value and its rule runs, as the dialog's click
// event does.
void OptionCheck_Click(JobSettings& s, const OptionCheck& box, bool on);
bool OptionEnabled(const JobSettings& s, bool JobSettings::Enabled::*enabled);

}  // namespace qr
