// The minimal main window, offscreen: what it shows of the core's state and what it forwards.
#include "main_window.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTest>
#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>

#include "qt_dialogs.h"
#include "qt_event_pump.h"
#include "exec/run_driver.h"
#include "support/fake_dialogs.h"
#include "support/temp_dir.h"

namespace qr::gui {
namespace {

namespace fs = std::filesystem;

// One QApplication for the whole test program, made before the first test and gone before
// main returns, so that it never outlives Qt's own globals.
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

[[maybe_unused]] ::testing::Environment* const kQtEnvironment =
    ::testing::AddGlobalTestEnvironment(new QtApplicationEnvironment);

// The scripted dialogs, with the hook that the window program's dialogs have: the window is
// brought up to date before a box opens. Each box records what the window showed then.
class WindowDialogs : public test::FakeDialogs {
 public:
  struct Seen {
    std::string text;
    bool runEnabled;
    bool sourcesEnabled;
    bool targetEnabled;
    bool logEnabled;
    bool cancelEnabled;
    QString caption;
  };
  MainWindow* window = nullptr;
  std::vector<Seen> seen;
  // Done once, from inside the next box: what a person might do while a box is up.
  std::function<void()> inside;

  Answer MessageBox(const std::string& text, const std::string& title, Icon icon,
                    Buttons buttons) override {
    if (window != nullptr) {
      window->Refresh();
      seen.push_back({text, Child<QPushButton>("cmdRun")->isEnabled(),
                      Child<QListWidget>("lstSources")->isEnabled(),
                      Child<QLineEdit>("txtTargetPath")->isEnabled(),
                      Child<QLineEdit>("txtLogPath")->isEnabled(),
                      Child<QPushButton>("cmdCancel")->isEnabled(), window->windowTitle()});
      if (inside) {
        auto once = std::move(inside);
        inside = nullptr;
        once();
      }
    }
    return FakeDialogs::MessageBox(text, title, icon, buttons);
  }

