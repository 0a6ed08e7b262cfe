#include "platform/plain_text.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "support/temp_dir.h"

namespace qr {
namespace {

using test::ReadBytes;

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
  EXPECT_EQ(std::vector<int>(errors, errors + 4), (std::vector<int>{ENOENT, EISDIR, ENOENT, EISDIR}));
}

}  // namespace
}  // namespace qr
