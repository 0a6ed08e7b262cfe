#include "jobdef/settings_files.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/errors.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

using test::ReadBytes;
namespace fs = std::filesystem;

class IniFileTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  std::string file = dir / "settings.ini";
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
      // The section keeps its first case, the key takes the case of the last write.
      {"[Saved_Settings]\r\nCopyEmpties=1\r\n", "saved_settings", "COPYEMPTIES",
       "[Saved_Settings]\r\nCOPYEMPTIES=v\r\n"},
      // keyx is not key, and the same key in a later section is not this section's: a new key
      // goes first in its own section.
      {"[a]\r\nkeyx=1\r\n\r\n[b]\r\nkey=2\r\n", "a", "key",
       "[a]\r\nkey=v\r\nkeyx=1\r\n\r\n[b]\r\nkey=2\r\n"},
      {"[a]\r\nkeyx=1\r\n\r\n[b]\r\nkey=2\r\n", "b", "key", "[a]\r\nkeyx=1\r\n\r\n[b]\r\nkey=v\r\n"},
      // A new section goes at the end after one blank line; blank runs shrink, ends are tidied.
      {"\r\n\r\n[a]\r\nk=1\r\n\r\n\r\n\r\n", "C", "k", "[a]\r\nk=1\r\n\r\n[C]\r\nk=v\r\n"},
      // Lines ended by CR or LF alone, or not at all (files edited by hand): the key is updated
      // in place instead of in a section that the reader would never reach.
      {"[s]\rk=old\nj=2", "s", "k", "[s]\r\nk=v\r\nj=2\r\n"},
      {"[s]\r\nk=old", "s", "m", "[s]\r\nm=v\r\nk=old\r\n"},
      // A value with a bracket ends its section for the writer: the key beyond it counts as
      // missing and is added again first.
      {"[s]\r\npath=/data/[x]\r\nafter=2\r\n", "s", "after",
       "[s]\r\nafter=v\r\npath=/data/[x]\r\nafter=2\r\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.before ? c.before : "(no file)") + " " + c.section + "/" + c.key);
    fs::remove(file);
    if (c.before) dir.WriteFile("settings.ini", c.before);
    INIwrite(file, c.section, c.key, "v");
    EXPECT_EQ(ReadBytes(file), c.after);
    EXPECT_EQ(INIread(file, c.section, c.key), "v");
  }
}

TEST_F(IniFileTest, ReadingFindsTheWholeKeyInItsOwnSectionAndChangesNothing) {
  const std::string text = "[a]\r\nkeyx=1\r\nCmd=A=B c\r\n[B]\r\npath=/data/[x]\r\nafter=3\r\n[s]";
  dir.WriteFile("settings.ini", text);
  EXPECT_EQ(INIread(file, "a", "key"), "");
  EXPECT_EQ(INIread(file, "A", "cmd"), "A=B c") << "the value after the first = as written";
  // A value with a bracket reads back empty and ends the section.
  EXPECT_EQ(INIread(file, "b", "path") + INIread(file, "b", "after"), "");
  EXPECT_EQ(ReadBytes(file), text) << "reading changes nothing";
  INIwrite(file, "s", "k", "1");  // a header as the very last bytes
  EXPECT_EQ(INIread(file, "s", "k"), "1");
}

TEST_F(IniFileTest, AMissingFileIsCreatedEmptyAReadOnlyOneBecomesWritable) {
  EXPECT_EQ(INIread(file, "s", "k"), "");
  EXPECT_EQ(fs::file_size(file), 0u);
  EXPECT_THROW(INIread(dir / "no/such.ini", "s", "k"), RunError) << "but a missing folder fails";

  dir.WriteFile("settings.ini", "[s]\r\nk=1\r\n");
  ASSERT_EQ(chmod(file.c_str(), 0444), 0);
  INIwrite(file, "s", "k", "2");
  EXPECT_EQ(ReadBytes(file), "[s]\r\nk=2\r\n");
  struct stat st {};
  ASSERT_EQ(stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u) << "only the owner's write bit is added";
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
  const std::string file = dir / "robocopy_settings.ini";
  EXPECT_EQ(ReadBytes(file).find("Overwrite"), std::string::npos) << "written by no one";

  GetINIVals(back);
  const JobSettings& b = back.settings;
  EXPECT_FALSE(b.CopyData || b.CopyBackup || b.CopyZB || b.CopySubs || b.CopyEmpties);
  EXPECT_TRUE(b.CopyAttributes && b.CopyTimestamps);
  EXPECT_TRUE(b.CopySecurity && b.CopyOwner && b.CopyAudit && b.CopyRestartable);
  EXPECT_TRUE(b.FullPaths && b.RootFolders && b.SeparateTS);
  EXPECT_TRUE(b.enabled.RootFolders) << "FullPaths is set through its click rule";
  EXPECT_EQ(b.Collision, kCollisionRename);
  EXPECT_EQ(back.program.geometry.widthTwips, 15000);
  EXPECT_EQ(back.program.clOverride, "/MIR");

  // The width has a floor; Overwrite, which no one writes, is still read. The other copy mode
  // comes back too.
  ctx.program.geometry.widthTwips = 5000;
  SetCopyZB(ctx.settings, true);
  SetINIVals(ctx);
  EXPECT_EQ(INIread(file, "saved_settings", "WW"), "12000");
  INIwrite(file, "saved_settings", "Overwrite", "1");
  INIwrite(file, "saved_settings", "Rename", "0");
  GetINIVals(back);
  EXPECT_EQ(back.settings.Collision, kCollisionOverwrite);
  EXPECT_TRUE(back.settings.CopyZB && !back.settings.CopyRestartable);

  // A rule fires only when a box changes: from one mode on, as the dialog leaves it, ZB read
  // after B turns B off.
  dir.WriteFile("robocopy_settings.ini", "[saved_settings]\r\nB=1\r\nZ=0\r\nZB=1\r\n");
  ctx.settings.CopyZB = false;
  GetINIVals(ctx);
  EXPECT_TRUE(ctx.settings.CopyZB && !ctx.settings.CopyBackup);
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
  // Each key written in turn, so each new one lands first.
  EXPECT_EQ(ReadBytes(file),
            "[saved_settings]\r\nPROC_ARRAY=1\r\nOUTPUT_ERROR=1\r\nOUTPUT_VLOG=1\r\n"
            "LONG_PATH_CHECK=1\r\nCOMPARE_SIZES=1\r\nCOMPARE_DATES=1\r\nCOMPARE_HASHES=1\r\n"
            "DEST_PROPS=1\r\nSOURCE_PROPS=1\r\nHASH_DEST=1\r\nHASH_SOURCE=1\r\n");
  INIwrite(file, "saved_settings", "COMPARE_DATES", "0");
  INIwrite(file, "saved_settings", "PROC_ARRAY", "yes");
  LoadLogProcesses(back);
  const auto& l = back.program.logProcesses;
  EXPECT_FALSE(l.COMPARE_DATES || l.PROC_ARRAY) << "only \"1\" is true";
  EXPECT_TRUE(l.HASH_SOURCE);
}