  template <typename W>
  W* Child(const char* name) const {
    W* w = window->findChild<W*>(name);
    EXPECT_NE(w, nullptr) << name;
    return w;
  }
};

class MainWindowTest : public ::testing::Test {
 protected:
  WindowDialogs dialogs;
  QtEventPump pump;
  RunContext ctx{dialogs, pump};
};

TEST_F(MainWindowTest, TypingInTheTargetCarriesTheLogAlongUntilTheyDisagree) {
  MainWindow w(ctx);
  auto* target = w.findChild<QLineEdit*>("txtTargetPath");
  auto* log = w.findChild<QLineEdit*>("txtLogPath");
  ASSERT_TRUE(target && log);

  QTest::keyClicks(target, "/cases/42");
  // The log was empty, so "/" started nothing; from "/c" on the boxes never agreed.
  EXPECT_EQ(log->text(), "");

  log->setText("/cases/42");
  QTest::keyClicks(target, "/a");
  EXPECT_EQ(log->text(), "/cases/42/a");
  QTest::keyClick(target, Qt::Key_Backspace);
  QTest::keyClick(target, Qt::Key_Backspace);
  EXPECT_EQ(log->text(), "/cases/42");
  EXPECT_EQ(ctx.settings.TargetPath, "/cases/42");
  EXPECT_EQ(ctx.settings.LogPath, "/cases/42");

  // A log path of its own stays put.
  log->setText("/logs");
  QTest::keyClicks(target, "x");
  EXPECT_EQ(log->text(), "/logs");
  EXPECT_EQ(ctx.settings.TargetPath, "/cases/42x");
  EXPECT_EQ(ctx.settings.LogPath, "/logs");
}

TEST_F(MainWindowTest, PickersFillSourcesTargetAndLogAndRemoveTakesTheSelection) {
  MainWindow w(ctx);
  test::TempDir t;
  const std::string one = t.MakeDir("one"), two = t.MakeDir("two"), three = t.MakeDir("three");
  dialogs.picks = {one, two, "", three, "/target", "/logs"};
  QPushButton* add = w.findChild<QPushButton*>("cmdAdd");
  ASSERT_NE(add, nullptr);
  add->click();
  add->click();
  add->click();  // cancelled picker: nothing added
  add->click();
  EXPECT_EQ(ctx.settings.Sources, (std::vector<std::string>{one, two, three}));
  auto* list = w.findChild<QListWidget*>("lstSources");
  ASSERT_EQ(list->count(), 3);
  EXPECT_EQ(list->item(2)->text().toStdString(), three);

  list->item(0)->setSelected(true);
  list->item(2)->setSelected(true);
  w.findChild<QPushButton*>("cmdRemove")->click();
  EXPECT_EQ(ctx.settings.Sources, (std::vector<std::string>{two}));
  EXPECT_EQ(list->count(), 1);

  w.findChild<QPushButton*>("cmdBrowseTarget")->click();
  w.findChild<QPushButton*>("cmdBrowseLogPath")->click();
  EXPECT_EQ(ctx.settings.TargetPath, "/target");
  EXPECT_EQ(ctx.settings.LogPath, "/logs");
  EXPECT_EQ(w.findChild<QLineEdit*>("txtLogPath")->text(), "/logs");
}

TEST_F(MainWindowTest, AddGoesThroughTheSourceListRules) {
  MainWindow w(ctx);
  test::TempDir t;
  const std::string a = t.MakeDir("a"), inside = t.MakeDir("a/b");
  dialogs.picks = {a, inside, t / "missing"};
  QPushButton* add = w.findChild<QPushButton*>("cmdAdd");
  add->click();
  add->click();
  add->click();
  EXPECT_EQ(ctx.settings.Sources, std::vector<std::string>{a});
  ASSERT_EQ(dialogs.shown.size(), 2u);
  EXPECT_NE(dialogs.shown[0].text.find("This directory will not be added."), std::string::npos);
  EXPECT_NE(dialogs.shown[1].text.find("cannot be found on this machine."), std::string::npos);
}

TEST_F(MainWindowTest, CaptionIsTheTitleTextAndFollowsTheCore) {
  MainWindow w(ctx);
  EXPECT_EQ(w.windowTitle(), "Quillon Ravelin 2.2 Rover Edition");
  ctx.view.mainCaption = ctx.program.titleText + " - Copying";
  w.Refresh();
  EXPECT_EQ(w.windowTitle(), "Quillon Ravelin 2.2 Rover Edition - Copying");
}

TEST_F(MainWindowTest, RunControlsAreDisabledWhileARunIsActiveAndCancelStaysUsable) {
  test::TempDir t;
  t.MakeDir("empty source");
  ctx.settings.Sources = {t / "empty source"};
  ctx.settings.TargetPath = t / "target";
  ctx.settings.LogPath = t / "logs";
  // With nothing found and empty folders not wanted, the run says so in the middle of its work.
  ctx.settings.CopyEmpties = false;

  MainWindow w(ctx);
  dialogs.window = &w;
  dialogs.inside = [&w] { w.RunClicked(); };
  EXPECT_EQ(w.findChild<QLineEdit*>("txtTargetPath")->text().toStdString(), t / "target");
  w.findChild<QPushButton*>("cmdRun")->click();

  ASSERT_GE(dialogs.seen.size(), 2u) << testing::PrintToString(dialogs.Texts());
  const auto& notice = dialogs.seen[0];
  EXPECT_EQ(notice.text, "Please close all applications before continuing.");
  EXPECT_TRUE(notice.runEnabled);  // the notice comes before the run takes the window

  const auto& during = dialogs.seen[1];
  EXPECT_EQ(during.text, "There were no files found to copy.");
  EXPECT_FALSE(during.runEnabled);
  EXPECT_FALSE(during.sourcesEnabled);
  EXPECT_FALSE(during.targetEnabled);
  EXPECT_TRUE(during.logEnabled);
  EXPECT_TRUE(during.cancelEnabled);
  EXPECT_EQ(during.caption, "Quillon Ravelin 2.2 Rover Edition - Copying");

  // The Run clicked from inside the first box started no second run: one notice in all.
  const auto texts = dialogs.Texts();
  EXPECT_EQ(
      std::count(texts.begin(), texts.end(), "Please close all applications before continuing."),
      1);
  EXPECT_TRUE(w.findChild<QPushButton*>("cmdRun")->isEnabled());
  EXPECT_TRUE(w.findChild<QListWidget*>("lstSources")->isEnabled());
  EXPECT_EQ(w.windowTitle(), "Quillon Ravelin 2.2 Rover Edition");
  EXPECT_TRUE(fs::exists(t / "logs/_jobfile.rvj"));
  EXPECT_FALSE(w.endedByRun());
}

TEST_F(MainWindowTest, CancelAndClosingDuringARunRequestACancel) {
  test::TempDir t;
  MainWindow w(ctx);
  w.findChild<QPushButton*>("cmdCancel")->click();
  EXPECT_TRUE(ctx.counters.CancelRequested);
  ctx.counters.CancelRequested = false;

  ctx.settings.Sources = {t.MakeDir("src")};
  ctx.settings.TargetPath = t / "target";
  ctx.settings.LogPath = t / "target";
  w.Refresh();
  w.show();
  dialogs.window = &w;
  bool closedInside = true;
  bool cancelInside = false;
  dialogs.inside = [&] {
    closedInside = w.close();
    cancelInside = ctx.counters.CancelRequested;
  };
  w.findChild<QPushButton*>("cmdRun")->click();
  EXPECT_FALSE(closedInside);  // the window stays while its run goes on
  EXPECT_TRUE(cancelInside);
  EXPECT_TRUE(w.isVisible());
  // Outside a run the window simply closes.
  EXPECT_TRUE(w.close());
  EXPECT_FALSE(w.isVisible());
}

TEST_F(MainWindowTest, ARunWithTheSilentSwitchAsksTheProgramToEnd) {
  ctx.program.flags.silent = true;  // no sources: -silent ends the program without a box
  MainWindow w(ctx);
  bool endRequested = false;
  QObject::connect(&w, &MainWindow::programEndRequested, [&] { endRequested = true; });
  w.findChild<QPushButton*>("cmdRun")->click();
  EXPECT_TRUE(endRequested);
  EXPECT_TRUE(w.endedByRun());
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(MainWindowTest, ThePumpBringsTheWindowUpToDate) {
  MainWindow w(ctx);
  pump.setRefresh([&w] { w.Refresh(); });
  ctx.view.runControlsEnabled = false;
  ctx.settings.Sources = {"/from/a/job"};
  pump.Pump();
  EXPECT_FALSE(w.findChild<QPushButton*>("cmdRun")->isEnabled());
  EXPECT_EQ(w.findChild<QListWidget*>("lstSources")->count(), 1);
}

TEST(QtDialogsText, LineEndsBecomeLineFeedsForDisplay) {
  EXPECT_EQ(DisplayText("one\r\ntwo\r\n\r\nthree\rfour"), QString("one\ntwo\n\nthree\nfour"));
  EXPECT_EQ(DisplayText("caf\xc3\xa9"), QString::fromUtf8("caf\xc3\xa9"));
}

}  // namespace
}  // namespace qr::gui
