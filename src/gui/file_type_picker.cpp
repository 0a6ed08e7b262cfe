#include "file_type_picker.h"

namespace qr::gui {

FileTypePicker::FileTypePicker(RunContext& ctx, QLineEdit* txtExt, QWidget* parent)
    : QDialog(parent), ctx_(ctx), txtExt_(txtExt) {
  setObjectName("frmFileDefs");
}

void FileTypePicker::Refresh() {}

}  // namespace qr::gui