TEST_F(SettingsFilesTest, DefaultsRoundTrip) {
  GetDefaults(ctx);
  EXPECT_FALSE(fs::exists(dir / "defaults.ini")) << "no defaults.ini: nothing read, nothing made";

  JobSettings& s = ctx.settings;
  s.CopyFiles = s.CreateLog = s.HashSource = false;
  s.CreateFileList = s.Silent = s.SearchModified = s.CreateHashList = s.CreateTally = true;
  s.Extensions = "doc, pdf";
  s.ExtListFile = "/lists/ext.txt";
  s.StartDay = "01";
  s.EndYear = "2026";
  s.Collision = kCollisionOverwrite;
  s.Extension = kExtensionDoNotCopy;
  s.ManualFlags = true;
  s.ManualFlagsText = "/MIR";
  SaveDefaults(ctx);
  EXPECT_NE(ReadBytes(dir / "defaults.ini").find("\r\nCreateHashList=1\r\n"), std::string::npos);

  GetDefaults(back);
  const JobSettings& b = back.settings;
  EXPECT_FALSE(b.CopyFiles || b.CreateLog || b.HashSource);
  EXPECT_FALSE(b.enabled.HashDest) << "CreateLog is set through its click rule";
  EXPECT_TRUE(b.CreateTally && b.CreateFileList && b.Silent && b.SearchModified);
  EXPECT_EQ((std::vector<std::string>{b.Extensions, b.ExtListFile, b.StartDay, b.EndYear}),
            (std::vector<std::string>{"doc, pdf", "/lists/ext.txt", "01", "2026"}));
  EXPECT_EQ(b.Collision, kCollisionOverwrite);
  EXPECT_EQ(b.Extension, kExtensionDoNotCopy);
  EXPECT_FALSE(b.CreateHashList) << "written, never read";
  // The manual flags' box and text share one key: the text, written last, takes it.
  EXPECT_FALSE(b.ManualFlags);
  EXPECT_EQ(b.ManualFlagsText, "/MIR");
  INIwrite(dir / "defaults.ini", "Defaults", "ManualFlags", "1");
  GetDefaults(back);
  EXPECT_TRUE(back.settings.ManualFlags && back.settings.enabled.ManualFlagsText);
}

TEST_F(SettingsFilesTest, ListIndexesOutsideTheirListFallToTheFirst) {
  const std::string file = dir / "defaults.ini";
  // {Collision, Extension} as written, then as read.
  const std::vector<std::pair<std::pair<const char*, const char*>, std::pair<int, int>>> cases = {
      {{"2", "1"}, {2, 1}}, {{"3", "2"}, {0, 0}}, {{"-1", "x"}, {0, 0}}, {{"1.5", "0.5"}, {2, 0}}};
  for (const auto& [written, read] : cases) {
    SCOPED_TRACE(std::string(written.first) + " / " + written.second);
    INIwrite(file, "Defaults", "Collision", written.first);
    INIwrite(file, "Defaults", "Extension", written.second);
    ctx.settings.Collision = kCollisionRename;
    ctx.settings.Extension = kExtensionDoNotCopy;
    GetDefaults(ctx);
    EXPECT_EQ(std::make_pair(ctx.settings.Collision, ctx.settings.Extension), read);
  }
}

}  // namespace
}  // namespace qr
