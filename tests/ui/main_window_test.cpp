// The forms behind the main window, without a widget: the log box following the target, the
// ways of adding sources, help and About, the options form's load, the file finder's listing and
// messages, the file type picker's terms, and the progress timer's labels.
#include "ui/main_window.h"
#include "ui/file_finder.h"
#include "ui/file_type_picker.h"
#include "ui/options_dialog.h"
#include "ui/progress_window.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

TEST(TargetFollowsLogRule, TheLogFollowsWhileTheTwoDifferByOneTrailingCharacter) {
  struct Case {
    std::string target, log;
    std::optional<std::string> newLog;
  };
  const std::vector<Case> cases = {
      {"/data/x", "/data/", "/data/x"},      // typed one character at the end
      {"/data", "/data/", "/data"},          // deleted one character at the end
      {"/data/xy", "/data/", std::nullopt},  // two apart: the boxes no longer agree
      {"/data/x", "/data/x", std::nullopt},  // nothing to change
      {"a", "", std::nullopt},               // one character: never carries the log
      {"/caf", "/caf\xc3\xa9", "/caf"},        // a character is a code point, not a byte
      {"/caf\xa9", "/caf", "/caf\xa9"},        // a byte that starts no sequence is one character
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.target + " | " + c.log);
    EXPECT_EQ(TargetFollowsLog(c.target, c.log), c.newLog);
  }
}

// Each form over a run context of its own in a temporary folder.
class FormTest : public ::testing::Test, protected test::RunFixture {
 protected:
  MainForm f;
  OptionsForm form;
  FileFinderForm finder;
  std::string program = dir.MakeDir("program");
};

TEST_F(FormTest, EachWayOfAddingReachesTheSourceListWithItsOwnRulesButNotDuringARun) {
  const std::string a = dir.MakeDir("a"), inside = dir.MakeDir("a/b");
  dialogs.inputs = {a, std::nullopt};
  mnuAddManual_Click(ctx, f);
  mnuAddManual_Click(ctx, f);  // cancelled
  // A file list is listed as it is, existing or not.
  dialogs.picks = {dir / "missing list.txt", ""};
  mnuAddFromList_Click(ctx, f);
  mnuAddFromList_Click(ctx, f);
  FormDropped(ctx, f, {"  ", inside});
  const std::vector<std::string> sources = {a, "[File List] " + (dir / "missing list.txt")};
  EXPECT_EQ(ctx.settings.Sources, sources);
  EXPECT_EQ(dialogs.shown.size(), 3u);  // the two manual adds, and the refused folder
  // Rows chosen in any order go, each once; the first one's place is then selected.
  ctx.settings.Sources = {"/w", "/x", "/y", "/z"};
  f.lstSourcesSelected = {2, 0, 2};
  cmdRemove_Click(ctx, f);
  EXPECT_EQ(ctx.settings.Sources, (std::vector<std::string>{"/x", "/z"}));
  EXPECT_EQ(f.lstSourcesSelected, std::vector<int>{0});
  ctx.settings.Sources = sources;

  // During a run the window's controls are off; a drop on the form and the runs are refused here.
  f.inRun = true;
  FormDropped(ctx, f, {dir.path()});
  EXPECT_FALSE(mnuAddSourceFiles_Click(f));  // the file finder stays closed
  EXPECT_FALSE(cmdRun_Click(ctx, f) || mnuResume_Click(ctx, f));
  EXPECT_EQ(ctx.settings.Sources, sources);
  EXPECT_EQ(dialogs.shown.size(), 3u);
  EXPECT_EQ(dialogs.pickerTitles.size(), 2u);
}

