#include "exec/run_driver.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "platform/text.h"
#include "platform/unicode_text.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

namespace fs = std::filesystem;
using test::ReadBytes;
using test::TempDir;

class RunDriverTest : public ::testing::Test, protected test::RunFixture {
 protected:
  std::string source = dir.MakeDir("source");
  std::string target = dir / "target";
  std::string logs = dir / "logs";

  void SetUp() override {
    dir.WriteFile("source/a.txt", "alpha");
    ctx.settings.Sources = {source};
    ctx.settings.TargetPath = target;
    ctx.settings.LogPath = logs;
  }

  ExecResult Run() { return ExecCopy(ctx); }
  // A run of its own, in a fresh folder, of this fixture's source.
  struct FreshRun : test::RunFixture {
    explicit FreshRun(const std::string& source) {
      ctx.settings.Sources = {source};
      ctx.settings.TargetPath = dir / "target";
      ctx.settings.LogPath = dir / "logs";
    }
  };
  std::string LogFile(const std::string& name) const { return logs + "/" + name; }
  bool Exists(const std::string& p) const { return fs::exists(p); }
};

TEST_F(RunDriverTest, ValidationRefusesInItsOrderWithItsMessages) {
  struct Case {
    const char* what;
    std::function<void(RunContext&, const TempDir&)> arrange;
    std::string message;
    Icon icon;
  };
  std::string blocker = dir.WriteFile("plainfile", "x");
  std::vector<Case> cases = {
      {"no source, no target: the source test comes first",
       [](RunContext& c, const TempDir&) {
         c.settings.Sources.clear();
         c.settings.TargetPath.clear();
       },
       "You have to choose at least one source.", Icon::Information},
      {"blank target", [](RunContext& c, const TempDir&) { c.settings.TargetPath = "   "; },
       "You have to choose a target path.", Icon::Information},
      {"target below a file",
       [&](RunContext& c, const TempDir&) { c.settings.TargetPath = blocker + "/t"; },
       "The target path you have chosen does not exist and could not be created.",
       Icon::Critical},
      {"log below a file",
       [&](RunContext& c, const TempDir&) { c.settings.LogPath = blocker + "/l"; },
       "The log file path you have chosen does not exist and could not be created.",
       Icon::Critical},
      {"common log below a file",
       [&](RunContext& c, const TempDir&) { c.settings.CommonLogPath = blocker + "/c"; },
       "The Common Log path does not exist and could not be created.", Icon::Critical},
      {"target inside a source: the target text is found in the source entry",
       [&](RunContext& c, const TempDir& d) {
         c.settings.Sources = {d / "data/in"};
         c.settings.TargetPath = d / "data";
       },
       "The target path you have chosen is a child of one of the source paths. Please choose a "
       "new target.",
       Icon::Exclamation},
  };
  for (const auto& tc : cases) {
    SCOPED_TRACE(tc.what);
    FreshRun f(source);
    tc.arrange(f.ctx, f.dir);
    ExecResult r = ExecCopy(f.ctx);
    EXPECT_EQ(r.outcome, ExecOutcome::Refused);
    EXPECT_FALSE(r.endProgram);
    ASSERT_EQ(f.dialogs.shown.size(), 1u);
    EXPECT_EQ(f.dialogs.shown[0].text, tc.message);
    EXPECT_EQ(f.dialogs.shown[0].icon, tc.icon);
    EXPECT_EQ(f.dialogs.shown[0].title, "Quillon Ravelin 2.2 Rover Edition");
    EXPECT_FALSE(fs::exists(f.dir / "logs/_jobfile.rvj"));
    EXPECT_TRUE(f.ctx.view.runControlsEnabled);
  }
}

TEST_F(RunDriverTest, MissingTargetAndLogFoldersAreCreatedLevelByLevel) {
  // A target below the source passes the child test, which looks only for the target's text in
  // a source entry.
  ctx.settings.TargetPath = source + "/t/1/2/3";
  ctx.settings.LogPath = dir / "l/1/2";
  logs = ctx.settings.LogPath;
  EXPECT_EQ(Run().outcome, ExecOutcome::Completed);
  EXPECT_TRUE(fs::is_directory(source + "/t/1/2/3"));
  EXPECT_TRUE(fs::is_regular_file(LogFile("_jobfile.rvj")));
}

