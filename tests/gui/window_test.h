#pragma once
// What the window tests share: one QApplication for the whole test program, a run context whose
// pump draws every window on each call, a widget found by its name, and files dropped on a
// widget as a desktop drops them.
#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <QUrl>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "qt_event_pump.h"
#include "run/run_context.h"
#include "support/fake_dialogs.h"
#include "support/temp_dir.h"
#include "window_registry.h"

namespace qr::gui {

// Made before the first test and gone before main returns, so that it never outlives Qt's own
// globals.
class QtApplicationEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    app_ = std::make_unique<QApplication>(argc_, argv_);
  }
  void TearDown() override { app_.reset(); }

 private:
  int argc_ = 1;
  char name_[18] = "ravelin_gui_tests";
  char* argv_[2] = {name_, nullptr};
  std::unique_ptr<QApplication> app_;
};

inline ::testing::Environment* const kQtEnvironment =
    ::testing::AddGlobalTestEnvironment(new QtApplicationEnvironment);

// Every pump does its round, so a test sees each state a run passes through.
template <typename Dialogs = test::FakeDialogs>
struct WindowFixture : ::testing::Test {
  WindowFixture() { pump.setRefresh([this] { windows.RefreshAll(); }); }
  test::TempDir t;
  Dialogs dialogs;
  QtEventPump pump{std::chrono::nanoseconds(0)};
  RunContext ctx{dialogs, pump};
  WindowRegistry windows;
};

template <typename W>
W* Child(const QObject* parent, const char* name) {
  W* w = parent->findChild<W*>(name);
  EXPECT_NE(w, nullptr) << name;
  return w;
}

inline QString Q(const std::string& s) { return QString::fromStdString(s); }

// A drag of the paths enters the widget, which must take it, and the paths are dropped there.
inline void DropFiles(QWidget* on, const std::vector<std::string>& paths) {
  QMimeData data;
  QList<QUrl> urls;
  for (const std::string& p : paths) urls << QUrl::fromLocalFile(Q(p));
  data.setUrls(urls);
  QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
  QApplication::sendEvent(on, &enter);
  EXPECT_TRUE(enter.isAccepted());
  QDropEvent drop(QPointF(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
  QApplication::sendEvent(on, &drop);
}

}  // namespace qr::gui
