// The INI routines, and the settings files that the close and "Save as Default" write.
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

// One write into a file as it stands (nullptr: no file at all), and the bytes it leaves.
TEST(IniFile, AWriteLeavesExactlyTheseBytes) {
  test::TempDir dir;
  const std::string file = dir / "settings.ini";
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
      // keyx is not key, nor is the same key in a later section: a new key goes first.
      {"[a]\r\nkeyx=1\r\n\r\n[b]\r\nkey=2\r\n", "a", "key",
       "[a]\r\nkey=v\r\nkeyx=1\r\n\r\n[b]\r\nkey=2\r\n"},
      // A new section goes at the end after one blank line; blank runs shrink, ends are tidied.
      {"\r\n\r\n[a]\r\nk=1\r\n\r\n\r\n\r\n", "C", "k", "[a]\r\nk=1\r\n\r\n[C]\r\nk=v\r\n"},
      // Lines ended by CR or LF alone, or not at all (edited by hand), are updated in place.
      {"[s]\rk=old\nj=2", "s", "k", "[s]\r\nk=v\r\nj=2\r\n"},
      {"[s]\r\nk=old", "s", "m", "[s]\r\nm=v\r\nk=old\r\n"},
      // A value with a bracket ends its section: the key beyond it is added again first.
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

  // Reading finds whole keys in their section, changes only the read-only bit, creates the file.
  const std::string text = "[a]\r\nkeyx=1\r\nCmd=A=B c\r\n[B]\r\npath=/data/[x]\r\nafter=3\r\n[s]";
  dir.WriteFile("settings.ini", text);
  ASSERT_EQ(chmod(file.c_str(), 0444), 0);
  EXPECT_EQ(INIread(file, "a", "key"), "");
  EXPECT_EQ(INIread(file, "A", "cmd"), "A=B c") << "the value after the first = as written";
  EXPECT_EQ(INIread(file, "b", "path") + INIread(file, "b", "after"), "");
  EXPECT_EQ(ReadBytes(file), text);
  struct stat st {};
  ASSERT_EQ(stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u) << "only the owner's write bit is added";
  INIwrite(file, "s", "k", "1");  // a header as the very last bytes
  EXPECT_EQ(INIread(file, "s", "k"), "1");
  EXPECT_EQ(INIread(dir / "new.ini", "s", "k"), "");
  EXPECT_EQ(fs::file_size(dir / "new.ini"), 0u);
  EXPECT_THROW(INIread(dir / "no/such.ini", "s", "k"), RunError);
}

class SettingsFilesTest : public ::testing::Test, protected test::RunFixture {
 protected:
  RunContext robo{dialogs, pump}, defs{dialogs, pump};  // fresh programs reading what ctx wrote
  void SetUp() override {
    ctx.program.app.appPath = dir.path();
    robo.program.app = defs.program.app = ctx.program.app;
  }
};

// Each file written, read by a fresh program and written again: the same bytes.
TEST_F(SettingsFilesTest, RobocopySettingsAndDefaultsRoundTrip) {
  JobSettings& s = ctx.settings;
  s.CopyData = s.CopyBackup = s.CopyZB = s.CopySubs = s.CopyEmpties = false;
  s.CopySecurity = s.CopyOwner = s.CopyAudit = s.CopyRestartable = true;
  s.FullPaths = s.RootFolders = s.SeparateTS = true;
  s.CopyFiles = s.CreateLog = s.HashSource = false;
  s.CreateFileList = s.Silent = s.SearchModified = s.CreateTally = true;
  s.Extensions = "doc, pdf";
  s.ExtListFile = "/lists/ext.txt";
  s.StartDay = "01";
  s.EndYear = "2026";
  s.Collision = kCollisionRename;
  s.Extension = kExtensionDoNotCopy;
  s.ManualFlags = true;
  s.ManualFlagsText = "/MIR";
  ctx.program.geometry.widthTwips = 15000;
  ctx.program.clOverride = "/MIR";
  GetDefaults(ctx);
  EXPECT_FALSE(fs::exists(dir / "defaults.ini")) << "no defaults.ini: nothing read, nothing made";
  SetINIVals(ctx);
  SaveDefaults(ctx);
  const std::string robocopy = dir / "robocopy_settings.ini", defaults = dir / "defaults.ini";
  const std::string robocopyBytes = ReadBytes(robocopy), defaultsBytes = ReadBytes(defaults);
  EXPECT_EQ(robocopyBytes.find("Overwrite"), std::string::npos) << "written by no one";

  GetINIVals(robo);
  SetINIVals(robo);
  EXPECT_EQ(ReadBytes(robocopy), robocopyBytes);
  GetDefaults(defs);
  SaveDefaults(defs);
  EXPECT_EQ(ReadBytes(defaults), defaultsBytes);
  // The manual flags' box and text share one key: the text, written last, takes it.
  EXPECT_TRUE(!defs.settings.ManualFlags && defs.settings.ManualFlagsText == "/MIR");
  INIwrite(defaults, "Defaults", "ManualFlags", "1");
  GetDefaults(defs);
  EXPECT_TRUE(defs.settings.ManualFlags && defs.settings.enabled.ManualFlagsText);
}

TEST_F(SettingsFilesTest, LogProcessesIsCreatedOrReadAndAnUnwritableFolderIsReported) {
  LoadLogProcesses(ctx);
  const std::string file = dir / "log_processes.ini";
  // Each key written in turn, so each new one lands first.
  EXPECT_EQ(ReadBytes(file),
            "[saved_settings]\r\nPROC_ARRAY=1\r\nOUTPUT_ERROR=1\r\nOUTPUT_VLOG=1\r\n"
            "LONG_PATH_CHECK=1\r\nCOMPARE_SIZES=1\r\nCOMPARE_DATES=1\r\nCOMPARE_HASHES=1\r\n"
            "DEST_PROPS=1\r\nSOURCE_PROPS=1\r\nHASH_DEST=1\r\nHASH_SOURCE=1\r\n");
  INIwrite(file, "saved_settings", "PROC_ARRAY", "yes");
  LoadLogProcesses(robo);
  EXPECT_TRUE(!robo.program.logProcesses.PROC_ARRAY && robo.program.logProcesses.HASH_SOURCE)
      << "only \"1\" is true";

  ctx.program.app.appPath = dir / "gone";
  SetINIVals(ctx);
  SaveDefaults(ctx);
  EXPECT_EQ(dialogs.Texts(),
            (std::vector<std::string>{"W Ini Error\r\n2 : No such file or directory",
                                      "Could not save defaults (2): No such file or directory"}));
}

}  // namespace
}  // namespace qr
