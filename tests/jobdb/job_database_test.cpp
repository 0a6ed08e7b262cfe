#include "jobdb/job_database.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "copy/target_paths.h"
#include "enumerate/job_rows.h"
#include "jobdb/db_connection.h"
#include "platform/errors.h"
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

  // A job's database is its only record: whatever is wrong with it, the box says so and the
  // bytes stay as they were.
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

TEST_F(JobDatabaseTest, FailuresToMakeOrRepairShowTheirBoxes) {
  CreateJobDatabase(ctx, dir / "missing/_job.sdb");
  // A database with tables of its own but no tHashes: repair meets the existing tFiles.
  {
    DbConnection other;
    ASSERT_TRUE(other.Create(db));
    other.Execute("Create Table tFiles(x text)");
  }
  ctx.db.reset();
  EXPECT_FALSE(ValidateJobDatabase(ctx, db));
  EXPECT_EQ(dialogs.Texts(),
            (std::vector<std::string>{
                "DB Creation Error: \r\n14: unable to open database file\r\n2\r\n",
                "DB Validation Error: \r\n1: table tFiles already exists\r\n0\r\n"}));
  EXPECT_EQ(dialogs.shown[0].title, ctx.program.titleText);
}

// Written through the buffer and read back by another connection: paths with quotes byte for
// byte, the extension, the times' signed halves with every bit, the long-path flag.
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

TEST_F(JobDatabaseTest, LongPathFlagCountsCharactersOfTheTargetFolder) {
  CreateJobDatabase(ctx, db);
  // A target root of exactly `n` characters; the target folder adds its separator.
  auto rootOf = [&](size_t n, const std::string& unit) {
    std::string root = dir.path() + "/";
    for (size_t i = root.size(); i < n; ++i) root += unit;
    return root;
  };
  ctx.settings.TargetPath = rootOf(254, "x");
  ASSERT_EQ(GetTargetFolder(ctx, dir.path() + "/").size(), 255u);
  InsertFile("a");
  ctx.settings.TargetPath = rootOf(255, "x");
  InsertFile("b");
  ctx.settings.TargetPath = rootOf(254, "é");  // 255 characters, far more bytes
  InsertFile("c");
  FlushQueryBuffer(ctx);
  ResultSet rs = Read("Select long_path from tFiles order by file_key");
  ASSERT_EQ(rs.RowCount(), 3);
  EXPECT_EQ(rs.Value(0, 0).Text() + rs.Value(1, 0).Text() + rs.Value(2, 0).Text(), "010");
}

TEST_F(JobDatabaseTest, SizesAreDoublesWithFifteenDigits) {
  EXPECT_EQ(SizeText(0, 0), "0");
  EXPECT_EQ(SizeText(0, 0xFFFFFFFF), "4294967295") << "each half is unsigned";
  EXPECT_EQ(SizeText(232830, 2764472319), "999999999999999");
  EXPECT_EQ(SizeText(0xFFFFFFFF, 0xFFFFFFFF), "1.84467440737096e+19");

  CreateJobDatabase(ctx, db);
  FindData big;
  big.sizeHigh = 1;
  InsertFile("big", big);
  FindData huge;
  huge.sizeHigh = 232830;
  huge.sizeLow = 2764472320;
  InsertFile("huge", huge);
  FlushQueryBuffer(ctx);
  ResultSet rs = Read("Select group_concat(source_size || typeof(source_size), ' ') from tFiles");
  EXPECT_EQ(rs.Value(0, 0).Text(), "4294967296text 1e+15text");
  // The resume totals add these texts up through SQLite's own conversion.
  EXPECT_DOUBLE_EQ(Read("Select sum(source_size) as s from tFiles").Field("s").Number(),
                   1e15 + 4294967296.0);
}

TEST_F(JobDatabaseTest, TheTenThousandthInsertCommitsTheBatch) {
  CreateJobDatabase(ctx, db);
  FlushQueryBuffer(ctx);
  EXPECT_FALSE(ctx.db) << "an empty flush makes no connection";
  for (int i = 1; i < 10000; ++i) InsertFile("f" + std::to_string(i));
  EXPECT_EQ(Count("tFiles"), 0) << "nothing is visible before the batch is committed";
  InsertFile("f10000");
  EXPECT_EQ(Count("tFiles"), 10000);
  // An empty flush sends nothing: with a transaction open, a "BEGIN" would fail and be logged.
  ctx.db->Execute("BEGIN");
  FlushQueryBuffer(ctx);
  EXPECT_EQ(SilentLog(), "");
}

TEST_F(JobDatabaseTest, FailedFlushesAreLoggedAndKeepTheirStatements) {
  // No database where the run expects it: the recovered connection can't open.
  InsertFile("lost.txt");
  FlushQueryBuffer(ctx);
  EXPECT_EQ(SilentLog(),
            "Error while flushing query buffer.\r\n14: unable to open database file\r\n"
            "Stage: Beginning transaction\r\n" + kBufferDashes + "\r\n");
  EXPECT_EQ(ctx.queryBuffer.statements.size(), 1u);
  // With the silent log out of reach the failure passes to the caller.
  ctx.paths.ErrorLogPath = dir / "gone/_errors.log";
  EXPECT_THROW(FlushQueryBuffer(ctx), RunError);
}

TEST_F(JobDatabaseTest, AStatementThatFailsIsDroppedAloneAndNamed) {
  // A repaired database (made from an empty file) has no tFolders: the folder row fails, the
  // file rows around it stay, with every column a row fills.
  dir.WriteFile("_job.sdb", "");
  ASSERT_TRUE(ValidateJobDatabase(ctx, db));
  InsertFile("a.txt");
  InsertFolderRow(ctx, dir.path() + "/", FindData{});
  InsertFile("b.txt");
  FlushQueryBuffer(ctx);
  const std::string log = SilentLog();
  EXPECT_TRUE(log.starts_with("Error while flushing query buffer.\r\n1: no such table: tFolders\r\n"
                              "Insert into tFolders(") &&
              log.ends_with("Stage: Looping through buffered queries\r\n" + kBufferDashes + "\r\n"))
      << log;
  EXPECT_EQ(Count("tFiles"), 2) << "later rows are not taken with it";
  // A statement that can't even be read (a NUL cuts its text) is dropped the same way.
  InsertFile(std::string("c\0d.txt", 7));
  InsertFile("e.txt");
  FlushQueryBuffer(ctx);
  EXPECT_EQ(Count("tFiles"), 3);
  EXPECT_TRUE(ctx.queryBuffer.statements.empty());
}

}  // namespace
}  // namespace qr
