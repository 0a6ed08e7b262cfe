#include "job_manager.h"

#include <utility>

namespace qr::gui {

JobManager::JobManager(RunContext& ctx, std::function<void(const std::string&)> addSourceToMain,
                       QWidget* parent)
    : QMainWindow(parent), ctx_(ctx), addSourceToMain_(std::move(addSourceToMain)) {
  setObjectName("frmLSW");
}

void JobManager::OpenJob(const std::string&) { show(); }
void JobManager::Refresh() {}

}  // namespace qr::gui
