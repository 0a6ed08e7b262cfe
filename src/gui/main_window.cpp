#include "main_window.h"

#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QIcon>
#include <QMimeData>
#include <QSignalBlocker>
#include <QStyle>
#include <QUrl>
#include <initializer_list>
#include <string>
#include <vector>

#include "file_finder.h"
#include "job_manager.h"
#include "options_dialog.h"
#include "progress_window.h"
#include "qt_text.h"
#include "ui_main_window.h"
#include "window_registry.h"

namespace qr::gui {

MainWindow::MainWindow(RunContext& ctx, WindowRegistry& windows,
                       std::unique_ptr<OptionsDialog> options, QWidget* parent)
    : QMainWindow(parent), ctx_(ctx), windows_(windows), ui_(std::make_unique<Ui::frmMain>()) {
  ui_->setupUi(this);
  SetIcons();

  progress_ = std::make_unique<ProgressWindow>(ctx_);
  auto dropped = [this](const std::string& path) {
    Do([&] { FormDropped(ctx_, form_, {path}); });
  };
  if (options) {
    options_ = options.release();
    options_->setParent(this, options_->windowFlags());  // the window owns it from here
    options_->SetAddSource(dropped);
  } else {
    options_ = new OptionsDialog(ctx_, dropped, this);
  }
  windows.Add(this, [this] { Refresh(); });
  windows.Add(
      progress_.get(), [p = progress_.get()] { p->Refresh(); }, true);
  windows.Add(options_, [o = options_] { o->Refresh(); });
  // Whoever opens the finder, its files land in this window's list.
  finder_ = new FileFinder(ctx_, dropped, this);
  windows.Add(finder_, [f = finder_] { f->Refresh(); });
  jobManager_ = new JobManager(ctx_, dropped, this);
  windows.Add(jobManager_, [j = jobManager_] { j->Refresh(); });

  // The form and the controls that take dropped files and folders as sources. A list drops
  // onto its viewport; a text box would otherwise take a dropped path as text.
  for (QWidget* w : std::initializer_list<QWidget*>{
           ui_->frameSource, ui_->lstSources, ui_->lstSources->viewport(), ui_->cmdAdd,
           ui_->cmdRemove, ui_->lblTargetPath, ui_->txtTargetPath, ui_->cmdBrowseTarget,
           ui_->lblLogPath, ui_->txtLogPath, ui_->cmdBrowseLogPath, ui_->cmdCancel, ui_->cmdRun}) {
    w->setAcceptDrops(true);
    w->installEventFilter(this);
  }

  Connect(ui_->mnuAddManual, mnuAddManual_Click);
  for (QAction* a : {ui_->mnuAddSource, ui_->tbAddSource}) Connect(a, cmdAdd_Click);
  for (QAction* a : {ui_->mnuAddSourceFiles, ui_->tbAddFiles}) {
    connect(a, &QAction::triggered, this, [this] {
      if (mnuAddSourceFiles_Click(form_)) finder_->Open();
    });
  }
  for (QAction* a : {ui_->mnuAddFromList, ui_->tbAddList}) Connect(a, mnuAddFromList_Click);
  for (QAction* a : {ui_->mnuChooseTargetFolder, ui_->tbPickTarget}) {
    Connect(a, cmdBrowseTarget_Click);
  }
  for (QAction* a : {ui_->mnuResume, ui_->tbResume}) {
    connect(a, &QAction::triggered, this, &MainWindow::ResumeClicked);
  }
  for (QAction* a : {ui_->mnuCopyOptions, ui_->tbCopyOptions}) {
    connect(a, &QAction::triggered, this, &MainWindow::ShowOptions);
  }
  connect(ui_->mnuSaveDefault, &QAction::triggered, this,
          [this] { Do([&] { mnuSaveDefault_Click(ctx_); }); });
  connect(ui_->mnuExit, &QAction::triggered, this, &QWidget::close);
  // The job author's way to the job manager.
  connect(ui_->mnuJobManager, &QAction::triggered, this, [this] {
    jobManager_->Refresh();
    jobManager_->show();
    jobManager_->raise();
    jobManager_->activateWindow();
  });
  for (QAction* a : {ui_->mnuRavelinHelp, ui_->tbHelp}) {
    connect(a, &QAction::triggered, this, [this] { Do([&] { mnuRavelinHelp_Click(ctx_); }); });
  }
  connect(ui_->mnuAboutRavelin, &QAction::triggered, this,
          [this] { Do([&] { mnuAboutRavelin_Click(ctx_, qVersion()); }); });

  connect(ui_->cmdAdd, &QPushButton::clicked, this,
          [this] { Do([&] { cmdAdd_Click(ctx_, form_); }); });
  connect(ui_->cmdRemove, &QPushButton::clicked, this,
          [this] { Do([&] { cmdRemove_Click(ctx_, form_); }); });
  connect(ui_->cmdBrowseTarget, &QPushButton::clicked, this,
          [this] { Do([&] { cmdBrowseTarget_Click(ctx_, form_); }); });
  connect(ui_->cmdBrowseLogPath, &QPushButton::clicked, this,
          [this] { Do([&] { cmdBrowseLogPath_Click(ctx_, form_); }); });
  connect(ui_->cmdRun, &QPushButton::clicked, this, &MainWindow::RunClicked);
  connect(ui_->cmdCancel, &QPushButton::clicked, this, [this] { cmdCancel_Click(ctx_, form_); });
  connect(ui_->txtTargetPath, &QLineEdit::textChanged, this, [this](const QString& text) {
    if (!refreshing_) Do([&] { txtTargetPath_Change(ctx_, S(text)); });
  });
  connect(ui_->txtLogPath, &QLineEdit::textChanged, this, [this](const QString& text) {
    if (!refreshing_) Do([&] { txtLogPath_Change(ctx_, S(text)); });
  });
  connect(ui_->lstSources, &QListWidget::itemSelectionChanged, this, [this] {
    if (refreshing_) return;
    form_.lstSourcesSelected.clear();
    for (int i = 0; i < ui_->lstSources->count(); ++i) {
      if (ui_->lstSources->item(i)->isSelected()) form_.lstSourcesSelected.push_back(i);
    }
  });

  Refresh();
}

MainWindow::~MainWindow() = default;

template <typename Action>
void MainWindow::Do(Action action) {
  action();
  Refresh();
}

void MainWindow::Connect(QAction* action, void (*click)(RunContext&, MainForm&)) {
  connect(action, &QAction::triggered, this, [this, click] { Do([&] { click(ctx_, form_); }); });
}

void MainWindow::SetIcons() {
  // The desktop's theme where it has one; else images that Qt carries at the toolbar's size,
  // so they show on a bare system too.
  struct Icon {
    QAction* action;
    const char* theme;
    QStyle::StandardPixmap fallback;
  };
  for (const Icon& i : std::initializer_list<Icon>{
           {ui_->tbAddSource, "folder-open", QStyle::SP_DirIcon},
           {ui_->tbAddFiles, "document-open", QStyle::SP_FileIcon},
           {ui_->tbAddList, "view-list-text", QStyle::SP_FileDialogDetailedView},
           {ui_->tbPickTarget, "folder-download", QStyle::SP_DialogSaveButton},
           {ui_->tbCopyOptions, "preferences-system", QStyle::SP_FileDialogInfoView},
           {ui_->tbResume, "media-playback-start", QStyle::SP_MediaPlay},
           {ui_->tbHelp, "help-contents", QStyle::SP_DialogHelpButton}}) {
    i.action->setIcon(QIcon::fromTheme(i.theme, style()->standardIcon(i.fallback)));
  }
}

void MainWindow::Refresh() {
  refreshing_ = true;
  const QString caption = Q(ctx_.view.mainCaption);
  if (windowTitle() != caption) setWindowTitle(caption);

  // The six controls of a run, and every other way to the same actions.
  const bool enabled = ctx_.view.runControlsEnabled;
  for (QWidget* w :
       std::initializer_list<QWidget*>{ui_->lstSources, ui_->txtTargetPath, ui_->cmdAdd,
                                       ui_->cmdRemove, ui_->cmdBrowseTarget, ui_->cmdRun}) {
    if (w->isEnabled() != enabled) w->setEnabled(enabled);
  }
  for (QAction* a :
       {ui_->mnuAddManual, ui_->mnuAddSource, ui_->tbAddSource, ui_->mnuAddSourceFiles,
        ui_->tbAddFiles, ui_->mnuAddFromList, ui_->tbAddList, ui_->mnuChooseTargetFolder,
        ui_->tbPickTarget, ui_->mnuResume, ui_->tbResume}) {
    if (a->isEnabled() != enabled) a->setEnabled(enabled);
  }

  QListWidget* list = ui_->lstSources;
  const std::vector<std::string>& sources = ctx_.settings.Sources;
  bool same = list->count() == static_cast<int>(sources.size());
  for (int i = 0; same && i < list->count(); ++i) {
    same = S(list->item(i)->text()) == sources[static_cast<size_t>(i)];
  }
  if (!same) {
    list->clear();
    for (const std::string& s : sources) list->addItem(Q(s));
    for (int row : form_.lstSourcesSelected) {
      if (QListWidgetItem* item = list->item(row)) {
        item->setSelected(true);
        list->setCurrentItem(item, QItemSelectionModel::Current);
      }
    }
  }

  if (S(ui_->txtTargetPath->text()) != ctx_.settings.TargetPath) {
    ui_->txtTargetPath->setText(Q(ctx_.settings.TargetPath));
  }
  if (S(ui_->txtLogPath->text()) != ctx_.settings.LogPath) {
    ui_->txtLogPath->setText(Q(ctx_.settings.LogPath));
  }
  refreshing_ = false;
}

void MainWindow::RunClicked() { AfterRun(cmdRun_Click(ctx_, form_)); }

void MainWindow::ResumeClicked() { AfterRun(mnuResume_Click(ctx_, form_)); }

void MainWindow::AfterRun(bool endProgram) {
  // The pump skips rounds inside its interval, so the run's last state (the progress window
  // hidden, the controls back) may not have been drawn yet.
  windows_.RefreshAll();
  if (endProgram) emit programEndRequested();
}

void MainWindow::ShowOptions() {
  options_->Refresh();
  options_->show();
  options_->raise();
  options_->activateWindow();
}

void MainWindow::KeepPlace() {
  // Only the normal place is kept: a maximised window is written as it was before.
  if (windowState() & (Qt::WindowMaximized | Qt::WindowMinimized | Qt::WindowFullScreen)) return;
  const QRect r = frameGeometry();
  KeepGeometry(ctx_.program.geometry, r.x(), r.y(), r.width(), r.height());
}

void MainWindow::moveEvent(QMoveEvent* event) {
  QMainWindow::moveEvent(event);
  KeepPlace();
}

void MainWindow::resizeEvent(QResizeEvent* event) {
  QMainWindow::resizeEvent(event);
  KeepPlace();
}

void MainWindow::closeEvent(QCloseEvent* event) {
  if (!frmMain_QueryUnload(ctx_, form_)) {
    event->ignore();
    return;
  }
  KeepPlace();
  progress_->close();
  options_->close();
  event->accept();
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
  if (!DroppedPaths(event->mimeData()).empty()) event->acceptProposedAction();
}

void MainWindow::dragMoveEvent(QDragMoveEvent* event) {
  if (!DroppedPaths(event->mimeData()).empty()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
  std::vector<std::string> paths = DroppedPaths(event->mimeData());
  if (paths.empty()) return;
  event->acceptProposedAction();
  Do([&] { FormDropped(ctx_, form_, paths); });
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
  // Only drags of files and folders are taken; a text dragged into a box stays the box's.
  const QEvent::Type type = event->type();
  if (type == QEvent::DragEnter || type == QEvent::DragMove || type == QEvent::Drop) {
    auto* drop = static_cast<QDropEvent*>(event);
    if (DroppedPaths(drop->mimeData()).empty()) return QMainWindow::eventFilter(watched, event);
    if (type == QEvent::Drop) {
      dropEvent(drop);
    } else {
      drop->acceptProposedAction();
    }
    return true;
  }
  return QMainWindow::eventFilter(watched, event);
}

}  // namespace qr::gui
