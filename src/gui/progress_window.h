#pragma once
// The progress window: draws the run's progress pane; Skip, Cancel and closing set the run's
// requests.
#include <QWidget>

#include "run/run_context.h"

namespace qr::gui {

class ProgressWindow : public QWidget {
  Q_OBJECT

 public:
  explicit ProgressWindow(RunContext& ctx, QWidget* parent = nullptr);

  // Copies the progress pane into the widgets and shows or hides the window with it.
  void Refresh();

 private:
  RunContext& ctx_;
};

}  // namespace qr::gui
