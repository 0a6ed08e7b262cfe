#include "exec/startup.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "jobdef/settings_files.h"
#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

TEST(Switches, ExactSwitchesAndTheLswValue) {
  StartupFlags f = ParseSwitches({"-q", "-silent", "-as", "-stop"});
  EXPECT_TRUE(f.quit && f.silent && f.autoStart && f.stop);
  EXPECT_FALSE(f.resume);

  f = ParseSwitches({"-Q", "-SILENT", "q", "-silent ", "--q", "whatever"});
  EXPECT_FALSE(f.quit || f.silent) << "switches are exact and case-sensitive";

  // The text after the equals sign, quotes removed wherever they stand, then trimmed.
  f = ParseSwitches({"-lsw=\" /a b/x.lsw\""});
  EXPECT_EQ(f.lswPath, "/a b/x.lsw");
  f = ParseSwitches({"-lsw=/j/\"q\"uoted.lsw"});
  EXPECT_EQ(f.lswPath, "/j/quoted.lsw");
}

TEST(Switches, ResumeNeedsALswValue) {
  EXPECT_FALSE(ParseSwitches({"-resume"}).resume);
  EXPECT_FALSE(ParseSwitches({"-resume", "-lsw=\"  \""}).resume);
  EXPECT_TRUE(ParseSwitches({"-resume", "-lsw=/j/x.lsw"}).resume);
  EXPECT_TRUE(ParseSwitches({"-lsw=/j/x.lsw", "-resume"}).resume) << "order does not matter";
}

class StartupTest : public ::testing::Test, protected test::RunFixture {
 protected:
  std::string program = dir.MakeDir("program");

  StartupResult Start(std::vector<std::string> args = {}, std::vector<std::string> env = {},
                      bool single = false) {
    return StartOther(ctx, std::move(args), std::move(env), single);
  }
  // Another program's start, beside this one.
  StartupResult StartOther(RunContext& c, std::vector<std::string> args = {},
                           std::vector<std::string> env = {}, bool single = false) {
    StartupInputs in;
    in.args = std::move(args);
    in.programFolder = program;
    in.environment = std::move(env);
    in.singleInstance = single;
    in.instanceLockFolder = dir.MakeDir("run");
    return Startup(c, in);
  }
};

TEST_F(StartupTest, APlainStartGivesTheStartValuesAndTheCloseSavesThemForTheNext) {
  StartupResult r = Start({"-q", "unknown"});
  EXPECT_FALSE(r.endProgram);
  EXPECT_TRUE(dialogs.shown.empty());
  EXPECT_TRUE(ctx.program.flags.quit);

  const JobSettings& s = ctx.settings;
  EXPECT_TRUE(s.Ravelin && s.CopyFiles && s.CopySubs && s.CopyEmpties && s.CreateSubs);
  EXPECT_TRUE(s.CreateLog && s.HashSource && s.HashDest);
  EXPECT_TRUE(s.CopyData && s.CopyAttributes && s.CopyTimestamps && s.CopyBackup && s.CopyZB);
  EXPECT_FALSE(s.Robocopy || s.FullPaths || s.RootFolders || s.Silent || s.CreateTally ||
               s.CreateFileList || s.SeparateTS || s.CopySecurity || s.CopyOwner ||
               s.CopyAudit || s.CopyRestartable || s.ManualFlags);
  EXPECT_EQ(s.Collision, kCollisionDoNothing);
  EXPECT_EQ(s.Extension, kExtensionCopyOnly);

  EXPECT_EQ(ctx.program.titleText, "Quillon Ravelin 2.2 Rover Edition");
  EXPECT_EQ(ctx.view.mainCaption, ctx.program.titleText);
  EXPECT_EQ(ctx.program.app.programFolder, program + "/");
  EXPECT_EQ(ctx.program.app.appPath, program) << "a writable program folder holds the settings";
  EXPECT_EQ(ctx.program.app.hashListFolder, program + "/_hashlist/");
  EXPECT_EQ(ctx.program.app.localIniPath, program + "/local.ini");
  EXPECT_EQ(ctx.program.app.helpPath, program + "/RavelinHelp.html");
  EXPECT_FALSE(ctx.program.device.onDevice);

  // The settings files are made; defaults.ini only by saving.
  const std::string rs = program + "/robocopy_settings.ini";
  EXPECT_EQ(INIread(rs, "saved_settings", "B"), "1");
  EXPECT_EQ(INIread(rs, "saved_settings", "S"), "1");
  EXPECT_EQ(INIread(rs, "saved_settings", "COPY_S"), "0");
  EXPECT_EQ(INIread(program + "/log_processes.ini", "saved_settings", "PROC_ARRAY"), "1");
  EXPECT_FALSE(std::filesystem::exists(program + "/defaults.ini"));

  // What the close saves, the next start reads.
  ctx.settings.CopySecurity = ctx.settings.FullPaths = true;
  ctx.program.clOverride = "keep me";
  SaveOnClose(ctx);
  RunContext next{dialogs, pump};
  StartOther(next);
  EXPECT_TRUE(next.settings.CopySecurity && next.settings.FullPaths);
  EXPECT_EQ(next.program.clOverride, "keep me");
  EXPECT_TRUE(dialogs.shown.empty());

  // A portable device holds the settings.
  RunContext device{dialogs, pump};
  StartOther(device, {}, {"U3_DEVICE_SERIAL=42", "U3_APP_DATA_PATH=/media/stick/data/"});
  EXPECT_TRUE(device.program.device.onDevice);
  EXPECT_EQ(device.program.app.appPath, "/media/stick/data");
}

