// The main window offscreen, through its real widgets: what its menus, toolbar, boxes, drops and
// file finder reach, whole collections run from it (a resumed one too), and its place written at
// close.
#include "main_window.h"

#include <signal.h>
#include <sys/wait.h>

#include <QMessageBox>
#include <QPixmap>
#include <QProcess>
#include <QTimer>
#include <QTreeWidget>
#include <algorithm>
#include <functional>
#include <set>
#include <thread>
#include <utility>

#include "cli/runner_process.h"
#include "exec/startup.h"
#include "file_finder.h"
#include "jobdb/db_connection.h"
#include "jobdef/settings_files.h"
#include "options_dialog.h"
#include "progress_window.h"
#include "qt_dialogs.h"
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
  // A sample tree of `n` files under t/src.
  void MakeTree(int n, size_t size) {
    for (int i = 0; i < n; ++i) {
      t.WriteFile("src/d" + std::to_string(i % 5) + "/f" + std::to_string(i) + ".bin",
                  std::string(size + i, static_cast<char>('a' + i % 26)));
    }
  }
  // Every file of t/src has its copy under `target` and one line in the job's CSV.
  void ExpectAllCollected(int n, const std::string& target, const std::string& logs) {
    const std::vector<std::string> csv = test::Utf16FileLines(logs + "/_verification_log.csv");
    for (int i = 0; i < n; ++i) {
      const std::string rel = "d" + std::to_string(i % 5) + "/f" + std::to_string(i) + ".bin";
      EXPECT_EQ(test::ReadBytes(target + "/src/" + rel), test::ReadBytes(t / ("src/" + rel)));
      EXPECT_TRUE(std::any_of(csv.begin(), csv.end(), [&](const std::string& line) {
        return line.find("/src/" + rel + ",") != std::string::npos;
      })) << rel;
    }
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
  // A selection made in the list is what Remove takes.
  Child<QListWidget>("lstSources")->item(1)->setSelected(true);
  Child<QPushButton>("cmdRemove")->click();
  EXPECT_EQ(ctx.settings.Sources, (std::vector<std::string>{a, other}));
}


TEST_F(MainWindowTest, FilesPickedInTheFinderReachTheMainWindowsSourceList) {
  t.WriteFile("case/b.txt", "b");
  t.WriteFile("case/a.txt", "a");
  t.WriteFile("case/c.txt", "c");
  t.WriteFile("case/inner/d.txt", "d");
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
}

