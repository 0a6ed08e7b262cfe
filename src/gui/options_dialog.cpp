#include "options_dialog.h"

#include <utility>

namespace qr::gui {

OptionsDialog::OptionsDialog(RunContext& ctx, std::function<void(const std::string&)> addSource,
                             QWidget* parent)
    : QDialog(parent), ctx_(ctx), addSource_(std::move(addSource)) {
  setObjectName("frmOptions");
}

void OptionsDialog::Refresh() {}
void OptionsDialog::ShowPage(int) {}
int OptionsDialog::PageCount() const { return 0; }

}  // namespace qr::gui
