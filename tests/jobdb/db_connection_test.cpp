#include "jobdb/db_connection.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>

#include "platform/errors.h"
#include "platform/text.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

// The number and description a statement's failure carries, as "number description".
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

TEST_F(DbConnectionTest, OpenTellsDatabasesFromOtherFiles) {
  DbConnection db;
  EXPECT_FALSE(db.Open(path));
  EXPECT_FALSE(std::filesystem::exists(path)) << "Open makes no file";
  dir.WriteFile("_job.sdb", "this is a text file, long enough to hold a header of a database....");
  EXPECT_FALSE(db.Open(path) || db.IsOpen());
  dir.WriteFile("_job.sdb", "");  // an empty file is an empty database
  EXPECT_TRUE(db.Open(path) && db.IsOpen());
}

TEST_F(DbConnectionTest, AReaderSeesTheCommittedRowsDuringAWritersTransaction) {
  DbConnection writer;
  ASSERT_TRUE(writer.Create(path));
  writer.Execute("Create Table t(v text)");
  writer.Execute("Insert into t(v) values('committed')");
  EXPECT_EQ(writer.Query("PRAGMA journal_mode").Value(0, 0).Text(), "wal");
  writer.Execute("BEGIN");
  writer.Execute("Insert into t(v) values('pending')");
  DbConnection reader;
  ASSERT_TRUE(reader.Open(path));
  EXPECT_EQ(reader.Query("Select count(*) as n from t").Field("n").Int64(), 1);
  writer.Execute("COMMIT");
  EXPECT_EQ(reader.Query("Select count(*) as n from t").Field("n").Int64(), 2);
}

// Another process writing the job database (a second run over the same log folder, a tool)
// holds its lock for a moment: a statement waits for it rather than failing the run's record.
TEST_F(DbConnectionTest, AWriteWaitsForAnotherConnectionsLock) {
  DbConnection other, run;
  ASSERT_TRUE(other.Create(path));
  other.Execute("Create Table t(v text)");
  other.Execute("BEGIN IMMEDIATE");
  ASSERT_TRUE(run.Open(path));
  std::thread release([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    other.Execute("COMMIT");
  });
  EXPECT_NO_THROW(run.Execute("Insert into t(v) values('waited')"));
  release.join();
  EXPECT_EQ(run.Query("Select count(*) as n from t").Field("n").Int64(), 1);
}

TEST_F(DbConnectionTest, FailuresCarrySqliteNumberAndMessage) {
  DbConnection db;
  ASSERT_TRUE(db.Create(path));
  EXPECT_EQ(FailureOf([&] { db.Execute("Insert into nowhere values(1)"); }) + "|" +
                FailureOf([&] { db.Query("Select * from nowhere"); }),
            "1 no such table: nowhere|1 no such table: nowhere");
  // A statement on a connection whose open failed says why the file did not open.
  DbConnection lost;
  EXPECT_FALSE(lost.Create(dir / "no-such-folder/_job.sdb"));
  EXPECT_EQ(FailureOf([&] { lost.Execute("BEGIN"); }), "14 unable to open database file");
  EXPECT_EQ(lost.LastSystemError(), ENOENT);
}

TEST_F(DbConnectionTest, ResultSetsReadByNameAndByPosition) {
  DbConnection db;
  ASSERT_TRUE(db.Create(path));
  db.Execute("Create Table t(k INTEGER PRIMARY KEY, r real, s text, n text)");
  db.Execute("Insert into t(r, s, n) values(2.5, 'x''y', NULL)");
  db.Execute("Insert into t(r, s, n) values(4294967296.0, 'é', 'z')");

  ResultSet rs = db.Query("Select k, r, s, n from t order by k");
  EXPECT_EQ(rs.ColumnCount(), 4);
  std::vector<std::string> seen;
  for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext()) {
    seen.push_back(rs.Field("K").Text() + "|" + rs.Field("r").Text() + "|" + rs.Field("S").Text() +
                   "|" + rs.Field("n").Text());
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"1|2.5|x'y|", "2|4294967296|é|z"}));
  EXPECT_EQ(rs.FieldCount(), 0) << "past the last row";
  EXPECT_TRUE(rs.Value(0, 3).IsNull());
  EXPECT_EQ(FailureOf([&] { rs.Value(2, 0); }), "9 Subscript out of range");
  rs.MoveFirst();
  EXPECT_THROW(rs.Field("missing"), RunError);

  ResultSet none = db.Query("Select * from t where k = 99");
  EXPECT_TRUE(none.RowCount() == 0 && none.Eof() && none.FieldCount() == 0);
  EXPECT_EQ(none.ColumnCount(), 4) << "the columns are known without rows";
}

TEST(DbValueTest, ConvertsNumbersAndTextsAsTheColumnsNeed) {
  EXPECT_EQ(DbValue(std::string("-2147483648")).Int32(), INT32_MIN);
  EXPECT_EQ(DbValue(int64_t{2147483647}).Int32(), INT32_MAX);
  EXPECT_EQ(DbValue(std::string(" 12 ")).Int32(), 12);
  EXPECT_EQ(DbValue().Int32(), 0);
  EXPECT_DOUBLE_EQ(DbValue(std::string("1e+15")).Number(), 1e15);
  EXPECT_EQ(DbValue(std::string("9223372036854775807")).Int64(), INT64_MAX) << "keys keep every digit";
  EXPECT_EQ(DbValue(8589934592.0).Int64(), 8589934592);
  EXPECT_TRUE(DbValue(std::string("-3.5")).IsNumeric());
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
