#pragma once
// The job manager: a job author prepares, saves and runs `.lsw` jobs. Draws the core's
// JobManagerForm and forwards the author's clicks, menu entries, typing, drops and the mouse
// over a field (Active Help) to the actions of ui/job_manager.
#include <QMainWindow>
#include <QPointer>
#include <functional>
#include <memory>
#include <string>

#include "file_type_picker.h"
#include "run/run_context.h"
#include "ui/job_manager.h"

namespace Ui {
class frmLSW;
}

namespace qr::gui {

class JobManager : public QMainWindow {
  Q_OBJECT

 public:
  // `addSourceToMain` is the main window's AddSource: the file finder opened from here adds to
  // the main window's list.
  JobManager(RunContext& ctx, std::function<void(const std::string&)> addSourceToMain,
             QWidget* parent = nullptr);
  ~JobManager() override;

  // Loads `jobFile` as the current job, prepares the window and shows it.
  void OpenJob(const std::string& jobFile);
  // Copies the job manager's state into the widgets.
  void Refresh();
  // The picker that "File Types" opened, if any.
  FileTypePicker* fileTypePicker() const { return picker_; }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  // Runs an action of the core, then draws what it changed.
  template <typename Action>
  void Do(Action action);
  void Bind();
  void BindHelp();
  void RunJob();
  void ShowFileTypes();
  void ShowFileFinder();
  void CloseProgram();

  RunContext& ctx_;
  std::function<void(const std::string&)> addSourceToMain_;
  std::unique_ptr<Ui::frmLSW> ui_;
  JobManagerForm form_;
  QPointer<FileTypePicker> picker_;
  bool refreshing_ = false;
};

}  // namespace qr::gui
