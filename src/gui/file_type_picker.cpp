#include "file_type_picker.h"

#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QShowEvent>
#include <QSignalBlocker>
#include <string>
#include <vector>

#include "qt_text.h"
#include "ui_file_type_picker.h"

namespace qr::gui {

namespace {

void SetList(QListWidget* list, const std::vector<std::string>& items, int current) {
  bool same = list->count() == static_cast<int>(items.size());
  for (int i = 0; same && i < list->count(); ++i) {
    same = S(list->item(i)->text()) == items[static_cast<size_t>(i)];
  }
  if (!same) {
    list->clear();
    for (const std::string& s : items) list->addItem(Q(s));
  }
  if (list->currentRow() != current) list->setCurrentRow(current);
}

}  // namespace

FileTypePicker::FileTypePicker(RunContext& ctx, QLineEdit* txtExt, QWidget* parent)
    : QDialog(parent), ctx_(ctx), txtExt_(txtExt), ui_(std::make_unique<Ui::frmFileDefs>()) {
  ui_->setupUi(this);
  setObjectName("frmFileDefs");
  Bind();
}

FileTypePicker::~FileTypePicker() = default;

void FileTypePicker::Bind() {
  connect(ui_->listFileCats, &QListWidget::currentRowChanged, this, [this](int row) {
    if (refreshing_) return;
    listFileCats_Click(ctx_, form_, row);
    Refresh();
  });
  connect(ui_->listFileDefs, &QListWidget::currentRowChanged, this, [this](int row) {
    if (!refreshing_) form_.listFileDefsIndex = row;
  });
  connect(ui_->cmdAddCat, &QPushButton::clicked, this, [this] { AddTerm(&cmdAddCat_Click); });
  connect(ui_->cmdAddType, &QPushButton::clicked, this, [this] { AddTerm(&cmdAddType_Click); });
  // Close, Escape and the window's close button all only hide the picker.
  connect(ui_->cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
  connect(this, &QDialog::rejected, this, [this] { cmdCancel_Click(form_); });
}

void FileTypePicker::AddTerm(void (*click)(const FileTypePickerForm&, std::string&)) {
  if (txtExt_.isNull()) return;
  std::string text = S(txtExt_->text());
  click(form_, text);
  txtExt_->setText(Q(text));
  // A line edit tells its owner of a person's change through textEdited only.
  emit txtExt_->textEdited(txtExt_->text());
}

void FileTypePicker::showEvent(QShowEvent* event) {
  frmFileDefs_Load(ctx_, form_);
  form_.visible = true;
  Refresh();
  QDialog::showEvent(event);
}

void FileTypePicker::Open() {
  show();
  raise();
  activateWindow();
}

void FileTypePicker::Refresh() {
  refreshing_ = true;
  SetList(ui_->listFileCats, form_.listFileCats, form_.listFileCatsIndex);
  SetList(ui_->listFileDefs, form_.listFileDefs, form_.listFileDefsIndex);
  ui_->lblComponentTypes->setText(Q(form_.lblComponentTypes));
  ui_->lblInstructions->setText(Q(form_.lblInstructions));
  refreshing_ = false;
}

}  // namespace qr::gui
