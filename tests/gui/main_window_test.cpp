// The main window offscreen, through its real widgets: what its menus, toolbar, boxes, drops and
// file finder reach, a whole collection run from it, and its place written at close. The
// progress window: what it draws of the pane, its error list, and the requests.
#include "main_window.h"

#include <sys/stat.h>

#include <QFrame>
#include <QMessageBox>
#include <QTimer>
#include <QTreeWidget>
#include <algorithm>
#include <functional>
#include <set>
#include <utility>

#include "exec/startup.h"
#include "file_finder.h"
#include "jobdef/settings_files.h"
#include "options_dialog.h"
#include "progress_window.h"
#include "qt_dialogs.h"
#include "twips.h"
#include "window_test.h"

namespace qr::gui {
namespace {

// The scripted dialogs, with the hook of the window program's dialogs: every window is brought
// up to date before a box opens. Each box records which of the main window's run controls were
// on then, as a 1 or 0 each in the order of kRunControls.
constexpr const char* kRunControls[] = {"cmdRun",   "lstSources", "txtTargetPath",
                                        "tbResume", "txtLogPath", "cmdCancel"};
class WindowDialogs : public test::FakeDialogs {
 public:
  MainWindow* window = nullptr;
  WindowRegistry* windows = nullptr;
  std::vector<std::string> seen;
  std::function<void()> inside;  // done once, from inside the next box, as a person might

  Answer MessageBox(const std::string& text, const std::string& title, Icon icon,
                    Buttons buttons) override {
    if (window != nullptr) {
      windows->RefreshAll();
      std::string on;
      for (const char* name : kRunControls) {
        on += Child<QObject>(window, name)->property("enabled").toBool() ? '1' : '0';
      }
      seen.push_back(on);
      if (inside) std::exchange(inside, nullptr)();
    }
    return FakeDialogs::MessageBox(text, title, icon, buttons);
  }
};

class MainWindowTest : public WindowFixture<WindowDialogs> {
 protected:
  MainWindowTest() { dialogs.windows = &windows; }
  template <typename W>
  W* Child(const char* name) {
    return gui::Child<W>(window.get(), name);
  }
  void Open() {
    window = std::make_unique<MainWindow>(ctx, windows);
    dialogs.window = window.get();
  }

