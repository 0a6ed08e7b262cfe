// The job picker offscreen, through its real widgets: a prepared job found on this computer,
// run, marked done and gone from the list; and the program's start as the autorun file starts
// it (-as, -q).
#include "job_picker.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QTest>
#include <filesystem>
#include <memory>
#include <string>

#include "job_manager.h"
#include "jobdef/job_file.h"
#include "main_window.h"
#include "options_dialog.h"
#include "platform/machine.h"
#include "platform/text.h"
#include "qt_event_pump.h"
#include "support/fake_dialogs.h"
#include "support/temp_dir.h"
#include "window_registry.h"

namespace qr::gui {
namespace {

class JobPickerTest : public ::testing::Test {
 protected:
  JobPickerTest() {
    pump.setRefresh([this] { windows.RefreshAll(); });
    ctx.program.app.programFolder = t / "prog/";
    t.WriteFile("src/a.txt", "alpha");
    t.WriteFile("src/b/c.txt", "gamma");
    main = std::make_unique<MainWindow>(ctx, windows);
  }
  // A job as the job manager saves it, into the program's job folder.
  std::string Prepare(const std::string& file, const std::string& name, const std::string& lock) {
    PreparedJob job;
    job.OrderName = name;
    job.Instructions = "Instructions of " + name;
    job.Target = t / "out";
    job.LogPath = t / ("logs/" + name);
    job.Sources = {t / "src"};
    job.CompName = lock;
    t.MakeDir("prog/_lsw");
    const std::string path = t / ("prog/_lsw/" + file);
    EXPECT_TRUE(SaveJobFile(job, JobSettings{}, path));
    return path;
  }
  template <typename W>
  W* Child(QWidget* w, const char* name) {
    W* c = w->findChild<W*>(name);
    EXPECT_NE(c, nullptr) << name;
    return c;
  }

