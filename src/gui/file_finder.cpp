#include "file_finder.h"

#include <QComboBox>
#include <QDir>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QShowEvent>
#include <QSignalBlocker>
#include <QTreeWidget>
#include <algorithm>
#include <utility>

#include "platform/paths.h"
#include "qt_text.h"
#include "ui_file_finder.h"

namespace qr::gui {

namespace {

constexpr int kPathRole = Qt::UserRole;

// An item whose subfolders are not read yet carries one empty child, so that it can be opened.
void AddPlaceholder(QTreeWidgetItem* item) { item->addChild(new QTreeWidgetItem()); }
bool HasPlaceholder(const QTreeWidgetItem* item) {
  return item->childCount() == 1 && item->child(0)->data(0, kPathRole).isNull();
}

}  // namespace

FileFinder::FileFinder(RunContext& ctx, std::function<void(const std::string&)> addSource,
                       QWidget* parent)
    : QDialog(parent),
      ctx_(ctx),
      addSource_(std::move(addSource)),
      ui_(std::make_unique<Ui::frmFileFind>()) {
  ui_->setupUi(this);
  setObjectName("frmFileFind");
  Bind();
}

FileFinder::~FileFinder() = default;

void FileFinder::Bind() {
  connect(ui_->dDrives, &QComboBox::activated, this, [this](int index) {
    dDrives_Change(ctx_, form_, index);
    Refresh();
  });
  connect(ui_->dDirs, &QTreeWidget::itemExpanded, this, &FileFinder::ExpandItem);
  connect(ui_->dDirs, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem* item) {
    if (refreshing_ || item == nullptr) return;
    dDirs_Change(ctx_, form_, S(item->data(0, kPathRole).toString()));
    Refresh();
  });
  connect(ui_->txtSourceFolder, &QLineEdit::textEdited, this, [this](const QString& text) {
    txtSourceFolder_Change(ctx_, form_, S(text));
    Refresh();
  });
  connect(ui_->cmdSourceBrowse, &QPushButton::clicked, this, [this] {
    cmdSourceBrowse_Click(ctx_, form_);
    Refresh();
  });
  connect(ui_->lstFiles, &QListWidget::itemSelectionChanged, this, [this] {
    if (refreshing_) return;
    form_.lstFilesSelected.clear();
    for (int i = 0; i < ui_->lstFiles->count(); ++i) {
      if (ui_->lstFiles->item(i)->isSelected()) form_.lstFilesSelected.push_back(i);
    }
  });
  connect(ui_->OKButton, &QPushButton::clicked, this, [this] {
    OKButton_Click(form_, addSource_);
    Refresh();
  });
  // Finished, Escape and the window's close button all only hide the finder.
  connect(ui_->CancelButton, &QPushButton::clicked, this, &QDialog::reject);
  connect(this, &QDialog::rejected, this, [this] { CancelButton_Click(form_); });
}

void FileFinder::Open(const std::string& startFolder) {
  if (!loaded_) {
    frmFileFind_Load(form_, startFolder.empty() ? S(QDir::homePath()) : startFolder);
    loaded_ = true;
  }
  show();
  raise();
  activateWindow();
}

void FileFinder::showEvent(QShowEvent* event) {
  if (!loaded_) {
    frmFileFind_Load(form_, S(QDir::homePath()));
    loaded_ = true;
  }
  form_.visible = true;
  Refresh();
  QDialog::showEvent(event);
}

void FileFinder::ShowFolder(const std::string& folder) {
  txtSourceFolder_Change(ctx_, form_, folder);
  Refresh();
}

void FileFinder::FillTree(const std::string& drive) {
  ui_->dDirs->clear();
  treeRoot_ = drive;
  if (treeRoot_.empty()) return;
  auto* root = new QTreeWidgetItem(ui_->dDirs, QStringList{Q(treeRoot_)});
  root->setData(0, kPathRole, Q(treeRoot_));
  AddPlaceholder(root);
}

