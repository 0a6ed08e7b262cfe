#include "main_window.h"

#include <QCloseEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

#include "exec/run_driver.h"
#include "jobdef/source_list.h"
#include "ui/main_window.h"

namespace qr::gui {

namespace {

QString Q(const std::string& s) {
  return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size()));
}
std::string S(const QString& s) { return s.toUtf8().toStdString(); }

QPushButton* Button(const char* name, const char* caption, QWidget* parent) {
  auto* b = new QPushButton(caption, parent);
  b->setObjectName(name);
  return b;
}

}  // namespace

MainWindow::MainWindow(RunContext& ctx, QWidget* parent) : QMainWindow(parent), ctx_(ctx) {
  auto* central = new QWidget(this);
  auto* layout = new QVBoxLayout(central);

  auto* frameSource = new QGroupBox("Data Sources ", central);
  frameSource->setObjectName("frameSource");
  auto* sourceRow = new QHBoxLayout(frameSource);
  lstSources_ = new QListWidget(frameSource);
  lstSources_->setObjectName("lstSources");
  lstSources_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  sourceRow->addWidget(lstSources_, 1);
  auto* sourceButtons = new QVBoxLayout;
  cmdAdd_ = Button("cmdAdd", "Add", frameSource);
  cmdRemove_ = Button("cmdRemove", "Remove", frameSource);
  sourceButtons->addWidget(cmdAdd_);
  sourceButtons->addWidget(cmdRemove_);
  sourceButtons->addStretch(1);
  sourceRow->addLayout(sourceButtons);
  layout->addWidget(frameSource, 1);

  auto* paths = new QGridLayout;
  auto* lblTargetPath = new QLabel("Job Target Path:", central);
  lblTargetPath->setObjectName("lblTargetPath");
  txtTargetPath_ = new QLineEdit(central);
  txtTargetPath_->setObjectName("txtTargetPath");
  cmdBrowseTarget_ = Button("cmdBrowseTarget", "Browse ...", central);
  auto* lblLogPath = new QLabel("Log File Path:", central);
  lblLogPath->setObjectName("lblLogPath");
  txtLogPath_ = new QLineEdit(central);
  txtLogPath_->setObjectName("txtLogPath");
  cmdBrowseLogPath_ = Button("cmdBrowseLogPath", "Browse ...", central);
  paths->addWidget(lblTargetPath, 0, 0);
  paths->addWidget(txtTargetPath_, 0, 1);
  paths->addWidget(cmdBrowseTarget_, 0, 2);
  paths->addWidget(lblLogPath, 1, 0);
  paths->addWidget(txtLogPath_, 1, 1);
  paths->addWidget(cmdBrowseLogPath_, 1, 2);
  layout->addLayout(paths);

  auto* runRow = new QHBoxLayout;
  runRow->addStretch(1);
  cmdCancel_ = Button("cmdCancel", "Cancel", central);
  cmdRun_ = Button("cmdRun", "Run", central);
  runRow->addWidget(cmdCancel_);
  runRow->addWidget(cmdRun_);
  layout->addLayout(runRow);

  setCentralWidget(central);
  resize(800, 400);

  connect(cmdAdd_, &QPushButton::clicked, this, &MainWindow::AddClicked);
  connect(cmdRemove_, &QPushButton::clicked, this, &MainWindow::RemoveClicked);
  connect(cmdBrowseTarget_, &QPushButton::clicked, this, &MainWindow::BrowseTargetClicked);
  connect(cmdBrowseLogPath_, &QPushButton::clicked, this, &MainWindow::BrowseLogPathClicked);
  connect(cmdRun_, &QPushButton::clicked, this, &MainWindow::RunClicked);
  connect(cmdCancel_, &QPushButton::clicked, this, &MainWindow::CancelClicked);
  // textChanged, not textEdited: a path set by Browse carries the log along like typing does.
  connect(txtTargetPath_, &QLineEdit::textChanged, this, &MainWindow::TargetChanged);
  connect(txtLogPath_, &QLineEdit::textChanged, this, &MainWindow::LogChanged);

  Refresh();
}

void MainWindow::Refresh() {
  const QString caption = Q(ctx_.view.mainCaption);
  if (windowTitle() != caption) setWindowTitle(caption);

  const bool enabled = ctx_.view.runControlsEnabled;
  for (QWidget* w : std::initializer_list<QWidget*>{lstSources_, txtTargetPath_, cmdAdd_,
                                                    cmdRemove_, cmdBrowseTarget_, cmdRun_}) {
    if (w->isEnabled() != enabled) w->setEnabled(enabled);
  }

  const std::vector<std::string>& sources = ctx_.settings.Sources;
  bool same = lstSources_->count() == static_cast<int>(sources.size());
  for (int i = 0; same && i < lstSources_->count(); ++i) {
    same = S(lstSources_->item(i)->text()) == sources[static_cast<size_t>(i)];
  }
  if (!same) {
    lstSources_->clear();
    for (const std::string& s : sources) lstSources_->addItem(Q(s));
  }

  // Copies first: setting the target can carry the log text along before the log is set.
  const std::string target = ctx_.settings.TargetPath;
  const std::string log = ctx_.settings.LogPath;
  if (S(txtTargetPath_->text()) != target) txtTargetPath_->setText(Q(target));
  if (S(txtLogPath_->text()) != log) txtLogPath_->setText(Q(log));
}

void MainWindow::AddClicked() {
  std::string folder = ctx_.dialogs.PickFolder("Add a Source Directory", "");
  if (folder.empty()) return;
  AddSource(ctx_, folder);
  Refresh();
}

void MainWindow::RemoveClicked() {
  std::vector<int> rows;
  for (QListWidgetItem* item : lstSources_->selectedItems()) rows.push_back(lstSources_->row(item));
  std::sort(rows.rbegin(), rows.rend());
  std::vector<std::string>& sources = ctx_.settings.Sources;
  for (int row : rows) {
    if (row >= 0 && static_cast<size_t>(row) < sources.size()) {
      sources.erase(sources.begin() + row);
    }
  }
  Refresh();
}

void MainWindow::BrowseTargetClicked() {
  std::string folder =
      ctx_.dialogs.PickFolder("Choose a Target Directory", ctx_.settings.TargetPath);
  if (!folder.empty()) txtTargetPath_->setText(Q(folder));
}

void MainWindow::BrowseLogPathClicked() {
  std::string folder =
      ctx_.dialogs.PickFolder("Choose a Path for Log Files", ctx_.settings.LogPath);
  if (!folder.empty()) txtLogPath_->setText(Q(folder));
}

void MainWindow::RunClicked() {
  if (inRun_) return;
  inRun_ = true;
  ExecResult result = ExecCopy(ctx_);
  inRun_ = false;
  Refresh();
  if (result.endProgram) {
    endedByRun_ = true;
    emit programEndRequested();
  }
}

void MainWindow::CancelClicked() { ctx_.counters.CancelRequested = true; }

void MainWindow::closeEvent(QCloseEvent* event) {
  // Closing during a run asks the run to stop; the window goes once the run has ended.
  if (inRun_) {
    ctx_.counters.CancelRequested = true;
    event->ignore();
    return;
  }
  event->accept();
}

void MainWindow::TargetChanged(const QString& text) {
  ctx_.settings.TargetPath = S(text);
  if (std::optional<std::string> log =
          TargetFollowsLog(ctx_.settings.TargetPath, S(txtLogPath_->text()))) {
    txtLogPath_->setText(Q(*log));
  }
}

void MainWindow::LogChanged(const QString& text) { ctx_.settings.LogPath = S(text); }

}  // namespace qr::gui
