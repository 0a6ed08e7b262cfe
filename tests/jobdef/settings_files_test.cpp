#include "jobdef/settings_files.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "platform/errors.h"
#include "run/run_context.h"
#include "run/startup.h"
#include "support/fake_dialogs.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::ReadBytes;
using test::TempDir;

class IniFileTest : public ::testing::Test {
 protected:
  TempDir dir;
  std::string file = dir / "settings.ini";
  std::string Bytes() const { return ReadBytes(file); }
};

TEST_F(IniFileTest, AKeyIntoANewFileGivesSectionKeyAndFinalLineEnd) {
  INIwrite(file, "Saved", "Key", "v");
  EXPECT_EQ(Bytes(), "[Saved]\r\nKey=v\r\n");
  EXPECT_EQ(INIread(file, "Saved", "Key"), "v");

  // An empty file behaves as a missing one.
  std::string empty = dir.WriteFile("empty.ini", "");
  EXPECT_EQ(INIread(empty, "Saved", "Key"), "");
  INIwrite(empty, "Saved", "Key", "v");
  EXPECT_EQ(ReadBytes(empty), "[Saved]\r\nKey=v\r\n");
}

TEST_F(IniFileTest, ReadingAMissingFileCreatesItEmpty) {
  EXPECT_EQ(INIread(file, "s", "k"), "");
  struct stat st {};
  ASSERT_EQ(stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_size, 0);
  // A folder that isn't there is a failure, not an empty value.
  EXPECT_THROW(INIread(dir / "no/such.ini", "s", "k"), RunError);
  EXPECT_THROW(INIwrite(dir / "no/such.ini", "s", "k", "v"), RunError);
}

TEST_F(IniFileTest, SectionAndKeyIgnoreCaseAndTheKeyTakesTheLastWritersCase) {
  INIwrite(file, "Saved_Settings", "CopyEmpties", "1");
  EXPECT_EQ(INIread(file, "SAVED_settings", "copyempties"), "1");
  INIwrite(file, "saved_settings", "COPYEMPTIES", "0");
  EXPECT_EQ(Bytes(), "[Saved_Settings]\r\nCOPYEMPTIES=0\r\n")
      << "the section keeps its first case, the key the case of the last write";
  // The value after the first "=" comes back as written, case and all.
  INIwrite(file, "saved_settings", "Cmd", "A=B c");
  EXPECT_EQ(INIread(file, "Saved_Settings", "cmd"), "A=B c");
}

TEST_F(IniFileTest, KeysFindTheirOwnSectionAndWholeName) {
  dir.WriteFile("settings.ini", "[a]\r\nkeyx=1\r\n\r\n[b]\r\nkey=2\r\n");
  EXPECT_EQ(INIread(file, "a", "key"), "") << "keyx is not key";
  EXPECT_EQ(INIread(file, "b", "key"), "2");
  EXPECT_EQ(INIread(file, "c", "key"), "");

  // The same key further down, in another section, is not this section's: a new key goes first
  // in its own section.
  INIwrite(file, "a", "key", "3");
  EXPECT_EQ(Bytes(), "[a]\r\nkey=3\r\nkeyx=1\r\n\r\n[b]\r\nkey=2\r\n");
  INIwrite(file, "b", "key", "4");
  EXPECT_EQ(Bytes(), "[a]\r\nkey=3\r\nkeyx=1\r\n\r\n[b]\r\nkey=4\r\n");
  // A new section goes at the end after one blank line.
  INIwrite(file, "C", "k", "5");
  EXPECT_EQ(Bytes(), "[a]\r\nkey=3\r\nkeyx=1\r\n\r\n[b]\r\nkey=4\r\n\r\n[C]\r\nk=5\r\n");
}

