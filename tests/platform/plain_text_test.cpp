#include "platform/plain_text.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "support/temp_dir.h"

namespace qr {
namespace {

using test::ReadBytes;
using test::TempDir;

class PlainTextTest : public ::testing::Test {
 protected:
  TempDir tmp;
};

TEST_F(PlainTextTest, AppendLineCreatesThenAppendsWithCrLf) {
  const std::string path = tmp / "tally.txt";
  ASSERT_TRUE(AppendLine(path, "first"));
  ASSERT_TRUE(AppendLine(path, ""));
  ASSERT_TRUE(AppendLine(path, "Ünïcødé, 'quoted'"));
  EXPECT_EQ(ReadBytes(path), "first\r\n\r\nÜnïcødé, 'quoted'\r\n");
}

TEST_F(PlainTextTest, WriteWholeFileReplacesTheContentExactly) {
  const std::string path = tmp.WriteFile("job.rvj", "a much longer old content");
  ASSERT_TRUE(WriteWholeFile(path, std::string("new\0bytes", 9)));
  EXPECT_EQ(ReadBytes(path), std::string("new\0bytes", 9));
}

TEST_F(PlainTextTest, ReadsBytesAndLines) {
  std::string big(200000, 'x');
  big[100000] = '\0';
  const std::string path = tmp.WriteFile("big", big);
  EXPECT_EQ(ReadWholeFile(path), big);

  const std::string lines = tmp.WriteFile("lines.txt", "a\r\nb\rc\nd\r\n\r\ne");
  EXPECT_EQ(ReadLines(lines), (std::vector<std::string>{"a", "b", "c", "d", "", "e"}));
  EXPECT_EQ(ReadLines(tmp.WriteFile("empty", "")), std::vector<std::string>{});
}

TEST_F(PlainTextTest, FailuresGiveTheSystemsError) {
  int err = 0;
  EXPECT_FALSE(ReadWholeFile(tmp / "missing", &err).has_value());
  EXPECT_EQ(err, ENOENT);
  err = 0;
  EXPECT_FALSE(ReadLines(tmp.MakeDir("folder"), &err).has_value());
  EXPECT_EQ(err, EISDIR);
  err = 0;
  EXPECT_FALSE(AppendLine(tmp / "no/folder/log.txt", "x", &err));
  EXPECT_EQ(err, ENOENT);
  err = 0;
  EXPECT_FALSE(WriteWholeFile(tmp / "folder", "x", &err));
  EXPECT_EQ(err, EISDIR);
}

TEST_F(PlainTextTest, AHalfWrittenLineNeverRunsIntoTheNext) {
  const std::string log = tmp.WriteFile("log.txt", "whole\r\ncut sho");
  ASSERT_TRUE(AppendLine(log, "next"));
  ASSERT_TRUE(AppendLine(log, "after"));
  EXPECT_EQ(ReadBytes(log), "whole\r\ncut sho\r\nnext\r\nafter\r\n");
}

}  // namespace
}  // namespace qr
