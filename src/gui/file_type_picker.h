#pragma once
// "File Type Definitions": categories and types of the definition file, written as terms into
// the job manager's extension field.
#include <QDialog>
#include <QLineEdit>
#include <QPointer>
#include <memory>

#include "run/run_context.h"
#include "ui/file_type_picker.h"

namespace Ui {
class frmFileDefs;
}

namespace qr::gui {

class FileTypePicker : public QDialog {
  Q_OBJECT

 public:
  // Each add writes its term into `txtExt`, the job manager's extension field.
  FileTypePicker(RunContext& ctx, QLineEdit* txtExt, QWidget* parent = nullptr);
  ~FileTypePicker() override;

  // Copies the picker's state into the widgets.
  void Refresh();
  // Shows the picker (not modal: each add takes effect at once). However it is shown, the
  // definition file is read afresh, as the picker's load does.
  void Open();

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  void Bind();
  void AddTerm(void (*click)(const FileTypePickerForm&, std::string&));

  RunContext& ctx_;
  QPointer<QLineEdit> txtExt_;
  std::unique_ptr<Ui::frmFileDefs> ui_;
  FileTypePickerForm form_;
  bool refreshing_ = false;
};

}  // namespace qr::gui
