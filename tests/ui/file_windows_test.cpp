// The file finder's logic over real folders: what it lists, that listing and picking leave
// every folder's and file's times as they were, its messages, and OK through the callback. The
// file type picker's lists from the definition file, and the comma rules of its terms.
#include "ui/file_finder.h"
#include "ui/file_type_picker.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

class FileFinderTest : public ::testing::Test, protected test::RunFixture {
 protected:
  FileFinderForm f;
};

// A path's access and modification times, to the nanosecond.
std::string StampsOf(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(stat(path.c_str(), &st), 0) << path;
  return std::to_string(st.st_atim.tv_sec) + "." + std::to_string(st.st_atim.tv_nsec) + " " +
         std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec);
}

TEST_F(FileFinderTest, ListingAndPickingLeaveEveryTimeAsItWas) {
  const std::string src = dir.MakeDir("src");
  std::vector<std::string> all = {src,
                                  dir.WriteFile("src/b.txt", "b"),
                                  dir.WriteFile("src/a.txt", "a"),
                                  dir.MakeDir("src/sub"),
                                  dir.WriteFile("src/sub/c.txt", "c"),
                                  dir.MakeDir("src/sub/deeper")};
  // Access times older than the modification times: any read or listing would move them.
  std::map<std::string, std::string> before;
  long n = 0;
  for (const std::string& p : all) {
    test::SetTimes(p, {1000000000 + n, 111 * n}, {1200000000 + n, 222 * n});
    before[p] = StampsOf(p);
    ++n;
  }

  dialogs.picks = {src, ""};
  cmdSourceBrowse_Click(ctx, f);
  cmdSourceBrowse_Click(ctx, f);  // nothing chosen: the folder stays
  EXPECT_EQ(f.txtSourceFolder, src);
  EXPECT_EQ(f.lstFiles, (std::vector<std::string>{"a.txt", "b.txt"})) << "files only, by name";
  EXPECT_EQ(ListSubfolders(ctx, src), std::vector<std::string>{"sub"});
  EXPECT_EQ(ListSubfolders(ctx, src + "/sub/"), std::vector<std::string>{"deeper"});
  dDirs_Change(ctx, f, src + "/sub");
  EXPECT_EQ(f.txtSourceFolder, src + "/sub");
  EXPECT_EQ(f.lstFiles, std::vector<std::string>{"c.txt"});
  f.lstFilesSelected = {0};
  std::vector<std::string> added;
  OKButton_Click(f, [&](const std::string& p) { added.push_back(p); });
  EXPECT_EQ(added, std::vector<std::string>{src + "/sub/c.txt"});

  for (const std::string& p : all) EXPECT_EQ(StampsOf(p), before[p]) << p;
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(FileFinderTest, LoadOpensTheTreeOnTheDriveThatHoldsTheStartFolder) {
  f.lstFiles = {"stale"};
  frmFileFind_Load(f, dir.path());
  ASSERT_GE(f.dDrivesIndex, 0);
  const std::string drive = f.dDrives[static_cast<size_t>(f.dDrivesIndex)];
  EXPECT_EQ(f.dDirs, drive);
  // The nearest mount point above the folder: no other drive holds it more closely.
  auto holds = [&](const std::string& d) {
    return (dir.path() + "/").rfind(d == "/" ? d : d + "/", 0) == 0;
  };
  EXPECT_TRUE(holds(drive));
  for (const std::string& d : f.dDrives) EXPECT_FALSE(holds(d) && d.size() > drive.size()) << d;
  EXPECT_TRUE(f.lstFiles.empty());
}

TEST_F(FileFinderTest, AFolderThatCannotBeListedLeavesTheListEmpty) {
  dir.WriteFile("d/one", "1");
  txtSourceFolder_Change(ctx, f, dir / "d");
  ASSERT_EQ(f.lstFiles.size(), 1u);
  txtSourceFolder_Change(ctx, f, dir / "d/on");  // typed half way: no such folder
  EXPECT_TRUE(f.lstFiles.empty());
  txtSourceFolder_Change(ctx, f, "");
  EXPECT_TRUE(f.lstFiles.empty());
  EXPECT_TRUE(dialogs.shown.empty());

  // A drive that is gone says why, and the last good one stays chosen.
  f.dDrives = {dir / "unplugged", dir.path()};
  dDrives_Change(ctx, f, 1);
  dDrives_Change(ctx, f, 0);
  EXPECT_EQ(f.dDrivesIndex, 1);
  EXPECT_EQ(f.dDirs, dir.path());
  EXPECT_EQ(f.txtSourceFolder, dir.path());
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "2 : No such file or directory");
}