TEST_F(FormTest, HelpSaysWhatIsMissingAndAboutNamesTheVersions) {
  ctx.program.app.helpPath = dir / "RavelinHelp.html";
  mnuRavelinHelp_Click(ctx);
  EXPECT_EQ(dialogs.Texts(), std::vector<std::string>{"The help document could not be found:\r\n" +
                                                      (dir / "RavelinHelp.html")});
  dir.WriteFile("RavelinHelp.html", "<html></html>");
  mnuRavelinHelp_Click(ctx, "no-such-opener-here");
  EXPECT_NE(dialogs.Texts().back().find("the program no-such-opener-here, which opens documents"),
            std::string::npos);
  ctx.program.versionText = "2.2.0";
  EXPECT_EQ(AboutText(ctx, "6.4.2").rfind("Quillon Ravelin 2.2 Rover Edition\r\nVersion 2.2.0\r\n\r\n"
                                          "Qt 6.4.2\r\nSQLite 3.", 0), 0u);
}

TEST_F(FormTest, LoadTurnsItsOptionsBackOnAndDisablesRootFoldersWhateverFullPathsSays) {
  ctx.program.app.appPath = program;
  JobSettings& s = ctx.settings;
  SetRobocopy(s, true);
  SetCreateLog(s, false);
  s.HashSource = s.HashDest = s.CopySubs = false;
  s.Collision = kCollisionOverwrite;
  s.Extension = kExtensionDoNotCopy;
  SetCopyRestartable(s, true);
  s.enabled.RootFolders = true;
  frmOptions_Load(ctx, form);
  EXPECT_TRUE(s.Ravelin && !s.Robocopy);
  EXPECT_TRUE(s.CreateLog && s.enabled.HashSource && s.enabled.HashDest && s.HashSource &&
              s.HashDest && s.CopySubs);
  EXPECT_EQ(s.Collision, kCollisionDoNothing);
  EXPECT_EQ(s.Extension, kExtensionCopyOnly);
  EXPECT_TRUE(s.CopyZB && !s.CopyRestartable) << "failover set on through its rule";
  EXPECT_FALSE(s.enabled.RootFolders);

  EXPECT_EQ(form.visibleFrame, "frameGeneralOptions");

  // defaults.ini has the last word, a box in it set through its rule.
  dir.WriteFile("program/defaults.ini",
                "[Defaults]\r\nRobocopy=1\r\nCollision=2\r\nFullPaths=1\r\n");
  frmOptions_Load(ctx, form);
  EXPECT_TRUE(s.Robocopy && !s.Ravelin);
  EXPECT_EQ(s.Collision, kCollisionRename);
  EXPECT_TRUE(s.enabled.RootFolders);
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(FormTest, FilesAndFoldersAreListedApartAndAFolderNotListedLeavesTheListEmpty) {
  dir.WriteFile("d/one", "1");
  dir.WriteFile("d/sub/deeper/two", "2");
  txtSourceFolder_Change(ctx, finder, dir / "d");
  EXPECT_EQ(finder.lstFiles, std::vector<std::string>{"one"});
  EXPECT_EQ(ListSubfolders(ctx, dir / "d"), std::vector<std::string>{"sub"});
  EXPECT_EQ(ListSubfolders(ctx, dir / "d/sub/"), std::vector<std::string>{"deeper"});
  txtSourceFolder_Change(ctx, finder, dir / "d/on");  // typed half way: no such folder, no box
  EXPECT_TRUE(finder.lstFiles.empty());
  EXPECT_TRUE(dialogs.shown.empty());

  // A drive that is gone says why, and the last good one stays chosen.
  finder.dDrives = {dir / "unplugged", dir.path()};
  dDrives_Change(ctx, finder, 1);
  dDrives_Change(ctx, finder, 0);
  EXPECT_EQ(finder.dDrivesIndex, 1);
  EXPECT_EQ(finder.dDirs, dir.path());
  EXPECT_EQ(finder.txtSourceFolder, dir.path());
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "2 : No such file or directory");
}

