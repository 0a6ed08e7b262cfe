#include "ui/job_manager.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "jobdef/settings_files.h"
#include "platform/dates.h"
#include "platform/machine.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

namespace fs = std::filesystem;

class JobManagerTest : public ::testing::Test, protected test::RunFixture {
 protected:
  JobManagerForm f;
  void SetUp() override { ctx.program.app.programFolder = dir.MakeDir("program") + "/"; }
  std::string Drive() const { return ProgramDrive(dir / "program"); }
};

TEST_F(JobManagerTest, SaveNeedsANameAndAsksForAFileUnlessAJobWasLoaded) {
  f.job.OrderName = "   ";
  cmdSave_Click(ctx, f);
  EXPECT_EQ(dialogs.Texts(), std::vector<std::string>{"You must enter a Job Name before saving."});
  EXPECT_TRUE(dialogs.pickerTitles.empty());

  f.job.OrderName = "Audit";
  dialogs.picks = {dir / "a", dir / "b.LSW", ""};
  cmdSave_Click(ctx, f);  // ".lsw" added
  cmdSave_Click(ctx, f);  // the name chosen is not remembered: asks again; ".LSW" kept
  cmdSave_Click(ctx, f);  // closed without a name: nothing is written
  EXPECT_EQ(dialogs.pickerTitles, std::vector<std::string>(3, "Save Lantern Sweep file"));
  EXPECT_EQ(dialogs.pickerDetails[0].filter, "Lantern Sweep files (*.lsw)|*.lsw");
  EXPECT_EQ(dialogs.pickerDetails[0].startFolder, dir / "program/_lsw");
  EXPECT_TRUE(fs::exists(dir / "a.lsw") && fs::exists(dir / "b.LSW"));
  EXPECT_FALSE(fs::exists(dir / "b.LSW.lsw") || fs::exists(".lsw"));

  // Save As asks also after a load (which Save writes back in place), and the load stays.
  f.listSourcesSelected = {0};
  ASSERT_TRUE(OpenJobFile(ctx, f, dir / "a.lsw"));
  EXPECT_TRUE(f.listSourcesSelected.empty()) << "a loaded job starts with no source selected";
  dialogs.picks = {dir / "c"};
  cmdSaveAs_Click(ctx, f);
  EXPECT_EQ(dialogs.pickerTitles.back(), "Save As Lantern Sweep file");
  EXPECT_TRUE(fs::exists(dir / "c.lsw"));
  EXPECT_EQ(f.JobFilePath, dir / "a.lsw");

  // A job record loads into a clear form, and is never saved in place.
  f = JobManagerForm{};
  const std::string rvj = dir.WriteFile("_jobfile.rvj", "[TARGET]\t/t\r\n[SRC]\t[RVDrive]/x\r\n");
  f.job.LogPath = "/old";
  f.job.ExtAction = kExtensionDoNotCopy;
  f.job.LSWSearchAccessed = true;
  dialogs.picks = {rvj};
  cmdLoad_Click(ctx, f);
  EXPECT_EQ(dialogs.pickerTitles.back(), "Open a Lantern Sweep or Ravelin Job file");
  EXPECT_EQ(f.job.Target, "/t");
  EXPECT_EQ(f.job.Sources, std::vector<std::string>{"[RVDrive]/x"});
  EXPECT_EQ(f.job.LogPath, "");
  EXPECT_EQ(f.job.ExtAction, kExtensionCopyOnly);
  EXPECT_FALSE(f.job.LSWSearchAccessed || f.JobLoaded);
  EXPECT_TRUE(f.JobFilePath.empty());

  f.job.OrderName = "From a record";
  dialogs.picks = {dir / "new"};
  cmdSave_Click(ctx, f);
  EXPECT_EQ(dialogs.pickerTitles.back(), "Save Lantern Sweep file");
  EXPECT_EQ(test::ReadBytes(rvj), "[TARGET]\t/t\r\n[SRC]\t[RVDrive]/x\r\n");
}

