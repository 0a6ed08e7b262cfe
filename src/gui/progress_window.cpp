#include "progress_window.h"

namespace qr::gui {

ProgressWindow::ProgressWindow(RunContext& ctx, QWidget* parent) : QWidget(parent), ctx_(ctx) {
  setObjectName("frmProgress");
}

void ProgressWindow::Refresh() {}

}  // namespace qr::gui