TEST_F(IniFileTest, AValueWithABracketReadsBackEmptyAndHidesTheRestOfItsSection) {
  INIwrite(file, "s", "after", "2");
  INIwrite(file, "s", "path", "/data/[x]");
  EXPECT_EQ(Bytes(), "[s]\r\npath=/data/[x]\r\nafter=2\r\n");
  EXPECT_EQ(INIread(file, "s", "path"), "");
  EXPECT_EQ(INIread(file, "s", "after"), "") << "the bracket ended the section for the reader";

  // For the writer too: the key beyond the bracket counts as missing and is added again first.
  INIwrite(file, "s", "after", "3");
  EXPECT_EQ(Bytes(), "[s]\r\nafter=3\r\npath=/data/[x]\r\nafter=2\r\n");
  EXPECT_EQ(INIread(file, "s", "after"), "3");
}

TEST_F(IniFileTest, BlankRunsShrinkAndTheEndsAreTidiedAtTheNextWrite) {
  dir.WriteFile("settings.ini", "\r\n\r\n[a]\r\nx=1\r\n\r\n\r\n\r\n\r\n[b]\r\ny=2\r\n\r\n\r\n");
  EXPECT_EQ(INIread(file, "b", "y"), "2");
  EXPECT_EQ(Bytes(), "\r\n\r\n[a]\r\nx=1\r\n\r\n\r\n\r\n\r\n[b]\r\ny=2\r\n\r\n\r\n")
      << "reading changes nothing";
  INIwrite(file, "a", "x", "5");
  EXPECT_EQ(Bytes(), "[a]\r\nx=5\r\n\r\n[b]\r\ny=2\r\n");
}

TEST_F(IniFileTest, AFileWithoutAFinalLineEnd) {
  dir.WriteFile("settings.ini", "[s]\r\nk=old");
  EXPECT_EQ(INIread(file, "s", "k"), "old");
  INIwrite(file, "s", "k", "new");
  EXPECT_EQ(Bytes(), "[s]\r\nk=new\r\n");

  dir.WriteFile("settings.ini", "[s]\r\nk=old");
  INIwrite(file, "s", "m", "1");
  EXPECT_EQ(Bytes(), "[s]\r\nm=1\r\nk=old\r\n");

  // A header as the very last bytes.
  dir.WriteFile("settings.ini", "[x]\r\na=1\r\n[s]");
  INIwrite(file, "s", "k", "1");
  EXPECT_EQ(INIread(file, "s", "k"), "1");
  EXPECT_EQ(INIread(file, "x", "a"), "1");
}

// Files edited by hand may end lines with CR or LF alone: both read, and a write updates the key
// in place instead of adding a section that the reader would never reach.
TEST_F(IniFileTest, LinesEndedByCrOrLfAlone) {
  for (const char* text : {"[s]\rk=old\rj=2\r", "[s]\nk=old\nj=2\n", "[s]\rk=old\nj=2"}) {
    SCOPED_TRACE(::testing::PrintToString(std::string(text)));
    dir.WriteFile("settings.ini", text);
    EXPECT_EQ(INIread(file, "s", "k"), "old");
    EXPECT_EQ(INIread(file, "s", "j"), "2");
    INIwrite(file, "s", "k", "new");
    EXPECT_EQ(Bytes(), "[s]\r\nk=new\r\nj=2\r\n");
  }
}

TEST_F(IniFileTest, AReadOnlyFileBecomesWritable) {
  dir.WriteFile("settings.ini", "[s]\r\nk=1\r\n");
  ASSERT_EQ(chmod(file.c_str(), 0444), 0);
  EXPECT_EQ(INIread(file, "s", "k"), "1");
  struct stat st {};
  ASSERT_EQ(stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u) << "only the owner's write bit is added";

  ASSERT_EQ(chmod(file.c_str(), 0444), 0);
  INIwrite(file, "s", "k", "2");
  EXPECT_EQ(Bytes(), "[s]\r\nk=2\r\n");
  ASSERT_EQ(stat(file.c_str(), &st), 0);
  EXPECT_NE(st.st_mode & S_IWUSR, 0u);
}

