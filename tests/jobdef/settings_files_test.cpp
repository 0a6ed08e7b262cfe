#include "jobdef/settings_files.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/errors.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

using test::ReadBytes;
using test::TempDir;
namespace fs = std::filesystem;

class IniFileTest : public ::testing::Test {
 protected:
  TempDir dir;
  std::string file = dir / "settings.ini";
  std::string Bytes() const { return ReadBytes(file); }
};

// One write into a file as it stands (nullptr: no file at all), and the bytes it leaves.
TEST_F(IniFileTest, AWriteLeavesExactlyTheseBytes) {
  struct Case {
    const char* before;
    const char* section;
    const char* key;
    const char* after;
  };
  const Case cases[] = {
      {nullptr, "Saved", "Key", "[Saved]\r\nKey=v\r\n"},
      {"", "Saved", "Key", "[Saved]\r\nKey=v\r\n"},  // an empty file behaves as a missing one
      // The section keeps its first case, the key takes the case of the last write.
      {"[Saved_Settings]\r\nCopyEmpties=1\r\n", "saved_settings", "COPYEMPTIES",
       "[Saved_Settings]\r\nCOPYEMPTIES=v\r\n"},
      // keyx is not key, and the same key in a later section is not this section's: a new key
      // goes first in its own section.
      {"[a]\r\nkeyx=1\r\n\r\n[b]\r\nkey=2\r\n", "a", "key",
       "[a]\r\nkey=v\r\nkeyx=1\r\n\r\n[b]\r\nkey=2\r\n"},
      {"[a]\r\nkeyx=1\r\n\r\n[b]\r\nkey=2\r\n", "b", "key", "[a]\r\nkeyx=1\r\n\r\n[b]\r\nkey=v\r\n"},
      // A new section goes at the end after one blank line.
      {"[a]\r\nk=1\r\n", "C", "k", "[a]\r\nk=1\r\n\r\n[C]\r\nk=v\r\n"},
      // Blank runs shrink and the ends are tidied.
      {"\r\n\r\n[a]\r\nx=1\r\n\r\n\r\n\r\n\r\n[b]\r\ny=2\r\n\r\n\r\n", "a", "x",
       "[a]\r\nx=v\r\n\r\n[b]\r\ny=2\r\n"},
      // No final line end, and lines ended by CR or LF alone (files edited by hand): the key is
      // updated in place instead of in a section that the reader would never reach.
      {"[s]\r\nk=old", "s", "k", "[s]\r\nk=v\r\n"},
      {"[s]\r\nk=old", "s", "m", "[s]\r\nm=v\r\nk=old\r\n"},
      {"[s]\rk=old\nj=2", "s", "k", "[s]\r\nk=v\r\nj=2\r\n"},
      // A value with a bracket ends its section for the writer: the key beyond it counts as
      // missing and is added again first.
      {"[s]\r\npath=/data/[x]\r\nafter=2\r\n", "s", "after",
       "[s]\r\nafter=v\r\npath=/data/[x]\r\nafter=2\r\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(std::string(c.before ? c.before : "(no file)")) + " " +
                 c.section + "/" + c.key);
    fs::remove(file);
    if (c.before) dir.WriteFile("settings.ini", c.before);
    INIwrite(file, c.section, c.key, "v");
    EXPECT_EQ(Bytes(), c.after);
    EXPECT_EQ(INIread(file, c.section, c.key), "v");
  }
}

