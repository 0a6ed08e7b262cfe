// The file type picker's logic: its lists from the definition file beside the program, and the
// comma rules by which its terms join the extension field.
#include "ui/file_type_picker.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/run_fixture.h"

namespace qr {
namespace {

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
  FileTypePickerForm f;
};

TEST_F(FileTypePickerTest, LoadShowsTheFirstCategorysTypesAndAnAddWithNothingChosenAddsNothing) {
  EXPECT_EQ(DefinitionFilePath(dir.path()), dir.path() + "/_filetypes/filetypes.txt");
  frmFileDefs_Load(ctx, f);
  EXPECT_EQ(f.listFileCats, (std::vector<std::string>{"Images", "Documents"}));
  EXPECT_EQ(f.listFileCatsIndex, 0);
  EXPECT_EQ(f.lblComponentTypes, "File Definitions in Images");
  EXPECT_EQ(f.listFileDefs, (std::vector<std::string>{"PNG Image", "GIF Image"}));
  std::string txtExt = "doc";
  cmdAddType_Click(f, txtExt);  // no type selected yet
  EXPECT_EQ(txtExt, "doc");
  f.listFileDefsIndex = 1;
  cmdAddType_Click(f, txtExt);
  EXPECT_EQ(txtExt, "doc,[~GIF Image]");
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(FileTypePickerTest, AMissingDefinitionFileSaysSoAndLeavesTheListsEmpty) {
  ctx.program.app.programFolder = dir / "elsewhere/";
  frmFileDefs_Load(ctx, f);
  EXPECT_TRUE(f.listFileCats.empty());
  EXPECT_TRUE(f.listFileDefs.empty());
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text.substr(0, 38), "Could not load file types definitions.");
}

}  // namespace
}  // namespace qr