class SettingsFilesTest : public ::testing::Test {
 protected:
  TempDir dir;
  test::FakeDialogs dialogs;
  test::FakePump pump;
  RunContext ctx{dialogs, pump};
  void SetUp() override {
    ctx.app.appPath = dir.path();
    ctx.app.programFolder = dir.path() + "/";
    ctx.app.hashListFolder = dir.path() + "/_hashlist/";
    ctx.app.localIniPath = dir.path() + "/local.ini";
  }
};

TEST_F(SettingsFilesTest, RobocopySettingsRoundTrip) {
  JobSettings& s = ctx.settings;
  s.CopyData = false;
  s.CopySecurity = s.CopyOwner = s.CopyAudit = true;
  s.CopyBackup = false;
  s.CopyRestartable = true;
  s.CopyZB = false;
  s.CopySubs = false;
  s.FullPaths = s.RootFolders = s.SeparateTS = true;
  s.CopyEmpties = false;
  s.Collision = kCollisionRename;
  ctx.main.mainWidthTwips = 15000;
  ctx.main.mainHeightTwips = 9000;
  ctx.main.clOverride = "/MIR";
  SetINIVals(ctx);
  EXPECT_TRUE(dialogs.shown.empty());
  const std::string text = ReadBytes(dir / "robocopy_settings.ini");
  EXPECT_EQ(text.find("Overwrite"), std::string::npos) << "written by no one";
  EXPECT_NE(text.find("\r\nRename=1\r\n"), std::string::npos);
  EXPECT_NE(text.find("\r\nWW=15000\r\n"), std::string::npos);

  RunContext back{dialogs, pump};
  back.app = ctx.app;
  GetINIVals(back);
  const JobSettings& b = back.settings;
  EXPECT_FALSE(b.CopyData);
  EXPECT_TRUE(b.CopyAttributes && b.CopyTimestamps);
  EXPECT_TRUE(b.CopySecurity && b.CopyOwner && b.CopyAudit);
  EXPECT_FALSE(b.CopyBackup || b.CopyZB || b.CopySubs || b.CopyEmpties);
  EXPECT_TRUE(b.CopyRestartable);
  EXPECT_TRUE(b.FullPaths && b.RootFolders && b.SeparateTS);
  EXPECT_TRUE(b.enabled.RootFolders) << "FullPaths is set through its click rule";
  EXPECT_FALSE(b.enabled.CreateSubs);
  EXPECT_EQ(b.Collision, kCollisionRename);
  EXPECT_EQ(back.main.mainWidthTwips, 15000);
  EXPECT_EQ(back.main.mainHeightTwips, 9000);
  EXPECT_EQ(back.main.clOverride, "/MIR");
}

TEST_F(SettingsFilesTest, WindowSizeHasAFloorAndOverwriteIsReadOnly) {
  ctx.main.mainWidthTwips = 5000;
  ctx.main.mainHeightTwips = 6000;
  SetINIVals(ctx);
  const std::string file = dir / "robocopy_settings.ini";
  EXPECT_EQ(INIread(file, "saved_settings", "WW"), "12000");
  EXPECT_EQ(INIread(file, "saved_settings", "WH"), "6000");

  INIwrite(file, "saved_settings", "Overwrite", "1");
  INIwrite(file, "saved_settings", "Rename", "0");
  RunContext back{dialogs, pump};
  back.app = ctx.app;
  GetINIVals(back);
  EXPECT_EQ(back.settings.Collision, kCollisionOverwrite);
}

TEST_F(SettingsFilesTest, CopyModesFromTheFileObeyTheirExclusion) {
  dir.WriteFile("robocopy_settings.ini",
                "[saved_settings]\r\nB=1\r\nZ=0\r\nZB=1\r\n");
  // A rule fires only when a box changes, so start from one mode on, as the dialog leaves it.
  ctx.settings.CopyZB = false;
  GetINIVals(ctx);
  EXPECT_TRUE(ctx.settings.CopyZB);
  EXPECT_FALSE(ctx.settings.CopyBackup) << "ZB, read after B, turned it off";
  EXPECT_FALSE(ctx.settings.CopyData) << "a missing key reads as off";
}

