#include "jobdb/job_database.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "enumerate/job_rows.h"
#include "jobdb/db_connection.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "run/job_connection.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

namespace fs = std::filesystem;
using test::ReadBytes;

const std::string kBufferDashes(59, '-');

class JobDatabaseTest : public ::testing::Test, protected test::RunFixture {
 protected:
  std::string db = ctx.paths.DatabasePath;

  void SetUp() override {
    // Flat layout: every target is the target root plus the name, whatever the source.
    ctx.settings.TargetPath = dir / "target";
    ctx.settings.FullPaths = false;
    ctx.settings.CreateSubs = false;
  }

  // A second connection, as another process would read the file.
  ResultSet Read(const std::string& sql) const {
    DbConnection reader;
    EXPECT_TRUE(reader.Open(db));
    return reader.Query(sql);
  }
  int64_t Count(const std::string& table) const {
    return Read("Select count(*) as n from " + table).Field("n").Int64();
  }
  std::string SilentLog() const { return ReadBytes(dir / "_silent.log"); }
  void InsertFile(const std::string& name, FindData fd = {}) {
    std::string folder = dir.path();
    InsertFileRow(ctx, folder, name, fd);
  }
};

TEST_F(JobDatabaseTest, ValidationLeavesAGoodDatabaseAloneAndNeverEmptiesADamagedOne) {
  CreateJobDatabase(ctx, db);
  for (int i = 0; i < 400; ++i) InsertFile("kept" + std::to_string(i) + ".txt");
  FlushQueryBuffer(ctx);
  DropConnection(ctx);
  EXPECT_TRUE(ValidateJobDatabase(ctx, db)) << "an empty tHashes is still a tHashes";
  EXPECT_EQ(Count("tFiles"), 400);
  const std::string good = ReadBytes(db);
  ASSERT_GT(good.size(), 32768u);

  // A job's database is its only record: a damaged one is reported and left as it was.
  const std::pair<const char*, std::string> damaged[] = {
      {"text", "not a database, just text that happens to carry this name....."},
      {"cut to 16 KiB", good.substr(0, 16384)},
      {"a page overwritten", good.substr(0, 8192) + std::string(4096, 'x') + good.substr(12288)},
  };
  for (const auto& [name, bytes] : damaged) {
    SCOPED_TRACE(name);
    dialogs.shown.clear();
    dir.WriteFile("_job.sdb", bytes);
    EXPECT_FALSE(ValidateJobDatabase(ctx, db));
    ASSERT_EQ(dialogs.shown.size(), 1u);
    EXPECT_TRUE(dialogs.shown[0].text.starts_with("DB Validation Error: \r\n"));
    EXPECT_TRUE(ReadBytes(db) == bytes);
    ctx.db.reset();
  }
}

// Written through the buffer, read back by another connection: quotes, extensions, time halves.
TEST_F(JobDatabaseTest, RowsComeBackAsTheyWereWritten) {
  CreateJobDatabase(ctx, db);
  ctx.settings.TargetPath = dir / "targ'et";
  std::string folder = dir.path() + "/l'été 'quoted'";
  FindData fd;
  fd.creationTime = 0x01DB2F3CF0000001;  // a low half with its top bit set
  fd.lastWriteTime = 0xFFFFFFFF80000000;
  fd.lastAccessTime = 0x000000007FFFFFFF;
  InsertFileRow(ctx, folder, "O'Brien's naïve café.tar.gz", fd);
  EXPECT_EQ(folder, dir.path() + "/l'été 'quoted'/") << "the folder gains its separator";
  InsertFolderRow(ctx, folder, fd);
  for (const char* name : {"README", "archive.", ".profile"}) InsertFile(name);
  FlushQueryBuffer(ctx);

  ResultSet rs = Read("Select * from tFiles order by file_key");
  ASSERT_EQ(rs.RowCount(), 4);
  rs.MoveFirst();
  auto back = [&](const std::string& name) {
    return FromHalves(rs.Field(name + "_low").Int32(), rs.Field(name + "_high").Int32());
  };
  EXPECT_EQ(rs.Field("source_path").Text() + "|" + rs.Field("dest_path").Text() + "|" +
                rs.Field("source_created_low").Text() + "|" + rs.Field("source_mod_high").Text(),
            folder + "O'Brien's naïve café.tar.gz|" + dir / "targ'et/O'Brien's naïve café.tar.gz" +
                "|-268435455|-1");
  EXPECT_TRUE(rs.Field("date_copied").IsNull());
  EXPECT_EQ(std::vector<FileTime>({back("source_created"), back("source_mod"), back("source_access")}),
            std::vector<FileTime>({fd.creationTime, fd.lastWriteTime, fd.lastAccessTime}));
  std::vector<std::string> extensions;
  for (; !rs.Eof(); rs.MoveNext()) extensions.push_back(rs.Field("extension").Text());
  EXPECT_EQ(extensions, (std::vector<std::string>{"gz", "README", "", "profile"}));

  rs = Read("Select * from tFolders");
  ASSERT_EQ(rs.RowCount(), 1);
  EXPECT_EQ(rs.Field("source").Text() + "|" + rs.Field("dest_path").Text(), folder + "|" + dir / "targ'et/");
  EXPECT_EQ(back("mod"), fd.lastWriteTime);
  EXPECT_TRUE(rs.Field("path").IsNull());
}

