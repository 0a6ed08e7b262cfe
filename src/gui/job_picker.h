#pragma once
// The job picker: draws the due jobs and the selected job's instructions from the core's state
// and forwards the end user's clicks to the actions of ui/job_picker.
#include <QMainWindow>
#include <memory>

#include "run/run_context.h"
#include "ui/job_picker.h"

class QCloseEvent;

namespace Ui {
class frmJobs;
}

namespace qr::gui {

class MainWindow;
class WindowRegistry;

class JobPicker : public QMainWindow {
  Q_OBJECT

 public:
  // Settings opens the job in `main`'s job manager; Resume is `main`'s. Registers itself with
  // `windows`, so a run keeps it current (and hides it under -q).
  JobPicker(RunContext& ctx, MainWindow& main, WindowRegistry& windows, QWidget* parent = nullptr);
  ~JobPicker() override;

  // Lists the due jobs and shows the window.
  void Open();
  // Brings the list, the selection, the instructions, the enabled buttons and whether the window
  // shows up to date with the core.
  void Refresh();
  // -as with exactly one job listed: runs it as its Run button would.
  void RunIfOnlyOne();
  // The picker ended the program (Cancel, closing it, or a run under -q).
  bool endedProgram() const { return endedProgram_; }

  // When the program starts as the autorun file starts it (-as, -q): a picker opened in place
  // of the main window, its single due job started once the event loop runs. Null otherwise.
  static std::unique_ptr<JobPicker> OpenAtStart(RunContext& ctx, MainWindow& main,
                                                WindowRegistry& windows);

 signals:
  void programEndRequested();

 public slots:
  void RunClicked();

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  void AfterRun(bool endProgram);
  void EndProgram();

  RunContext& ctx_;
  MainWindow& main_;
  WindowRegistry& windows_;
  JobsForm form_;
  std::unique_ptr<Ui::frmJobs> ui_;
  bool refreshing_ = false;
  bool endedProgram_ = false;
};

}  // namespace qr::gui
