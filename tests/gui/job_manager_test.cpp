// The job manager offscreen, through its widgets: a job typed, saved and loaded back, Active
// Help, the file type picker, a damaged job file, and a job run through the main window.
#include "job_manager.h"

#include <filesystem>

#include "file_finder.h"
#include "file_type_picker.h"
#include "main_window.h"
#include "options_dialog.h"
#include "progress_window.h"
#include "window_test.h"

namespace qr::gui {
namespace {

namespace fs = std::filesystem;

class JobManagerWindowTest : public WindowFixture<> {
 protected:
  void SetUp() override { ctx.program.app.programFolder = t.MakeDir("program") + "/"; }

  template <typename W>
  W* Child(const char* name) {
    return gui::Child<W>(&manager, name);
  }
  void Hover(const char* name) {
    QEvent enter(QEvent::Enter);
    QCoreApplication::sendEvent(Child<QWidget>(name), &enter);
  }
  QString Help() { return Child<QLabel>("lblHelpTopic")->text(); }

  JobManager manager{ctx, nullptr};
};

TEST_F(JobManagerWindowTest, AJobTypedSavedAndLoadedBackThroughTheWidgets) {
  EXPECT_EQ(manager.windowTitle(), "Lantern Sweep Job Manager");
  EXPECT_EQ(Child<QLabel>("lblOrderName")->text(), "Job &Name:");  // the form's mnemonic kept
  QTest::keyClicks(Child<QLineEdit>("txtOrderName"), "Payroll");
  QTest::keyClicks(Child<QPlainTextEdit>("txtInstructions"), "Call Ann");
  QTest::keyClicks(Child<QLineEdit>("txtCompName"), "HOST-9");
  QTest::keyClicks(Child<QLineEdit>("txtBeginMonth"), "13");  // out of range: not written
  QTest::keyClicks(Child<QLineEdit>("txtEndYear"), "2025");
  Child<QLineEdit>("txtLogPath")->clear();
  QTest::keyClicks(Child<QLineEdit>("txtLogPath"), "[RVDrive]/logs");
  Child<QCheckBox>("chkLSWSearchAccessed")->click();
  QComboBox* action = Child<QComboBox>("cboExtAction");
  action->setFocus();
  QTest::keyClick(action, Qt::Key_Down);
  dialogs.inputs = {"[LDrive]"};
  Child<QPushButton>("lnkTypePath")->click();
  ctx.settings.ExclusionPatterns = {"*.tmp"};

  t.MakeDir("jobs");
  dialogs.picks = {t / "jobs/payroll"};
  Child<QPushButton>("cmdSave")->click();
  const std::string saved = test::ReadBytes(t / "jobs/payroll.lsw");
  for (const char* line : {"[JNAME]\tPayroll\r\n", "[JINSTRUCT]\tCall Ann\r\n",
                           "[JPATH]\t[RVDrive]/logs\r\n", "[SRC]\t[LDrive]\r\n",
                           "[EXCLUSION]\t*.tmp\r\n", "[EYEAR]\t2025\r\n",
                           "[SEARCHACCESSED]\t1\r\n", "[EXTOP]\t1\r\n", "[CNAME]\tHOST-9\r\n"}) {
    EXPECT_NE(saved.find(line), std::string::npos) << line << "\n" << saved;
  }
  EXPECT_EQ(saved.find("[BMONTH]"), std::string::npos);

  // Loaded into another manager's widgets and saved from there, every field comes back.
  JobManager other(ctx, nullptr);
  dialogs.picks = {t / "jobs/payroll.lsw", t / "jobs/copy"};
  gui::Child<QPushButton>(&other, "cmdLoad")->click();
  gui::Child<QPushButton>(&other, "cmdSaveAs")->click();
  EXPECT_EQ(test::ReadBytes(t / "jobs/copy.lsw"), saved);

  // Loaded from a .lsw, Save writes back to it without asking.
  const size_t asked = dialogs.pickerTitles.size();
  QTest::keyClicks(gui::Child<QLineEdit>(&other, "txtOrderName"), " 2");
  gui::Child<QPushButton>(&other, "cmdSave")->click();
  EXPECT_EQ(dialogs.pickerTitles.size(), asked);
  EXPECT_NE(test::ReadBytes(t / "jobs/payroll.lsw").find("[JNAME]\tPayroll 2\r\n"),
            std::string::npos);

  // A damaged job file is said, and the window keeps what it shows.
  const size_t boxes = dialogs.shown.size();
  other.OpenJob(t.WriteFile("_lsw/broken.lsw", std::string("\x7f" "ELF\0\0\0\t[JNAME]", 12)));
  EXPECT_EQ(dialogs.shown.size(), boxes + 1);
  EXPECT_EQ(gui::Child<QLineEdit>(&other, "txtOrderName")->text(), "Payroll 2");
}

TEST_F(JobManagerWindowTest, ActiveHelpFollowsTheMouseAndStaysWhenItLeaves) {
  Hover("txtTarget");
  EXPECT_TRUE(Child<QLabel>("lblHelpContent")->text().startsWith("Type the path that you want"));
  Hover("cmdRun");  // no topic of its own: the pane keeps what it had
  EXPECT_EQ(Help(), "Job Target Path");
  Hover("txtCommonLog");
  EXPECT_EQ(Help(), "Common Log");
  manager.show();
  manager.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&manager));
  Child<QComboBox>("cboExtAction")->setFocus();
  EXPECT_EQ(Help(), "Extension Filtering");
  Child<QCheckBox>("chkLSWSearchModified")->click();
  EXPECT_EQ(Help(), "Date Filtering");
}