TEST_F(RunDriverTest, ACompletedRunLeavesItsRecordAndReport) {
  ctx.settings.Sources = {source, dir / "gone.txt"};
  ExecResult r = Run();
  EXPECT_EQ(r.outcome, ExecOutcome::Completed);
  EXPECT_FALSE(r.endProgram);

  // The notice and the report are the runner's whole runs' to check.
  EXPECT_EQ(dialogs.shown.size(), 2u);
  std::string record = ReadBytes(LogFile("_jobfile.rvj"));
  EXPECT_NE(record.find("[SRC]\t" + source + "\r\n[SRC]\t" + dir / "gone.txt" + "\r\n"),
            std::string::npos);
  EXPECT_NE(record.find("[NUMFILES]\t1\r\n[JOBSIZE]\t5\r\n[LASTSRC]\t" + source +
                        "\r\n[LASTSRC]\t" + dir / "gone.txt" + "\r\n"),
            std::string::npos);
  EXPECT_EQ(record.substr(record.size() - 2), "\r\n");

  // The CSV starts with its header line, in UTF-16 behind a byte-order mark.
  const std::string csv = LogFile("_verification_log.csv");
  EXPECT_EQ(ReadBytes(csv).substr(0, 2), "\xFF\xFE");
  EXPECT_TRUE(test::Utf16FileLines(csv).at(0).starts_with("Date/Time Copied,Hashes Match,"));

  EXPECT_EQ(ctx.view.mainCaption, "Quillon Ravelin 2.2 Rover Edition");
  EXPECT_TRUE(ctx.view.runControlsEnabled);
  EXPECT_FALSE(ctx.counters.RunActive);
  EXPECT_FALSE(ctx.progress.visible);
  EXPECT_EQ(ctx.paths.ErrorLogPath, LogFile("_errors.log"));
}

TEST_F(RunDriverTest, AnExistingCsvKeepsItsContent) {
  fs::create_directories(logs);
  std::string csv = dir.WriteFile("logs/_verification_log.csv", "earlier");
  Run();
  EXPECT_EQ(ReadBytes(csv).substr(0, 7), "earlier") << "no second header, no new file";
}

TEST_F(RunDriverTest, DatabaseWarningLetsThePersonStop) {
  dir.WriteFile("logs/_job.sdb", "");
  dialogs.answers = {Answer::No};
  EXPECT_EQ(Run().outcome, ExecOutcome::Refused);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text,
            "WARNING! A database already exists in this directory. If you continue, all file "
            "data encountered during this run will be appended to this database. This may cause "
            "unpredictable results.\r\nDo you want to continue anyway?");
  EXPECT_EQ(dialogs.shown[0].buttons, Buttons::YesNo);
  EXPECT_FALSE(Exists(LogFile("_jobfile.rvj")));

  dialogs.shown.clear();
  dialogs.answers = {Answer::Yes};
  EXPECT_EQ(Run().outcome, ExecOutcome::Completed);
}

TEST_F(RunDriverTest, JobNoticeCarriesTheJobAndCancelLeaves) {
  ctx.job.JobName = "Case 7";
  ctx.job.SpecialInstructions = "Plug in the drive.";
  ctx.job.ErrorInstructions = "Call Ann.";
  dialogs.answers = {Answer::Cancel};
  EXPECT_EQ(Run().outcome, ExecOutcome::Refused);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text,
            "Running job: Case 7\r\n\r\nSpecial Instructions:\r\nPlug in the drive.\r\n\r\n"
            "In case of errors:\r\nCall Ann.\r\n\r\nPlease close all applications before "
            "continuing.");
  EXPECT_FALSE(Exists(LogFile("_jobfile.rvj")));
}

TEST_F(RunDriverTest, NoFilesMessageOnlyWhenEmptyFoldersAreNotCopied) {
  ctx.settings.Sources = {dir.MakeDir("empty")};
  ctx.settings.CopyEmpties = true;
  Run();
  for (const auto& t : dialogs.Texts()) EXPECT_NE(t, "There were no files found to copy.");

  dialogs.shown.clear();
  ctx.settings.CopyEmpties = false;
  dir.WriteFile("logs/_job.sdb", "");  // answered Yes by default
  Run();
  auto texts = dialogs.Texts();
  EXPECT_NE(std::find(texts.begin(), texts.end(), "There were no files found to copy."),
            texts.end());
}

TEST_F(RunDriverTest, ARetryFromItsOwnErrorListWritesANewErrorLog) {
  ctx.settings.Sources = {std::string(kFileListMarker) + LogFile("_errors.log"),
                          std::string(kFileListMarker) + LogFile("_errors_1.log")};
  Run();
  EXPECT_EQ(ctx.paths.ErrorLogPath, LogFile("_errors_2.log"));
}

TEST_F(RunDriverTest, ActivityLogHasABeginAndAnEndLine) {
  ctx.settings.CommonLogPath = dir / "common";
  ctx.job.JobFilePath = "/jobs/x.lsw";
  Run();
  auto lines = Split(ReadBytes(dir / "common/ActivityLog.txt"), "\r\n");
  ASSERT_EQ(lines.size(), 3u);  // two lines and what follows the last line end
  auto begin = Split(lines[0], "\t");
  ASSERT_EQ(begin.size(), 3u);
  EXPECT_EQ(begin[2], "Began Processing (Settings=/jobs/x.lsw) (Target=" + target +
                          ") (Logs=" + logs + ")");
  auto end = Split(lines[1], "\t");
  ASSERT_EQ(end.size(), 3u);
  EXPECT_EQ(end[2], "Processing Completed (Errors=0) (FilesCopied=1/1) (BytesCopied=5/5) (Target=" +
                        target + ") (Logs=" + logs + ")");
}

