#include "job_manager.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDropEvent>
#include <QEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QUrl>
#include <utility>
#include <vector>

#include "exec/run_driver.h"
#include "jobdef/source_list.h"
#include "file_finder.h"
#include "file_type_picker.h"
#include "main_window.h"
#include "qt_dialogs.h"
#include "qt_text.h"
#include "ui/main_window.h"
#include "ui_job_manager.h"

namespace qr::gui {

namespace {

void SetPlain(QPlainTextEdit* box, const std::string& text) {
  const QString q = DisplayText(text);
  if (box->toPlainText() != q) box->setPlainText(q);
}

}  // namespace

JobManager::JobManager(RunContext& ctx, std::function<void(const std::string&)> addSourceToMain,
                       QWidget* parent)
    : QMainWindow(parent), ctx_(ctx), addSourceToMain_(std::move(addSourceToMain)),
      ui_(std::make_unique<Ui::frmLSW>()) {
  ui_->setupUi(this);
  // Without a main window (a test, say) the finder's files still go through the same rules.
  if (!addSourceToMain_) {
    addSourceToMain_ = [this](const std::string& path) {
      std::string source = path;
      AddSource(ctx_, source);
    };
  }
  setWindowFlag(Qt::Window);  // a window of its own beside the main window
  setWindowTitle(kJobManagerCaption);
  for (const FieldLabel& l : kJobManagerLabels) {
    // The labels carry their mnemonics; the words are the core's.
    const QString control(l.control);
    auto* label = findChild<QLabel*>("lbl" + control.mid(control.startsWith("list") ? 4 : 3));
    if (label != nullptr && label->text().remove('&') != QString(l.label)) {
      label->setText(l.label);
    }
  }
  // The help text lies on the pane itself; it scrolls only when the window is small.
  ui_->scrollHelp->viewport()->setAutoFillBackground(false);
  ui_->scrollHelpContents->setAutoFillBackground(false);
  ui_->listSources->viewport()->setAcceptDrops(true);
  ui_->listSources->viewport()->installEventFilter(this);
  Bind();
  BindHelp();
  Refresh();
}

JobManager::~JobManager() = default;

template <typename Action>
void JobManager::Do(Action action) {
  action();
  Refresh();
}

void JobManager::Bind() {
  PreparedJob& j = form_.job;
  // Every change of a box is the form's, also one that the file type picker writes.
  auto line = [this](QLineEdit* box, std::string PreparedJob::*field) {
    connect(box, &QLineEdit::textChanged, this, [this, field](const QString& t) {
      if (!refreshing_) form_.job.*field = S(t);
    });
  };
  line(ui_->txtOrderName, &PreparedJob::OrderName);
  line(ui_->txtCompName, &PreparedJob::CompName);
  line(ui_->txtTarget, &PreparedJob::Target);
  line(ui_->txtLogPath, &PreparedJob::LogPath);
  line(ui_->txtCommonLog, &PreparedJob::CommonLog);
  line(ui_->txtExt, &PreparedJob::Ext);
  line(ui_->txtExtFile, &PreparedJob::ExtFile);
  line(ui_->txtBeginMonth, &PreparedJob::BeginMonth);
  line(ui_->txtBeginDay, &PreparedJob::BeginDay);
  line(ui_->txtBeginYear, &PreparedJob::BeginYear);
  line(ui_->txtEndMonth, &PreparedJob::EndMonth);
  line(ui_->txtEndDay, &PreparedJob::EndDay);
  line(ui_->txtEndYear, &PreparedJob::EndYear);
  auto plain = [this](QPlainTextEdit* box, std::string PreparedJob::*field) {
    connect(box, &QPlainTextEdit::textChanged, this, [this, box, field] {
      if (!refreshing_) form_.job.*field = WithCrLf(box->toPlainText());
    });
  };
  plain(ui_->txtInstructions, &PreparedJob::Instructions);
  plain(ui_->txtErrorNotes, &PreparedJob::ErrorNotes);
  auto check = [this](QCheckBox* box, bool PreparedJob::*field) {
    connect(box, &QCheckBox::clicked, this, [this, field](bool on) {
      form_.job.*field = on;
      Do([&] { ShowHelp(form_, "Date Filtering"); });
    });
  };
  check(ui_->chkLSWSearchCreated, &PreparedJob::LSWSearchCreated);
  check(ui_->chkLSWSearchModified, &PreparedJob::LSWSearchModified);
  check(ui_->chkLSWSearchAccessed, &PreparedJob::LSWSearchAccessed);
  connect(ui_->cboExtAction, &QComboBox::activated, this, [&j](int i) { j.ExtAction = i; });

  connect(ui_->listSources, &QListWidget::itemSelectionChanged, this, [this] {
    if (refreshing_) return;
    form_.listSourcesSelected.clear();
    for (int i = 0; i < ui_->listSources->count(); ++i) {
      if (ui_->listSources->item(i)->isSelected()) form_.listSourcesSelected.push_back(i);
    }
  });
  connect(ui_->listSources, &QListWidget::itemDoubleClicked, this, [this](QListWidgetItem* item) {
    const int row = ui_->listSources->row(item);
    Do([&] { listSources_DblClick(ctx_, form_, row); });
  });

  auto click = [this](QPushButton* button, void (*action)(RunContext&, JobManagerForm&)) {
    connect(button, &QPushButton::clicked, this, [this, action] { Do([&] { action(ctx_, form_); }); });
  };
  auto menu = [this](QAction* entry, void (*action)(RunContext&, JobManagerForm&)) {
    connect(entry, &QAction::triggered, this, [this, action] { Do([&] { action(ctx_, form_); }); });
  };
  click(ui_->lnkTypePath, lnkTypePath_Click);
  menu(ui_->mnuTypeSource, lnkTypePath_Click);
  click(ui_->lnkAddFolder, lnkAddFolder_Click);
  menu(ui_->mnuAddFolder, lnkAddFolder_Click);
  click(ui_->lnkAddFileList, lnkAddFileList_Click);
  menu(ui_->mnuAddFileList, lnkAddFileList_Click);
  connect(ui_->lnkAddFile, &QPushButton::clicked, this, &JobManager::ShowFileFinder);
  connect(ui_->mnuAddSourceFile, &QAction::triggered, this, &JobManager::ShowFileFinder);
  connect(ui_->lnkRemove, &QPushButton::clicked, this, [this] { Do([&] { lnkRemove_Click(form_); }); });
  click(ui_->cmdLoad, cmdLoad_Click);
  menu(ui_->mnuLoadLSW, cmdLoad_Click);
  click(ui_->cmdSave, cmdSave_Click);
  click(ui_->cmdSaveAs, cmdSaveAs_Click);
  click(ui_->cmdBrowseTarget, cmdBrowseTarget_Click);
  click(ui_->cmdLogPath, cmdLogPath_Click);
  click(ui_->cmdCommonLog, cmdCommonLog_Click);
  click(ui_->cmdBrowseExt, cmdBrowseExt_Click);
  connect(ui_->cmdRun, &QPushButton::clicked, this, &JobManager::RunJob);
  connect(ui_->cmdAdvanced, &QPushButton::clicked, this, [this] {
    if (auto* main = qobject_cast<MainWindow*>(parentWidget())) main->ShowOptions();
  });
  connect(ui_->cmdBrowseFileTypes, &QPushButton::clicked, this, &JobManager::ShowFileTypes);
  connect(ui_->mnuClose, &QAction::triggered, this, &JobManager::CloseProgram);
  connect(ui_->mnuHashPath, &QAction::triggered, this, [this] { Do([&] { mnuHashPath_Click(ctx_); }); });
  connect(ui_->mnuAutorun, &QAction::triggered, this, [this] { Do([&] { mnuAutorun_Click(ctx_); }); });
  connect(ui_->mnuAbout, &QAction::triggered, this,
          [this] { mnuAboutRavelin_Click(ctx_, qVersion()); });
  connect(ui_->mnuLaunchHelp, &QAction::triggered, this, [this] { mnuRavelinHelp_Click(ctx_); });
}

void JobManager::BindHelp() {
  for (QWidget* w : std::initializer_list<QWidget*>{
           ui_->chkLSWSearchCreated, ui_->chkLSWSearchModified, ui_->chkLSWSearchAccessed,
           ui_->txtBeginYear, ui_->txtEndYear, ui_->txtExt, ui_->cboExtAction, ui_->txtExtFile,
           ui_->txtLogPath, ui_->txtTarget, ui_->listSources, ui_->txtErrorNotes,
           ui_->txtInstructions, ui_->txtOrderName, ui_->txtCompName, ui_->txtCommonLog}) {
    w->installEventFilter(this);
  }
}

bool JobManager::eventFilter(QObject* watched, QEvent* event) {
  const QEvent::Type type = event->type();
  if (watched == ui_->listSources->viewport() &&
      (type == QEvent::DragEnter || type == QEvent::DragMove || type == QEvent::Drop)) {
    auto* drop = static_cast<QDropEvent*>(event);
    std::vector<std::string> paths = DroppedPaths(drop->mimeData());
    if (paths.empty()) return QMainWindow::eventFilter(watched, event);
    drop->acceptProposedAction();
    if (type == QEvent::Drop) Do([&] { listSources_Dropped(form_, paths); });
    return true;
  }
  // Active Help: the mouse over a field, or the action combo taking the focus.
  const bool over = type == QEvent::Enter;
  const bool focus = type == QEvent::FocusIn && watched == ui_->cboExtAction;
  if (over || focus) {
    const char* topic = nullptr;
    if (watched == ui_->chkLSWSearchCreated || watched == ui_->chkLSWSearchModified ||
        watched == ui_->chkLSWSearchAccessed || watched == ui_->txtBeginYear ||
        watched == ui_->txtEndYear) {
      topic = "Date Filtering";
    } else if (watched == ui_->txtExt || (focus && watched == ui_->cboExtAction)) {
      topic = "Extension Filtering";
    } else if (watched == ui_->txtExtFile) {
      topic = "Using an Extension List File";
    } else if (watched == ui_->txtLogPath) {
      topic = "Log Path";
    } else if (watched == ui_->txtTarget) {
      topic = "Job Target Path";
    } else if (watched == ui_->listSources) {
      topic = "Add File Sources";
    } else if (watched == ui_->txtErrorNotes) {
      topic = "Error Notes";
    } else if (watched == ui_->txtInstructions) {
      topic = "Instructions";
    } else if (watched == ui_->txtOrderName) {
      topic = "Job Name";
    } else if (watched == ui_->txtCompName) {
      topic = "Computer Name Locking";
    } else if (watched == ui_->txtCommonLog) {
      topic = "Common Log";
    }
    if (topic != nullptr) Do([&] { ShowHelp(form_, topic); });
  }
  return QMainWindow::eventFilter(watched, event);
}

void JobManager::OpenJob(const std::string& jobFile) {
  Do([&] { OpenJobFile(ctx_, form_, jobFile); });
  show();
  raise();
  activateWindow();
}

void JobManager::RunJob() {
  Do([&] {
    cmdRun_Click(ctx_, form_, [this] {
      if (auto* main = qobject_cast<MainWindow*>(parentWidget())) {
        main->RunClicked();
      } else {
        ExecCopy(ctx_);
      }
    });
  });
}

void JobManager::ShowFileTypes() {
  if (picker_ == nullptr) picker_ = new FileTypePicker(ctx_, ui_->txtExt, this);
  picker_->Refresh();
  picker_->show();
  picker_->raise();
}

void JobManager::ShowFileFinder() {
  FileFinder* finder = nullptr;
  if (auto* main = qobject_cast<MainWindow*>(parentWidget())) finder = main->fileFinder();
  if (finder == nullptr) {
    finder = findChild<FileFinder*>();
    if (finder == nullptr) finder = new FileFinder(ctx_, addSourceToMain_, this);
  }
  finder->Refresh();
  finder->show();
  finder->raise();
}

void JobManager::CloseProgram() {
  // "Close" ends the program, as closing the main window does (which a run may refuse).
  if (auto* main = qobject_cast<MainWindow*>(parentWidget())) {
    if (!main->close()) return;
  }
  close();
}

void JobManager::Refresh() {
  refreshing_ = true;
  const PreparedJob& j = form_.job;
  SetLine(ui_->txtOrderName, j.OrderName);
  SetLine(ui_->txtCompName, j.CompName);
  SetPlain(ui_->txtInstructions, j.Instructions);
  SetPlain(ui_->txtErrorNotes, j.ErrorNotes);
  SetLine(ui_->txtTarget, j.Target);
  SetLine(ui_->txtLogPath, j.LogPath);
  SetLine(ui_->txtCommonLog, j.CommonLog);
  SetLine(ui_->txtExt, j.Ext);
  SetLine(ui_->txtExtFile, j.ExtFile);
  SetLine(ui_->txtBeginMonth, j.BeginMonth);
  SetLine(ui_->txtBeginDay, j.BeginDay);
  SetLine(ui_->txtBeginYear, j.BeginYear);
  SetLine(ui_->txtEndMonth, j.EndMonth);
  SetLine(ui_->txtEndDay, j.EndDay);
  SetLine(ui_->txtEndYear, j.EndYear);
  SetCheck(ui_->chkLSWSearchCreated, j.LSWSearchCreated);
  SetCheck(ui_->chkLSWSearchModified, j.LSWSearchModified);
  SetCheck(ui_->chkLSWSearchAccessed, j.LSWSearchAccessed);

  QComboBox* combo = ui_->cboExtAction;
  if (combo->count() != static_cast<int>(form_.cboExtAction.size())) {
    combo->clear();
    for (const std::string& s : form_.cboExtAction) combo->addItem(Q(s));
  }
  const int index = j.ExtAction >= 0 && j.ExtAction < combo->count() ? j.ExtAction : -1;
  if (combo->currentIndex() != index) combo->setCurrentIndex(index);

  QListWidget* list = ui_->listSources;
  bool same = list->count() == static_cast<int>(j.Sources.size());
  for (int i = 0; same && i < list->count(); ++i) {
    same = S(list->item(i)->text()) == j.Sources[static_cast<size_t>(i)];
  }
  if (!same) {
    list->clear();
    for (const std::string& s : j.Sources) list->addItem(Q(s));
    for (int row : form_.listSourcesSelected) {
      if (QListWidgetItem* item = list->item(row)) {
        item->setSelected(true);
        list->setCurrentItem(item, QItemSelectionModel::Current);
      }
    }
  }

  ui_->lblHelpTopic->setText(Q(form_.lblHelpTopic));
  ui_->lblHelpContent->setText(DisplayText(form_.lblHelpContent));
  // Neither a second run nor a load may reach into the run under way.
  const bool idle = ctx_.view.runControlsEnabled;
  for (QWidget* w : std::initializer_list<QWidget*>{ui_->cmdRun, ui_->cmdLoad}) {
    if (w->isEnabled() != idle) w->setEnabled(idle);
  }
  if (ui_->mnuLoadLSW->isEnabled() != idle) ui_->mnuLoadLSW->setEnabled(idle);
  refreshing_ = false;
}

}  // namespace qr::gui