TEST_F(JobDatabaseTest, SizesAreDoublesWithFifteenDigits) {
  EXPECT_EQ(SizeText(0, 0), "0");
  EXPECT_EQ(SizeText(0, 0xFFFFFFFF), "4294967295") << "each half is unsigned";
  EXPECT_EQ(SizeText(232830, 2764472319), "999999999999999");
  EXPECT_EQ(SizeText(0xFFFFFFFF, 0xFFFFFFFF), "1.84467440737096e+19");

  // Stored as text, which the resume totals add up through SQLite's own conversion.
  CreateJobDatabase(ctx, db);
  FindData big;
  big.sizeHigh = 1;
  InsertFile("big", big);
  FlushQueryBuffer(ctx);
  EXPECT_EQ(Read("Select source_size || typeof(source_size) from tFiles").Value(0, 0).Text(),
            "4294967296text");
}

TEST_F(JobDatabaseTest, AFailedFlushIsLoggedAndAFailedStatementIsDroppedAlone) {
  // No database where the run expects it: the statements are kept for a later flush.
  InsertFile("lost.txt");
  FlushQueryBuffer(ctx);
  EXPECT_EQ(SilentLog(),
            "Error while flushing query buffer.\r\n14: unable to open database file\r\n"
            "Stage: Beginning transaction\r\n" + kBufferDashes + "\r\n");
  EXPECT_EQ(ctx.queryBuffer.statements.size(), 1u);
  ctx.queryBuffer.statements.clear();
  fs::remove(dir / "_silent.log");

  // A database repaired from an empty file has no tFolders: only the folder row fails.
  dir.WriteFile("_job.sdb", "");
  ASSERT_TRUE(ValidateJobDatabase(ctx, db));
  InsertFile("a.txt");
  InsertFolderRow(ctx, dir.path() + "/", FindData{});
  InsertFile("b.txt");
  // A statement that can't even be read (a NUL cuts its text) is dropped the same way.
  InsertFile(std::string("c\0d.txt", 7));
  FlushQueryBuffer(ctx);
  const std::string log = SilentLog();
  EXPECT_TRUE(log.starts_with("Error while flushing query buffer.\r\n1: no such table: tFolders\r\n"
                              "Insert into tFolders(") &&
              log.ends_with("Stage: Looping through buffered queries\r\n" + kBufferDashes + "\r\n"))
      << log;
  EXPECT_EQ(Count("tFiles"), 2) << "later rows are not taken with it";
  EXPECT_TRUE(ctx.queryBuffer.statements.empty());
  // With the silent log out of reach the failure passes to the caller.
  ctx.db.reset();
  fs::remove(db);
  InsertFile("e.txt");
  ctx.paths.ErrorLogPath = dir / "gone/_errors.log";
  EXPECT_THROW(FlushQueryBuffer(ctx), RunError);
}

// A statement's failure as "number description".
template <typename F>
std::string FailureOf(F&& statement) {
  try {
    statement();
  } catch (const RunError& e) {
    return IntText(e.number()) + " " + e.description();
  }
  return "no failure";
}

class DbConnectionTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  std::string path = dir / "_job.sdb";
};

TEST_F(DbConnectionTest, OpenTellsDatabasesFromOtherFilesAndFailuresCarryTheirReason) {
  DbConnection db;
  EXPECT_FALSE(db.Open(path));
  EXPECT_FALSE(std::filesystem::exists(path)) << "Open makes no file";
  dir.WriteFile("_job.sdb", "this is a text file, long enough to hold a header of a database....");
  EXPECT_FALSE(db.Open(path) || db.IsOpen());
  dir.WriteFile("_job.sdb", "");  // an empty file is an empty database
  EXPECT_TRUE(db.Open(path) && db.IsOpen());
  EXPECT_EQ(FailureOf([&] { db.Execute("Insert into nowhere values(1)"); }) + "|" +
                FailureOf([&] { db.Query("Select * from nowhere"); }),
            "1 no such table: nowhere|1 no such table: nowhere");
  DbConnection lost;
  EXPECT_FALSE(lost.Create(dir / "no-such-folder/_job.sdb"));
  EXPECT_EQ(FailureOf([&] { lost.Execute("BEGIN"); }), "14 unable to open database file");
  EXPECT_EQ(lost.LastSystemError(), ENOENT);
}

TEST(DbValueTest, ConvertsNumbersAndTextsAsTheColumnsNeed) {
  EXPECT_EQ(DbValue(std::string("-2147483648")).Int32(), INT32_MIN);
  EXPECT_EQ(DbValue(int64_t{2147483647}).Int32(), INT32_MAX);
  EXPECT_EQ(DbValue(std::string(" 12 ")).Int32(), 12);
  EXPECT_EQ(DbValue().Int32(), 0);
  EXPECT_DOUBLE_EQ(DbValue(std::string("1e+15")).Number(), 1e15);
  EXPECT_EQ(DbValue(std::string("9223372036854775807")).Int64(), INT64_MAX) << "keys keep every digit";
  EXPECT_EQ(DbValue(8589934592.0).Int64(), 8589934592);
  for (const char* text : {"-3.5", "1e5"}) EXPECT_TRUE(DbValue(std::string(text)).IsNumeric());
  for (const char* text : {"", "0x10", "inf"}) EXPECT_FALSE(DbValue(std::string(text)).IsNumeric());
  for (const auto& v : {DbValue(std::string("2147483648")), DbValue(int64_t{-2147483649}),
                        DbValue(3e9), DbValue(1e300)}) {
    EXPECT_EQ(FailureOf([&] { v.Int32(); }), "6 Overflow");
  }
  for (const auto& text : {"abc", "", "1.2.3", "12a"}) {
    EXPECT_EQ(FailureOf([&] { DbValue(std::string(text)).Number(); }), "13 Type mismatch") << text;
  }
}

}  // namespace
}  // namespace qr
