#include "platform/unicode_text.h"

#include <gtest/gtest.h>

#include <string>

#include "support/child_process.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::ReadBytes;
using test::RecordingReporter;
using test::TempDir;

std::string Bytes(std::initializer_list<int> values) {
  std::string out;
  for (int v : values) out += static_cast<char>(v);
  return out;
}

// Invalid input is in utf8_test.cpp, with the decoder all converters share.
TEST(Utf16ConversionTest, SurrogatePairsThereAndBack) {
  EXPECT_EQ(Utf8ToUtf16("a€"), (std::u16string{u'a', 0x20AC}));
  EXPECT_EQ(Utf8ToUtf16("\xF4\x8F\xBF\xBF"), (std::u16string{0xDBFF, 0xDFFF}));
  EXPECT_EQ(Utf16ToUtf8(Utf8ToUtf16("Ünïcødé 名前 \xF0\x9F\x98\x80")),
            "Ünïcødé 名前 \xF0\x9F\x98\x80");
  // A lone surrogate can't be written in UTF-8.
  EXPECT_EQ(Utf16ToUtf8(std::u16string{u'a', 0xD800, u'b'}), "a\xEF\xBF\xBD" "b");
  EXPECT_EQ(Utf16ToUtf8(std::u16string{0xDC00}), "\xEF\xBF\xBD");
}

class UnicodeFileTest : public ::testing::Test {
 protected:
  TempDir tmp;
  RecordingReporter reporter;
};

TEST_F(UnicodeFileTest, CreateWritesOnlyTheMarkWhichAloneMarksAUnicodeFile) {
  const std::string path = tmp.WriteFile("log.txt", "old content");
  ASSERT_TRUE(CreateUnicodeFile(path));
  EXPECT_EQ(ReadBytes(path), Bytes({0xFF, 0xFE}));
  EXPECT_TRUE(IsUnicodeFile(path));
  EXPECT_FALSE(CreateUnicodeFile(tmp / "no/such/folder/log.txt"));
  for (const std::string& other : {Bytes({0xFE, 0xFF}), Bytes({0xEF, 0xBB, 0xBF}), Bytes({0xFF})}) {
    EXPECT_FALSE(IsUnicodeFile(tmp.WriteFile("other", other)));
  }
  EXPECT_FALSE(IsUnicodeFile(tmp / "missing"));
}

TEST_F(UnicodeFileTest, AppendsUtf16LittleEndianBytesWithTheMarkWhenAsked) {
  const std::string path = tmp / "_errors.log";
  ASSERT_TRUE(CreateUnicodeFile(path));
  ASSERT_TRUE(AppendUnicodeText(path, "a€\xF0\x9F\x98\x80\r\n", false, &reporter));
  ASSERT_TRUE(AppendUnicodeText(path, "b\xff", false, &reporter));
  ASSERT_TRUE(AppendUnicodeText(path, "y", true, &reporter));
  EXPECT_EQ(ReadBytes(path), Bytes({0xFF, 0xFE, 'a', 0, 0xAC, 0x20, 0x3D, 0xD8, 0x00, 0xDE, '\r', 0,
                                    '\n', 0, 'b', 0, 0xFD, 0xFF, 0xFF, 0xFE, 'y', 0}));
  EXPECT_TRUE(reporter.silentLines.empty());
}

TEST_F(UnicodeFileTest, FileOfExactlyThreeBytesIsCutToItsFirstByte) {
  const std::pair<std::string, std::string> cases[] = {
      {"XYZ", Bytes({'X', 'b', 0})},
      {"XY", Bytes({'X', 'Y', 'b', 0})},
      {"WXYZ", Bytes({'W', 'X', 'Y', 'Z', 'b', 0})}};
  for (const auto& [before, after] : cases) {
    const std::string path = tmp.WriteFile(before, before);
    ASSERT_TRUE(AppendUnicodeText(path, "b", false, &reporter));
    EXPECT_EQ(ReadBytes(path), after) << before;
  }
}

TEST_F(UnicodeFileTest, MissingFileIsNotCreatedAndTheFailureIsLogged) {
  const std::string path = tmp / "missing.log";
  EXPECT_FALSE(AppendUnicodeText(path, "x", false, &reporter));
  EXPECT_NE(access(path.c_str(), F_OK), 0);
  ASSERT_EQ(reporter.silentLines.size(), 1u);
  EXPECT_EQ(reporter.silentLines[0], "UC Append API Failure (2): No such file or directory");
  EXPECT_TRUE(reporter.boxes.empty());
  EXPECT_FALSE(AppendUnicodeText(path, "x", false));
}

TEST_F(UnicodeFileTest, AHalfWrittenLineNeverRunsIntoTheNext) {
  const std::string whole = std::string("\xFF\xFE", 2) + std::string("a\0\r\0\n\0", 6);
  const struct {
    const char* name;
    std::string cut;
  } cases[] = {
      {"cut after a whole character", whole + std::string("1\0" "1\0", 4)},
      {"cut inside a character", whole + std::string("1\0" "1", 3)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string log = tmp.WriteFile("log.csv", c.cut);
    ASSERT_TRUE(AppendUnicodeText(log, "next\r\n", false, nullptr));
    const std::string text = test::Utf16FileText(log);
    EXPECT_TRUE(text.ends_with("\r\nnext\r\n")) << text;
    EXPECT_TRUE(text.starts_with("a\r\n11")) << text;
  }
  // A file that ends on a line end is appended to as it is.
  const std::string log = tmp.WriteFile("clean.csv", whole);
  ASSERT_TRUE(AppendUnicodeText(log, "next\r\n", false, nullptr));
  EXPECT_EQ(test::Utf16FileText(log), "a\r\nnext\r\n");
}

}  // namespace
}  // namespace qr
