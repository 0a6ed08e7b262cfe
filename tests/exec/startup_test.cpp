// The programs' start: start values, settings files, a single window program.
#include "exec/startup.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "jobdef/settings_files.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

class StartupTest : public ::testing::Test, protected test::RunFixture {
 protected:
  std::string program = dir.MakeDir("program");

  // A program's start from `program`.
  StartupResult Start(RunContext& c, std::vector<std::string> args = {}, bool single = false) {
    StartupInputs in;
    in.args = std::move(args);
    in.programFolder = program;
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

  // What the close saves, the next start reads; then some boxes are forced on whatever it said
  // (defaults.ini, read last, is the options dialog tests').
  ctx.settings.CopySecurity = ctx.settings.FullPaths = true;
  ctx.settings.CopyAttributes = false;
  ctx.program.clOverride = "keep me";
  SaveOnClose(ctx);
  RunContext next{dialogs, pump};
  Start(next);
  EXPECT_TRUE(next.settings.CopySecurity && next.settings.FullPaths);
  EXPECT_TRUE(next.settings.CopyAttributes) << "forced on after the file";
  EXPECT_EQ(next.program.clOverride, "keep me");
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(StartupTest, ASecondWindowProgramIsRefused) {
  StartupResult first = Start(ctx, {}, true);
  ASSERT_TRUE(!first.endProgram && first.lock && first.lock->acquired());
  RunContext second{dialogs, pump};
  EXPECT_TRUE(Start(second, {}, true).endProgram);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Another instance of this application is already running.");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Information);

  // Once the first is gone, a new start takes the key.
  first.lock.reset();
  RunContext third{dialogs, pump};
  EXPECT_FALSE(Start(third, {}, true).endProgram);
}

}  // namespace
}  // namespace qr