TEST_F(JobManagerTest, ADamagedJobFileIsRefusedAndChangesNothing) {
  f.job.Sources = {"/kept"};
  f.JobFilePath = dir / "kept.lsw";
  ctx.settings.ExclusionPatterns = {"*.tmp"};
  const std::vector<std::string> bad = {
      dir.WriteFile("binary.lsw", std::string("[JNAME]\tx\r\n\0\x01\x02", 14)),
      dir.WriteFile("number.lsw", "[JNAME]\tx\r\n[SRC]\t/y\r\n[LOG]\tyes\r\n"),
      dir.WriteFile("prose.lsw", "just some words\r\nno tags here\r\n"),
      dir / "missing.lsw",
  };
  for (const std::string& path : bad) {
    SCOPED_TRACE(path);
    dialogs.shown.clear();
    EXPECT_FALSE(OpenJobFile(ctx, f, path));
    ASSERT_EQ(dialogs.shown.size(), 1u);
    EXPECT_EQ(dialogs.shown[0].text.rfind("The job file " + path + " could not be loaded: ", 0),
              0u);
    // The reason a file could not be read is the system's own.
    if (path.ends_with("missing.lsw")) {
      EXPECT_NE(dialogs.shown[0].text.find("No such file or directory"), std::string::npos);
    }
    EXPECT_EQ(f.job.Sources, std::vector<std::string>{"/kept"});
    EXPECT_EQ(f.JobFilePath, dir / "kept.lsw");
    EXPECT_EQ(ctx.settings.ExclusionPatterns, std::vector<std::string>{"*.tmp"});
  }
}

TEST_F(JobManagerTest, RunHandsTheFieldsOverWithTheVariablesReplacedInTheirOrder) {
  const std::string source = dir.MakeDir("src");
  ctx.settings.Sources = {"/left/over"};
  ctx.settings.SearchModified = true;
  f.job.OrderName = "[CName]";  // replaced after [JobName], so the computer's name comes in
  f.job.Instructions = "Plug in";
  f.job.Target = "[RoverDrive]/[JobName]/[rvdrive]";
  f.job.LogPath = "[RVDrive]/_Logs/[UName]/[Date]";
  f.job.CommonLog = "  /common/[JobName]  ";
  f.job.Sources = {source, "[File List] [RVDrive]/list.txt"};
  f.job.Ext = "doc,xls";
  f.job.ExtAction = kExtensionDoNotCopy;
  f.job.ExtFile = "[RVDrive]/ext.txt";
  f.job.BeginMonth = " 3 ";
  f.job.BeginYear = " 2024 ";
  f.job.LSWSearchCreated = true;
  f.job.LSWSearchAccessed = true;

  int runs = 0;
  cmdRun_Click(ctx, f, [&] {
    ++runs;
    const JobSettings& s = ctx.settings;
    EXPECT_EQ(ctx.job.JobName, "[CName]");
    EXPECT_EQ(ctx.job.SpecialInstructions, "Plug in");
    EXPECT_EQ(s.TargetPath, Drive() + "/" + ComputerName() + "/[rvdrive]");
    EXPECT_EQ(s.LogPath,
              Drive() + "/_Logs/" + UserName() + "/" + MediumDate(ToLocal(Clock::now())));
    EXPECT_EQ(s.CommonLogPath, "/common/[JobName]");
    EXPECT_EQ(s.Sources, (std::vector<std::string>{source, "[File List] " + Drive() + "/list.txt"}));
    EXPECT_EQ(s.Extensions, "doc,xls");
    EXPECT_EQ(s.Extension, kExtensionDoNotCopy);
    EXPECT_EQ(s.ExtListFile, Drive() + "/ext.txt");
    EXPECT_EQ(s.StartMonth, "3");
    EXPECT_EQ(s.StartYear, " 2024 ");
    EXPECT_TRUE(s.SearchCreated);
    EXPECT_TRUE(s.SearchAccessed);
    EXPECT_TRUE(s.SearchModified);  // off in the job: left as the options had it
  });
  EXPECT_EQ(runs, 1);

  // During a run neither the hand-over nor a load may change the job in hand.
  ctx.view.runControlsEnabled = false;
  f.job.Sources = {};
  cmdRun_Click(ctx, f, [&] { ++runs; });
  EXPECT_FALSE(OpenJobFile(ctx, f, dir.WriteFile("j.lsw", "[JNAME]\tJ\r\n[SRC]\t/j\r\n")));
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(ctx.settings.Sources.size(), 2u);
  EXPECT_EQ(f.job.OrderName, "[CName]");
}

