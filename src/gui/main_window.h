#pragma once
// The main window: draws the sources, the two paths, the caption and the enabled controls from
// the core's state, and forwards the person's clicks, menu entries, toolbar buttons and drops to
// the actions of ui/main_window. It owns the progress window and the options dialog.
#include <QMainWindow>
#include <memory>

#include "run/run_context.h"
#include "ui/main_window.h"

class QCloseEvent;
class QAction;

namespace Ui {
class frmMain;
}

namespace qr::gui {

class FileFinder;
class JobManager;
class OptionsDialog;
class ProgressWindow;
class WindowRegistry;

class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  // Registers itself, the progress window and the options dialog with `windows`. `options` is
  // the dialog that start-up has loaded (StartupInputs::loadOptions), taken over by the window;
  // without one the window makes its own, which must not be loaded after start-up.
  MainWindow(RunContext& ctx, WindowRegistry& windows,
             std::unique_ptr<OptionsDialog> options = nullptr, QWidget* parent = nullptr);
  ~MainWindow() override;

  // Brings caption, enabled controls, sources, selection and paths up to date with the core.
  void Refresh();
  // True once a run has ended the program (-silent, -q): the settings are not saved then.
  bool endedByRun() const { return form_.endedByRun; }

  ProgressWindow* progressWindow() const { return progress_.get(); }
  OptionsDialog* optionsDialog() const { return options_; }
  FileFinder* fileFinder() const { return finder_; }
  JobManager* jobManager() const { return jobManager_; }

 signals:
  void programEndRequested();

 public slots:
  void RunClicked();
  void ResumeClicked();
  void ShowOptions();

 protected:
  void closeEvent(QCloseEvent* event) override;
  void moveEvent(QMoveEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dragMoveEvent(QDragMoveEvent* event) override;
  void dropEvent(QDropEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  // Runs an action of the core, then draws what it changed.
  template <typename Action>
  void Do(Action action);
  void Connect(QAction* action, void (*click)(RunContext&, MainForm&));
  void SetIcons();
  void KeepPlace();
  void AfterRun(bool endProgram);

  RunContext& ctx_;
  WindowRegistry& windows_;
  MainForm form_;
  std::unique_ptr<Ui::frmMain> ui_;
  std::unique_ptr<ProgressWindow> progress_;
  OptionsDialog* options_;
  FileFinder* finder_;
  JobManager* jobManager_;
  bool refreshing_ = false;
};

}  // namespace qr::gui
