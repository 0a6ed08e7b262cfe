#include "exec/resume.h"

#include <gtest/gtest.h>

#include "jobdb/db_connection.h"
#include "jobdb/job_database.h"
#include "platform/unicode_text.h"
#include "run/job_connection.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

class ResumeTest : public ::testing::Test, protected test::RunFixture {
 protected:
  std::string logs = dir.MakeDir("logs");

  void SetUp() override {
    ctx.settings.LogPath = logs;
    ctx.paths = ComputeRunPaths(logs);
    CreateJobDatabase(ctx, ctx.paths.DatabasePath);
  }
  void Row(const std::string& size, bool completed) {
    DbConnection db;
    ASSERT_TRUE(db.Open(ctx.paths.DatabasePath));
    db.Execute("Insert into tFiles(source_path, source_size, completed) values('/s', '" + size +
               "', '" + (completed ? "1" : "0") + "')");
  }
};

TEST_F(ResumeTest, CountsComeFromTheDatabaseAndTheErrorLog) {
  Row("100", true);
  Row("4294967296", true);
  Row("7", false);
  CreateUnicodeFile(ctx.paths.ErrorLogPath);
  std::string seven;
  for (int i = 0; i < 7; ++i) seven += "/s/f" + std::to_string(i) + "\t(Unable to hash source) \r\n";
  AppendUnicodeText(ctx.paths.ErrorLogPath, seven, false);
  SetResumeCounts(ctx);
  EXPECT_EQ(ctx.counters.TotalFiles, 3);
  EXPECT_EQ(ctx.counters.FilesProcessed, 2);
  EXPECT_EQ(ctx.counters.TotalBytes, 4294967403);
  EXPECT_EQ(ctx.counters.BytesProcessed, 4294967396);
  EXPECT_EQ(ctx.counters.ResumeBaseBytes, 4294967396);
  EXPECT_EQ(ctx.counters.HashExcludedFiles, 0);
  EXPECT_EQ(ctx.counters.ErrorCount, 7);
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(ResumeTest, NoRowsAndNoErrorLogCountAsNothing) {
  ctx.counters.ErrorCount = 5;
  SetResumeCounts(ctx);
  EXPECT_EQ(ctx.counters.TotalFiles, 0);
  EXPECT_EQ(ctx.counters.TotalBytes, 0) << "a sum over no rows ends at 0";
  EXPECT_EQ(ctx.counters.ErrorCount, 0);
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(ResumeTest, OnlyAJobRecordIsOfferedToContinue) {
  std::string record = dir.WriteFile("logs/_jobfile.rvj", "[TARGET]\t" + dir / "t" + "\r\n");
  dialogs.answers = {Answer::No};
  EXPECT_FALSE(ResumeJob(ctx, record).has_value());
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Do you wish to continue this job from where you left off?");
  EXPECT_EQ(dialogs.shown[0].title, "Quillon Ravelin 2.2 Rover Edition: Resume Copy Job");

  // A prepared job with a name never asks: it is offered as a new run.
  dialogs.shown.clear();
  std::string prepared = dir.WriteFile("job.lsw", "[JNAME]\tNightly\r\n[JINSTRUCT]\tPlug in.\r\n");
  dialogs.answers = {Answer::Cancel};
  EXPECT_FALSE(ResumeJob(ctx, prepared).has_value());
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text,
            "Running job: Nightly\r\n\r\nPlug in.\r\n\r\nIn case of errors:\r\n\r\nDo you want to "
            "run this job now?");
  EXPECT_FALSE(ctx.Resuming);
}

}  // namespace
}  // namespace qr
