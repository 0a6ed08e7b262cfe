// The definition file's loader, the marks and lookups, and the check of a file's extension and
// first bytes, over real files; the shipped definition file against real headers.
#include "filetypes/header_match.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "support/run_fixture.h"

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
  Names TypeNames() {
    Names names;
    for (int i = 1; i <= types.EntryCount(); ++i) names.push_back(types.Entry(i).typeName);
    return names;
  }
  // The names of the marked types.
  Names Marked() {
    Names names;
    for (int i = 1; i <= types.EntryCount(); ++i) {
      if (types.Entry(i).marked) names.push_back(types.Entry(i).typeName);
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
  EXPECT_EQ((Names{types.CategoryByIndex(0), types.CategoryByIndex(3), types.CategoryByIndex(4)}),
            (Names{"", "images", ""}));
  EXPECT_EQ(types.Categories(), (Names{"Images", "Documents"}));
  // A second load starts from an empty table.
  ASSERT_TRUE(Load("A\tOne\ta\t\t0\n"));
  EXPECT_EQ(TypeNames(), Names{"One"});
}

TEST_F(HeaderMatchTest, ADamagedFileEndsTheLoadWithAMessageAndKeepsWhatWasRead) {
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
}

TEST_F(HeaderMatchTest, AnInvalidPatternIsNamedAndItsTypeKeptForItsExtensions) {
  EXPECT_TRUE(Load("A\tBroken\tbrk\t^(unclosed\t0\nA\tGood\tgd\t^GOOD\t0\n"));
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_NE(dialogs.shown[0].text.find("5017 : Syntax error in regular expression (line 1, Broken"),
            std::string::npos)
      << dialogs.shown[0].text;
  EXPECT_EQ(TypeNames(), (Names{"Broken", "Good"}));
  types.MarkFromTypeString("[a]");
  EXPECT_TRUE(types.CheckFile(dir.WriteFile("x.brk", "(unclosed")));
  EXPECT_FALSE(types.HeaderMatch());
  EXPECT_TRUE(types.CheckFile(dir.WriteFile("y.dat", "GOOD")));
  EXPECT_EQ(types.ExtensionExpected(), "gd");
}

TEST_F(HeaderMatchTest, MarksByCategoryTypeAndTypeString) {
  ASSERT_TRUE(Load("Img\tPNG\tpng\t\t0\nImg\tGIF\tgif\t\t0\nDoc\tPDF\tpdf\t\t0\n"));
  types.MarkCategory("IMG", true);
  EXPECT_EQ(Marked(), (Names{"PNG", "GIF"}));
  types.MarkCategory("img", false);
  types.MarkFileType("pdf", true);
  EXPECT_EQ(Marked(), Names{"PDF"});
  EXPECT_EQ(dialogs.Texts(), (Names{"2 types marked", "2 types marked"})) << "not for a type";
  types.MarkFileType("PDF", false);
  // Not a term, no type of that name, a bracket alone: nothing is marked.
  for (const char* nothing : {"Img", "[~Img]", "["}) types.MarkFromTypeString(nothing);
  EXPECT_EQ(Marked(), Names{});
  types.MarkFromTypeString("[~gif]");
  types.MarkFromTypeString("[DOC]");
  EXPECT_EQ(Marked(), (Names{"GIF", "PDF"}));
}

// The definition file shipped beside the program.
class ShippedDefinitionsTest : public HeaderMatchTest {
 protected:
  void SetUp() override {
    ASSERT_TRUE(types.LoadDefinitionFile(RAVELIN_SHIPPED_FILETYPES));
    ASSERT_TRUE(dialogs.shown.empty()) << dialogs.shown[0].text;
  }
  void MarkAll() {
    for (const std::string& c : types.Categories()) types.MarkFromTypeString("[" + c + "]");
  }
};

TEST_F(ShippedDefinitionsTest, EveryPatternCompilesAndRealHeadersAreKnownWhateverTheName) {
  ASSERT_GE(types.EntryCount(), 30);
  for (int i = 1; i <= types.EntryCount(); ++i) {
    const FileTypeDefinition& d = types.Entry(i);
    EXPECT_NE(d.pattern, nullptr) << d.typeName;
    // A comma or bracket in a name would break the terms of the extension field.
    EXPECT_EQ((d.typeName + d.category).find_first_of(",[]~"), std::string::npos) << d.typeName;
  }
  MarkAll();
  std::string tar(512, '\0');
  tar.replace(257, 6, "ustar"s + '\0');
  // Name, first bytes, whether the extension fits, the extensions of the first type that fits.
  const std::tuple<const char*, std::string, bool, const char*> samples[] = {
      {"photo.png", "\x89PNG\r\n\x1A\n\0\0\0\rIHDR"s, true, "png"},
      {"backup.tar", tar, true, "tar"},
      {"tool", "\x7F" "ELF\x02\x01\x01"s, false, "elf;so;o;ko;bin;axf"},
  };
  for (const auto& [name, bytes, extensionMatch, expected] : samples) {
    SCOPED_TRACE(name);
    EXPECT_TRUE(types.CheckFile(dir.WriteFile(name, bytes)));
    EXPECT_TRUE(types.HeaderMatch());
    EXPECT_EQ(types.ExtensionMatch(), extensionMatch);
    EXPECT_EQ(types.ExtensionExpected(), expected);
  }
  EXPECT_EQ(types.ExtensionActual(), "");
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(ShippedDefinitionsTest, OnlyMarkedTypesCountAndTheFirstInTableOrderNamesTheExtensions) {
  const std::string zip = dir.WriteFile("bundle.zip", "PK\x03\x04\x14\0\0\0\x08\0"s);
  EXPECT_FALSE(types.CheckFile(zip));
  EXPECT_EQ(types.ExtensionActual(), "zip");
  types.MarkFromTypeString("[Archives]");
  EXPECT_TRUE(types.CheckFile(zip));
  EXPECT_TRUE(types.ExtensionMatch() && types.HeaderMatch());
  // The newer office documents are zips too, and stand earlier in the table.
  types.MarkFromTypeString("[Documents]");
  EXPECT_TRUE(types.CheckFile(zip));
  EXPECT_NE(types.ExtensionExpected().find("docx"), std::string::npos);
  // A file shorter than a pattern's offset is not matched by it; a missing one by none.
  EXPECT_TRUE(types.CheckFile(dir.WriteFile("short.tar", std::string(200, 'u'))));
  EXPECT_FALSE(types.HeaderMatch());
  EXPECT_FALSE(types.CheckFile(dir / "gone.bin"));
  EXPECT_TRUE(dialogs.shown.empty());
  // Checking leaves a file's times as they were: an access time older than the modification
  // time would move on any read.
  types.MarkFromTypeString("[Images]");
  const std::string png = dir.WriteFile("photo.png", "\x89PNG\r\n\x1A\n"s + std::string(4000, 'x'));
  test::SetTimes(png, {1000000000, 123456789}, {1100000000, 987654321});
  ASSERT_TRUE(types.CheckFile(png));
  struct stat st {};
  ASSERT_EQ(stat(png.c_str(), &st), 0);
  EXPECT_EQ(std::pair(st.st_atim.tv_sec, st.st_atim.tv_nsec), std::pair(1000000000L, 123456789L));
  EXPECT_EQ(std::pair(st.st_mtim.tv_sec, st.st_mtim.tv_nsec), std::pair(1100000000L, 987654321L));
  // A file that opens but can't be read says so (the start of this process's memory is never
  // mapped, so reading it fails).
  EXPECT_FALSE(types.CheckFile("/proc/self/mem"));
  EXPECT_EQ(dialogs.Texts(),
            Names{"Error checking file type for /proc/self/mem\r\n5 : Input/output error"});
}

}  // namespace
}  // namespace qr
