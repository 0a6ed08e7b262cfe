#pragma once
// "Add File(s) as Sources": picks single files out of one folder and leaves the folder's and the
// files' times as they were.
#include <QDialog>
#include <functional>
#include <string>

#include "run/run_context.h"

namespace qr::gui {

class FileFinder : public QDialog {
  Q_OBJECT

 public:
  // `addSource` receives each picked file: the main window's AddSource, whoever opened the
  // finder.
  FileFinder(RunContext& ctx, std::function<void(const std::string&)> addSource,
             QWidget* parent = nullptr);

  // Copies the finder's state into the widgets.
  void Refresh();

 private:
  RunContext& ctx_;
  std::function<void(const std::string&)> addSource_;
};

}  // namespace qr::gui
