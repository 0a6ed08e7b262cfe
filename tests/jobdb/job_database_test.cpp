#include "jobdb/job_database.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

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
  std::string db;

  void SetUp() override {
    db = ctx.paths.DatabasePath;
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
  std::set<std::string> Names(const std::string& pragma) const {
    std::set<std::string> names;
    ResultSet rs = Read(pragma);
    for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext()) names.insert(rs.Field("name").Text());
    return names;
  }
  std::string SilentLog() const { return ReadBytes(dir / "_silent.log"); }

  void InsertFile(const std::string& folder, const std::string& name, FindData fd = {}) {
    std::string f = folder;
    InsertFileRow(ctx, f, name, fd);
  }
};

// --- Making and repairing --------------------------------------------------------------------

TEST_F(JobDatabaseTest, CreatedAndRepairedDatabasesDifferAsDesigned) {
  CreateJobDatabase(ctx, db);
  EXPECT_FALSE(ctx.db) << "the connection is dropped";
  std::set<std::string> created = Names("PRAGMA table_info(tFiles)");
  EXPECT_EQ(created.size(), 33u);
  EXPECT_TRUE(created.count("folder"));
  EXPECT_EQ(Names("PRAGMA table_info(tFolders)").size(), 13u);
  EXPECT_EQ(Names("PRAGMA table_info(tHashes)"),
            (std::set<std::string>{"hash_id", "hash", "path"}));
  EXPECT_EQ(Names("PRAGMA index_list(tFolders)"),
            (std::set<std::string>{"iFolderPaths", "iFolderSources"}));
  EXPECT_EQ(Names("PRAGMA index_list(tHashes)"), std::set<std::string>{"iHashes"});
  EXPECT_TRUE(Names("PRAGMA index_list(tFiles)").empty()) << "no iCompleted when created";

  // An empty file is a database without tables: validation fills it, differently.
  fs::remove(db);
  dir.WriteFile("_job.sdb", "");
  EXPECT_TRUE(ValidateJobDatabase(ctx, db));
  EXPECT_FALSE(ctx.db);
  std::set<std::string> repaired = Names("PRAGMA table_info(tFiles)");
  created.erase("folder");
  EXPECT_EQ(repaired, created);
  EXPECT_EQ(Names("PRAGMA index_list(tFiles)"), std::set<std::string>{"iCompleted"});
  EXPECT_TRUE(Names("PRAGMA table_info(tFolders)").empty()) << "no tFolders when repaired";
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(JobDatabaseTest, ValidationLeavesAGoodDatabaseAloneAndNeverEmptiesADamagedOne) {
  CreateJobDatabase(ctx, db);
  for (int i = 0; i < 400; ++i) InsertFile(dir.path(), "kept" + std::to_string(i) + ".txt");
  FlushQueryBuffer(ctx);
  DropConnection(ctx);
  EXPECT_TRUE(ValidateJobDatabase(ctx, db)) << "an empty tHashes is still a tHashes";
  EXPECT_EQ(Count("tFiles"), 400);
  EXPECT_TRUE(Names("PRAGMA index_list(tFiles)").empty());
  EXPECT_TRUE(dialogs.shown.empty());
  const std::string good = ReadBytes(db);
  ASSERT_GT(good.size(), 32768u);

  // A job's database is its only record: whatever is wrong with it, the box says so and the
  // bytes stay as they were.
  std::string noise(100000, '\0');
  for (size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<char>((i * 7919 + 13) % 251);
  const struct {
    const char* name;
    std::string bytes;
  } damaged[] = {
      {"text", "not a database, just text that happens to carry this name....."},
      {"random bytes", noise},
      {"cut to 16 KiB", good.substr(0, 16384)},
      {"a page overwritten", good.substr(0, 8192) + std::string(4096, 'x') + good.substr(12288)},
  };
  for (const auto& d : damaged) {
    SCOPED_TRACE(d.name);
    dialogs.shown.clear();
    dir.WriteFile("_job.sdb", d.bytes);
    EXPECT_FALSE(ValidateJobDatabase(ctx, db));
    ASSERT_EQ(dialogs.shown.size(), 1u);
    EXPECT_TRUE(dialogs.shown[0].text.starts_with("DB Validation Error: \r\n"))
        << dialogs.shown[0].text;
    EXPECT_EQ(ReadBytes(db), d.bytes);
    ctx.db.reset();
  }
}

TEST_F(JobDatabaseTest, FailuresToMakeOrRepairShowTheirBoxes) {
  CreateJobDatabase(ctx, dir / "missing/_job.sdb");
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].title, ctx.program.titleText);

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
}

// --- Rows ------------------------------------------------------------------------------------
// (A whole run's rows, column by column, are checked in the enumeration tests.)

