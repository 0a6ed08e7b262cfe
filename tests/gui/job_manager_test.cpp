// The job manager offscreen, through its widgets: a job typed, saved and loaded back, Active
// Help, the file type picker, and a job run through the main window. The job picker: the jobs
// due here, one run under -q and marked done.
#include "job_manager.h"

#include <filesystem>
#include <utility>

#include "file_finder.h"
#include "file_type_picker.h"
#include "job_picker.h"
#include "jobdef/job_file.h"
#include "main_window.h"
#include "options_dialog.h"
#include "platform/machine.h"
#include "platform/text.h"
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

}

TEST_F(JobManagerWindowTest, ActiveHelpFollowsTheMouseAndStaysWhenItLeaves) {
  Hover("txtTarget");
  EXPECT_TRUE(Child<QLabel>("lblHelpContent")->text().startsWith("Type the path that you want"));
  Hover("cmdRun");  // no topic of its own: the pane keeps what it had
  EXPECT_EQ(Help(), "Job Target Path");
  manager.show();
  manager.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&manager));
  Child<QComboBox>("cboExtAction")->setFocus();
  EXPECT_EQ(Help(), "Extension Filtering");
}

TEST_F(JobManagerWindowTest, FileTypesAddFileAndDropsReachTheirWindowsAndTheList) {
  t.WriteFile("program/_filetypes/filetypes.txt",
              "Category\tType\tExtensions\tHeader\tOffset\n"
              "Images\tPNG Image\tpng\t^\\x89PNG\t0\n"
              "Documents\tPDF Document\tpdf\t^%PDF-\t0\n"
              "Images\tGIF Image\tgif\t^GIF8\t0\n");
  QTest::keyClicks(Child<QLineEdit>("txtExt"), "doc");
  Child<QPushButton>("cmdBrowseFileTypes")->click();
  FileTypePicker* picker = manager.fileTypePicker();
  ASSERT_TRUE(picker != nullptr && picker->isVisible());
  EXPECT_TRUE(
      gui::Child<QLabel>(picker, "lblInstructions")->text().startsWith("Choose a category"));
  // It opens on the first category; a type is added only once one is chosen.
  gui::Child<QPushButton>(picker, "cmdAddType")->click();
  gui::Child<QListWidget>(picker, "listFileDefs")->setCurrentRow(1);
  gui::Child<QPushButton>(picker, "cmdAddType")->click();
  gui::Child<QListWidget>(picker, "listFileCats")->setCurrentRow(1);
  EXPECT_EQ(gui::Child<QLabel>(picker, "lblComponentTypes")->text(),
            "File Definitions in Documents");
  gui::Child<QPushButton>(picker, "cmdAddCat")->click();
  gui::Child<QPushButton>(picker, "cmdCancel")->click();
  EXPECT_FALSE(picker->isVisible());

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
  EXPECT_NE(test::ReadBytes(t / "types.lsw").find("[EXTS]\tdoc,[~GIF Image],[Documents]\r\n"),
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

// A job saved as the job manager saves it, in the program's job folder.
void Prepare(const test::TempDir& t, const std::string& name, const std::string& lock) {
  PreparedJob job;
  job.OrderName = name;
  job.Instructions = "Instructions of " + name;
  job.Target = t / "out";
  job.LogPath = t / "logs";
  job.Sources = {t / "src"};
  job.CompName = lock;
  t.MakeDir("prog/_lsw");
  EXPECT_TRUE(SaveJobFile(job, JobSettings{}, t / ("prog/_lsw/" + name + ".lsw")));
}

using JobPickerWindow = WindowFixture<>;

TEST_F(JobPickerWindow, APreparedJobIsFoundRunUnderQMarkedDoneAndThenNoLongerListed) {
  ctx.program.app.programFolder = t / "prog/";
  t.WriteFile("src/a.txt", "alpha");
  Prepare(t, "Elsewhere", ComputerName() + "-other");
  Prepare(t, "Evidence", UpperCase(ComputerName()));  // the lock is read in any case
  MainWindow main(ctx, windows);
  JobPicker picker(ctx, main, windows);
  auto* resume = picker.findChild<QAction*>("mnuResume");
  auto* run = picker.findChild<QPushButton*>("cmdRun");
  bool shownDuringRun = false, actionsDuringRun = false, closeInRun = true, stayed = false;
  pump.setRefresh([&] {
    windows.RefreshAll();
    if (ctx.counters.RunActive && std::exchange(closeInRun, false)) stayed = !picker.close();
    shownDuringRun |= ctx.counters.RunActive && picker.isVisible();
    actionsDuringRun |= ctx.counters.RunActive && (resume->isEnabled() || run->isEnabled());
  });
  picker.Open();
  auto* list = picker.findChild<QListWidget*>("lstJobs");
  ASSERT_TRUE(list && picker.isVisible());
  ASSERT_EQ(list->count(), 1) << "a job locked to another computer is never listed";
  EXPECT_EQ(list->item(0)->text(), "Evidence");

  list->setCurrentRow(0);
  EXPECT_EQ(picker.findChild<QPlainTextEdit*>("txtInstructions")->toPlainText(),
            "Instructions of Evidence");
  picker.findChild<QPushButton*>("cmdSettings")->click();
  EXPECT_TRUE(main.jobManager()->isVisible());
  main.jobManager()->hide();

  // Closing the picker during a run only asks the run to stop.
  run->click();
  EXPECT_NE(dialogs.Texts().back().find("The process has been canceled."), std::string::npos);
  EXPECT_TRUE(stayed && !picker.endedProgram() && list->count() == 1);

  ctx.program.flags.quit = true;
  shownDuringRun = false;
  run->click();
  EXPECT_EQ(test::ReadBytes(t / "out/src/a.txt"), "alpha");
  EXPECT_EQ(test::ReadBytes(t / "logs/Evidence.lsd"),
            test::ReadBytes(t / "prog/_lsw/Evidence.lsw"));
  EXPECT_FALSE(shownDuringRun) << "-q hides the picker while the run works";
  EXPECT_FALSE(actionsDuringRun) << "no second run starts from the picker during one";
  EXPECT_TRUE(resume->isEnabled() && run->isEnabled());
  EXPECT_TRUE(picker.endedProgram()) << "-q ends the program when the run is over";

  picker.Open();
  EXPECT_EQ(list->count(), 0) << "a job done in its log folder is not offered again";
}

}  // namespace
}  // namespace qr::gui