  std::unique_ptr<MainWindow> window;
};

TEST_F(MainWindowTest, EveryMenuEntryAndToolbarButtonReachesItsAction) {
  Open();
  // The menu entry, its toolbar button, the picker both open.
  const char* entries[][3] = {
      {"mnuAddSource", "tbAddSource", "Add a Source Directory"},
      {"mnuAddFromList", "tbAddList", "Select a file list"},
      {"mnuChooseTargetFolder", "tbPickTarget", "Choose a Target Directory"},
      {"mnuResume", "tbResume", "Choose a Ravelin Job file to open"}};
  for (const auto& [menu, button, picker] : entries) {
    EXPECT_FALSE(Child<QAction>(button)->icon().pixmap(32, 32).isNull()) << button;
    dialogs.pickerTitles.clear();
    Child<QAction>(menu)->trigger();
    Child<QAction>(button)->trigger();
    EXPECT_EQ(dialogs.pickerTitles, std::vector<std::string>(2, picker)) << menu;
  }
  // Browse beside the target box, with a folder of its own choosing.
  dialogs.picks = {"/cases/42"};
  Child<QPushButton>("cmdBrowseTarget")->click();
  EXPECT_EQ(ctx.settings.TargetPath, "/cases/42");
  Child<QAction>("tbCopyOptions")->trigger();
  EXPECT_TRUE(window->optionsDialog()->isVisible());
  // Files are added through the file finder, which opens without a picker of its own.
  dialogs.pickerTitles.clear();
  for (const char* name : {"mnuAddSourceFiles", "tbAddFiles"}) {
    window->fileFinder()->hide();
    Child<QAction>(name)->trigger();
    EXPECT_TRUE(window->fileFinder()->isVisible()) << name;
  }
  EXPECT_TRUE(dialogs.pickerTitles.empty());
  dialogs.inputs = {std::nullopt};
  Child<QAction>("mnuAddManual")->trigger();
  EXPECT_EQ(dialogs.Texts(), std::vector<std::string>{"Type the path you wish to add."});
}

TEST_F(MainWindowTest, FilesAndFoldersDroppedOnTheFormOrItsControlsGoToAddSource) {
  Open();
  window->show();
  const std::string a = t.MakeDir("a"), inside = t.MakeDir("a/b"), f = t.WriteFile("f.txt", "x");
  const std::string other = t.MakeDir("other");
  DropFiles(Child<QListWidget>("lstSources")->viewport(), {a, inside});
  DropFiles(window.get(), {f});
  DropFiles(Child<QLineEdit>("txtTargetPath"), {other});
  DropFiles(Child<QPushButton>("cmdRun"), {t / "missing"});
  EXPECT_EQ(ctx.settings.Sources, (std::vector<std::string>{a, f, other}));
  EXPECT_EQ(Child<QListWidget>("lstSources")->count(), 3);
  EXPECT_EQ(Child<QLineEdit>("txtTargetPath")->text(), "");  // not taken as typed text
  EXPECT_EQ(dialogs.shown.size(), 2u) << "the folder inside a source, and the missing path";
  // A selection made in the list is what Remove takes; the last entry then is selected.
  Child<QListWidget>("lstSources")->item(2)->setSelected(true);
  Child<QListWidget>("lstSources")->item(1)->setSelected(true);
  Child<QPushButton>("cmdRemove")->click();
  EXPECT_EQ(ctx.settings.Sources, std::vector<std::string>{a});
  EXPECT_TRUE(Child<QListWidget>("lstSources")->item(0)->isSelected());
}


// A path's access and modification times, to the nanosecond.
std::string StampsOf(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(stat(path.c_str(), &st), 0) << path;
  return std::to_string(st.st_atim.tv_sec) + "." + std::to_string(st.st_atim.tv_nsec) + " " +
         std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec);
}

// Listing and picking leave every time as it was: evidence is looked at, not touched.
TEST_F(MainWindowTest, FilesPickedInTheFinderReachTheMainWindowsSourceList) {
  const std::vector<std::string> all = {
      t.WriteFile("case/b.txt", "b"), t.WriteFile("case/a.txt", "a"),
      t.WriteFile("case/c.txt", "c"), t.WriteFile("case/inner/d.txt", "d"), t / "case/inner",
      t / "case"};
  // Access times older than the modification times: any read or listing would move them.
  std::vector<std::string> before;
  for (size_t n = 0; n < all.size(); ++n) {
    test::SetTimes(all[n], {1000000000 + long(n), 111 * long(n)}, {1200000000, 222});
    before.push_back(StampsOf(all[n]));
  }
  Open();
  Child<QAction>("tbAddFiles")->trigger();
  FileFinder* finder = window->fileFinder();

  auto* files = gui::Child<QListWidget>(finder, "lstFiles");
  dialogs.picks = {t / "case/inner"};
  gui::Child<QPushButton>(finder, "cmdSourceBrowse")->click();
  EXPECT_EQ(files->count(), 1);
  auto* folder = gui::Child<QLineEdit>(finder, "txtSourceFolder");
  folder->clear();
  QTest::keyClicks(folder, Q(t / "case"));
  ASSERT_EQ(files->count(), 3);
  files->item(2)->setSelected(true);
  files->item(0)->setSelected(true);
  // The tree has followed the typed folder, opened one level at a time.
  const QTreeWidgetItem* current = gui::Child<QTreeWidget>(finder, "dDirs")->currentItem();
  ASSERT_NE(current, nullptr);
  EXPECT_EQ(current->text(0), "case");

  gui::Child<QPushButton>(finder, "OKButton")->click();
  EXPECT_EQ(ctx.settings.Sources, (std::vector<std::string>{t / "case/a.txt", t / "case/c.txt"}));
  EXPECT_EQ(Child<QListWidget>("lstSources")->count(), 2);
  EXPECT_TRUE(finder->isVisible()) << "OK adds and leaves the finder open";
  gui::Child<QPushButton>(finder, "CancelButton")->click();
  EXPECT_FALSE(finder->isVisible());
  for (size_t n = 0; n < all.size(); ++n) EXPECT_EQ(StampsOf(all[n]), before[n]) << all[n];
}

// What is copied and logged is the run's own business; here, what the windows show of it.
TEST_F(MainWindowTest, AWholeCollectionRunFromTheWindow) {
  for (int i = 0; i < 30; ++i) {
    t.WriteFile("src/d" + std::to_string(i % 5) + "/f" + std::to_string(i) + ".bin",
                std::string(200000 + i, static_cast<char>('a' + i % 26)));
  }
  Open();
  window->show();
  dialogs.picks = {t / "src"};
  Child<QPushButton>("cmdAdd")->click();
  QTest::keyClicks(Child<QLineEdit>("txtTargetPath"), Q(t / "out"));
  Child<QLineEdit>("txtLogPath")->setText(Q(t / "logs"));

  // What the windows show at the pump points of the copying.
  bool controlsDisabled = true, progressShown = true;
  ProgressWindow* progress = window->progressWindow();
  QLabel* filesCopied = gui::Child<QLabel>(progress, "lblFilesCopied");
  QLabel* currentFile = gui::Child<QLabel>(progress, "lblCurrentFile");
  std::set<QString> filesCopiedSeen, currentFileSeen;
  pump.setRefresh([&] {
    windows.RefreshAll();
    if (!ctx.progress.visible) return;
    controlsDisabled = controlsDisabled && !Child<QPushButton>("cmdRun")->isEnabled() &&
                       !Child<QAction>("mnuAddSource")->isEnabled() &&
                       window->windowTitle() == "Quillon Ravelin 2.2 Rover Edition - Copying";
    progressShown = progressShown && progress->isVisible();
    filesCopiedSeen.insert(filesCopied->text());
    currentFileSeen.insert(currentFile->text());
  });
  Child<QPushButton>("cmdRun")->click();

  const auto texts = dialogs.Texts();
  ASSERT_EQ(texts.size(), 2u) << testing::PrintToString(texts);
  EXPECT_EQ(texts[0], "Please close all applications before continuing.");
  EXPECT_NE(texts[1].find("\r\nFiles copied: 30 of 30\r\n"), std::string::npos) << texts[1];
  EXPECT_TRUE(controlsDisabled && progressShown) << "both for the whole run";
  // The labels move with the run: more than one count and file drawn while it copied.
  EXPECT_GT(filesCopiedSeen.size(), 2u);
  EXPECT_GT(currentFileSeen.size(), 2u);
  EXPECT_TRUE(std::all_of(currentFileSeen.begin(), currentFileSeen.end(), [](const QString& s) {
    return s.isEmpty() || s.startsWith("Current File: ");
  }));
  EXPECT_FALSE(progress->isVisible());
  EXPECT_EQ(window->windowTitle(), "Quillon Ravelin 2.2 Rover Edition");
  EXPECT_EQ(test::ReadBytes(t / "out/src/d4/f29.bin"), test::ReadBytes(t / "src/d4/f29.bin"));
}

TEST_F(MainWindowTest, DuringARunTheRunControlsAreOffCancelWorksAndClosingOnlyCancels) {
  ctx.program.app.appPath = t.path();
  t.MakeDir("empty source");
  ctx.settings.Sources = {t / "empty source"};
  ctx.settings.TargetPath = t / "target";
  ctx.settings.LogPath = t / "logs";
  // With nothing found and empty folders not wanted, the run says so in the middle of its work.
  ctx.settings.CopyEmpties = false;
  Open();
  window->show();
  bool closed = true;
  dialogs.inside = [&] { window->RunClicked(); };  // from inside the notice: no second run
  Child<QPushButton>("cmdRun")->click();
  const auto texts = dialogs.Texts();
  ASSERT_GE(texts.size(), 2u);
  EXPECT_EQ(dialogs.seen[0], "111111");  // the notice comes before the run takes the window
  EXPECT_EQ(texts[1], "There were no files found to copy.");
  EXPECT_EQ(dialogs.seen[1], "000011") << "the log path and Cancel stay on";
  EXPECT_EQ(std::count(texts.begin(), texts.end(), texts[0]), 1) << "no second run";

  dialogs.inside = [&] {
    Child<QPushButton>("cmdCancel")->click();
    EXPECT_TRUE(ctx.counters.CancelRequested);
    ctx.counters.CancelRequested = false;
    closed = window->close();
  };
  Child<QPushButton>("cmdRun")->click();
  EXPECT_FALSE(closed);  // the window stays while its run goes on
  EXPECT_TRUE(Child<QPushButton>("cmdRun")->isEnabled());

  // Outside a run the window closes, and keeps its normal place and size with the frame as
  // the desktop has it, also when it was maximised.
  window->setGeometry(40, 30, 900, 600);
  QApplication::processEvents();
  const QRect normal = window->frameGeometry();
  window->showMaximized();
  QApplication::processEvents();
  EXPECT_TRUE(window->close());
  SaveOnClose(ctx);
  EXPECT_EQ(INIread(t / "ravelin.ini", "Geometry", "MainWidth"), std::to_string(normal.width() * 15));
}

TEST_F(MainWindowTest, ARunWithTheSilentSwitchAsksTheProgramToEnd) {
  ctx.program.flags.silent = true;  // no sources: -silent ends the program without a box
  Open();
  bool endRequested = false;
  QObject::connect(window.get(), &MainWindow::programEndRequested, [&] { endRequested = true; });
  Child<QPushButton>("cmdRun")->click();
  EXPECT_TRUE(endRequested && window->endedByRun());
  EXPECT_TRUE(dialogs.shown.empty());
}

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

TEST_F(ProgressWindowTest, TheWindowDrawsThePaneItsErrorListAndItsTimer) {
  ctx.counters.RunActive = true;
  ctx.counters.StartTime = Clock::now() - std::chrono::seconds(65);
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

  // The window's own timer writes the elapsed time while it is shown.
  auto* label = Child<QLabel>("lblElapsedTime");
  EXPECT_TRUE(QTest::qWaitFor([&] { return label->text().startsWith("Elapsed Time: 00:00:01:0"); },
                              2000))
      << label->text().toStdString();
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

TEST(QtDialogs, LineEndsBecomeLineFeedsForDisplay) {
  EXPECT_EQ(DisplayText("one\r\ntwo\r\n\r\nthree\rfour"), QString("one\ntwo\n\nthree\nfour"));
  EXPECT_EQ(DisplayText("caf\xc3\xa9"), QString::fromUtf8("caf\xc3\xa9"));
}

// The real box, answered by a key as a person would: Enter takes its default button, Escape its
// negative one. A box still up a second later is closed unanswered, so that no case hangs.
TEST(QtDialogs, EnterTakesTheDefaultButtonAndEscapeTheNegativeOne) {
  const struct {
    Buttons buttons;
    Answer enter, escape;
  } cases[] = {{Buttons::OkCancel, Answer::Ok, Answer::Cancel},
               {Buttons::YesNo, Answer::Yes, Answer::No},
               {Buttons::YesNoCancel, Answer::Yes, Answer::Cancel}};
  QtDialogs dialogs;
  for (const auto& c : cases) {
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Escape}) {
      QTimer::singleShot(0, [key] { QTest::keyClick(QApplication::activeModalWidget(), key); });
      QTimer guard;
      guard.setSingleShot(true);
      QObject::connect(&guard, &QTimer::timeout, [] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) box->done(-1);
      });
      guard.start(1000);
      EXPECT_EQ(dialogs.MessageBox("Go on?", "Title", Icon::Question, c.buttons),
                key == Qt::Key_Return ? c.enter : c.escape)
          << static_cast<int>(c.buttons) << " " << key;
    }
  }
}

}  // namespace
}  // namespace qr::gui
