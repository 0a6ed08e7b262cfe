#pragma once
// The progress window: draws the run's progress pane; Skip, Cancel and closing set the run's
// requests.
#include <QWidget>
#include <array>
#include <memory>
#include <string>

#include "run/run_context.h"
#include "ui/progress_window.h"

class QCloseEvent;
class QHideEvent;
class QLabel;
class QShowEvent;
class QTimer;

namespace Ui {
class frmProgress;
}

namespace qr::gui {

class ProgressWindow : public QWidget {
  Q_OBJECT

 public:
  explicit ProgressWindow(RunContext& ctx, QWidget* parent = nullptr);
  ~ProgressWindow() override;

  // Copies the progress pane into the widgets and shows or hides the window with it.
  void Refresh();

 protected:
  void closeEvent(QCloseEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  struct LabelBinding {
    QLabel* label;
    std::string ProgressPane::*text;
    std::string shown;
  };

  RunContext& ctx_;
  std::unique_ptr<Ui::frmProgress> ui_;
  ProgressForm form_;
  QTimer* timeElapsed_;
  std::array<LabelBinding, 10> labels_;
  int progressPixels_ = -1;
  int progress1Pixels_ = -1;
};

}  // namespace qr::gui