TEST_F(JobManagerTest, SourcesGoInAsTypedAndEditsReplaceInPlace) {
  dialogs.inputs = {"  [LDrive] ", "", std::nullopt};
  lnkTypePath_Click(ctx, f);
  lnkTypePath_Click(ctx, f);  // empty answer
  lnkTypePath_Click(ctx, f);  // cancelled
  dialogs.picks = {"/nowhere/at/all", "/lists/l.txt", ""};
  lnkAddFolder_Click(ctx, f);
  lnkAddFileList_Click(ctx, f);
  lnkAddFolder_Click(ctx, f);
  listSources_Dropped(f, {"/dropped", "  "});
  EXPECT_EQ(f.job.Sources, (std::vector<std::string>{"  [LDrive] ", "/nowhere/at/all",
                                                     "[File List] /lists/l.txt", "/dropped"}));
  EXPECT_TRUE(ctx.settings.Sources.empty());

  dialogs.shown.clear();
  dialogs.inputs = {"/first", "[RVDrive]/x", ""};
  listSources_DblClick(ctx, f, 0);
  listSources_DblClick(ctx, f, 1);
  listSources_DblClick(ctx, f, 2);  // an empty answer leaves the entry
  EXPECT_EQ(f.job.Sources, (std::vector<std::string>{"/first", "[RVDrive]/x",
                                                     "[File List] /lists/l.txt", "/dropped"}));

  listSources_DblClick(ctx, f, 4);  // no such row: no box
  EXPECT_EQ(dialogs.shown.size(), 3u);

  f.listSourcesSelected = {3, 9, 4, 1};
  lnkRemove_Click(f);
  EXPECT_EQ(f.job.Sources,
            (std::vector<std::string>{"/first", "[File List] /lists/l.txt"}));
  EXPECT_EQ(f.listSourcesSelected, std::vector<int>{1});  // past the end: the new last entry
  f.listSourcesSelected = {7};
  lnkRemove_Click(f);
  EXPECT_EQ(f.job.Sources.size(), 2u);
}

TEST_F(JobManagerTest, BrowseButtonsOfferTheirDefaultsAndKeepTheFieldWithoutAChoice) {
  f.job.CommonLog = "/old/common";
  dialogs.picks = {"/t", "", "/c", "/e.txt"};
  cmdBrowseTarget_Click(ctx, f);
  cmdLogPath_Click(ctx, f);
  cmdCommonLog_Click(ctx, f);
  cmdBrowseExt_Click(ctx, f);
  EXPECT_EQ(f.job.Target, "/t");
  EXPECT_EQ(f.job.LogPath, "[RVDrive]/_Logs/[JobName]/");
  EXPECT_EQ(f.job.CommonLog, "/c");
  EXPECT_EQ(f.job.ExtFile, "/e.txt");
}

