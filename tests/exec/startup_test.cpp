#include "exec/startup.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "jobdef/settings_files.h"
#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

TEST(Switches, ExactSwitchesTheLswValueAndResumeOnlyWithIt) {
  StartupFlags f = ParseSwitches({"-q", "-silent", "-as", "-stop", "-resume"});
  EXPECT_TRUE(f.quit && f.silent && f.autoStart && f.stop);
  EXPECT_FALSE(f.resume) << "-resume needs a -lsw value";
  f = ParseSwitches({"-Q", "-SILENT", "q", "-silent ", "--q", "whatever"});
  EXPECT_FALSE(f.quit || f.silent) << "switches are exact and case-sensitive";

  // The text after the equals sign, quotes removed wherever they stand, then trimmed.
  EXPECT_EQ(ParseSwitches({"-lsw=\" /a b/x.lsw\""}).lswPath, "/a b/x.lsw");
  EXPECT_EQ(ParseSwitches({"-lsw=/j/\"q\"uoted.lsw"}).lswPath, "/j/quoted.lsw");
  EXPECT_FALSE(ParseSwitches({"-resume", "-lsw=\"  \""}).resume);
  EXPECT_TRUE(ParseSwitches({"-lsw=/j/x.lsw", "-resume"}).resume);
}

class StartupTest : public ::testing::Test, protected test::RunFixture {
 protected:
  std::string program = dir.MakeDir("program");

  // A program's start from `program`, this fixture's or another beside it.
  StartupResult Start(RunContext& c, std::vector<std::string> args = {},
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
  EXPECT_FALSE(Start(ctx, {"-q", "unknown"}).endProgram);
  EXPECT_TRUE(ctx.program.flags.quit);
  const JobSettings& s = ctx.settings;
  EXPECT_TRUE(s.Ravelin && s.CopyEmpties && s.CopyAttributes && s.CopyBackup && s.CopyZB);
  EXPECT_FALSE(s.Robocopy || s.CopySecurity);
  EXPECT_EQ(ctx.view.mainCaption, "Quillon Ravelin 2.2 Rover Edition");
  EXPECT_EQ(ctx.program.app.appPath, program) << "a writable program folder holds the settings";

  // The settings files are made; defaults.ini only by saving.
  const std::string rs = program + "/robocopy_settings.ini";
  EXPECT_EQ(INIread(rs, "saved_settings", "B") + INIread(rs, "saved_settings", "COPY_S"), "10");
  EXPECT_EQ(INIread(program + "/log_processes.ini", "saved_settings", "PROC_ARRAY"), "1");
  EXPECT_FALSE(std::filesystem::exists(program + "/defaults.ini"));

  // What the close saves, the next start reads.
  ctx.settings.CopySecurity = ctx.settings.FullPaths = true;
  ctx.program.clOverride = "keep me";
  SaveOnClose(ctx);
  RunContext next{dialogs, pump};
  Start(next);
  EXPECT_TRUE(next.settings.CopySecurity && next.settings.FullPaths);
  EXPECT_EQ(next.program.clOverride, "keep me");
  EXPECT_TRUE(dialogs.shown.empty());
}

// Read in this order: robocopy_settings.ini, then the boxes forced on, then defaults.ini over all.
TEST_F(StartupTest, TheForcedBoxesOverrideRobocopySettingsAndDefaultsWinOverAll) {
  dir.WriteFile("program/robocopy_settings.ini",
                "[saved_settings]\r\nCOPY_A=0\r\nCOPY_S=1\r\nSeparateTS=1\r\nRename=1\r\n");
  Start(ctx);
  EXPECT_TRUE(ctx.settings.CopyAttributes) << "forced on after the file";
  EXPECT_TRUE(ctx.settings.CopySecurity && ctx.settings.SeparateTS);
  EXPECT_EQ(ctx.settings.Collision, kCollisionRename);

  dir.WriteFile("program/defaults.ini",
                "[Defaults]\r\nRavelin=0\r\nCopyAttributes=0\r\nHashSource=0\r\n");
  RunContext next{dialogs, pump};
  Start(next);
  EXPECT_FALSE(next.settings.Ravelin) << "off in defaults.ini survives the boxes set on at load";
  EXPECT_TRUE(next.settings.Robocopy) << "the engine boxes exclude each other";
  EXPECT_FALSE(next.settings.CopyAttributes || next.settings.HashSource);
}

// The engine's box is disabled when no ROBOCOPY program starts; defaults may still turn it on.
TEST_F(StartupTest, RobocopyProbeFollowsTheSearchPath) {
  test::EnvVar path{"PATH", dir.MakeDir("bin")};
  dir.WriteFile("program/defaults.ini", "[Defaults]\r\nRobocopy=1\r\n");
  Start(ctx);
  EXPECT_TRUE(ctx.settings.Robocopy && !ctx.settings.enabled.Robocopy);
  chmod(dir.WriteFile("bin/ROBOCOPY", "#!/bin/sh\nexit 16\n").c_str(), 0755);
  RunContext again{dialogs, pump};
  Start(again);
  EXPECT_TRUE(again.program.robocopyAvailable && again.settings.enabled.Robocopy);
}

TEST_F(StartupTest, ASecondWindowProgramIsRefused) {
  StartupResult first = Start(ctx, {}, {}, true);
  ASSERT_TRUE(!first.endProgram && first.lock && first.lock->acquired());
  RunContext second{dialogs, pump};
  EXPECT_TRUE(Start(second, {}, {}, true).endProgram);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Another instance of this application is already running.");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Information);

  // Once the first is gone, a new start takes the key.
  first.lock.reset();
  RunContext third{dialogs, pump};
  EXPECT_FALSE(Start(third, {}, {}, true).endProgram);
}

}  // namespace
}  // namespace qr
