#pragma once
// Text between the core (UTF-8, CR LF) and the widgets (QString, LF), and the small setters
// that leave a widget alone when it already shows the value, so a refresh never moves a cursor.
#include <QCheckBox>
#include <QLineEdit>
#include <QMimeData>
#include <QString>
#include <QUrl>
#include <string>
#include <vector>

namespace qr::gui {

inline QString Q(const std::string& s) {
  return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size()));
}
inline std::string S(const QString& s) { return s.toUtf8().toStdString(); }

// Multi-line boxes edit with LF; the core keeps the system's CR LF.
inline std::string WithCrLf(const QString& text) {
  QString t = text;
  t.replace("\n", "\r\n");
  return S(t);
}

inline void SetLine(QLineEdit* box, const std::string& text) {
  const QString q = Q(text);
  if (box->text() != q) box->setText(q);
}

inline void SetCheck(QCheckBox* box, bool on) {
  if (box->isChecked() != on) box->setChecked(on);
}

// The local files and folders that a drag carries, in drop order.
inline std::vector<std::string> DroppedPaths(const QMimeData* data) {
  std::vector<std::string> paths;
  if (data == nullptr || !data->hasUrls()) return paths;
  for (const QUrl& url : data->urls()) {
    if (url.isLocalFile()) paths.push_back(S(url.toLocalFile()));
  }
  return paths;
}

}  // namespace qr::gui
