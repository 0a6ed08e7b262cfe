// The definition file's loader, the marks and the lookups the file type picker shows, and the
// check of a file against the marked types.
#include "filetypes/header_match.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/run_fixture.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using namespace std::string_literals;
using Names = std::vector<std::string>;

class HeaderMatchTest : public ::testing::Test, protected test::RunFixture {
 protected:
  clsHeaderMatch types{ctx};

  bool Load(const std::string& text) {
    return types.LoadDefinitionFile(dir.WriteFile("ft.txt", text));
  }
  // The names of all types, or only of the marked ones.
  Names TypeNames(bool onlyMarked = false) {
    Names names;
    for (int i = 1; i <= types.EntryCount(); ++i) {
      if (!onlyMarked || types.Entry(i).marked) names.push_back(types.Entry(i).typeName);
    }
    return names;
  }
};

TEST_F(HeaderMatchTest, TitleAndCommentLinesAreSkippedFieldsTrimmedAndLookupsFoldCase) {
  ASSERT_TRUE(Load("Category\tType\tExtensions\tHeader\tOffset\r\n"
                   " # a note\twith\tfields\r\n"
                   " Images \t PNG Image \t png \t ^\\x89PNG \t 0 \r\n"
                   "Documents\tPDF\tpdf\t^%PDF-\t0\textra field\n"
                   "images\tGIF\tgif\t^GIF8\t+2\n"));
  EXPECT_TRUE(dialogs.shown.empty());
  EXPECT_EQ(TypeNames(), (Names{"PNG Image", "PDF", "GIF"}));
  const FileTypeDefinition& png = types.Entry(1);
  EXPECT_EQ(png.category + "|" + png.extensions + "|" + png.header, "Images|png|^\\x89PNG");
  EXPECT_EQ(types.Entry(3).offset, 2);
  EXPECT_EQ(types.CountInCategory("IMAGES"), 2);
  // The index counts within the category from 0.
  EXPECT_EQ(types.FileTypeInCatArray("images", 1), "GIF");
  EXPECT_EQ(types.Categories(), (Names{"Images", "Documents"}));
  // A second load starts from an empty table; the shipped file loads without a word.
  ASSERT_TRUE(Load("A\tOne\ta\t\t0\n"));
  EXPECT_EQ(TypeNames(), Names{"One"});
  ASSERT_TRUE(types.LoadDefinitionFile(RAVELIN_SHIPPED_FILETYPES));
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(HeaderMatchTest, ADamagedFileEndsTheLoadWithAMessageAndABadPatternOnlyLosesItsHeader) {
  const std::string head = "Could not load file types definitions.\r\n";
  EXPECT_FALSE(Load("A\tOne\ta\t\t0\nA\tshort line\ta\nA\tThree\ta\t\t0\n"));
  EXPECT_EQ(TypeNames(), Names{"One"});
  EXPECT_EQ(dialogs.shown.back().text, head + "9 : Subscript out of range (line 2 has fewer than "
                                              "five tab-separated fields)");
  for (const char* offset : {"x", "", "99999999999"}) {
    EXPECT_FALSE(Load("A\tOne\ta\t\t0\nA\tTwo\ta\t\t"s + offset + "\n")) << offset;
    EXPECT_EQ(TypeNames(), Names{"One"}) << offset;
  }
  EXPECT_EQ(dialogs.shown.back().text, head + "13 : Type mismatch (line 2: the offset "
                                              "\"99999999999\" is not a whole number)");
  // An invalid pattern is named, and its type kept without it.
  dialogs.shown.clear();
  EXPECT_TRUE(Load("A\tBroken\tbrk\t^(unclosed\t0\nA\tGood\tgd\t^GOOD\t0\n"));
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_NE(dialogs.shown[0].text.find("5017 : Syntax error in regular expression (line 1, Broken"),
            std::string::npos)
      << dialogs.shown[0].text;
  EXPECT_EQ(TypeNames(), (Names{"Broken", "Good"}));
  EXPECT_TRUE(types.Entry(1).pattern == nullptr && types.Entry(2).pattern != nullptr);
}

TEST_F(HeaderMatchTest, MarksByCategoryTypeAndTypeString) {
  ASSERT_TRUE(Load("Img\tPNG\tpng\t\t0\nImg\tGIF\tgif\t\t0\nDoc\tPDF\tpdf\t\t0\n"));
  types.MarkCategory("IMG", true);
  EXPECT_EQ(TypeNames(true), (Names{"PNG", "GIF"}));
  types.MarkCategory("img", false);
  types.MarkFileType("pdf", true);
  EXPECT_EQ(TypeNames(true), Names{"PDF"});
  EXPECT_EQ(dialogs.Texts(), (Names{"2 types marked", "2 types marked"})) << "not for a type";
  types.MarkFileType("PDF", false);
  // Not a term, no type of that name, a bracket alone: nothing is marked.
  for (const char* nothing : {"Img", "(Img)", "[~Img]", "["}) types.MarkFromTypeString(nothing);
  EXPECT_EQ(TypeNames(true), Names{});
  types.MarkFromTypeString("[~gif]");
  types.MarkFromTypeString("[DOC]");
  EXPECT_EQ(TypeNames(true), (Names{"GIF", "PDF"}));
}

size_t OpenDescriptors() {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                           std::filesystem::directory_iterator()));
}

// A file fits a marked type by its extension or by the type's header at its offset; reading
// the head leaves the file's times as they were and nothing open.
TEST_F(HeaderMatchTest, CheckFileFindsMarkedTypesByNameOrHeaderAndLeavesTheFileAsItWas) {
  ASSERT_TRUE(Load("Arc\tTAR\ttar\tustar\t257\nArc\tZIP\tzip;jar\t^PK\\x03\\x04\t0\n"
                   "Raw\tZERO\tzz\t\\x00\t0\n"));
  const std::string jar = dir.WriteFile("bundle.jar", "PK\x03\x04\x14"s);
  EXPECT_FALSE(types.CheckFile(jar)) << "nothing marked";
  EXPECT_EQ(types.ExtensionActual(), "jar");
  types.MarkFromTypeString("[Arc]");
  types.MarkFromTypeString("[Raw]");
  const size_t open = OpenDescriptors();
  test::SetTimes(jar, {1000000000, 0}, {1100000000, 0});
  EXPECT_TRUE(types.CheckFile(jar));
  EXPECT_TRUE(types.ExtensionMatch() && types.HeaderMatch());
  EXPECT_EQ(types.ExtensionExpected(), "zip;jar");
  struct stat st {};
  ASSERT_EQ(stat(jar.c_str(), &st), 0);
  EXPECT_EQ(st.st_atim.tv_sec, 1000000000);
  EXPECT_EQ(OpenDescriptors(), open);
  // A header at an offset: found there, and not in a file that ends before it (nor in bytes a
  // short file doesn't have).
  std::string tar(300, 'x');
  tar.replace(257, 5, "ustar");
  EXPECT_TRUE(types.CheckFile(dir.WriteFile("backup", tar)));
  EXPECT_FALSE(types.ExtensionMatch());
  EXPECT_EQ(types.ExtensionExpected(), "tar");
  EXPECT_FALSE(types.CheckFile(dir.WriteFile("short", std::string(200, 'u'))));
  EXPECT_FALSE(types.CheckFile(dir / "gone.bin"));
  EXPECT_TRUE(dialogs.shown.empty());
}

}  // namespace
}  // namespace qr
