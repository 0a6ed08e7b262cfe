#include "file_finder.h"

#include <utility>

namespace qr::gui {

FileFinder::FileFinder(RunContext& ctx, std::function<void(const std::string&)> addSource,
                       QWidget* parent)
    : QDialog(parent), ctx_(ctx), addSource_(std::move(addSource)) {
  setObjectName("frmFileFind");
}

void FileFinder::Refresh() {}

}  // namespace qr::gui
