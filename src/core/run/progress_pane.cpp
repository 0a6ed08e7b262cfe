#include "run/progress_pane.h"

namespace qr {

void ProgressPane::ResetValues() {
  ProgressPane fresh;
  lblStatus = fresh.lblStatus;
  lblElapsedTime = fresh.lblElapsedTime;
  lblTimeRemaining = fresh.lblTimeRemaining;
  lblFilesCopied = fresh.lblFilesCopied;
  lblCurrentFile = fresh.lblCurrentFile;
  lblCurrentPath = fresh.lblCurrentPath;
  lblCurrentProcess = fresh.lblCurrentProcess;
  lblErrors = fresh.lblErrors;
  Progress_Set(0);
  lblErrorCount.clear();
  listErrors.clear();
}

void ProgressPane::Progress_Set(int percent) {
  if (percent < 0 || percent > 100) return;
  progressPercent = percent;
  progressWidth = percent * kProgressFullWidth / 100;
}

void ProgressPane::Progress1_Set(int percent) {
  if (percent < 0 || percent > 100) return;
  progress1Percent = percent;
  progress1Width = percent * kProgress1FullWidth / 100;
}

}  // namespace qr