TEST(JobManagerHelp, PathTopicsShareTheirVariableLinesWithTheDate) {
  const std::string log = HelpText("Log Path", "15-Nov-26");
  EXPECT_NE(log.find("in this field:\r\n\r\n[RVDrive] : "), std::string::npos) << log;
  EXPECT_TRUE(log.ends_with("\r\n[Date] : This variable is replaced with the current date "
                            "(ie: 15-Nov-26)"))
      << log;
  const std::string target = HelpText("Job Target Path", "15-Nov-26");
  EXPECT_NE(target.find("in order to separate the target folders by job name.\r\n[CName]"),
            std::string::npos);
  EXPECT_EQ(target.substr(target.find("[CName]")), log.substr(log.find("[CName]")));
  EXPECT_EQ(HelpText("Nothing", ""), "");
}

TEST(AutorunFileText, FourLinesWithTheProgramPathQuotedWhenItHoldsABlank) {
  EXPECT_EQ(MakeAutorun("/media/usb/My Tools/", "/media/usb", true).text,
            "[autorun]\r\n"
            "OPEN=\"My Tools/quillon-ravelin\" -as -q /AUTORUN\r\n"
            "ACTION=\"Run Lantern Sweep\"\r\n"
            "ICON=My Tools/quillon-ravelin,0\r\n");
  const AutorunFile root = MakeAutorun("/opt/qr/", "", false);
  EXPECT_EQ(root.path, "/AUTORUN.INF");
  EXPECT_NE(root.text.find("\r\nOPEN=opt/qr/quillon-ravelin /AUTORUN\r\n"), std::string::npos);
  EXPECT_NE(root.text.find("ICON=opt/qr/quillon-ravelin,0"), std::string::npos);
}

TEST_F(JobManagerTest, AutorunAsksTwiceWritesTheRootAndSaysWhenItCannot) {
  const std::string drive = dir.MakeDir("usb");
  ctx.program.app.programFolder = drive + "/tools/";
  const std::string inf = drive + "/AUTORUN.INF";

  dialogs.answers = {Answer::No};
  mnuAutorun_Click(ctx, drive);
  dialogs.answers = {Answer::Yes, Answer::Cancel};
  mnuAutorun_Click(ctx, drive);
  EXPECT_FALSE(fs::exists(inf));
  ASSERT_EQ(dialogs.shown.size(), 3u);
  EXPECT_EQ(dialogs.shown[2].buttons, Buttons::YesNoCancel) << "the second box can be cancelled";

  dir.WriteFile("usb/AUTORUN.INF", "an older one, longer than the new one will be .......... "
                                 ".........................................................");
  dialogs.answers = {Answer::Yes, Answer::No};
  mnuAutorun_Click(ctx, drive);
  EXPECT_EQ(test::ReadBytes(inf), MakeAutorun(ctx.program.app.programFolder, drive, false).text);

  dialogs.shown.clear();
  dialogs.answers = {Answer::Yes, Answer::Yes};
  mnuAutorun_Click(ctx, dir / "not-mounted");
  ASSERT_EQ(dialogs.shown.size(), 3u);
  EXPECT_EQ(dialogs.shown[2].text.rfind("The autorun file " + dir / "not-mounted/AUTORUN.INF" +
                                            " could not be written: No such file or directory",
                                        0),
            0u);
}

TEST_F(JobManagerTest, HashListFolderIsKeptInLocalIniAtOnce) {
  ctx.program.app.localIniPath = dir / "program/local.ini";
  ctx.program.app.hashListFolder = dir / "program/_hashlist/";
  dialogs.picks = {""};
  mnuHashPath_Click(ctx);
  EXPECT_TRUE(dialogs.shown.empty());
  EXPECT_EQ(dialogs.pickerDetails[0].startFolder, dir / "program/_hashlist/");

  const std::string chosen = dir.MakeDir("hashes");
  dialogs.picks = {chosen};
  mnuHashPath_Click(ctx);
  EXPECT_EQ(ctx.program.app.hashListFolder, chosen + "/");
  EXPECT_EQ(INIread(ctx.program.app.localIniPath, "LocalSettings", "HASHPATH"), chosen + "/");
  EXPECT_EQ(dialogs.shown.size(), 1u);
}

}  // namespace
}  // namespace qr