TEST_F(SettingsFilesTest, AnUnwritableSettingsFolderShowsTheIniError) {
  ctx.app.appPath = dir / "gone";
  SetINIVals(ctx);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "W Ini Error\r\n2 : No such file or directory");
  SaveDefaults(ctx);
  ASSERT_EQ(dialogs.shown.size(), 2u);
  EXPECT_EQ(dialogs.shown[1].text, "Could not save defaults (2): No such file or directory");
}

TEST_F(SettingsFilesTest, LogProcessesIsCreatedOrRead) {
  LoadLogProcesses(ctx);
  const std::string file = dir / "log_processes.ini";
  const std::string text = ReadBytes(file);
  EXPECT_EQ(text.rfind("[saved_settings]\r\n", 0), 0u);
  for (const char* key : {"HASH_SOURCE", "HASH_DEST", "SOURCE_PROPS", "DEST_PROPS",
                          "COMPARE_HASHES", "COMPARE_DATES", "COMPARE_SIZES", "LONG_PATH_CHECK",
                          "OUTPUT_VLOG", "OUTPUT_ERROR", "PROC_ARRAY"}) {
    EXPECT_NE(text.find(std::string("\r\n") + key + "=1\r\n"), std::string::npos) << key;
  }

  INIwrite(file, "saved_settings", "COMPARE_DATES", "0");
  INIwrite(file, "saved_settings", "PROC_ARRAY", "yes");
  RunContext back{dialogs, pump};
  back.app = ctx.app;
  LoadLogProcesses(back);
  EXPECT_FALSE(back.logProcesses.COMPARE_DATES);
  EXPECT_FALSE(back.logProcesses.PROC_ARRAY) << "only \"1\" is true";
  EXPECT_TRUE(back.logProcesses.HASH_SOURCE && back.logProcesses.OUTPUT_ERROR);
}

TEST_F(SettingsFilesTest, DefaultsRoundTrip) {
  JobSettings& s = ctx.settings;
  s.CopyFiles = false;
  s.CreateTally = s.CreateFileList = s.Silent = s.SearchModified = true;
  s.CreateLog = false;
  s.HashSource = false;
  s.Extensions = "doc, pdf";
  s.ExtListFile = "/lists/ext.txt";
  s.StartDay = "01";
  s.EndYear = "2026";
  s.Collision = kCollisionOverwrite;
  s.Extension = kExtensionDoNotCopy;
  s.CreateHashList = true;
  SaveDefaults(ctx);
  EXPECT_TRUE(dialogs.shown.empty());
  EXPECT_NE(ReadBytes(dir / "defaults.ini").find("\r\nCreateHashList=1\r\n"), std::string::npos);

  RunContext back{dialogs, pump};
  back.app = ctx.app;
  GetDefaults(back);
  const JobSettings& b = back.settings;
  EXPECT_FALSE(b.CopyFiles || b.CreateLog || b.HashSource);
  EXPECT_FALSE(b.enabled.HashDest) << "CreateLog is set through its click rule";
  EXPECT_TRUE(b.CreateTally && b.CreateFileList && b.Silent && b.SearchModified);
  EXPECT_TRUE(b.Ravelin && !b.Robocopy);
  EXPECT_EQ(b.Extensions, "doc, pdf");
  EXPECT_EQ(b.ExtListFile, "/lists/ext.txt");
  EXPECT_EQ(b.StartDay, "01");
  EXPECT_EQ(b.EndYear, "2026");
  EXPECT_EQ(b.Collision, kCollisionOverwrite);
  EXPECT_EQ(b.Extension, kExtensionDoNotCopy);
  EXPECT_FALSE(b.CreateHashList) << "written, never read";
}

