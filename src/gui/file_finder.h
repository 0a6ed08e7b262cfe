#pragma once
// "Add File(s) as Sources": picks single files out of one folder and leaves the folder's and the
// files' times as they were. The folder tree is filled from the core's own lister, one level as
// a person opens it, so that drawing the tree touches nothing either.
#include <QDialog>
#include <functional>
#include <memory>
#include <string>

#include "run/run_context.h"
#include "ui/file_finder.h"

class QTreeWidgetItem;

namespace Ui {
class frmFileFind;
}

namespace qr::gui {

class FileFinder : public QDialog {
  Q_OBJECT

 public:
  // `addSource` receives each picked file: the main window's AddSource, whoever opened the
  // finder.
  FileFinder(RunContext& ctx, std::function<void(const std::string&)> addSource,
             QWidget* parent = nullptr);
  ~FileFinder() override;

  // Copies the finder's state into the widgets.
  void Refresh();
  // Shows the finder (not modal: it stays open while files are added), its drives read the
  // first time, the tree on the drive that holds `startFolder`.
  void Open(const std::string& startFolder = {});
  // Lists `folder` as if it had been typed into txtSourceFolder.
  void ShowFolder(const std::string& folder);

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  void Bind();
  void FillTree(const std::string& drive);
  void ExpandItem(QTreeWidgetItem* item);
  // Opens the tree down to `folder` where it lies on the tree's drive, and makes it current.
  void RevealFolder(const std::string& folder);

  RunContext& ctx_;
  std::function<void(const std::string&)> addSource_;
  std::unique_ptr<Ui::frmFileFind> ui_;
  FileFinderForm form_;
  bool loaded_ = false;
  bool refreshing_ = false;
  std::string treeRoot_;
};

}  // namespace qr::gui
