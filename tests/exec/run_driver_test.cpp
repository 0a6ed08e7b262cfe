// A run from its checks to its report, on a real temporary folder.
#include "exec/run_driver.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "exec/report.h"
#include "platform/text.h"
#include "platform/unicode_text.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

namespace fs = std::filesystem;
using test::ReadBytes;
using Strings = std::vector<std::string>;

// A run of one small source into target/ with its logs in logs/, all in a fresh folder.
struct DriverRun : test::RunFixture {
  std::string source = dir.MakeDir("source");
  std::string target = dir / "target";
  std::string logs = dir / "logs";
  DriverRun() {
    dir.WriteFile("source/a.txt", "alpha");
    ctx.settings.Sources = {source};
    ctx.settings.TargetPath = target;
    ctx.settings.LogPath = logs;
  }
  ExecResult Exec() { return ExecCopy(ctx); }
  std::string Log(const std::string& name) const { return logs + "/" + name; }
};

class RunDriverTest : public ::testing::Test, protected DriverRun {};

TEST(RunDriverRefusals, ValidationRefusesInItsOrderWithItsMessages) {
  struct Case {
    std::function<void(DriverRun&)> arrange;
    std::string message;
    Icon icon;
  };
  const std::vector<Case> cases = {
      // No source, no target: the source test comes first.
      {[](DriverRun& r) {
         r.ctx.settings.Sources.clear();
         r.ctx.settings.TargetPath.clear();
       },
       "You have to choose at least one source.", Icon::Information},
      {[](DriverRun& r) { r.ctx.settings.TargetPath = "   "; },
       "You have to choose a target path.", Icon::Information},
      {[](DriverRun& r) { r.ctx.settings.TargetPath = r.dir.WriteFile("file", "") + "/t"; },
       "The target path you have chosen does not exist and could not be created.", Icon::Critical},
      {[](DriverRun& r) { r.ctx.settings.LogPath = r.dir.WriteFile("file", "") + "/l"; },
       "The log file path you have chosen does not exist and could not be created.",
       Icon::Critical},
      {[](DriverRun& r) { r.ctx.settings.CommonLogPath = r.dir.WriteFile("file", "") + "/c"; },
       "The Common Log path does not exist and could not be created.", Icon::Critical},
      // The target's text found in a source entry.
      {[](DriverRun& r) {
         r.ctx.settings.Sources = {r.dir / "data/in"};
         r.ctx.settings.TargetPath = r.dir / "data";
       },
       "The target path you have chosen is a child of one of the source paths. Please choose a "
       "new target.",
       Icon::Exclamation},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    DriverRun r;
    c.arrange(r);
    EXPECT_EQ(r.Exec().outcome, ExecOutcome::Refused);
    ASSERT_EQ(r.dialogs.shown.size(), 1u);
    EXPECT_EQ(r.dialogs.shown[0].text, c.message);
    EXPECT_EQ(r.dialogs.shown[0].icon, c.icon);
    EXPECT_FALSE(fs::exists(r.Log("_jobfile.rvj")));
    EXPECT_TRUE(r.ctx.view.runControlsEnabled);
  }
}

TEST_F(RunDriverTest, ACompletedRunLeavesItsRecordCsvAndActivityLines) {
  // A target below the source passes the child test; both folders are made level by level.
  ctx.settings.TargetPath = target = source + "/t/1/2";
  ctx.settings.LogPath = logs = dir / "l/1/2";
  ctx.settings.Sources = {source, dir / "gone.txt"};  // an error: gone by the time it runs
  ctx.settings.CommonLogPath = dir / "common";
  ctx.job.JobFilePath = "/jobs/x.lsw";
  EXPECT_EQ(Exec().outcome, ExecOutcome::Completed);
  const std::string record = ReadBytes(Log("_jobfile.rvj"));
  EXPECT_TRUE(record.ends_with("[NUMFILES]\t1\r\n[JOBSIZE]\t5\r\n[LASTSRC]\t" + source +
                               "\r\n[LASTSRC]\t" + dir / "gone.txt" + "\r\n"))
      << record;
  const std::string where = "(Target=" + target + ") (Logs=" + logs + ")";
  Strings activity;
  for (const std::string& line : Split(ReadBytes(dir / "common/ActivityLog.txt"), "\r\n")) {
    if (!line.empty()) activity.push_back(Split(line, "\t").back());
  }
  EXPECT_EQ(activity, (Strings{"Began Processing (Settings=/jobs/x.lsw) " + where,
                               "Processing Completed (Errors=1) (FilesCopied=1/1) "
                               "(BytesCopied=5/5) " + where}));
  EXPECT_FALSE(ctx.counters.RunActive);

  // A second run keeps the CSV as it stands: no second header.
  dir.WriteFile("l/1/2/_verification_log.csv", "earlier");
  Exec();
  EXPECT_EQ(ReadBytes(Log("_verification_log.csv")).substr(0, 7), "earlier");
}

