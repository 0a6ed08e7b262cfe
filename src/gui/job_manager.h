#pragma once
// The job manager: a job author prepares, saves and runs `.lsw` jobs.
#include <QMainWindow>
#include <functional>
#include <string>

#include "run/run_context.h"

namespace qr::gui {

class JobManager : public QMainWindow {
  Q_OBJECT

 public:
  // `addSourceToMain` is the main window's AddSource: the file finder opened from here adds to
  // the main window's list.
  JobManager(RunContext& ctx, std::function<void(const std::string&)> addSourceToMain,
             QWidget* parent = nullptr);

  // Loads `jobFile` as the current job, prepares the window and shows it.
  void OpenJob(const std::string& jobFile);
  // Copies the job manager's state into the widgets.
  void Refresh();

 private:
  RunContext& ctx_;
  std::function<void(const std::string&)> addSourceToMain_;
};

}  // namespace qr::gui
