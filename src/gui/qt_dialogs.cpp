#include "qt_dialogs.h"

#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>

namespace qr::gui {

namespace {

QMessageBox::Icon ToQt(Icon icon) {
  switch (icon) {
    case Icon::Information:
      return QMessageBox::Information;
    case Icon::Exclamation:
      return QMessageBox::Warning;
    case Icon::Critical:
      return QMessageBox::Critical;
    case Icon::Question:
      return QMessageBox::Question;
    case Icon::None:
      break;
  }
  return QMessageBox::NoIcon;
}

std::string FromQt(const QString& s) { return s.toUtf8().toStdString(); }

// The filter of the pickers is "Text (*.txt)|*.txt|All (*.*)|*.*" in the system's own form:
// description and pattern pairs split by "|". Qt wants "Text (*.txt);;All (*)".
QString QtFilter(const std::string& filter) {
  if (filter.empty()) return {};
  QStringList parts = QString::fromStdString(filter).split('|');
  QStringList out;
  for (qsizetype i = 0; i + 1 < parts.size(); i += 2) {
    QString pattern = parts[i + 1];
    pattern.replace(';', ' ');
    pattern.replace("*.*", "*");
    QString description = parts[i];
    if (!description.contains('(')) description += " (" + pattern + ")";
    out << description;
  }
  if (out.isEmpty()) return QString::fromStdString(filter);
  return out.join(";;");
}

}  // namespace

QString DisplayText(const std::string& text) {
  QString s = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
  s.replace("\r\n", "\n");
  s.replace('\r', '\n');
  return s;
}

void QtDialogs::BeforeShow() {
  if (beforeShow_) beforeShow_();
}

Answer QtDialogs::MessageBox(const std::string& text, const std::string& title, Icon icon,
                             Buttons buttons) {
  BeforeShow();
  QMessageBox box(ToQt(icon), DisplayText(title), DisplayText(text), QMessageBox::NoButton,
                  parent_);
  switch (buttons) {
    case Buttons::Ok:
      box.setStandardButtons(QMessageBox::Ok);
      box.setDefaultButton(QMessageBox::Ok);
      box.setEscapeButton(QMessageBox::Ok);
      break;
    case Buttons::OkCancel:
      box.setStandardButtons(QMessageBox::Ok | QMessageBox::Cancel);
      box.setDefaultButton(QMessageBox::Ok);
      box.setEscapeButton(QMessageBox::Cancel);
      break;
    case Buttons::YesNo:
      box.setStandardButtons(QMessageBox::Yes | QMessageBox::No);
      box.setDefaultButton(QMessageBox::Yes);
      box.setEscapeButton(QMessageBox::No);
      break;
    case Buttons::YesNoCancel:
      box.setStandardButtons(QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel);
      box.setDefaultButton(QMessageBox::Yes);
      box.setEscapeButton(QMessageBox::Cancel);
      break;
  }
  switch (box.exec()) {
    case QMessageBox::Yes:
      return Answer::Yes;
    case QMessageBox::No:
      return Answer::No;
    case QMessageBox::Cancel:
      return Answer::Cancel;
    default:
      break;
  }
  // A box closed by its title bar counts as its negative button, as Escape does.
  if (box.clickedButton() == nullptr) {
    if (buttons == Buttons::YesNo) return Answer::No;
    if (buttons == Buttons::OkCancel || buttons == Buttons::YesNoCancel) return Answer::Cancel;
  }
  return Answer::Ok;
}

std::optional<std::string> QtDialogs::InputBox(const std::string& prompt, const std::string& title,
                                               const std::string& defaultText) {
  BeforeShow();
  bool ok = false;
  QString answer = QInputDialog::getText(parent_, DisplayText(title), DisplayText(prompt),
                                         QLineEdit::Normal, DisplayText(defaultText), &ok);
  if (!ok) return std::nullopt;
  return FromQt(answer);
}

std::string QtDialogs::OpenFile(const std::string& title, const std::string& filter,
                                const std::string& startFolder) {
  BeforeShow();
  return FromQt(QFileDialog::getOpenFileName(
      parent_, DisplayText(title), QString::fromStdString(startFolder), QtFilter(filter)));
}

std::string QtDialogs::SaveFile(const std::string& title, const std::string& filter,
                                const std::string& startFolder) {
  BeforeShow();
  return FromQt(QFileDialog::getSaveFileName(
      parent_, DisplayText(title), QString::fromStdString(startFolder), QtFilter(filter)));
}

std::string QtDialogs::PickFolder(const std::string& title, const std::string& startFolder) {
  BeforeShow();
  return FromQt(QFileDialog::getExistingDirectory(parent_, DisplayText(title),
                                                  QString::fromStdString(startFolder)));
}

}  // namespace qr::gui