void FileFinder::ExpandItem(QTreeWidgetItem* item) {
  if (!HasPlaceholder(item)) return;
  delete item->takeChild(0);
  const std::string folder = S(item->data(0, kPathRole).toString());
  for (const std::string& name : ListSubfolders(ctx_, folder)) {
    auto* child = new QTreeWidgetItem(item, QStringList{Q(name)});
    child->setData(0, kPathRole, Q(WithTrailingSep(folder) + name));
    AddPlaceholder(child);
  }
}

void FileFinder::RevealFolder(const std::string& folder) {
  QTreeWidgetItem* item = ui_->dDirs->topLevelItem(0);
  if (item == nullptr || folder.empty()) return;
  const QTreeWidgetItem* current = ui_->dDirs->currentItem();
  if (current != nullptr && S(current->data(0, kPathRole).toString()) == folder) return;
  const std::string root = WithTrailingSep(treeRoot_);
  const std::string wanted = WithTrailingSep(folder);
  if (wanted.rfind(root, 0) != 0) return;
  std::string rest = wanted.substr(root.size());
  while (!rest.empty()) {
    const size_t sep = rest.find(kSep);
    const QString name = Q(rest.substr(0, sep));
    rest = sep == std::string::npos ? std::string() : rest.substr(sep + 1);
    ExpandItem(item);  // reads that one level, through the core's lister
    item->setExpanded(true);
    QTreeWidgetItem* next = nullptr;
    for (int i = 0; next == nullptr && i < item->childCount(); ++i) {
      if (item->child(i)->text(0) == name) next = item->child(i);
    }
    if (next == nullptr) return;  // a folder typed half way: the tree stays where it was
    item = next;
  }
  ui_->dDirs->setCurrentItem(item);
  ui_->dDirs->scrollToItem(item);
}

void FileFinder::Refresh() {
  refreshing_ = true;
  {
    const QSignalBlocker quiet(ui_->dDrives);
    bool same = ui_->dDrives->count() == static_cast<int>(form_.dDrives.size());
    for (int i = 0; same && i < ui_->dDrives->count(); ++i) {
      same = S(ui_->dDrives->itemText(i)) == form_.dDrives[static_cast<size_t>(i)];
    }
    if (!same) {
      ui_->dDrives->clear();
      for (const std::string& d : form_.dDrives) ui_->dDrives->addItem(Q(d));
    }
    ui_->dDrives->setCurrentIndex(form_.dDrivesIndex);
  }
  // The tree shows the chosen drive; a folder chosen inside it keeps the tree as it is.
  const std::string drive = form_.dDrivesIndex >= 0
                                ? form_.dDrives[static_cast<size_t>(form_.dDrivesIndex)]
                                : form_.dDirs;
  if (drive != treeRoot_) FillTree(drive);
  RevealFolder(form_.txtSourceFolder);
  if (ui_->txtSourceFolder->text() != Q(form_.txtSourceFolder)) {
    ui_->txtSourceFolder->setText(Q(form_.txtSourceFolder));
  }
  bool same = ui_->lstFiles->count() == static_cast<int>(form_.lstFiles.size());
  for (int i = 0; same && i < ui_->lstFiles->count(); ++i) {
    same = S(ui_->lstFiles->item(i)->text()) == form_.lstFiles[static_cast<size_t>(i)];
  }
  if (!same) {
    ui_->lstFiles->clear();
    for (const std::string& name : form_.lstFiles) ui_->lstFiles->addItem(Q(name));
  }
  for (int i = 0; i < ui_->lstFiles->count(); ++i) {
    const bool selected = std::find(form_.lstFilesSelected.begin(), form_.lstFilesSelected.end(),
                                    i) != form_.lstFilesSelected.end();
    if (ui_->lstFiles->item(i)->isSelected() != selected) {
      ui_->lstFiles->item(i)->setSelected(selected);
    }
  }
  refreshing_ = false;
}

}  // namespace qr::gui
