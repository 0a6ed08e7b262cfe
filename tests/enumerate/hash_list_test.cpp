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

namespace fs = std::filesystem;

constexpr const char* kHashA = "0cc175b9c0f1b6a831c399e269772661";
constexpr const char* kHashB = "92eb5ffee6ae2fec3ad71c777531578f";
constexpr const char* kHashC = "4a8a08f09d37b73795649038408b5f33";

class HashListTest : public ::testing::Test, protected test::RunFixture {
 protected:
  HashListTest() { CreateJobDatabase(ctx, ctx.paths.DatabasePath); }
  ~HashListTest() override { DropConnection(ctx); }
};

// The first path of a hash is kept as it is and returned for later ones; the dump writes each
// hash once, upper case, sorted, with CR LF, and no file at all for no rows.
TEST_F(HashListTest, TheFirstPathOfAHashIsKeptAndTheDumpListsEachHashOnce) {
  const std::string out = dir / "hashlist.md5";
  DumpHashList(ctx, out);
  EXPECT_FALSE(fs::exists(out)) << "no rows, no file";

  const std::string first = "/src/it's here/o'neil.txt";
  EXPECT_EQ(RegisterFileHash(ctx, "/src/c", kHashC), "");
  EXPECT_EQ(RegisterFileHash(ctx, first, kHashA), "");
  EXPECT_EQ(RegisterFileHash(ctx, "/src/two.txt", kHashA), first);
  EXPECT_EQ(RegisterFileHash(ctx, "/src/sub/three.txt", kHashA), first);
  EXPECT_EQ(RegisterFileHash(ctx, "/src/b", kHashB), "");
  DropConnection(ctx);
  DumpHashList(ctx, out);
  EXPECT_EQ(test::ReadBytes(out),
            "0CC175B9C0F1B6A831C399E269772661\r\n4A8A08F09D37B73795649038408B5F33\r\n"
            "92EB5FFEE6AE2FEC3AD71C777531578F\r\n");
  EXPECT_FALSE(fs::exists(dir / "_silent.log"));

  DumpHashList(ctx, dir.MakeDir("taken"));
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text,
            "Hash List Dump Error\r\n" + std::to_string(EISDIR) + ": " + std::strerror(EISDIR));
  EXPECT_EQ(dialogs.shown[0].title, kTitleText);
  // A database that won't open just stops the dump.
  ctx.paths = ComputeRunPaths(dir / "nowhere");
  fs::remove(out);
  DumpHashList(ctx, out);
  EXPECT_FALSE(fs::exists(out));
  EXPECT_EQ(dialogs.shown.size(), 1u);
}

TEST_F(HashListTest, AFailureGoesToTheSilentLogWithItsStage) {
  // A database without the table: the query fails.
  DropConnection(ctx);
  fs::remove(ctx.paths.DatabasePath);
  {
    DbConnection db;
    ASSERT_TRUE(db.Create(ctx.paths.DatabasePath));
    db.Execute("Create Table other(x int)");
  }
  EXPECT_EQ(RegisterFileHash(ctx, "/src/one.txt", kHashA), "");
  EXPECT_TRUE(dialogs.shown.empty()) << "reported to the log only";
  const std::string log = test::ReadBytes(dir / "_silent.log");
  EXPECT_TRUE(log.starts_with("Duplicate determination error.\r\n") &&
              log.ends_with("\r\nStage: Querying Database\r\n") &&
              log.find("tHashes") != std::string::npos)
      << log;
}

}  // namespace
}  // namespace qr
