#pragma once
// The "Copy Options" dialog: draws the job's settings and forwards clicks to the core's rules.
#include <QDialog>
#include <functional>
#include <memory>
#include <string>

#include "run/run_context.h"
#include "ui/options_dialog.h"

class QDragEnterEvent;
class QDropEvent;
class QShowEvent;

namespace Ui {
class frmOptions;
}

namespace qr::gui {

class OptionsDialog : public QDialog {
  Q_OBJECT

 public:
  // `addSource` receives each path dropped on the dialog.
  OptionsDialog(RunContext& ctx, std::function<void(const std::string&)> addSource,
                QWidget* parent = nullptr);
  ~OptionsDialog() override;

  // For a dialog made before the window that takes its drops (the one start-up loads).
  void SetAddSource(std::function<void(const std::string&)> addSource);

  // Copies the settings into the widgets.
  void Refresh();
  // Selects entry `index` of cboOptionTypes, as a person would.
  void ShowPage(int index);
  int PageCount() const;
  // The dialog's load as the program's start runs it, before the settings files are read
  // (StartupInputs::loadOptions): the options it sets on or disables, then defaults.ini. A
  // dialog made after start-up must not run it again, or it would undo the settings files.
  void Load();

 protected:
  void showEvent(QShowEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;

 private:
  void Bind();
  void ReadSelections();

  RunContext& ctx_;
  std::function<void(const std::string&)> addSource_;
  std::unique_ptr<Ui::frmOptions> ui_;
  OptionsForm form_;
};

}  // namespace qr::gui
