// The log writers' edge cases, UTF-16 and plain; their ordinary output is checked by the log
// tests of the runs.
#include "platform/unicode_text.h"
#include "platform/plain_text.h"

#include <gtest/gtest.h>

#include <cerrno>
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

// Invalid UTF-8 is in utf8_test.cpp, with the decoder all converters share.
TEST(Utf16ConversionTest, SurrogatePairsThereAndBackAndALoneOneReplaced) {
  EXPECT_EQ(Utf8ToUtf16("\xF4\x8F\xBF\xBF"), (std::u16string{0xDBFF, 0xDFFF}));
  EXPECT_EQ(Utf16ToUtf8(Utf8ToUtf16("Ünïcødé 名前 \xF0\x9F\x98\x80")), "Ünïcødé 名前 \xF0\x9F\x98\x80");
  EXPECT_EQ(Utf16ToUtf8(std::u16string{u'a', 0xD800, u'b'}), "a\xEF\xBF\xBD" "b");
  EXPECT_EQ(Utf16ToUtf8(std::u16string{0xDC00}), "\xEF\xBF\xBD");
}

TEST(UnicodeFileTest, MarkOnlyOnCreateAndWhenAskedOddSizesAndAMissingFile) {
  TempDir tmp;
  RecordingReporter reporter;
  const std::string path = tmp.WriteFile("log.txt", "old content");
  ASSERT_TRUE(CreateUnicodeFile(path));
  EXPECT_TRUE(IsUnicodeFile(path));
  ASSERT_TRUE(AppendUnicodeText(path, "\xF0\x9F\x98\x80\xff", false, &reporter));
  ASSERT_TRUE(AppendUnicodeText(path, "y", true, &reporter));
  EXPECT_EQ(ReadBytes(path),
            Bytes({0xFF, 0xFE, 0x3D, 0xD8, 0x00, 0xDE, 0xFD, 0xFF, 0xFF, 0xFE, 'y', 0}));
  EXPECT_FALSE(CreateUnicodeFile(tmp / "no/such/folder/log.txt"));
  EXPECT_FALSE(IsUnicodeFile(tmp.WriteFile("other", Bytes({0xFE, 0xFF}))));
  EXPECT_FALSE(IsUnicodeFile(tmp / "missing"));

  // A file of exactly three bytes is cut to its first; other sizes are appended to.
  const std::pair<std::string, std::string> sizes[] = {
      {"XYZ", Bytes({'X', 'b', 0})}, {"XY", Bytes({'X', 'Y', 'b', 0})},
      {"WXYZ", Bytes({'W', 'X', 'Y', 'Z', 'b', 0})}};
  for (const auto& [before, after] : sizes) {
    ASSERT_TRUE(AppendUnicodeText(tmp.WriteFile(before, before), "b", false, &reporter));
    EXPECT_EQ(ReadBytes(tmp / before), after) << before;
  }
  EXPECT_TRUE(reporter.silentLines.empty());

  EXPECT_FALSE(AppendUnicodeText(tmp / "missing.log", "x", false, &reporter));
  EXPECT_NE(access((tmp / "missing.log").c_str(), F_OK), 0) << "not created";
  EXPECT_EQ(reporter.silentLines,
            std::vector<std::string>{"UC Append API Failure (2): No such file or directory"});
  EXPECT_TRUE(reporter.boxes.empty());
}

TEST(UnicodeFileTest, AHalfWrittenLineNeverRunsIntoTheNext) {
  TempDir tmp;
  const std::string whole = std::string("\xFF\xFE", 2) + std::string("a\0\r\0\n\0", 6);
  // Cut after a whole character, cut inside one, and not cut at all.
  const std::pair<std::string, const char*> cases[] = {
      {whole + std::string("1\0" "1\0", 4), "a\r\n11\r\nnext\r\n"},
      {whole + std::string("1\0" "1", 3), "a\r\n11\r\nnext\r\n"},
      {whole, "a\r\nnext\r\n"}};
  for (const auto& [cut, expected] : cases) {
    const std::string log = tmp.WriteFile("log.csv", cut);
    ASSERT_TRUE(AppendUnicodeText(log, "next\r\n", false, nullptr));
    EXPECT_EQ(test::Utf16FileText(log), expected) << cut.size();
  }
}

TEST(PlainTextTest, WritesAndReadsBackBytesAndCrLfLinesAndFailuresGiveTheSystemsError) {
  test::TempDir tmp;
  const std::string path = tmp.WriteFile("tally.txt", "whole\r\ncut sho");
  // A half-written line never runs into the next.
  ASSERT_TRUE(AppendLine(path, "next") && AppendLine(path, ""));
  EXPECT_EQ(ReadBytes(path), "whole\r\ncut sho\r\nnext\r\n\r\n");
  ASSERT_TRUE(AppendLine(tmp / "new.txt", "first"));
  EXPECT_EQ(ReadBytes(tmp / "new.txt"), "first\r\n");
  std::string big(200000, 'x');
  big[100000] = '\0';
  ASSERT_TRUE(WriteWholeFile(path, big));
  EXPECT_EQ(ReadWholeFile(path), big);
  ASSERT_TRUE(WriteWholeFile(path, "a\r\nb\rc\nd\r\n\r\ne"));
  EXPECT_EQ(ReadLines(path), (std::vector<std::string>{"a", "b", "c", "d", "", "e"}));
  EXPECT_EQ(ReadLines(tmp.WriteFile("empty", "")), std::vector<std::string>{});

  int errors[4] = {};
  EXPECT_FALSE(ReadWholeFile(tmp / "missing", &errors[0]).has_value());
  EXPECT_FALSE(ReadLines(tmp.MakeDir("folder"), &errors[1]).has_value());
  EXPECT_FALSE(AppendLine(tmp / "no/folder/log.txt", "x", &errors[2]));
  EXPECT_FALSE(WriteWholeFile(tmp / "folder", "x", &errors[3]));
  EXPECT_EQ(std::vector<int>(errors, errors + 4),
            (std::vector<int>{ENOENT, EISDIR, ENOENT, EISDIR}));
}

}  // namespace
}  // namespace qr