TEST_F(FileFinderTest, ADeniedFolderSaysSo) {
  if (!test::CanBecomeNobody()) GTEST_SKIP() << "needs root to run the case as user nobody";
  ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
  const std::string denied = dir.MakeDir("denied");
  dir.WriteFile("denied/secret.txt", "x");
  ASSERT_EQ(chmod(denied.c_str(), 0700), 0);
  const auto outcome = test::RunInChild([&](std::string& out) {
    if (!test::BecomeNobody()) return test::kChildCannotSetUp;
    test::FakeDialogs d;
    test::FakePump p;
    RunContext c(d, p);
    FileFinderForm form;
    txtSourceFolder_Change(c, form, denied);
    for (const std::string& text : d.Texts()) out += text + "|";
    return static_cast<int>(form.lstFiles.size());
  });
  ASSERT_NE(outcome.exitCode, test::kChildCannotSetUp) << "could not become nobody";
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.output,
            "You do not appear to have proper permissions to access this folder: \r\n\r\n" +
                denied + "/|");
}

TEST(FileTypeTerms, CommaRulesNeverLeadOrDoubleAComma) {
  EXPECT_EQ(AppendTerm("", CategoryTerm("Images")), "[Images]");
  EXPECT_EQ(AppendTerm("   ", TypeTerm("PDF")), "[~PDF]");
  EXPECT_EQ(AppendTerm("doc,", CategoryTerm("Images")), "doc,[Images]");
  EXPECT_EQ(AppendTerm("doc", TypeTerm("PDF")), "doc,[~PDF]");
  EXPECT_EQ(AppendTerm("doc ", TypeTerm("PDF")), "doc ,[~PDF]");
  EXPECT_EQ(AppendTerm(AppendTerm("", "[A]"), "[A]"), "[A],[A]");
}

class FileTypePickerTest : public ::testing::Test, protected test::RunFixture {
 protected:
  FileTypePickerTest() {
    ctx.program.app.programFolder = dir.path() + "/";
    dir.WriteFile("_filetypes/filetypes.txt",
                "Category\tType\tExtensions\tHeader\tOffset\n"
                "Images\tPNG Image\tpng\t^\\x89PNG\t0\n"
                "Documents\tPDF Document\tpdf\t^%PDF-\t0\n"
                "Images\tGIF Image\tgif\t^GIF8\t0\n");
  }
  FileTypePickerForm form;
};

TEST_F(FileTypePickerTest, LoadShowsTheFirstCategorysTypesAndAnAddWithNothingChosenAddsNothing) {
  frmFileDefs_Load(ctx, form);
  EXPECT_EQ(form.listFileCats, (std::vector<std::string>{"Images", "Documents"}));
  EXPECT_EQ(form.listFileCatsIndex, 0);
  EXPECT_EQ(form.lblComponentTypes, "File Definitions in Images");
  EXPECT_EQ(form.listFileDefs, (std::vector<std::string>{"PNG Image", "GIF Image"}));
  std::string txtExt = "doc";
  cmdAddType_Click(form, txtExt);  // no type selected yet
  EXPECT_EQ(txtExt, "doc");
  form.listFileDefsIndex = 1;
  cmdAddType_Click(form, txtExt);
  EXPECT_EQ(txtExt, "doc,[~GIF Image]");
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(FileTypePickerTest, AMissingDefinitionFileSaysSoAndLeavesTheListsEmpty) {
  ctx.program.app.programFolder = dir / "elsewhere/";
  frmFileDefs_Load(ctx, form);
  EXPECT_TRUE(form.listFileCats.empty());
  EXPECT_TRUE(form.listFileDefs.empty());
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text.substr(0, 38), "Could not load file types definitions.");
}

}  // namespace
}  // namespace qr