TEST_F(SettingsFilesTest, ManualFlagsShareOneKey) {
  ctx.settings.ManualFlags = true;
  ctx.settings.ManualFlagsText = "/MIR";
  SaveDefaults(ctx);
  EXPECT_EQ(INIread(dir / "defaults.ini", "Defaults", "ManualFlags"), "/MIR");
  RunContext back{dialogs, pump};
  back.app = ctx.app;
  GetDefaults(back);
  EXPECT_FALSE(back.settings.ManualFlags) << "the text took the key";
  EXPECT_EQ(back.settings.ManualFlagsText, "/MIR");

  INIwrite(dir / "defaults.ini", "Defaults", "ManualFlags", "1");
  GetDefaults(back);
  EXPECT_TRUE(back.settings.ManualFlags);
  EXPECT_TRUE(back.settings.enabled.ManualFlagsText) << "set through its click rule";
  EXPECT_EQ(back.settings.ManualFlagsText, "1");
}

TEST_F(SettingsFilesTest, ListIndexesOutsideTheirListFallToTheFirst) {
  const std::string file = dir / "defaults.ini";
  struct Case {
    const char* collision;
    int wantCollision;
    const char* extension;
    int wantExtension;
  };
  for (const Case& c : {Case{"2", 2, "1", 1}, Case{"3", 0, "2", 0}, Case{"-1", 0, "x", 0},
                        Case{"", 0, "", 0}, Case{" 1 ", 1, "1.0", 1}, Case{"1.5", 2, "0.5", 0}}) {
    SCOPED_TRACE(std::string(c.collision) + " / " + c.extension);
    INIwrite(file, "Defaults", "Collision", c.collision);
    INIwrite(file, "Defaults", "Extension", c.extension);
    ctx.settings.Collision = kCollisionRename;
    ctx.settings.Extension = kExtensionDoNotCopy;
    GetDefaults(ctx);
    EXPECT_EQ(ctx.settings.Collision, c.wantCollision);
    EXPECT_EQ(ctx.settings.Extension, c.wantExtension);
  }
}

TEST_F(SettingsFilesTest, NoDefaultsFileChangesNothingAndCreatesNothing) {
  ctx.settings.CreateTally = true;
  GetDefaults(ctx);
  EXPECT_TRUE(ctx.settings.CreateTally);
  struct stat st {};
  EXPECT_NE(stat((dir / "defaults.ini").c_str(), &st), 0);
}

TEST_F(SettingsFilesTest, LocalSettingsAndGeometryAtClose) {
  ctx.main.mainWidthTwips = 14400;
  ctx.main.mainHeightTwips = 7200;
  ctx.main.mainTopTwips = 150;
  ctx.main.mainLeftTwips = 300;
  WriteLocalSettings(ctx);
  struct stat st {};
  EXPECT_NE(stat(ctx.app.localIniPath.c_str(), &st), 0) << "no hash list folder, no local.ini";
  EXPECT_EQ(ReadBytes(dir / "ravelin.ini"),
            "[Geometry]\r\nMainHeight=7200\r\nMainLeft=300\r\nMainTop=150\r\nMainWidth=14400\r\n");

  dir.MakeDir("_hashlist");
  WriteLocalSettings(ctx);
  EXPECT_EQ(ReadBytes(ctx.app.localIniPath),
            "[LocalSettings]\r\nHASHPATH=" + ctx.app.hashListFolder + "\r\n");
}

// Start-up's order: robocopy_settings.ini, then the boxes forced on, then defaults.ini over all.
class StartupOrderTest : public ::testing::Test {
 protected:
  TempDir dir;
  test::FakeDialogs dialogs;
  test::FakePump pump;
  RunContext ctx{dialogs, pump};
  std::string program = dir.MakeDir("program");