TEST_F(RunDriverTest, TheDatabaseWarningAndTheJobNoticeLetThePersonStop) {
  dir.WriteFile("logs/_job.sdb", "");
  ctx.job.JobName = "Case 7";
  ctx.job.SpecialInstructions = "Plug in the drive.";
  ctx.job.ErrorInstructions = "Call Ann.";
  const std::string warning =
      "WARNING! A database already exists in this directory. If you continue, all file data "
      "encountered during this run will be appended to this database. This may cause "
      "unpredictable results.\r\nDo you want to continue anyway?";
  dialogs.answers = {Answer::No, Answer::Yes, Answer::Cancel};
  EXPECT_EQ(Exec().outcome, ExecOutcome::Refused);
  const ExecResult notice = Exec();
  EXPECT_EQ(notice.outcome, ExecOutcome::Refused);
  EXPECT_FALSE(notice.endProgram) << "a cancelled notice leaves the window open";
  EXPECT_EQ(dialogs.Texts(),
            (Strings{warning, warning,
                     "Running job: Case 7\r\n\r\nSpecial Instructions:\r\nPlug in the drive.\r\n"
                     "\r\nIn case of errors:\r\nCall Ann.\r\n\r\nPlease close all applications "
                     "before continuing."}));
  EXPECT_EQ(dialogs.shown[0].buttons, Buttons::YesNo);
  EXPECT_FALSE(fs::exists(Log("_jobfile.rvj")));
}

TEST_F(RunDriverTest, ACancelledResumeWritesItsTallyAndNoEndLine) {
  ctx.settings.CommonLogPath = dir / "common";
  ctx.settings.CreateTally = true;
  dir.WriteFile("logs/tally.txt", std::string(5000, 'x'));
  dir.WriteFile("logs/_errors.log", "/s/a\t(Unable to hash source)\r\n/s/b\t(Gone)\r\n");
  // A resumed run keeps a cancel request standing, so it reaches its report cancelled.
  ctx.Resuming = true;
  ctx.counters.CancelRequested = true;
  EXPECT_EQ(Exec().outcome, ExecOutcome::Cancelled);
  // The tally is the report, in place of an earlier one; the errors counted are the error log's.
  EXPECT_EQ(ReadBytes(Log("tally.txt")), BuildReportText(ctx.counters, true) + "\r\n");
  EXPECT_NE(ReadBytes(Log("tally.txt")).find("\r\nErrors: 2\r\n"), std::string::npos);
  const std::string activity = ReadBytes(dir / "common/ActivityLog.txt");
  EXPECT_NE(activity.find("Began Processing"), std::string::npos);
  EXPECT_EQ(activity.find("Processing Completed"), std::string::npos);
  EXPECT_FALSE(ctx.counters.CancelRequested || ctx.Resuming) << "cleared at the end of the run";
  EXPECT_FALSE(fs::exists(Log("_jobfile.rvj"))) << "a resume leaves the job record alone";
}

// The window's whole runs show -silent ending the program; -q alone does too, after its boxes.
TEST_F(RunDriverTest, TheQuitSwitchEndsTheProgramAfterTheRun) {
  ctx.program.flags.quit = true;
  EXPECT_TRUE(Exec().endProgram);
  EXPECT_FALSE(dialogs.shown.empty()) << "-q alone still shows the notice and the report";
}