TEST_F(IniFileTest, ReadingFindsTheWholeKeyInItsOwnSectionAndChangesNothing) {
  const std::string text =
      "\r\n[a]\r\nkeyx=1\r\nCmd=A=B c\r\n\r\n\r\n[B]\r\nkey=2\r\npath=/data/[x]\r\nafter=3\r\n"
      "[s]\rk=old\nj=2";
  dir.WriteFile("settings.ini", text);
  EXPECT_EQ(INIread(file, "a", "key"), "") << "keyx is not key";
  EXPECT_EQ(INIread(file, "A", "cmd"), "A=B c") << "the value after the first = as written";
  EXPECT_EQ(INIread(file, "b", "KEY"), "2");
  EXPECT_EQ(INIread(file, "c", "key"), "");
  EXPECT_EQ(INIread(file, "B", "path"), "") << "a value with a bracket reads back empty";
  EXPECT_EQ(INIread(file, "B", "after"), "") << "and ends the section for the reader";
  EXPECT_EQ(INIread(file, "s", "k"), "old");
  EXPECT_EQ(INIread(file, "s", "j"), "2");
  EXPECT_EQ(Bytes(), text) << "reading changes nothing";

  // A header as the very last bytes.
  dir.WriteFile("settings.ini", "[x]\r\na=1\r\n[s]");
  INIwrite(file, "s", "k", "1");
  EXPECT_EQ(INIread(file, "s", "k"), "1");
  EXPECT_EQ(INIread(file, "x", "a"), "1");
}

TEST_F(IniFileTest, ReadingAMissingFileCreatesItEmptyButAMissingFolderFails) {
  EXPECT_EQ(INIread(file, "s", "k"), "");
  EXPECT_EQ(fs::file_size(file), 0u);
  EXPECT_THROW(INIread(dir / "no/such.ini", "s", "k"), RunError);
  EXPECT_THROW(INIwrite(dir / "no/such.ini", "s", "k", "v"), RunError);
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
}

class SettingsFilesTest : public ::testing::Test, protected test::RunFixture {
 protected:
  RunContext back{dialogs, pump};  // a fresh program reading what ctx wrote
  void SetUp() override {
    ctx.program.app.appPath = dir.path();
    ctx.program.app.programFolder = dir.path() + "/";
    ctx.program.app.hashListFolder = dir.path() + "/_hashlist/";
    ctx.program.app.localIniPath = dir.path() + "/local.ini";
    back.program.app = ctx.program.app;
  }
};

TEST_F(SettingsFilesTest, RobocopySettingsRoundTrip) {
  JobSettings& s = ctx.settings;
  s.CopyData = s.CopyBackup = s.CopyZB = s.CopySubs = s.CopyEmpties = false;
  s.CopySecurity = s.CopyOwner = s.CopyAudit = s.CopyRestartable = true;
  s.FullPaths = s.RootFolders = s.SeparateTS = true;
  s.Collision = kCollisionRename;
  ctx.program.geometry.widthTwips = 15000;
  ctx.program.geometry.heightTwips = 6000;
  ctx.program.clOverride = "/MIR";
  SetINIVals(ctx);
  EXPECT_TRUE(dialogs.shown.empty());
  const std::string text = ReadBytes(dir / "robocopy_settings.ini");
  EXPECT_EQ(text.find("Overwrite"), std::string::npos) << "written by no one";
  EXPECT_NE(text.find("\r\nRename=1\r\n"), std::string::npos);
  EXPECT_NE(text.find("\r\nWH=6000\r\n"), std::string::npos);

  GetINIVals(back);
  const JobSettings& b = back.settings;
  EXPECT_FALSE(b.CopyData || b.CopyBackup || b.CopyZB || b.CopySubs || b.CopyEmpties);
  EXPECT_TRUE(b.CopyAttributes && b.CopyTimestamps);
  EXPECT_TRUE(b.CopySecurity && b.CopyOwner && b.CopyAudit && b.CopyRestartable);
  EXPECT_TRUE(b.FullPaths && b.RootFolders && b.SeparateTS);
  EXPECT_TRUE(b.enabled.RootFolders) << "FullPaths is set through its click rule";
  EXPECT_FALSE(b.enabled.CreateSubs);
  EXPECT_EQ(b.Collision, kCollisionRename);
  EXPECT_EQ(back.program.geometry.widthTwips, 15000);
  EXPECT_EQ(back.program.clOverride, "/MIR");

  // The width has a floor; Overwrite, which no one writes, is still read. The other copy mode
  // comes back too.
  ctx.program.geometry.widthTwips = 5000;
  SetCopyZB(ctx.settings, true);
  SetINIVals(ctx);
  const std::string file = dir / "robocopy_settings.ini";
  EXPECT_EQ(INIread(file, "saved_settings", "WW"), "12000");
  INIwrite(file, "saved_settings", "Overwrite", "1");
  INIwrite(file, "saved_settings", "Rename", "0");
  GetINIVals(back);
  EXPECT_EQ(back.settings.Collision, kCollisionOverwrite);
  EXPECT_TRUE(back.settings.CopyZB && !back.settings.CopyRestartable);
}

