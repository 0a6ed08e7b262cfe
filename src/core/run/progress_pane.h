#pragma once
// The labels, bars and error list of the progress window. Stages write here; the window program
// draws it, the headless runner prints it, tests read it.
#include <string>
#include <vector>

namespace qr {

class ProgressPane {
 public:
  std::string lblStatus = "Copied 0 of 0 bytes";
  std::string lblElapsedTime = "Elapsed Time:";
  std::string lblTimeRemaining = "Estimated Time Remaining: ";
  std::string lblFilesCopied = "Files Copied: ";
  std::string lblCurrentFile = "Current File: ";
  std::string lblCurrentPath = "Current Path: ";
  std::string lblCurrentProcess = "Current Process:";
  std::string lblErrors = "Errors: ";
  std::string lblErrorCount;
  std::string lblExclusions;
  std::vector<std::string> listErrors;

  // Bar widths in twips of full widths 9015 (files) and 6015 (bytes of the file in hand).
  static constexpr int kProgressFullWidth = 9015;
  static constexpr int kProgress1FullWidth = 6015;
  int progressWidth = 0;
  int progress1Width = 0;
  int progressPercent = 0;
  int progress1Percent = 0;

  bool visible = false;
  bool byteBarVisible = true;
  bool skipEnabled = true;

  void ResetValues();
  // Accept 0 to 100 only; any other value leaves the bar as it was.
  void Progress_Set(int percent);
  void Progress1_Set(int percent);
};

}  // namespace qr