  void Start() {
    StartupInputs in;
    in.programFolder = program;
    in.instanceLockFolder = dir.MakeDir("run");
    ASSERT_FALSE(Startup(ctx, in).endProgram);
  }
};

TEST_F(StartupOrderTest, APlainStartCreatesTheFilesWithTheStartValues) {
  Start();
  EXPECT_TRUE(dialogs.shown.empty());
  const std::string rs = program + "/robocopy_settings.ini";
  EXPECT_EQ(INIread(rs, "saved_settings", "B"), "1");
  EXPECT_EQ(INIread(rs, "saved_settings", "S"), "1");
  EXPECT_EQ(INIread(rs, "saved_settings", "COPY_S"), "0");
  EXPECT_EQ(INIread(program + "/log_processes.ini", "saved_settings", "PROC_ARRAY"), "1");
  struct stat st {};
  EXPECT_NE(stat((program + "/defaults.ini").c_str(), &st), 0) << "only saving makes it";
}

TEST_F(StartupOrderTest, TheForcedBoxesOverrideRobocopySettingsButNotTheRest) {
  dir.WriteFile("program/robocopy_settings.ini",
                "[saved_settings]\r\nCOPY_A=0\r\nCOPY_S=1\r\nSeparateTS=1\r\nRename=1\r\n");
  Start();
  EXPECT_TRUE(ctx.settings.CopyAttributes) << "forced on after the file";
  EXPECT_TRUE(ctx.settings.CopySecurity);
  EXPECT_TRUE(ctx.settings.SeparateTS);
  EXPECT_EQ(ctx.settings.Collision, kCollisionRename);
  EXPECT_FALSE(ctx.settings.CopyEmpties) << "a missing key reads as off";
}

TEST_F(StartupOrderTest, DefaultsWinOverEverythingBefore) {
  dir.WriteFile("program/defaults.ini",
                "[Defaults]\r\nRavelin=0\r\nCopyAttributes=0\r\nHashSource=0\r\nCopyFiles=1\r\n");
  Start();
  EXPECT_FALSE(ctx.settings.Ravelin) << "off in defaults.ini survives the boxes set on at load";
  EXPECT_TRUE(ctx.settings.Robocopy) << "the engine boxes exclude each other";
  EXPECT_FALSE(ctx.settings.CopyAttributes);
  EXPECT_FALSE(ctx.settings.HashSource);
  EXPECT_TRUE(ctx.settings.CopyFiles);
}

TEST_F(StartupOrderTest, DefaultsTurnOnAnEngineThatIsMissingButItsBoxStaysDisabled) {
  std::string oldPath = getenv("PATH") ? getenv("PATH") : "";
  setenv("PATH", dir.MakeDir("emptybin").c_str(), 1);
  dir.WriteFile("program/defaults.ini", "[Defaults]\r\nRobocopy=1\r\n");
  Start();
  setenv("PATH", oldPath.c_str(), 1);
  EXPECT_FALSE(ctx.robocopyAvailable);
  EXPECT_TRUE(ctx.settings.Robocopy);
  EXPECT_FALSE(ctx.settings.Ravelin);
  EXPECT_FALSE(ctx.settings.enabled.Robocopy);
}

TEST_F(StartupOrderTest, WhatTheCloseSavesTheNextStartReads) {
  Start();
  ctx.settings.CopySecurity = true;
  ctx.settings.FullPaths = true;
  ctx.main.clOverride = "keep me";
  SaveOnClose(ctx);

  RunContext next{dialogs, pump};
  StartupInputs in;
  in.programFolder = program;
  ASSERT_FALSE(Startup(next, in).endProgram);
  EXPECT_TRUE(next.settings.CopySecurity);
  EXPECT_TRUE(next.settings.FullPaths);
  EXPECT_EQ(next.main.clOverride, "keep me");
  EXPECT_TRUE(dialogs.shown.empty());
}

}  // namespace
}  // namespace qr