TEST_F(SettingsFilesTest, CopyModesFromTheFileObeyTheirExclusion) {
  dir.WriteFile("robocopy_settings.ini", "[saved_settings]\r\nB=1\r\nZ=0\r\nZB=1\r\n");
  // A rule fires only when a box changes, so start from one mode on, as the dialog leaves it.
  ctx.settings.CopyZB = false;
  GetINIVals(ctx);
  EXPECT_TRUE(ctx.settings.CopyZB);
  EXPECT_FALSE(ctx.settings.CopyBackup) << "ZB, read after B, turned it off";
  EXPECT_FALSE(ctx.settings.CopyData) << "a missing key reads as off";
}

TEST_F(SettingsFilesTest, AnUnwritableSettingsFolderShowsTheIniError) {
  ctx.program.app.appPath = dir / "gone";
  SetINIVals(ctx);
  SaveDefaults(ctx);
  EXPECT_EQ(dialogs.Texts(),
            (std::vector<std::string>{"W Ini Error\r\n2 : No such file or directory",
                                      "Could not save defaults (2): No such file or directory"}));
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
  LoadLogProcesses(back);
  EXPECT_FALSE(back.program.logProcesses.COMPARE_DATES);
  EXPECT_FALSE(back.program.logProcesses.PROC_ARRAY) << "only \"1\" is true";
  EXPECT_TRUE(back.program.logProcesses.HASH_SOURCE && back.program.logProcesses.OUTPUT_ERROR);
}

TEST_F(SettingsFilesTest, DefaultsRoundTrip) {
  ctx.settings.CreateTally = true;
  GetDefaults(ctx);
  EXPECT_TRUE(ctx.settings.CreateTally) << "no defaults.ini changes nothing";
  EXPECT_FALSE(fs::exists(dir / "defaults.ini")) << "and creates nothing";

  JobSettings& s = ctx.settings;
  s.CopyFiles = s.CreateLog = s.HashSource = false;
  s.CreateFileList = s.Silent = s.SearchModified = s.CreateHashList = true;
  s.Extensions = "doc, pdf";
  s.ExtListFile = "/lists/ext.txt";
  s.StartDay = "01";
  s.EndYear = "2026";
  s.Collision = kCollisionOverwrite;
  s.Extension = kExtensionDoNotCopy;
  SaveDefaults(ctx);
  EXPECT_TRUE(dialogs.shown.empty());
  EXPECT_NE(ReadBytes(dir / "defaults.ini").find("\r\nCreateHashList=1\r\n"), std::string::npos);

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

TEST_F(SettingsFilesTest, LocalSettingsAndGeometryAtClose) {
  ctx.program.geometry.widthTwips = 14400;
  ctx.program.geometry.heightTwips = 7200;
  ctx.program.geometry.topTwips = 150;
  ctx.program.geometry.leftTwips = 300;
  WriteLocalSettings(ctx);
  EXPECT_FALSE(fs::exists(ctx.program.app.localIniPath)) << "no hash list folder, no local.ini";
  EXPECT_EQ(ReadBytes(dir / "ravelin.ini"),
            "[Geometry]\r\nMainHeight=7200\r\nMainLeft=300\r\nMainTop=150\r\nMainWidth=14400\r\n");

  dir.MakeDir("_hashlist");
  WriteLocalSettings(ctx);
  EXPECT_EQ(ReadBytes(ctx.program.app.localIniPath),
            "[LocalSettings]\r\nHASHPATH=" + ctx.program.app.hashListFolder + "\r\n");
}

}  // namespace
}  // namespace qr