TEST_F(JobDatabaseTest, RowsKeepQuotedPathsByteForByte) {
  CreateJobDatabase(ctx, db);
  ctx.settings.TargetPath = dir / "targ'et";
  std::string folder = dir.path() + "/l'été 'quoted'";
  const std::string name = "O'Brien's naïve café.tar.gz";
  InsertFileRow(ctx, folder, name, FindData{});
  EXPECT_EQ(folder, dir.path() + "/l'été 'quoted'/") << "the folder gains its separator";
  FindData fd;
  fd.lastWriteTime = 0x0123456789ABCDEF;
  InsertFolderRow(ctx, folder, fd);
  FlushQueryBuffer(ctx);

  ResultSet rs = Read("Select * from tFiles");
  ASSERT_EQ(rs.RowCount(), 1);
  EXPECT_EQ(rs.Field("source_path").Text(), folder + name);
  EXPECT_EQ(rs.Field("dest_path").Text(), dir / "targ'et/" + name);
  EXPECT_EQ(rs.Field("extension").Text(), "gz");
  EXPECT_TRUE(rs.Field("date_copied").IsNull());
  rs = Read("Select * from tFolders");
  ASSERT_EQ(rs.RowCount(), 1);
  EXPECT_EQ(rs.Field("source").Text(), folder);
  EXPECT_EQ(rs.Field("dest_path").Text(), dir / "targ'et/");
  EXPECT_EQ(FromHalves(rs.Field("mod_low").Int32(), rs.Field("mod_high").Int32()),
            fd.lastWriteTime);
  EXPECT_TRUE(rs.Field("path").IsNull());
}

TEST_F(JobDatabaseTest, ExtensionIsTheTextBehindTheLastDot) {
  CreateJobDatabase(ctx, db);
  for (const char* name : {"README", "archive.", ".profile", "a.b.c"}) InsertFile(dir.path(), name);
  FlushQueryBuffer(ctx);
  ResultSet rs = Read("Select extension from tFiles order by file_key");
  std::vector<std::string> got;
  for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext()) got.push_back(rs.Field("extension").Text());
  EXPECT_EQ(got, (std::vector<std::string>{"README", "", "profile", "c"}));
}

// Each time is kept as two signed 32-bit halves; read back through the columns, every bit returns.
TEST_F(JobDatabaseTest, TimeHalvesKeepEveryBit) {
  CreateJobDatabase(ctx, db);
  FindData fd;
  fd.creationTime = 0x01DB2F3CF0000001;  // low half has its top bit set
  fd.lastWriteTime = 0xFFFFFFFF80000000;
  fd.lastAccessTime = 0x000000007FFFFFFF;
  InsertFile(dir.path(), "t.bin", fd);
  FlushQueryBuffer(ctx);

  ResultSet rs = Read("Select * from tFiles");
  ASSERT_EQ(rs.RowCount(), 1);
  EXPECT_EQ(rs.Field("source_created_low").Text(), "-268435455");
  EXPECT_EQ(rs.Field("source_mod_high").Text(), "-1");
  auto back = [&](const char* low, const char* high) {
    return FromHalves(rs.Field(low).Int32(), rs.Field(high).Int32());
  };
  EXPECT_EQ(back("source_created_low", "source_created_high"), fd.creationTime);
  EXPECT_EQ(back("source_mod_low", "source_mod_high"), fd.lastWriteTime);
  EXPECT_EQ(back("source_access_low", "source_access_high"), fd.lastAccessTime);
}

TEST_F(JobDatabaseTest, SizesAreDoublesWithFifteenDigits) {
  EXPECT_EQ(SizeText(0, 0), "0");
  EXPECT_EQ(SizeText(1, 0), "4294967296");
  EXPECT_EQ(SizeText(0, 0xFFFFFFFF), "4294967295") << "each half is unsigned";
  EXPECT_EQ(SizeText(232830, 2764472319), "999999999999999");
  EXPECT_EQ(SizeText(232830, 2764472320), "1e+15");
  EXPECT_EQ(SizeText(0xFFFFFFFF, 0xFFFFFFFF), "1.84467440737096e+19");

  CreateJobDatabase(ctx, db);
  FindData big;
  big.sizeHigh = 1;
  InsertFile(dir.path(), "big", big);
  FindData huge;
  huge.sizeHigh = 232830;
  huge.sizeLow = 2764472320;
  InsertFile(dir.path(), "huge", huge);
  FlushQueryBuffer(ctx);
  ResultSet rs = Read("Select source_size || typeof(source_size) from tFiles order by file_key");
  EXPECT_EQ(rs.Value(0, 0).Text(), "4294967296text");
  EXPECT_EQ(rs.Value(1, 0).Text(), "1e+15text");
  // The resume totals add these texts up through SQLite's own conversion.
  EXPECT_DOUBLE_EQ(Read("Select sum(source_size) as s from tFiles").Field("s").Number(),
                   1e15 + 4294967296.0);
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
  InsertFile(dir.path(), "a");
  ctx.settings.TargetPath = rootOf(255, "x");
  InsertFile(dir.path(), "b");
  ctx.settings.TargetPath = rootOf(254, "é");  // 255 characters, far more bytes
  InsertFile(dir.path(), "c");
  FlushQueryBuffer(ctx);
  ResultSet rs = Read("Select long_path from tFiles order by file_key");
  ASSERT_EQ(rs.RowCount(), 3);
  EXPECT_EQ(rs.Value(0, 0).Text() + rs.Value(1, 0).Text() + rs.Value(2, 0).Text(), "010");
}

