// A whole run with copying switched off: the job database holds exactly one row per file with
// every column the walk fills.
#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

#include "exec/run_driver.h"
#include "jobdb/db_connection.h"
#include "jobdb/job_database.h"
#include "platform/find_data.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

class JobRows : public ::testing::Test, protected test::RunFixture {};

TEST_F(JobRows, ARunWithoutCopyingRecordsEveryFileAndFolderExactly) {
  std::string src = dir.MakeDir("case 1");
  const std::vector<std::string> files = {"report.DOC", "it's,odd", "sub/n\xc3\xa4me.tar.gz"};
  std::vector<std::string> expected;
  for (const auto& f : files) {
    const std::string path = dir.WriteFile("case 1/" + f, f);
    FindData e;
    ASSERT_TRUE(FindEntry(path, e));
    expected.push_back(path + "|" + dir / "target/case 1/" + f + "|0|0|" + std::to_string(f.size()) +
                       "|" + std::to_string(e.creationTime) + "|" + std::to_string(e.lastWriteTime) +
                       "|" + std::to_string(e.lastAccessTime));
  }
  dir.MakeDir("case 1/empty");
  ctx.settings.CopyFiles = false;
  ctx.settings.Sources = {src};
  ctx.settings.TargetPath = dir / "target";
  ctx.settings.LogPath = dir / "logs";

  ASSERT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Completed);
  EXPECT_FALSE(std::filesystem::exists(dir / "target/case 1")) << "nothing is copied or created below";

  DbConnection db;
  ASSERT_TRUE(db.Open(dir / "logs/_job.sdb"));
  ResultSet rs = db.Query("Select * from tFiles order by file_key asc");
  std::vector<std::string> rows;
  auto time = [&](const std::string& name) {
    return std::to_string(FromHalves(rs.Field(name + "_low").Int32(), rs.Field(name + "_high").Int32()));
  };
  for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext()) {
    rows.push_back(rs.Field("source_path").Text() + "|" + rs.Field("dest_path").Text() + "|" +
                   rs.Field("long_path").Text() + "|" + rs.Field("completed").Text() + "|" +
                   rs.Field("source_size").Text() + "|" + time("source_created") + "|" +
                   time("source_mod") + "|" + time("source_access"));
  }
  std::sort(rows.begin(), rows.end());  // the walk's order within a folder is the listing's
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(rows, expected);
  // The root folder first, then the folders as the walk met them.
  ResultSet folders = db.Query("Select source || '|' || dest_path || '|' || completed from tFolders order by folder_key");
  ASSERT_EQ(folders.RowCount(), 3);
  EXPECT_EQ(folders.Value(0, 0).Text(), src + "/|" + dir / "target/case 1/|0");
}

}  // namespace
}  // namespace qr
