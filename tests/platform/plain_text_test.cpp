#include "platform/plain_text.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "support/temp_dir.h"

namespace qr {
namespace {

using test::ReadBytes;
using test::TempDir;

TEST(PlainTextTest, WritesAndReadsBackBytesAndCrLfLines) {
  TempDir tmp;
  const std::string path = tmp.WriteFile("tally.txt", "whole\r\ncut sho");
  // A half-written line never runs into the next.
  ASSERT_TRUE(AppendLine(path, "next"));
  ASSERT_TRUE(AppendLine(path, ""));
  ASSERT_TRUE(AppendLine(path, "Ünïcødé, 'quoted'"));
  EXPECT_EQ(ReadBytes(path), "whole\r\ncut sho\r\nnext\r\n\r\nÜnïcødé, 'quoted'\r\n");
  ASSERT_TRUE(AppendLine(tmp / "new.txt", "first"));
  EXPECT_EQ(ReadBytes(tmp / "new.txt"), "first\r\n");

  std::string big(200000, 'x');
  big[100000] = '\0';
  ASSERT_TRUE(WriteWholeFile(path, big));
  EXPECT_EQ(ReadWholeFile(path), big);
  ASSERT_TRUE(WriteWholeFile(path, "a\r\nb\rc\nd\r\n\r\ne"));
  EXPECT_EQ(ReadLines(path), (std::vector<std::string>{"a", "b", "c", "d", "", "e"}));
  EXPECT_EQ(ReadLines(tmp.WriteFile("empty", "")), std::vector<std::string>{});
}

TEST(PlainTextTest, FailuresGiveTheSystemsError) {
  TempDir tmp;
  int err = 0;
  EXPECT_FALSE(ReadWholeFile(tmp / "missing", &err).has_value());
  EXPECT_EQ(err, ENOENT);
  EXPECT_FALSE(ReadLines(tmp.MakeDir("folder"), &err).has_value());
  EXPECT_EQ(err, EISDIR);
  EXPECT_FALSE(AppendLine(tmp / "no/folder/log.txt", "x", &err));
  EXPECT_EQ(err, ENOENT);
  EXPECT_FALSE(WriteWholeFile(tmp / "folder", "x", &err));
  EXPECT_EQ(err, EISDIR);
}

}  // namespace
}  // namespace qr