// What user nobody may not read is said once, in the system's words: a defaults.ini, after
// which the load's own values stand, and a folder in the file finder.
TEST_F(FormTest, WhatCannotBeReadIsSaid) {
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to run the case as user nobody";
  ctx.program.app.appPath = program;
  const std::string denied = dir.MakeDir("denied");
  dir.WriteFile("denied/secret.txt", "x");
  const std::string defaults = dir.WriteFile("program/defaults.ini", "[Defaults]\r\nRobocopy=1\r\n");
  for (const auto& [path, mode] : {std::pair{dir.path(), 0755}, {program, 0755}, {denied, 0700},
                                   {defaults, 0}}) {
    ASSERT_EQ(chmod(path.c_str(), static_cast<mode_t>(mode)), 0) << path;
  }
  ctx.settings.Collision = kCollisionRename;
  const auto outcome = test::RunAsNobody([&](std::string& out) {
    frmOptions_Load(ctx, form);
    txtSourceFolder_Change(ctx, finder, denied);
    for (const std::string& text : dialogs.Texts()) out += text + "|";
    const bool loaded = ctx.settings.Ravelin && ctx.settings.Collision == kCollisionDoNothing;
    return loaded && finder.lstFiles.empty() ? 0 : 1;
  });
  ASSERT_NE(outcome.exitCode, test::kChildCannotSetUp) << "could not become nobody";
  EXPECT_EQ(outcome.output,
            "Could not load defaults (13): Permission denied|"
            "You do not appear to have proper permissions to access this folder: \r\n\r\n" +
                denied + "/|");
  EXPECT_EQ(outcome.exitCode, 0);
}

// How the picker's terms join what the box holds; the picking is the window test's.
TEST(FileTypeTerms, CommaRulesNeverLeadOrDoubleAComma) {
  EXPECT_EQ(AppendTerm("   ", TypeTerm("PDF")), "[~PDF]");
  EXPECT_EQ(AppendTerm("doc,", CategoryTerm("Images")), "doc,[Images]");
  EXPECT_EQ(AppendTerm("doc ", TypeTerm("PDF")), "doc ,[~PDF]");
}

TEST_F(FormTest, AMissingFileTypeDefinitionFileSaysSoAndLeavesTheListsEmpty) {
  ctx.program.app.programFolder = dir / "elsewhere/";
  FileTypePickerForm picker;
  frmFileDefs_Load(ctx, picker);
  EXPECT_TRUE(picker.listFileCats.empty() && picker.listFileDefs.empty());
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text.substr(0, 38), "Could not load file types definitions.");
}

using std::chrono::seconds;

// A zone for the life of the guard; POSIX rules need no zone database. `reset` is destroyed
// last, so the library rereads TZ after the variable is restored.
struct Zone {
  struct Reset { ~Reset() { tzset(); } } reset;
  test::EnvVar tz;
  explicit Zone(const char* rule) : tz("TZ", std::string(rule)) { tzset(); }
};

TimePoint Utc(int y, int mo, int d, int h, int mi, int s) {
  std::tm tm{s, mi, h, d, mo - 1, y - 1900, 0, 0, 0, 0, nullptr};
  return Clock::from_time_t(timegm(&tm));
}

// From time of day to time of day on the wall clock, across one midnight at most.
TEST(ElapsedSecondsRule, ReadsTheClockOnTheWallAcrossOneMidnightAtMost) {
  const TimePoint evening = Utc(2026, 3, 10, 23, 59, 50);
  const std::chrono::milliseconds ms(1);
  const struct {
    const char* what;
    const char* zone;
    TimePoint from, to;
    int64_t seconds;
  } cases[] = {
      {"across midnight", "UTC0", evening, evening + seconds(20), 20},
      {"the dates play no part", "UTC0", Utc(2026, 3, 10, 10, 0, 0), Utc(2026, 3, 12, 10, 0, 5), 5},
      {"earlier in its day: the next day", "UTC0", Utc(2026, 3, 10, 12, 0, 0),
       Utc(2026, 3, 11, 11, 0, 0), 82800},
      {"fractions dropped on both sides", "UTC0", evening + 900 * ms, evening + 1100 * ms, 1},
      // Central Europe's clocks go from 02:00 to 03:00 on 29 March 2026.
      {"spring forward", "CET-1CEST,M3.5.0,M10.5.0/3", Utc(2026, 3, 29, 0, 59, 59),
       Utc(2026, 3, 29, 1, 0, 0), 3601},
  };
  for (const auto& c : cases) {
    Zone zone(c.zone);
    EXPECT_EQ(ElapsedSeconds(c.from, c.to), c.seconds) << c.what;
  }
}