// --- The buffer and its transactions ----------------------------------------------------------

TEST_F(JobDatabaseTest, TheTenThousandthInsertCommitsTheBatch) {
  CreateJobDatabase(ctx, db);
  for (int i = 1; i < 10000; ++i) InsertFile(dir.path(), "f" + std::to_string(i));
  EXPECT_EQ(ctx.queryBuffer.statements.size(), 9999u);
  EXPECT_EQ(Count("tFiles"), 0) << "nothing is visible before the batch is committed";

  InsertFile(dir.path(), "f10000");
  EXPECT_TRUE(ctx.queryBuffer.statements.empty());
  EXPECT_EQ(Count("tFiles"), 10000);
  EXPECT_EQ(SilentLog(), "");
}

TEST_F(JobDatabaseTest, AnEmptyFlushSendsNothingAndTheFirstRowMakesTheConnection) {
  CreateJobDatabase(ctx, db);
  FlushQueryBuffer(ctx);
  EXPECT_FALSE(ctx.db) << "not even a connection is made";
  InsertFile(dir.path(), "single.txt");
  FlushQueryBuffer(ctx);
  EXPECT_TRUE(ctx.db && ctx.db->IsOpen());
  EXPECT_EQ(Count("tFiles"), 1);

  // With a transaction already open, a "BEGIN" would fail and be logged.
  ctx.db->Execute("BEGIN");
  FlushQueryBuffer(ctx);
  EXPECT_FALSE(fs::exists(dir / "_silent.log"));
}

TEST_F(JobDatabaseTest, FailedFlushesAreLoggedAndKeepTheirStatements) {
  // No database where the run expects it: the recovered connection can't open.
  InsertFile(dir.path(), "lost.txt");
  FlushQueryBuffer(ctx);
  EXPECT_EQ(SilentLog(),
            "Error while flushing query buffer.\r\n14: unable to open database file\r\n"
            "Stage: Beginning transaction\r\n" +
                kBufferDashes + "\r\n");
  EXPECT_EQ(ctx.queryBuffer.statements.size(), 1u);

  // With the silent log out of reach the failure passes to the caller.
  ctx.paths.ErrorLogPath = dir / "gone/_errors.log";
  EXPECT_THROW(FlushQueryBuffer(ctx), RunError);
}

TEST_F(JobDatabaseTest, AStatementThatFailsIsDroppedAloneAndNamed) {
  // A repaired database has no tFolders: the folder row fails, the file rows around it stay.
  dir.WriteFile("_job.sdb", "");
  ValidateJobDatabase(ctx, db);
  InsertFile(dir.path(), "a.txt");
  InsertFolderRow(ctx, dir.path() + "/", FindData{});
  InsertFile(dir.path(), "b.txt");
  FlushQueryBuffer(ctx);
  const std::string log = SilentLog();
  EXPECT_TRUE(log.starts_with("Error while flushing query buffer.\r\n1: no such table: tFolders\r\n"
                              "Insert into tFolders("))
      << log;
  EXPECT_TRUE(log.ends_with("Stage: Looping through buffered queries\r\n" + kBufferDashes + "\r\n"))
      << log;
  EXPECT_TRUE(ctx.queryBuffer.statements.empty());
  EXPECT_EQ(Count("tFiles"), 2) << "later rows are not taken with it";

  // A statement that can't even be read (a NUL cuts its text) is dropped the same way.
  InsertFile(dir.path(), std::string("c\0d.txt", 7));
  InsertFile(dir.path(), "e.txt");
  FlushQueryBuffer(ctx);
  EXPECT_EQ(Count("tFiles"), 3);
  EXPECT_TRUE(ctx.queryBuffer.statements.empty());
}

}  // namespace
}  // namespace qr
