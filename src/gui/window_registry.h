#pragma once
// The open windows of the program, each with the call that draws it from the core's state.
// The event pump refreshes them all, so a run keeps every window current.
#include <QPointer>
#include <QWidget>
#include <functional>
#include <vector>

namespace qr::gui {

class WindowRegistry {
 public:
  // `refresh` runs on each RefreshAll for as long as `window` lives; while the window is hidden
  // only if `evenWhenHidden` (a window that shows itself when the state says so).
  void Add(QWidget* window, std::function<void()> refresh, bool evenWhenHidden = false);
  void RefreshAll();

 private:
  struct Entry {
    QPointer<QWidget> window;
    std::function<void()> refresh;
    bool evenWhenHidden;
  };
  std::vector<Entry> windows_;
};

}  // namespace qr::gui
