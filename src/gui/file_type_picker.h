#pragma once
// "File Type Definitions": categories and types of the definition file, written as terms into
// the job manager's extension field.
#include <QDialog>
#include <QLineEdit>
#include <QPointer>

#include "run/run_context.h"

namespace qr::gui {

class FileTypePicker : public QDialog {
  Q_OBJECT

 public:
  // Each add writes its term into `txtExt`, the job manager's extension field.
  FileTypePicker(RunContext& ctx, QLineEdit* txtExt, QWidget* parent = nullptr);

  // Copies the picker's state into the widgets.
  void Refresh();

 private:
  RunContext& ctx_;
  QPointer<QLineEdit> txtExt_;
};

}  // namespace qr::gui
