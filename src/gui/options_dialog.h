#pragma once
// The "Copy Options" dialog: draws the job's settings and forwards clicks to the core's rules.
#include <QDialog>
#include <functional>
#include <string>

#include "run/run_context.h"

namespace qr::gui {

class OptionsDialog : public QDialog {
  Q_OBJECT

 public:
  // `addSource` receives each path dropped on the dialog.
  OptionsDialog(RunContext& ctx, std::function<void(const std::string&)> addSource,
                QWidget* parent = nullptr);

  // Copies the settings into the widgets.
  void Refresh();
  // Selects entry `index` of cboOptionTypes, as a person would.
  void ShowPage(int index);
  int PageCount() const;

 private:
  RunContext& ctx_;
  std::function<void(const std::string&)> addSource_;
};

}  // namespace qr::gui
