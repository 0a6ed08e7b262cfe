#include "window_registry.h"

#include <algorithm>
#include <utility>

namespace qr::gui {

void WindowRegistry::Add(QWidget* window, std::function<void()> refresh, bool evenWhenHidden) {
  windows_.push_back({window, std::move(refresh), evenWhenHidden});
}

void WindowRegistry::RefreshAll() {
  std::erase_if(windows_, [](const Entry& e) { return e.window.isNull(); });
  // By index: a refresh may open a window that registers itself.
  for (size_t i = 0; i < windows_.size(); ++i) {
    if (windows_[i].window.isNull()) continue;
    if (windows_[i].evenWhenHidden || windows_[i].window->isVisible()) {
      std::function<void()> refresh = windows_[i].refresh;
      refresh();
    }
  }
}

}  // namespace qr::gui