TEST_F(RunDriverTest, ACancelledRunReportsSoWritesItsTallyAndNoEndLine) {
  ctx.settings.CommonLogPath = dir / "common";
  ctx.settings.CreateTally = true;
  // A resumed run keeps a cancel request standing, so it reaches its report cancelled.
  ctx.Resuming = true;
  ctx.counters.CancelRequested = true;
  ExecResult r = Run();
  EXPECT_EQ(r.outcome, ExecOutcome::Cancelled);
  std::string tally = ReadBytes(LogFile("tally.txt"));
  EXPECT_EQ(tally.substr(0, 34), "The process has been canceled.\r\n\r\n");
  std::string activity = ReadBytes(dir / "common/ActivityLog.txt");
  EXPECT_NE(activity.find("Began Processing"), std::string::npos);
  EXPECT_EQ(activity.find("Processing Completed"), std::string::npos);
  EXPECT_FALSE(ctx.counters.CancelRequested) << "cleared at the end of the run";
  EXPECT_FALSE(ctx.Resuming);
  // A resume leaves the job record alone.
  EXPECT_FALSE(Exists(LogFile("_jobfile.rvj")));
}

TEST_F(RunDriverTest, SilentAndQuitSwitchesEndTheProgramAfterTheRun) {
  ctx.program.flags.silent = true;
  ctx.settings.Sources.clear();
  ExecResult r = Run();
  EXPECT_EQ(r.outcome, ExecOutcome::Refused);
  EXPECT_TRUE(r.endProgram) << "a refusal ends a silent program too, without a word";
  EXPECT_TRUE(dialogs.shown.empty());

  ctx.settings.Sources = {source};
  dir.WriteFile("logs/_job.sdb", "");  // and no question about it
  r = Run();
  EXPECT_EQ(r.outcome, ExecOutcome::Completed);
  EXPECT_TRUE(r.endProgram);
  EXPECT_TRUE(dialogs.shown.empty());
  EXPECT_FALSE(ctx.progress.visible);

  ctx.program.flags = {};
  ctx.program.flags.quit = true;
  dialogs.shown.clear();
  r = Run();
  EXPECT_TRUE(r.endProgram);
  EXPECT_FALSE(dialogs.shown.empty()) << "-q alone still shows the notice and the report";
}

TEST_F(RunDriverTest, AJobFileThatCannotBeWrittenEndsTheRunAtOnce) {
  for (const char* name : {"_verification_log.csv", "_jobfile.rvj"}) {
    SCOPED_TRACE(name);
    FreshRun f(source);
    f.dir.MakeDir(std::string("logs/") + name);  // a folder where the file must go
    ExecResult r = ExecCopy(f.ctx);
    EXPECT_EQ(r.outcome, ExecOutcome::Aborted);
    ASSERT_EQ(f.dialogs.shown.size(), 2u);
    EXPECT_EQ(f.dialogs.shown[1].text,
              "Could not create the file/directory at " + f.dir / "logs/" + name +
                  "\r\n\r\nPlease verify that you have the proper permissions to create this file "
                  "or directory.\r\nIf you are using a network path, please note that the root "
                  "paths of networked destinations may not be modifiable from this location.");
    // No close-down: the run's state stays as the handler found it.
    EXPECT_TRUE(f.ctx.counters.RunActive);
    EXPECT_FALSE(f.ctx.view.runControlsEnabled);
  }
}

// Waits up to 4 seconds for a file that a started command writes.
bool AppearsSoon(const std::string& path) {
  for (int i = 0; i < 200 && !fs::exists(path); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return fs::exists(path);
}

// The runner's whole runs show the command announced and started.
TEST_F(RunDriverTest, VariablesInTheEndCommandAreDataWhereverTheyStand) {
  // A name that ends every kind of quote and tries each way the shell runs code.
  const std::string name = "x; touch PWNED1 ' \" $(touch PWNED2) `touch PWNED3` \\ [UName] $HOME";
  ctx.job.JobName = name;
  const std::string out = dir / "out";
  ctx.settings.EndCommand = "cd '" + dir.path() + "' && printf '%s|\\n' [JobName] \"[JobName]\" "
                            "'[JobName]' a[JobName]b \"a'[JobName]'b\" \\[JobName] "
                            // Substitutions start a command of their own, inside quotes or not.
                            "\"$(printf %s [JobName])\" \"$( (printf %s \"[JobName]\") )\" "
                            "\"`printf %s [JobName]`\" `printf %s \"[JobName]\" | tr ' ' _` "
                            "> out.tmp && mv out.tmp out";
  Run();
  ASSERT_TRUE(AppearsSoon(out));
  EXPECT_EQ(SplitLines(ReadBytes(out)),
            (std::vector<std::string>{name + "|", name + "|", name + "|", "a" + name + "b|",
                                      "a'" + name + "'b|", "[JobName]|", name + "|",
                                      name + "|", name + "|", ReplaceAll(name, " ", "_") + "|"}));
  for (const char* planted : {"PWNED1", "PWNED2", "PWNED3"}) {
    EXPECT_FALSE(Exists(dir / planted)) << planted;
  }
}

}  // namespace
}  // namespace qr
