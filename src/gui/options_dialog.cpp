#include "options_dialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QUrl>
#include <algorithm>
#include <utility>

#include "qt_dialogs.h"
#include "qt_text.h"
#include "twips.h"
#include "ui_options_dialog.h"

namespace qr::gui {

namespace {

void SetItems(QComboBox* combo, const std::vector<std::string>& items) {
  bool same = combo->count() == static_cast<int>(items.size());
  for (int i = 0; same && i < combo->count(); ++i) {
    same = S(combo->itemText(i)) == items[static_cast<size_t>(i)];
  }
  if (same) return;
  combo->clear();
  for (const std::string& s : items) combo->addItem(Q(s));
}

void SetIndex(QComboBox* combo, int index) {
  if (index < 0 || index >= combo->count()) index = -1;
  if (combo->currentIndex() != index) combo->setCurrentIndex(index);
}

void SetList(QListWidget* list, const std::vector<std::string>& items,
             const std::vector<int>& selected) {
  bool same = list->count() == static_cast<int>(items.size());
  for (int i = 0; same && i < list->count(); ++i) {
    same = S(list->item(i)->text()) == items[static_cast<size_t>(i)];
  }
  if (same) return;
  list->clear();
  for (const std::string& s : items) list->addItem(Q(s));
  for (int i : selected) {
    if (i >= 0 && i < list->count()) list->item(i)->setSelected(true);
  }
}

std::vector<int> Selection(const QListWidget* list) {
  std::vector<int> rows;
  for (QListWidgetItem* item : list->selectedItems()) rows.push_back(list->row(item));
  return rows;
}

}  // namespace

OptionsDialog::OptionsDialog(RunContext& ctx, std::function<void(const std::string&)> addSource,
                             QWidget* parent)
    : QDialog(parent), ctx_(ctx), addSource_(std::move(addSource)),
      ui_(std::make_unique<Ui::frmOptions>()) {
  ui_->setupUi(this);
  setObjectName("frmOptions");
  setAcceptDrops(true);
  ui_->driveList->hide();
  // The settings half of the load has run at start-up; here only the dialog's own lists.
  FillOptionsForm(form_);
  resize(std::max(width(), 700), TwipsToPixels(kOptionsHeightTwips));
  Bind();
  Refresh();
}

OptionsDialog::~OptionsDialog() = default;

void OptionsDialog::SetAddSource(std::function<void(const std::string&)> addSource) {
  addSource_ = std::move(addSource);
}

void OptionsDialog::Load() {
  frmOptions_Load(ctx_, form_);
  Refresh();
}

void OptionsDialog::Bind() {
  JobSettings& s = ctx_.settings;
  // Only a person's actions are forwarded (clicked, textEdited, activated): Refresh sets the
  // widgets without running the rules again.
  for (const OptionCheck& box : kOptionChecks) {
    auto* w = findChild<QCheckBox*>(box.control);
    connect(w, &QCheckBox::clicked, this, [this, &s, &box](bool on) {
      OptionCheck_Click(s, box, on);
      Refresh();
    });
  }
  for (const OptionText& text : kOptionTexts) {
    if (auto* line = findChild<QLineEdit*>(text.control)) {
      connect(line, &QLineEdit::textEdited, this,
              [&s, &text](const QString& t) { s.*text.field = S(t); });
    } else if (auto* edit = findChild<QPlainTextEdit*>(text.control)) {
      connect(edit, &QPlainTextEdit::textChanged, this,
              [&s, &text, edit] { s.*text.field = WithCrLf(edit->toPlainText()); });
    }
  }
  connect(ui_->cboCollision, &QComboBox::activated, this, [&s](int i) { s.Collision = i; });
  connect(ui_->cboExtension, &QComboBox::activated, this, [&s](int i) { s.Extension = i; });
  connect(ui_->cboOptionTypes, &QComboBox::currentIndexChanged, this, [this](int i) {
    cboOptionTypes_Click(form_, i);
    Refresh();
  });

  connect(ui_->txtNewExclusion, &QLineEdit::textEdited, this,
          [this](const QString& t) { form_.txtNewExclusion = S(t); });
  connect(ui_->txtNewInclusion, &QLineEdit::textEdited, this,
          [this](const QString& t) { form_.txtNewInclusion = S(t); });
  connect(ui_->listExclusions, &QListWidget::itemSelectionChanged, this,
          &OptionsDialog::ReadSelections);
  connect(ui_->lstInclusions, &QListWidget::itemSelectionChanged, this,
          &OptionsDialog::ReadSelections);
  auto action = [this](QPushButton* button, void (*click)(RunContext&, OptionsForm&)) {
    connect(button, &QPushButton::clicked, this, [this, click] {
      click(ctx_, form_);
      Refresh();
    });
  };
  action(ui_->cmdAddExclusion, &cmdAddExclusion_Click);
  action(ui_->cmdAddInclusion, &cmdAddInclusion_Click);
  action(ui_->cmdRemovePattern, &cmdRemovePattern_Click);
  action(ui_->cmdRemoveInclusion, &cmdRemoveInclusion_Click);
  connect(ui_->cmdExtBrowse, &QPushButton::clicked, this, [this] {
    cmdExtBrowse_Click(ctx_);
    Refresh();
  });

  connect(ui_->OKButton, &QPushButton::clicked, this, [this] {
    OKButton_Click(ctx_, form_);
    if (!form_.visible) done(QDialog::Accepted);
  });
  // Cancel, Escape and the window's close button all only hide the dialog.
  connect(ui_->CancelButton, &QPushButton::clicked, this, &QDialog::reject);
  connect(this, &QDialog::rejected, this, [this] { CancelButton_Click(form_); });
}

void OptionsDialog::ReadSelections() {
  form_.listExclusionsSelected = Selection(ui_->listExclusions);
  form_.lstInclusionsSelected = Selection(ui_->lstInclusions);
}

void OptionsDialog::Refresh() {
  const JobSettings& s = ctx_.settings;
  for (const OptionCheck& box : kOptionChecks) {
    auto* w = findChild<QCheckBox*>(box.control);
    if (w->isChecked() != s.*box.field) w->setChecked(s.*box.field);
    const bool enabled = OptionEnabled(s, box.enabled);
    if (w->isEnabled() != enabled) w->setEnabled(enabled);
  }
  for (const OptionText& text : kOptionTexts) {
    QWidget* w = nullptr;
    if (auto* line = findChild<QLineEdit*>(text.control)) {
      SetLine(line, s.*text.field);
      w = line;
    } else if (auto* edit = findChild<QPlainTextEdit*>(text.control)) {
      if (edit->toPlainText() != DisplayText(s.*text.field)) {
        const QSignalBlocker quiet(edit);
        edit->setPlainText(DisplayText(s.*text.field));
      }
      w = edit;
    }
    const bool enabled = OptionEnabled(s, text.enabled);
    if (w != nullptr && w->isEnabled() != enabled) w->setEnabled(enabled);
  }

  {
    const QSignalBlocker quiet(ui_->cboOptionTypes);
    SetItems(ui_->cboOptionTypes, form_.cboOptionTypes);
    SetIndex(ui_->cboOptionTypes, form_.cboOptionTypesIndex);
  }
  SetItems(ui_->cboCollision, form_.cboCollision);
  SetIndex(ui_->cboCollision, s.Collision);
  SetItems(ui_->cboExtension, form_.cboExtension);
  SetIndex(ui_->cboExtension, s.Extension);
  for (const char* name : kOptionFrames) {
    auto* frame = findChild<QGroupBox*>(name);
    const bool shown = form_.visibleFrame == name;
    if (frame->isHidden() == shown) frame->setHidden(!shown);
  }

  SetLine(ui_->txtNewExclusion, form_.txtNewExclusion);
  SetLine(ui_->txtNewInclusion, form_.txtNewInclusion);
  {
    const QSignalBlocker quietExclusions(ui_->listExclusions);
    const QSignalBlocker quietInclusions(ui_->lstInclusions);
    SetList(ui_->listExclusions, s.ExclusionPatterns, form_.listExclusionsSelected);
    SetList(ui_->lstInclusions, s.InclusionPatterns, form_.lstInclusionsSelected);
  }
  ReadSelections();
  ui_->lblDirections->setText(DisplayText(form_.lblDirections));
  ui_->lblInclusionInst->setText(DisplayText(form_.lblInclusionInst));
}

void OptionsDialog::ShowPage(int index) { ui_->cboOptionTypes->setCurrentIndex(index); }

int OptionsDialog::PageCount() const { return ui_->cboOptionTypes->count(); }

void OptionsDialog::showEvent(QShowEvent* event) {
  // Other windows and job files change the options while the dialog is hidden.
  form_.visible = true;
  Refresh();
  QDialog::showEvent(event);
}

void OptionsDialog::dragEnterEvent(QDragEnterEvent* event) {
  if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void OptionsDialog::dropEvent(QDropEvent* event) {
  std::vector<std::string> paths;
  for (const QUrl& url : event->mimeData()->urls()) {
    paths.push_back(S(url.isLocalFile() ? url.toLocalFile() : url.toString()));
  }
  OptionsDropped(paths, addSource_);
  event->acceptProposedAction();
}

}  // namespace qr::gui
