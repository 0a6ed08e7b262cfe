// The job picker through its widgets, and the window program started as autorun starts it.
#include "job_picker.h"

#include <QProcess>
#include <filesystem>
#include <utility>

#include "job_manager.h"
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
  MainWindow main(ctx, windows);
  {
    // The job that is run is typed and saved in the job manager, as its author would.
    JobManager& author = *main.jobManager();
    for (const auto& [name, text] :
         {std::pair<const char*, std::string>{"txtOrderName", "Evidence"},
          {"txtCompName", UpperCase(ComputerName())}, {"txtTarget", t / "out"},
          {"txtLogPath", t / "logs"}}) {
      Child<QLineEdit>(&author, name)->clear();
      QTest::keyClicks(Child<QLineEdit>(&author, name), Q(text));
    }
    QTest::keyClicks(Child<QPlainTextEdit>(&author, "txtInstructions"), "Instructions of Evidence");
    dialogs.inputs = {t / "src"};
    Child<QPushButton>(&author, "lnkTypePath")->click();
    dialogs.picks = {t / "prog/_lsw/Evidence"};
    Child<QPushButton>(&author, "cmdSave")->click();
  }
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

TEST(JobPickerProgram, TheAutorunSwitchesRunTheOnlyDueJobAndEndTheProgram) {
  test::TempDir t;
  Prepare(t, "Only", "");
  fs::copy_file(QUILLON_RAVELIN_BINARY, t / "prog/quillon-ravelin");
  t.WriteFile("src/a.txt", "alpha");
  QProcess program;
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert("QT_QPA_PLATFORM", "offscreen");
  env.insert("XDG_RUNTIME_DIR", QString::fromStdString(t / "runtime"));
  program.setProcessEnvironment(env);
  // -silent: no box waits for a person who is not there.
  program.start(QString::fromStdString(t / "prog/quillon-ravelin"), {"-as", "-q", "-silent"});
  ASSERT_TRUE(program.waitForFinished(60000)) << "the program ends when the run is over";
  EXPECT_EQ(program.exitCode(), 0);
  EXPECT_EQ(test::ReadBytes(t / "out/src/a.txt"), "alpha");
  EXPECT_TRUE(fs::exists(t / "logs/Only.lsd"));
  EXPECT_FALSE(fs::exists(t / "prog/ravelin.ini")) << "no settings saved";
}

}  // namespace
}  // namespace qr::gui