TEST(RunDriverAborts, AJobFileThatCannotBeWrittenEndsTheRunAtOnce) {
  for (const char* name : {"_verification_log.csv", "_jobfile.rvj"}) {
    SCOPED_TRACE(name);
    DriverRun f;
    f.dir.MakeDir(std::string("logs/") + name);  // a folder where the file must go
    EXPECT_EQ(f.Exec().outcome, ExecOutcome::Aborted);
    ASSERT_EQ(f.dialogs.shown.size(), 2u);
    EXPECT_EQ(f.dialogs.shown[1].text,
              "Could not create the file/directory at " + f.Log(name) +
                  "\r\n\r\nPlease verify that you have the proper permissions to create this file "
                  "or directory.\r\nIf you are using a network path, please note that the root "
                  "paths of networked destinations may not be modifiable from this location.");
    // No close-down: the run's state stays as the handler found it.
    EXPECT_TRUE(f.ctx.counters.RunActive);
  }
}

TEST_F(RunDriverTest, VariablesInTheEndCommandAreDataWhereverTheyStand) {
  // A name that ends every kind of quote and tries each way the shell runs code.
  const std::string name = "x; touch PWNED1 ' \" $(touch PWNED2) `touch PWNED3` \\ [UName] $HOME";
  ctx.job.JobName = name;
  const std::string out = dir / "out";
  ctx.settings.EndCommand = "cd '" + dir.path() + "' && printf '%s|\\n' [JobName] \"[JobName]\" "
                            "'[JobName]' a[JobName]b \"a'[JobName]'b\" \\[JobName] "
                            // Substitutions start a command of their own, inside quotes or not.
                            "\"$(printf %s [JobName])\" \"$(true)[JobName]\" "
                            "\"$( (printf %s \"[JobName]\") )\" "
                            "\"`printf %s [JobName]`\" `printf %s \"[JobName]\" | tr ' ' _` "
                            "> out.tmp && mv out.tmp out";
  Exec();
  for (int i = 0; i < 200 && !fs::exists(out); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(SplitLines(ReadBytes(out)),
            (Strings{name + "|", name + "|", name + "|", "a" + name + "b|", "a'" + name + "'b|",
                     "[JobName]|", name + "|", name + "|", name + "|", name + "|",
                     ReplaceAll(name, " ", "_") + "|"}));
  for (const char* planted : {"PWNED1", "PWNED2", "PWNED3"}) {
    EXPECT_FALSE(fs::exists(dir / planted)) << planted;
  }
}

// Past 32 bits, with hash exclusions and the line only timestamp mismatches add.
TEST(ReportText, CompletedAndCancelledDifferInTheFirstLineOnly) {
  RunCounters c;
  c.TotalFiles = 12;
  c.FilesProcessed = 12;
  c.HashExcludedFiles = 2;
  c.TotalBytes = 5000000000;
  c.BytesProcessed = 4000000040;
  c.HashExcludedBytes = 40;
  c.ErrorCount = 2;
  c.EndTime = c.StartTime + std::chrono::seconds(75);
  const std::string counts =
      "\r\n\r\nFiles copied: 10 of 12\r\nBytes copied: 4000000000 of 5000000000\r\nErrors: 2"
      "\r\n\r\nTime Elapsed: 00:00:01:15\r\n";
  EXPECT_EQ(BuildReportText(c, false), "The process has completed successfully." + counts);
  c.TimestampMismatches = 3;
  EXPECT_EQ(BuildReportText(c, true),
            "The process has been canceled." + counts +
                "\r\nTimestamps on 3 files could not be matched exactly.\r\nSee log for "
                "details.\r\n");
}

TEST_F(RunDriverTest, ErrorInstructionsFollowAReportWithErrorsUnlessBlankOrSilent) {
  ctx.counters.ErrorCount = 1;
  for (const char* instructions : {"Call Ann.", "   "}) {
    ctx.job.ErrorInstructions = instructions;
    FinishRunReport(ctx);
  }
  ASSERT_EQ(dialogs.shown.size(), 3u);
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Information);
  EXPECT_EQ(dialogs.shown[1].text,
            "Errors occurred during this job.\r\nThe error instructions for this job are:\r\n\r\n"
            "Call Ann.");
  ctx.job.ErrorInstructions = "Call Ann.";
  ctx.program.flags.silent = true;
  FinishRunReport(ctx);
  EXPECT_EQ(dialogs.shown.size(), 3u);
}

}  // namespace
}  // namespace qr