  test::TempDir t;
  test::FakeDialogs dialogs;
  QtEventPump pump{std::chrono::nanoseconds(0)};
  RunContext ctx{dialogs, pump};
  WindowRegistry windows;
  std::unique_ptr<MainWindow> main;
};

TEST_F(JobPickerTest, APreparedJobIsFoundRunMarkedDoneAndThenNoLongerListed) {
  const std::string job = Prepare("evidence.lsw", "Evidence", UpperCase(ComputerName()));
  Prepare("elsewhere.lsw", "Elsewhere", ComputerName() + "-other");
  JobPicker picker(ctx, *main, windows);
  picker.Open();
  ASSERT_TRUE(picker.isVisible());
  EXPECT_EQ(Child<QPushButton>(&picker, "cmdRun")->text().remove('&'), "Run");
  EXPECT_EQ(Child<QAction>(&picker, "mnuResume")->text().remove('&'), "Resume");
  auto* list = Child<QListWidget>(&picker, "lstJobs");
  ASSERT_EQ(list->count(), 1) << "a job locked to another computer is never listed";
  EXPECT_EQ(list->item(0)->text(), "Evidence");

  Child<QPushButton>(&picker, "cmdRun")->click();
  EXPECT_TRUE(dialogs.shown.empty()) << "Run without a selection does nothing";

  list->setCurrentRow(0);
  auto* instructions = Child<QPlainTextEdit>(&picker, "txtInstructions");
  EXPECT_EQ(instructions->toPlainText(), "Instructions of Evidence");
  EXPECT_TRUE(instructions->isReadOnly());

  Child<QPushButton>(&picker, "cmdRun")->click();
  ASSERT_FALSE(dialogs.shown.empty());
  EXPECT_NE(dialogs.shown.back().text.find("Files copied: 2 of 2"), std::string::npos)
      << dialogs.shown.back().text;
  EXPECT_EQ(test::ReadBytes(t / "out/src/b/c.txt"), "gamma");
  EXPECT_EQ(test::ReadBytes(t / "logs/Evidence/evidence.lsd"), test::ReadBytes(job));
  EXPECT_TRUE(picker.isVisible()) << "without -q the picker stays for the next job";
  EXPECT_FALSE(picker.endedProgram());

  picker.Open();
  EXPECT_EQ(list->count(), 0) << "a job done in its log folder is not offered again";
}

TEST_F(JobPickerTest, SettingsOpensTheJobManagerAndCancelEndsTheProgram) {
  Prepare("a.lsw", "A", "");
  JobPicker picker(ctx, *main, windows);
  picker.Open();
  Child<QListWidget>(&picker, "lstJobs")->setCurrentRow(0);
  Child<QPushButton>(&picker, "cmdSettings")->click();
  EXPECT_TRUE(main->jobManager()->isVisible());
  main->jobManager()->hide();
  bool ended = false;
  QObject::connect(&picker, &JobPicker::programEndRequested, [&] { ended = true; });
  Child<QPushButton>(&picker, "cmdCancel")->click();
  EXPECT_TRUE(ended);
  EXPECT_TRUE(picker.endedProgram());
  EXPECT_FALSE(picker.isVisible());
}

TEST_F(JobPickerTest, StartedWithAsAndOneDueJobItRunsAtOnceAndWithQTheProgramEnds) {
  ctx.program.flags.autoStart = true;
  ctx.program.flags.quit = true;
  Prepare("only.lsw", "Only", "");
  bool pickerShownDuringRun = false;
  std::unique_ptr<JobPicker> picker;
  pump.setRefresh([&] {
    windows.RefreshAll();
    if (ctx.counters.RunActive && picker && picker->isVisible()) pickerShownDuringRun = true;
  });
  picker = JobPicker::OpenAtStart(ctx, *main, windows);
  ASSERT_NE(picker, nullptr);
  EXPECT_TRUE(picker->isVisible());
  EXPECT_FALSE(main->isVisible()) << "the end user sees the picker alone";
  QTest::qWait(50);  // the event loop starts the job; nobody clicks
  EXPECT_EQ(test::ReadBytes(t / "out/src/a.txt"), "alpha");
  EXPECT_TRUE(std::filesystem::exists(t / "logs/Only/only.lsd"));
  EXPECT_FALSE(pickerShownDuringRun) << "-q hides the picker while the run works";
  EXPECT_TRUE(picker->endedProgram()) << "-q ends the program when the run is over";

  // Two due jobs: the end user chooses.
  Prepare("one.lsw", "One", "");
  Prepare("two.lsw", "Two", "");
  ctx.program.flags.quit = false;
  std::unique_ptr<JobPicker> second = JobPicker::OpenAtStart(ctx, *main, windows);
  QTest::qWait(50);
  EXPECT_FALSE(std::filesystem::exists(t / "logs/One/one.lsd"));
  EXPECT_EQ(Child<QListWidget>(second.get(), "lstJobs")->count(), 2);
}

TEST_F(JobPickerTest, NoSwitchOpensNoPicker) {
  EXPECT_EQ(JobPicker::OpenAtStart(ctx, *main, windows), nullptr);
}

}  // namespace
}  // namespace qr::gui

namespace qr::gui {
namespace {

TEST(JobPickerProgram, TheAutorunSwitchesRunTheOnlyDueJobAndEndTheProgram) {
  test::TempDir t;
  std::filesystem::create_directories(t / "prog/_lsw");
  std::filesystem::copy_file(QUILLON_RAVELIN_BINARY, t / "prog/quillon-ravelin");
  t.WriteFile("src/a.txt", "alpha");
  t.WriteFile("prog/_lsw/only.lsw", "[JNAME]\tOnly\r\n[TARGET]\t" + t / "out" + "\r\n[JPATH]\t" +
                                         t / "logs" + "\r\n[SRC]\t" + t / "src" + "\r\n");
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
  EXPECT_TRUE(std::filesystem::exists(t / "logs/only.lsd"));
  EXPECT_FALSE(std::filesystem::exists(t / "prog/ravelin.ini")) << "no settings saved";
}

}  // namespace
}  // namespace qr::gui
