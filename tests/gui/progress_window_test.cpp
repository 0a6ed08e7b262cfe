// The progress window offscreen: what it draws of the pane, its error list, and the requests.
#include "progress_window.h"

#include <QFrame>

#include "twips.h"
#include "window_test.h"

namespace qr::gui {
namespace {

class ProgressWindowTest : public WindowFixture<> {
 protected:
  ProgressWindow window{ctx};

  template <typename W>
  W* Child(const char* name) {
    return gui::Child<W>(&window, name);
  }
  void Show() {
    ctx.progress.visible = true;
    window.Refresh();
  }
};

TEST_F(ProgressWindowTest, TheWindowDrawsThePaneAndItsErrorList) {
  Show();
  EXPECT_EQ(window.windowTitle(), "Quillon Ravelin 2.2 Rover Edition - Progress");
  auto* bar = Child<QFrame>("Progress");
  auto* bar1 = Child<QFrame>("Progress1");
  EXPECT_EQ(bar1->width(), TwipsToPixels(ctx.progress.progress1Width));
  ctx.progress.Progress_Set(100);
  window.Refresh();
  EXPECT_EQ(bar->width(), TwipsToPixels(ProgressPane::kProgressFullWidth));
  ctx.progress.byteBarVisible = ctx.progress.skipEnabled = false;
  window.Refresh();
  EXPECT_FALSE(bar1->isVisible() || Child<QPushButton>("cmdSkip")->isEnabled());

  ctx.progress.listErrors = {"/a : denied", "/b : denied"};
  window.Refresh();
  auto* button = Child<QPushButton>("cmdShowErrors");
  auto* list = Child<QListWidget>("listErrors");
  button->click();
  EXPECT_EQ(button->text(), "<< Hide Errors");
  EXPECT_TRUE(list->isVisible());
  EXPECT_EQ(window.height(), TwipsToPixels(kProgressErrorsHeightTwips));
  // Errors keep coming in; a new run starts the list over.
  ctx.progress.listErrors.push_back("/c : denied");
  window.Refresh();
  ASSERT_EQ(list->count(), 3);
  EXPECT_EQ(list->item(2)->text(), "/c : denied");
  ctx.progress.ResetValues();
  ctx.progress.listErrors = {"/d : denied"};
  window.Refresh();
  ASSERT_EQ(list->count(), 1);
  EXPECT_EQ(list->item(0)->text(), "/d : denied");
  button->click();
  EXPECT_EQ(button->text(), "Show Errors >>");
  EXPECT_EQ(window.height(), TwipsToPixels(kProgressHeightTwips));
}

TEST_F(ProgressWindowTest, SkipCancelAndClosingSetTheRequestsAndTheWindowStaysDuringARun) {
  Show();
  Child<QPushButton>("cmdSkip")->click();
  EXPECT_TRUE(ctx.counters.SkipRequested && !ctx.counters.CancelRequested);
  Child<QPushButton>("cmdCancel")->click();
  EXPECT_TRUE(ctx.counters.CancelRequested);

  ctx.counters.CancelRequested = false;
  ctx.counters.RunActive = true;
  EXPECT_FALSE(window.close());
  EXPECT_TRUE(ctx.counters.CancelRequested);

  // The run's end hides the window; closing outside a run still asks for a cancel.
  ctx.counters.RunActive = false;
  ctx.progress.visible = false;
  window.Refresh();
  EXPECT_FALSE(window.isVisible());
  Show();
  ctx.counters.CancelRequested = false;
  EXPECT_TRUE(window.close() && ctx.counters.CancelRequested);
}

TEST_F(ProgressWindowTest, TheTimerWritesTheElapsedTimeWhileTheWindowIsShown) {
  ctx.counters.RunActive = true;
  ctx.counters.StartTime = Clock::now() - std::chrono::seconds(65);
  Show();
  auto* label = Child<QLabel>("lblElapsedTime");
  EXPECT_TRUE(QTest::qWaitFor([&] { return label->text().startsWith("Elapsed Time: 00:00:01:0"); },
                              2000))
      << label->text().toStdString();
}

TEST_F(ProgressWindowTest, ThePumpDrawsAtMostOnceAnInterval) {
  QtEventPump slow(std::chrono::hours(1));
  slow.setRefresh([this] { window.Refresh(); });
  ctx.progress.visible = true;
  slow.Pump();
  EXPECT_TRUE(window.isVisible()) << "the first call draws at once";
  ctx.progress.lblCurrentFile = "Current File: b.txt";
  slow.Pump();
  EXPECT_EQ(Child<QLabel>("lblCurrentFile")->text(), "Current File: ");
  QtEventPump every(std::chrono::nanoseconds(0));
  every.setRefresh([this] { window.Refresh(); });
  every.Pump();
  EXPECT_EQ(Child<QLabel>("lblCurrentFile")->text(), "Current File: b.txt");
}

}  // namespace
}  // namespace qr::gui
