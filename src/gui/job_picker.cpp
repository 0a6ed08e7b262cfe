#include "job_picker.h"

#include <QCloseEvent>
#include <QTimer>
#include <initializer_list>
#include <string>

#include "job_manager.h"
#include "main_window.h"
#include "qt_text.h"
#include "ui_job_picker.h"
#include "window_registry.h"

namespace qr::gui {

JobPicker::JobPicker(RunContext& ctx, MainWindow& main, WindowRegistry& windows, QWidget* parent)
    : QMainWindow(parent),
      ctx_(ctx),
      main_(main),
      windows_(windows),
      ui_(std::make_unique<Ui::frmJobs>()) {
  ui_->setupUi(this);
  // Shown and hidden by the run's view (-q hides it while a run works), so drawn while hidden.
  windows.Add(
      this, [this] { Refresh(); }, true);

  connect(ui_->lstJobs, &QListWidget::currentRowChanged, this, [this](int row) {
    if (refreshing_ || row < 0) return;
    lstJobs_Click(form_, row);
    Refresh();
  });
  connect(ui_->lstJobs, &QListWidget::itemDoubleClicked, this, [this](QListWidgetItem* item) {
    AfterRun(lstJobs_DblClick(ctx_, form_, ui_->lstJobs->row(item)));
  });
  connect(ui_->cmdRun, &QPushButton::clicked, this, &JobPicker::RunClicked);
  connect(ui_->cmdSettings, &QPushButton::clicked, this, [this] {
    if (!JobActionsEnabled(ctx_, form_)) return;
    if (std::optional<std::string> job = cmdSettings_Click(form_)) {
      main_.jobManager()->OpenJob(*job);
    }
  });
  connect(ui_->mnuResume, &QAction::triggered, this, [this] {
    if (!JobActionsEnabled(ctx_, form_)) return;
    main_.ResumeClicked();
    AfterRun(main_.endedByRun());
  });
  connect(ui_->cmdCancel, &QPushButton::clicked, this, &QWidget::close);
  Refresh();
}

JobPicker::~JobPicker() = default;

void JobPicker::Open() {
  frmJobs_Load(ctx_, form_);
  Refresh();
  raise();
  activateWindow();
}

void JobPicker::Refresh() {
  refreshing_ = true;
  QListWidget* list = ui_->lstJobs;
  bool same = list->count() == static_cast<int>(form_.jobs.size());
  for (int i = 0; same && i < list->count(); ++i) {
    same = list->item(i)->text() == Q(form_.jobs[static_cast<size_t>(i)].JobName);
  }
  if (!same) {
    list->clear();
    for (const JobEntry& job : form_.jobs) list->addItem(Q(job.JobName));
  }
  if (list->currentRow() != form_.lstJobsIndex) list->setCurrentRow(form_.lstJobsIndex);
  if (ui_->txtInstructions->toPlainText() != Q(form_.txtInstructions)) {
    ui_->txtInstructions->setPlainText(Q(form_.txtInstructions));
  }
  const bool enabled = JobActionsEnabled(ctx_, form_);
  for (QWidget* w : std::initializer_list<QWidget*>{ui_->cmdRun, ui_->cmdSettings}) {
    if (w->isEnabled() != enabled) w->setEnabled(enabled);
  }
  if (ui_->mnuResume->isEnabled() != enabled) ui_->mnuResume->setEnabled(enabled);
  if (isVisible() != ctx_.view.jobPickerVisible) setVisible(ctx_.view.jobPickerVisible);
  refreshing_ = false;
}

void JobPicker::RunClicked() { AfterRun(cmdRun_Click(ctx_, form_)); }

void JobPicker::RunIfOnlyOne() {
  if (!RunsAtOnce(ctx_.program.flags, form_)) return;
  lstJobs_Click(form_, 0);
  Refresh();
  RunClicked();
}

void JobPicker::AfterRun(bool endProgram) {
  // The pump skips rounds inside its interval: the run's last state may not be drawn yet.
  windows_.RefreshAll();
  if (endProgram) EndProgram();
}

void JobPicker::EndProgram() {
  endedProgram_ = true;
  emit programEndRequested();
}

void JobPicker::closeEvent(QCloseEvent* event) {
  // During a run, closing asks the run to stop; the program ends by the picker only between
  // runs, so a copy is never cut off half written.
  if (form_.inRun || ctx_.counters.RunActive) {
    ctx_.counters.CancelRequested = true;
    event->ignore();
    return;
  }
  event->accept();
  ctx_.view.jobPickerVisible = false;
  EndProgram();
}

std::unique_ptr<JobPicker> JobPicker::OpenAtStart(RunContext& ctx, MainWindow& main,
                                                  WindowRegistry& windows) {
  if (!OpensWithJobPicker(ctx.program.flags)) return nullptr;
  auto picker = std::make_unique<JobPicker>(ctx, main, windows);
  picker->Open();
  QTimer::singleShot(0, picker.get(), [p = picker.get()] { p->RunIfOnlyOne(); });
  return picker;
}

}  // namespace qr::gui