TEST_F(MainWindowTest, AWholeCollectionRunFromTheWindow) {
  constexpr int kFiles = 30;
  MakeTree(kFiles, 200000);
  Open();
  window->show();
  dialogs.picks = {t / "src"};
  Child<QPushButton>("cmdAdd")->click();
  QTest::keyClicks(Child<QLineEdit>("txtTargetPath"), Q(t / "out"));
  Child<QLineEdit>("txtLogPath")->setText(Q(t / "logs"));

  // What the windows show at the pump points of the copying.
  int pumpsInRun = 0;
  bool controlsDisabled = true, progressShown = true;
  ProgressWindow* progress = window->progressWindow();
  QLabel* filesCopied = gui::Child<QLabel>(progress, "lblFilesCopied");
  QLabel* currentFile = gui::Child<QLabel>(progress, "lblCurrentFile");
  std::set<QString> filesCopiedSeen, currentFileSeen;
  pump.setRefresh([&] {
    windows.RefreshAll();
    if (!ctx.progress.visible) return;
    ++pumpsInRun;
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
  EXPECT_GT(pumpsInRun, 0);
  EXPECT_TRUE(controlsDisabled && progressShown) << "both for the whole run";
  // The labels move with the run: more than one count and file drawn while it copied.
  EXPECT_GT(filesCopiedSeen.size(), 2u);
  EXPECT_GT(currentFileSeen.size(), 2u);
  EXPECT_TRUE(std::all_of(currentFileSeen.begin(), currentFileSeen.end(), [](const QString& s) {
    return s.isEmpty() || s.startsWith("Current File: ");
  }));
  EXPECT_FALSE(progress->isVisible());
  EXPECT_EQ(window->windowTitle(), "Quillon Ravelin 2.2 Rover Edition");
  ExpectAllCollected(kFiles, t / "out", t / "logs");
}

TEST_F(MainWindowTest, AJobKilledMidCopyIsFinishedFromTheResumeMenu) {
  constexpr int kFiles = 300;
  MakeTree(kFiles, 40000);
  pid_t runner =
      test::StartRunner({"--yes", "--target", "out", "--log", "logs", "src"}, t.path(), -1, -1);
  auto completed = [&] {
    DbConnection c;
    if (!c.Open(t / "logs/_job.sdb")) return 0;
    try {
      return c.Query("Select file_key from tFiles where completed = '1'").RowCount();
    } catch (const std::exception&) {
      return 0;
    }
  };
  for (int i = 0; i < 3000 && completed() < kFiles / 4; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  kill(runner, SIGKILL);
  waitpid(runner, nullptr, 0);
  ASSERT_LT(completed(), kFiles) << "the run ended before it could be killed";

  Open();
  dialogs.picks = {t / "logs/_jobfile.rvj"};
  dialogs.answers = {Answer::Yes};  // continue from where it left off
  Child<QAction>("mnuResume")->trigger();
  ASSERT_FALSE(dialogs.shown.empty());
  EXPECT_EQ(dialogs.shown[0].text, "Do you wish to continue this job from where you left off?");
  EXPECT_NE(dialogs.shown.back().text.find("\r\nFiles copied: 300 of 300\r\n"), std::string::npos)
      << dialogs.shown.back().text;
  EXPECT_EQ(completed(), kFiles);
  ExpectAllCollected(kFiles, t / "out", t / "logs");
}

TEST_F(MainWindowTest, DuringARunTheRunControlsAreOffCancelWorksAndClosingOnlyCancels) {
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
  EXPECT_TRUE(window->close());  // outside a run the window simply closes
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

TEST_F(MainWindowTest, TheNormalPlaceAndSizeAreWrittenToRavelinIniAtClose) {
  ctx.program.app.appPath = t.path();
  Open();
  window->show();
  window->setGeometry(40, 30, 900, 600);
  QApplication::processEvents();
  const QRect normal = window->frameGeometry();  // the place as the desktop has it, with frame
  window->showMaximized();                       // a maximised window is written at its normal size
  QApplication::processEvents();
  ASSERT_TRUE(window->close());
  SaveOnClose(ctx);
  const std::string ini = t / "ravelin.ini";
  ASSERT_GE(normal.width(), 900);
  EXPECT_EQ(INIread(ini, "Geometry", "MainWidth"), std::to_string(normal.width() * 15));
  EXPECT_EQ(INIread(ini, "Geometry", "MainHeight"), std::to_string(normal.height() * 15));
  EXPECT_EQ(INIread(ini, "Geometry", "MainLeft"), std::to_string(normal.x() * 15));
  EXPECT_EQ(INIread(ini, "Geometry", "MainTop"), std::to_string(normal.y() * 15));
}

TEST(Screenshots, TheProgramRendersOnePictureAWindowAndAPageWithNoDisplay) {
  test::TempDir t;
  QProcess program;
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  for (const char* display : {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY"}) env.remove(display);
  program.setProcessEnvironment(env);
  program.start(QUILLON_RAVELIN_BINARY, {"--screenshots", Q(t / "shots")});
  ASSERT_TRUE(program.waitForFinished(120000));
  ASSERT_EQ(program.exitCode(), 0) << program.readAllStandardError().toStdString();
  test::FakeDialogs d;
  QtEventPump p;
  RunContext c{d, p};
  const int pages = OptionsDialog(c, nullptr).PageCount();
  std::vector<std::string> expected = {"main.png", "progress.png"};
  for (int i = 0; i < pages; ++i) expected.push_back("options_" + std::to_string(i) + ".png");
  for (const std::string& name : expected) {
    EXPECT_FALSE(QPixmap(Q(t / ("shots/" + name))).isNull()) << name;
  }
}

TEST(QtDialogs, LineEndsBecomeLineFeedsForDisplay) {
  EXPECT_EQ(DisplayText("one\r\ntwo\r\n\r\nthree\rfour"), QString("one\ntwo\n\nthree\nfour"));
  EXPECT_EQ(DisplayText("caf\xc3\xa9"), QString::fromUtf8("caf\xc3\xa9"));
}

// The real box, answered by a key as a person would: Enter takes its default button, Escape its
// negative one.
TEST(QtDialogs, EnterTakesTheDefaultButtonAndEscapeTheNegativeOne) {
  const struct {
    Buttons buttons;
    Answer enter, escape;
  } cases[] = {{Buttons::Ok, Answer::Ok, Answer::Ok},
               {Buttons::OkCancel, Answer::Ok, Answer::Cancel},
               {Buttons::YesNo, Answer::Yes, Answer::No},
               {Buttons::YesNoCancel, Answer::Yes, Answer::Cancel}};
  QtDialogs dialogs;
  for (const auto& c : cases) {
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Escape}) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(c.buttons) << " " << key);
      // Presses the key once the box is up; a box still up a second later is closed unanswered.
      int ticks = 0;
      QTimer poll;
      QObject::connect(&poll, &QTimer::timeout, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (box == nullptr) return;
        if (ticks++ == 0) QTest::keyClick(box, key);
        if (ticks > 100) box->done(-1);
      });
      poll.start(10);
      EXPECT_EQ(dialogs.MessageBox("Go on?", "Title", Icon::Question, c.buttons),
                key == Qt::Key_Return ? c.enter : c.escape);
    }
  }
}

}  // namespace
}  // namespace qr::gui