// Each tick starts from labels a former tick left; what the tick does not write stays.
TEST(ProgressTimer, LabelsOfOneTick) {
  const TimePoint now = Utc(2026, 6, 1, 12, 0, 0);
  const int64_t dayHourMinuteSecond = 86400 + 3600 + 60 + 1;
  const struct {
    const char* what;
    bool running;
    int64_t copying;  // seconds since copying began; 0 before copying
    int64_t run;      // seconds since the run began
    int64_t done, total, resumeBase;
    const char* elapsed;    // what follows "Elapsed Time:"
    const char* remaining;  // what follows "Estimated Time Remaining: "
  } cases[] = {
      {"outside a run the labels keep their texts", false, 0, 0, 10, 100, 0, " kept", "kept"},
      {"before copying only the elapsed time moves", true, 0, 65, 10, 100, 0, " 00:00:01:05",
       "kept"},
      {"the rate so far projected onto the rest", true, 10, 70, 250, 1000, 0, " 00:00:01:10",
       "00:00:30"},
      {"no byte done yet: the last estimate stays", true, 10, 70, 0, 1000, 0, " 00:00:01:10",
       "kept"},
      {"none left: the last estimate stays", true, 10, 70, 1000, 1000, 0, " 00:00:01:10", "kept"},
      // 100 × (10000 − 4000) ÷ 5000 − 100 = 20; without the base it would be 100.
      {"a resumed run estimates only its own bytes", true, 100, 100, 5000, 10000, 4000,
       " 00:00:01:40", "00:00:20"},
      {"1 × 10 ÷ 3 = 3.33 rounds to 3", true, 1, 1, 3, 10, 0, " 00:00:00:01", "00:00:02"},
      {"1 × 11 ÷ 3 = 3.67 rounds to 4", true, 1, 1, 3, 11, 0, " 00:00:00:01", "00:00:03"},
      {"days in the elapsed time, not in the estimate", true, 10, dayHourMinuteSecond, 10,
       10 + dayHourMinuteSecond, 0, " 01:01:01:01", "01:01:01"},
      // 100000 × 4 PB overflows 64 bits; 27:46:40 to go.
      {"byte counts too big to multiply", true, 100000, 100000, int64_t{2} * 1000000000000000,
       int64_t{4} * 1000000000000000, 0, " 01:03:46:40", "03:46:40"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    test::RunFixture run;
    RunCounters& n = run.ctx.counters;
    n.RunActive = c.running;
    n.CopyPhaseActive = c.copying > 0;
    n.StartTime = now - seconds(c.run);
    n.CopyStartTime = now - seconds(c.copying);
    n.BytesProcessed = c.done;
    n.TotalBytes = c.total;
    n.ResumeBaseBytes = c.resumeBase;
    run.ctx.progress.lblElapsedTime = "Elapsed Time: kept";
    run.ctx.progress.lblTimeRemaining = "Estimated Time Remaining: kept";
    ProgressTimerTick(run.ctx, now);
    EXPECT_EQ(run.ctx.progress.lblElapsedTime, std::string("Elapsed Time:") + c.elapsed);
    EXPECT_EQ(run.ctx.progress.lblTimeRemaining,
              std::string("Estimated Time Remaining: ") + c.remaining);
  }
}

}  // namespace
}  // namespace qr
