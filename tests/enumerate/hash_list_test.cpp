#include "enumerate/hash_list.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "jobdb/db_connection.h"
#include "jobdb/job_database.h"
#include "run/job_connection.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

constexpr const char* kHashA = "0cc175b9c0f1b6a831c399e269772661";
constexpr const char* kHashB = "92eb5ffee6ae2fec3ad71c777531578f";
constexpr const char* kHashC = "4a8a08f09d37b73795649038408b5f33";

class HashListTest : public ::testing::Test, protected test::RunFixture {
 protected:
  HashListTest() {
    CreateJobDatabase(ctx, ctx.paths.DatabasePath);
  }
  ~HashListTest() override { DropConnection(ctx); }

  // Every row of tHashes as "hash|path", in key order, read through a connection of its own.
  std::vector<std::string> Rows() {
    DropConnection(ctx);
    DbConnection db;
    EXPECT_TRUE(db.Open(ctx.paths.DatabasePath));
    std::vector<std::string> out;
    ResultSet rs = db.Query("Select hash, path from tHashes order by hash_id");
    for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext()) {
      out.push_back(rs.Field("hash").Text() + "|" + rs.Field("path").Text());
    }
    return out;
  }

};

TEST_F(HashListTest, TheFirstPathOfAHashIsKeptAsItIsAndReturnedForLaterOnes) {
  const std::string first = "/src/it's here/o'neil.txt";
  EXPECT_EQ(RegisterFileHash(ctx, first, kHashA), "");
  EXPECT_EQ(RegisterFileHash(ctx, "/src/two.txt", kHashA), first);
  EXPECT_EQ(RegisterFileHash(ctx, "/src/sub/three.txt", kHashA), first);
  EXPECT_EQ(RegisterFileHash(ctx, "/src/other.txt", kHashB), "");
  EXPECT_EQ(Rows(), (std::vector<std::string>{std::string(kHashA) + "|" + first,
                                              std::string(kHashB) + "|/src/other.txt"}));
  EXPECT_TRUE(dialogs.shown.empty());
  EXPECT_FALSE(std::filesystem::exists(dir / "_silent.log"));
}

TEST_F(HashListTest, AFailureGoesToTheSilentLogWithItsStage) {
  // A database without the table: the query fails.
  DropConnection(ctx);
  std::filesystem::remove(ctx.paths.DatabasePath);
  {
    DbConnection db;
    ASSERT_TRUE(db.Create(ctx.paths.DatabasePath));
    db.Execute("Create Table other(x int)");
  }
  EXPECT_EQ(RegisterFileHash(ctx, "/src/one.txt", kHashA), "");
  EXPECT_TRUE(dialogs.shown.empty()) << "reported to the log only";
  const std::string log = test::ReadBytes(dir / "_silent.log");
  EXPECT_EQ(log.rfind("Duplicate determination error.\r\n", 0), 0u) << log;
  const std::string tail = "\r\nStage: Querying Database\r\n";
  ASSERT_GE(log.size(), tail.size());
  EXPECT_EQ(log.substr(log.size() - tail.size()), tail) << log;
  EXPECT_NE(log.find("tHashes"), std::string::npos) << "the description names what failed";
}

TEST_F(HashListTest, DumpWritesEachHashOnceUpperCaseSortedWithCrLfAndNoFileForNoRows) {
  const std::string out = dir / "hashlist.md5";
  DumpHashList(ctx, out);
  EXPECT_FALSE(std::filesystem::exists(out)) << "no rows, no file";

  RegisterFileHash(ctx, "/src/c", kHashC);
  RegisterFileHash(ctx, "/src/a", kHashA);
  RegisterFileHash(ctx, "/src/b", kHashB);
  RegisterFileHash(ctx, "/src/a2", kHashA);
  DropConnection(ctx);
  DumpHashList(ctx, out);
  EXPECT_EQ(test::ReadBytes(out),
            "0CC175B9C0F1B6A831C399E269772661\r\n"
            "4A8A08F09D37B73795649038408B5F33\r\n"
            "92EB5FFEE6AE2FEC3AD71C777531578F\r\n");
  EXPECT_TRUE(dialogs.shown.empty());

  DumpHashList(ctx, dir.MakeDir("taken"));
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text,
            "Hash List Dump Error\r\n" + std::to_string(EISDIR) + ": " + std::strerror(EISDIR));
  EXPECT_EQ(dialogs.shown[0].title, kTitleText);

  ctx.paths = ComputeRunPaths(dir / "nowhere");
  std::filesystem::remove(out);
  DumpHashList(ctx, out);
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_EQ(dialogs.shown.size(), 1u) << "a database that won't open just stops the dump";
}

}  // namespace
}  // namespace qr