TEST_F(JobManagerWindowTest, FileTypesAddFileAndDropsReachTheirWindowsAndTheList) {
  t.WriteFile("program/_filetypes/filetypes.txt",
              "Images\tPNG Image\tpng\t^\\x89PNG\t0\n"
              "Documents\tPDF Document\tpdf\t^%PDF-\t0\n");
  QTest::keyClicks(Child<QLineEdit>("txtExt"), "doc");
  Child<QPushButton>("cmdBrowseFileTypes")->click();
  FileTypePicker* picker = manager.fileTypePicker();
  ASSERT_TRUE(picker != nullptr && picker->isVisible());
  EXPECT_TRUE(
      gui::Child<QLabel>(picker, "lblInstructions")->text().startsWith("Choose a category"));
  gui::Child<QListWidget>(picker, "listFileCats")->setCurrentRow(1);
  EXPECT_EQ(gui::Child<QLabel>(picker, "lblComponentTypes")->text(),
            "File Definitions in Documents");
  gui::Child<QPushButton>(picker, "cmdAddCat")->click();
  gui::Child<QListWidget>(picker, "listFileDefs")->setCurrentRow(0);
  gui::Child<QPushButton>(picker, "cmdAddType")->click();
  gui::Child<QPushButton>(picker, "cmdCancel")->click();
  EXPECT_FALSE(picker->isVisible());

  Child<QPushButton>("lnkAddFile")->click();
  auto* finder = manager.findChild<FileFinder*>();
  ASSERT_TRUE(finder != nullptr && finder->isVisible());

  DropFiles(Child<QListWidget>("listSources")->viewport(), {"/nowhere/a", "/nowhere/b"});
  QListWidget* sources = Child<QListWidget>("listSources");
  ASSERT_EQ(sources->count(), 2);  // kept as text, not checked here
  // Removing the last entry selects the one that is now last.
  sources->item(1)->setSelected(true);
  Child<QPushButton>("lnkRemove")->click();
  ASSERT_EQ(sources->count(), 1);
  EXPECT_TRUE(sources->item(0)->isSelected());
  // What the picker writes into the box is the job's, as typing is.
  QTest::keyClicks(Child<QLineEdit>("txtOrderName"), "Types");
  dialogs.picks = {t / "types"};
  Child<QPushButton>("cmdSave")->click();
  EXPECT_NE(test::ReadBytes(t / "types.lsw").find("[EXTS]\tdoc,[Documents],[~PDF Document]\r\n"),
            std::string::npos);
}

TEST_F(JobManagerWindowTest, TheMainWindowsMenuOpensItAndItsRunCollectsThroughTheMainWindow) {
  MainWindow main(ctx, windows);
  main.show();
  JobManager* jm = main.jobManager();
  gui::Child<QAction>(&main, "mnuJobManager")->trigger();
  EXPECT_TRUE(jm->isVisible());

  t.WriteFile("src/a.txt", "alpha");
  ctx.settings.Sources = {"/left/over/from/before"};
  dialogs.inputs = {t / "src"};
  gui::Child<QPushButton>(jm, "lnkTypePath")->click();
  QTest::keyClicks(gui::Child<QLineEdit>(jm, "txtOrderName"), "J1");
  gui::Child<QLineEdit>(jm, "txtTarget")->setText(Q(t / "out/[JobName]"));
  gui::Child<QLineEdit>(jm, "txtLogPath")->setText(Q(t / "logs/[JobName]"));
  gui::Child<QPushButton>(jm, "cmdRun")->click();

  EXPECT_EQ(test::ReadBytes(t / "out/J1/src/a.txt"), "alpha");
  EXPECT_TRUE(fs::exists(t / "logs/J1/_verification_log.csv"));
  // The main window shows what the job handed over.
  QListWidget* mainSources = gui::Child<QListWidget>(&main, "lstSources");
  ASSERT_EQ(mainSources->count(), 1);
  EXPECT_EQ(mainSources->item(0)->text(), Q(t / "src"));
  EXPECT_EQ(gui::Child<QLineEdit>(&main, "txtTargetPath")->text(), Q(t / "out/J1"));
  EXPECT_TRUE(gui::Child<QPushButton>(jm, "cmdRun")->isEnabled());
  gui::Child<QPushButton>(jm, "lnkAddFile")->click();  // the finder that adds to the main list
  EXPECT_TRUE(main.fileFinder()->isVisible());
}

}  // namespace
}  // namespace qr::gui
