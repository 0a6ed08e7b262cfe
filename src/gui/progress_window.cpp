#include "progress_window.h"

#include <QCloseEvent>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>

#include "qt_text.h"
#include "twips.h"
#include "ui_progress_window.h"

namespace qr::gui {

ProgressWindow::ProgressWindow(RunContext& ctx, QWidget* parent)
    : QWidget(parent, Qt::Window), ctx_(ctx), ui_(std::make_unique<Ui::frmProgress>()) {
  ui_->setupUi(this);
  setObjectName("frmProgress");
  labels_ = {{{ui_->lblStatus, &ProgressPane::lblStatus, {}},
              {ui_->lblElapsedTime, &ProgressPane::lblElapsedTime, {}},
              {ui_->lblTimeRemaining, &ProgressPane::lblTimeRemaining, {}},
              {ui_->lblFilesCopied, &ProgressPane::lblFilesCopied, {}},
              {ui_->lblCurrentFile, &ProgressPane::lblCurrentFile, {}},
              {ui_->lblCurrentPath, &ProgressPane::lblCurrentPath, {}},
              {ui_->lblCurrentProcess, &ProgressPane::lblCurrentProcess, {}},
              {ui_->lblErrors, &ProgressPane::lblErrors, {}},
              {ui_->lblErrorCount, &ProgressPane::lblErrorCount, {}},
              {ui_->lblExclusions, &ProgressPane::lblExclusions, {}}}};
  // Drawn at the first Refresh whatever the pane holds.
  for (LabelBinding& b : labels_) b.shown = "\x01";
  frmProgress_Load(ctx_, form_);

  timeElapsed_ = new QTimer(this);
  timeElapsed_->setObjectName("timeElapsed");
  timeElapsed_->setInterval(100);
  connect(timeElapsed_, &QTimer::timeout, this, [this] {
    ProgressTimerTick(ctx_, Clock::now());
    Refresh();
  });

  connect(ui_->cmdShowErrors, &QPushButton::clicked, this, [this] {
    cmdShowErrors_Click(form_);
    Refresh();
  });
  connect(ui_->cmdSkip, &QPushButton::clicked, this, [this] { cmdSkip_Click(ctx_); });
  connect(ui_->cmdCancel, &QPushButton::clicked, this, [this] { cmdCancel_Click(ctx_); });
  Refresh();
}

ProgressWindow::~ProgressWindow() = default;

void ProgressWindow::Refresh() {
  const ProgressPane& p = ctx_.progress;
  // The pump calls this many times a second during a run: only what changed is touched.
  const QString caption = Q(form_.caption);
  if (windowTitle() != caption) setWindowTitle(caption);
  for (LabelBinding& b : labels_) {
    const std::string& text = p.*b.text;
    if (b.shown != text) {
      b.shown = text;
      b.label->setText(Q(text));
    }
  }

  const int progress = TwipsToPixels(p.progressWidth);
  if (progress != progressPixels_) {
    progressPixels_ = progress;
    ui_->Progress->setFixedWidth(progress);
  }
  const int progress1 = TwipsToPixels(p.progress1Width);
  if (progress1 != progress1Pixels_) {
    progress1Pixels_ = progress1;
    ui_->Progress1->setFixedWidth(progress1);
  }
  if (ui_->Progress1Track->isHidden() == p.byteBarVisible) {
    ui_->Progress1Track->setHidden(!p.byteBarVisible);
  }
  if (ui_->cmdSkip->isEnabled() != p.skipEnabled) ui_->cmdSkip->setEnabled(p.skipEnabled);

  // The list only grows during a run; anything else (a new run) draws it anew.
  QListWidget* list = ui_->listErrors;
  const int have = list->count();
  const int want = static_cast<int>(p.listErrors.size());
  auto entry = [&p](int i) { return Q(p.listErrors[static_cast<size_t>(i)]); };
  if (have > want || (have > 0 && list->item(have - 1)->text() != entry(have - 1))) list->clear();
  for (int i = list->count(); i < want; ++i) list->addItem(entry(i));

  const QString showErrors = Q(form_.cmdShowErrors);
  if (ui_->cmdShowErrors->text() != showErrors) ui_->cmdShowErrors->setText(showErrors);
  if (list->isHidden() == form_.listErrorsVisible) list->setHidden(!form_.listErrorsVisible);
  const QSize size(width(), TwipsToPixels(form_.heightTwips));
  if (minimumSize() != size || maximumSize() != size) setFixedSize(size);

  if (p.visible != isVisible()) setVisible(p.visible);
}

void ProgressWindow::closeEvent(QCloseEvent* event) {
  if (frmProgress_QueryUnload(ctx_)) {
    event->accept();
  } else {
    event->ignore();
  }
}

void ProgressWindow::showEvent(QShowEvent* event) {
  timeElapsed_->start();
  QWidget::showEvent(event);
}

void ProgressWindow::hideEvent(QHideEvent* event) {
  timeElapsed_->stop();
  QWidget::hideEvent(event);
}

}  // namespace qr::gui
