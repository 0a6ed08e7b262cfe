// A whole run with copying switched off: the job database holds exactly one row per file with
// every column the walk fills.
#include <sys/stat.h>

#include <filesystem>
#include <map>

#include <gtest/gtest.h>

#include "exec/run_driver.h"
#include "jobdb/db_connection.h"
#include "jobdb/job_database.h"
#include "platform/find_data.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

namespace fs = std::filesystem;

class JobRows : public ::testing::Test, protected test::RunFixture {};

TEST_F(JobRows, ARunWithoutCopyingRecordsEveryFileAndFolderExactly) {
  std::string src = dir.MakeDir("case 1");
  dir.WriteFile("case 1/report.DOC", std::string(4096, 'r'));
  dir.WriteFile("case 1/it's,odd", "o");
  dir.WriteFile("case 1/sub/n\xc3\xa4me.tar.gz", "");
  dir.MakeDir("case 1/empty");
  ctx.settings.CopyFiles = false;
  ctx.settings.Sources = {src};
  ctx.settings.TargetPath = dir / "target";
  ctx.settings.LogPath = dir / "logs";

  std::map<std::string, FindData> before;
  for (const char* p : {"report.DOC", "it's,odd", "sub/n\xc3\xa4me.tar.gz"}) {
    ASSERT_TRUE(FindEntry(src + "/" + p, before[src + "/" + p]));
  }

  ASSERT_EQ(ExecCopy(ctx).outcome, ExecOutcome::Completed);
  EXPECT_EQ(ctx.counters.TotalFiles, 3);
  EXPECT_EQ(ctx.counters.TotalBytes, 4097);
  EXPECT_FALSE(fs::exists(dir / "target/case 1")) << "nothing is copied or created below";

  DbConnection db;
  ASSERT_TRUE(db.Open(dir / "logs/_job.sdb"));
  ResultSet rs = db.Query("Select * from tFiles order by file_key asc");
  ASSERT_EQ(rs.RowCount(), 3);
  for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext()) {
    const std::string source = rs.Field("source_path").Text();
    SCOPED_TRACE(source);
    ASSERT_EQ(before.count(source), 1u);
    const FindData& f = before[source];
    const std::string rel = source.substr(src.size() + 1);
    EXPECT_EQ(rs.Field("dest_path").Text(), dir / "target/case 1/" + rel);
    EXPECT_EQ(rs.Field("long_path").Text(), "0");
    EXPECT_EQ(rs.Field("completed").Text(), "0");
    EXPECT_EQ(rs.Field("source_size").Text(), std::to_string(f.Size()));
    EXPECT_EQ(FromHalves(rs.Field("source_created_low").Int32(),
                         rs.Field("source_created_high").Int32()),
              f.creationTime);
    EXPECT_EQ(FromHalves(rs.Field("source_mod_low").Int32(), rs.Field("source_mod_high").Int32()),
              f.lastWriteTime);
    EXPECT_EQ(FromHalves(rs.Field("source_access_low").Int32(),
                         rs.Field("source_access_high").Int32()),
              f.lastAccessTime);
  }
  // The root folder first, then the folders as the walk met them.
  ResultSet folders = db.Query("Select source, dest_path, completed from tFolders order by folder_key");
  ASSERT_EQ(folders.RowCount(), 3);
  folders.MoveFirst();
  EXPECT_EQ(folders.Field("source").Text(), src + "/");
  EXPECT_EQ(folders.Field("dest_path").Text(), dir / "target/case 1/");
  EXPECT_EQ(folders.Field("completed").Text(), "0");
}

}  // namespace
}  // namespace qr