// The settings files are read in this order: robocopy_settings.ini, then the boxes forced on,
// then defaults.ini over all.
TEST_F(StartupTest, TheForcedBoxesOverrideRobocopySettingsButNotTheRest) {
  dir.WriteFile("program/robocopy_settings.ini",
                "[saved_settings]\r\nCOPY_A=0\r\nCOPY_S=1\r\nSeparateTS=1\r\nRename=1\r\n");
  Start();
  EXPECT_TRUE(ctx.settings.CopyAttributes) << "forced on after the file";
  EXPECT_TRUE(ctx.settings.CopySecurity && ctx.settings.SeparateTS);
  EXPECT_EQ(ctx.settings.Collision, kCollisionRename);
  EXPECT_FALSE(ctx.settings.CopyEmpties) << "a missing key reads as off";
}

TEST_F(StartupTest, DefaultsWinOverEverythingBefore) {
  dir.WriteFile("program/defaults.ini",
                "[Defaults]\r\nRavelin=0\r\nCopyAttributes=0\r\nHashSource=0\r\nCopyFiles=1\r\n");
  Start();
  EXPECT_FALSE(ctx.settings.Ravelin) << "off in defaults.ini survives the boxes set on at load";
  EXPECT_TRUE(ctx.settings.Robocopy) << "the engine boxes exclude each other";
  EXPECT_FALSE(ctx.settings.CopyAttributes || ctx.settings.HashSource);
  EXPECT_TRUE(ctx.settings.CopyFiles);
}

// The engine is off and its box disabled when no ROBOCOPY program starts; a program of that name
// on the search path makes it available.
TEST_F(StartupTest, RobocopyProbeFollowsTheSearchPath) {
  test::EnvVar path{"PATH", dir.MakeDir("bin")};
  Start();
  EXPECT_FALSE(ctx.program.robocopyAvailable);
  EXPECT_FALSE(ctx.settings.Robocopy);
  EXPECT_FALSE(ctx.settings.enabled.Robocopy);

  chmod(dir.WriteFile("bin/ROBOCOPY", "#!/bin/sh\nexit 16\n").c_str(), 0755);
  RunContext again{dialogs, pump};
  StartOther(again);
  EXPECT_TRUE(again.program.robocopyAvailable);
  EXPECT_TRUE(again.settings.enabled.Robocopy);

  // Defaults may turn the missing engine on, but its box stays disabled.
  std::filesystem::remove(dir / "bin/ROBOCOPY");
  dir.WriteFile("program/defaults.ini", "[Defaults]\r\nRobocopy=1\r\n");
  RunContext third{dialogs, pump};
  StartOther(third);
  EXPECT_FALSE(third.program.robocopyAvailable);
  EXPECT_TRUE(third.settings.Robocopy && !third.settings.Ravelin);
  EXPECT_FALSE(third.settings.enabled.Robocopy);
}

TEST_F(StartupTest, ASecondWindowProgramIsRefused) {
  StartupResult first = Start({}, {}, true);
  ASSERT_FALSE(first.endProgram);
  ASSERT_TRUE(first.lock && first.lock->acquired());

  RunContext second{dialogs, pump};
  EXPECT_TRUE(StartOther(second, {}, {}, true).endProgram);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Another instance of this application is already running.");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Information);

  // Once the first is gone, a new start takes the key.
  first.lock.reset();
  RunContext third{dialogs, pump};
  EXPECT_FALSE(StartOther(third, {}, {}, true).endProgram);
}

}  // namespace
}  // namespace qr
