#pragma once
// The main window: sources, target and log paths, Run and Cancel. It draws the core's state and
// forwards the person's actions; the run itself is ExecCopy's.
#include <QMainWindow>

#include "run/run_context.h"

class QCloseEvent;
class QLineEdit;
class QListWidget;
class QPushButton;

namespace qr::gui {

class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  explicit MainWindow(RunContext& ctx, QWidget* parent = nullptr);

  // Brings caption, enabled controls, sources and paths up to date with the core's state.
  void Refresh();
  // True once a run has ended the program (-silent, -q): the settings are not saved then.
  bool endedByRun() const { return endedByRun_; }

 signals:
  void programEndRequested();

 public slots:
  void AddClicked();
  void RemoveClicked();
  void BrowseTargetClicked();
  void BrowseLogPathClicked();
  void RunClicked();
  void CancelClicked();

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  void TargetChanged(const QString& text);
  void LogChanged(const QString& text);

  RunContext& ctx_;
  QListWidget* lstSources_;
  QPushButton* cmdAdd_;
  QPushButton* cmdRemove_;
  QLineEdit* txtTargetPath_;
  QPushButton* cmdBrowseTarget_;
  QLineEdit* txtLogPath_;
  QPushButton* cmdBrowseLogPath_;
  QPushButton* cmdCancel_;
  QPushButton* cmdRun_;
  bool inRun_ = false;
  bool endedByRun_ = false;
};

}  // namespace qr::gui
