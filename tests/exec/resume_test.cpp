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
  void SetUp() override { CreateJobDatabase(ctx, ctx.paths.DatabasePath); }
};

TEST_F(ResumeTest, CountsComeFromTheDatabaseAndTheErrorLog) {
  ctx.counters.ErrorCount = 5;
  SetResumeCounts(ctx);
  EXPECT_EQ(ctx.counters.TotalBytes, 0) << "a sum over no rows ends at 0";
  EXPECT_EQ(ctx.counters.ErrorCount, 0) << "no error log, no errors";

  DbConnection db;
  ASSERT_TRUE(db.Open(ctx.paths.DatabasePath));
  db.Execute("Insert into tFiles(source_path, source_size, completed) values('/s', '100', '1'), "
             "('/s', '4294967296', '1'), ('/s', '7', '0')");
  CreateUnicodeFile(ctx.paths.ErrorLogPath);
  std::string seven;
  for (int i = 0; i < 7; ++i) seven += "/s/f" + std::to_string(i) + "\t(Unable to hash source) \r\n";
  AppendUnicodeText(ctx.paths.ErrorLogPath, seven, false);
  SetResumeCounts(ctx);
  const RunCounters& c = ctx.counters;
  EXPECT_EQ((std::vector<int64_t>{c.TotalFiles, c.FilesProcessed, c.TotalBytes, c.BytesProcessed,
                                  c.ResumeBaseBytes, c.HashExcludedFiles, c.ErrorCount}),
            (std::vector<int64_t>{3, 2, 4294967403, 4294967396, 4294967396, 0, 7}));
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(ResumeTest, OnlyAJobRecordIsOfferedToContinue) {
  std::string record = dir.WriteFile("_jobfile.rvj", "[TARGET]\t" + dir / "t" + "\r\n");
  dialogs.answers = {Answer::No, Answer::Cancel};
  EXPECT_FALSE(ResumeJob(ctx, record).has_value());
  // A prepared job with a name never asks: it is offered as a new run.
  std::string prepared = dir.WriteFile("job.lsw", "[JNAME]\tNightly\r\n[JINSTRUCT]\tPlug in.\r\n");
  EXPECT_FALSE(ResumeJob(ctx, prepared).has_value());
  ASSERT_EQ(dialogs.shown.size(), 2u);
  EXPECT_EQ(dialogs.shown[0].text, "Do you wish to continue this job from where you left off?");
  EXPECT_EQ(dialogs.shown[0].title, "Quillon Ravelin 2.2 Rover Edition: Resume Copy Job");
  EXPECT_EQ(dialogs.shown[1].text,
            "Running job: Nightly\r\n\r\nPlug in.\r\n\r\nIn case of errors:\r\n\r\nDo you want to "
            "run this job now?");
  EXPECT_FALSE(ctx.Resuming);
}

}  // namespace
}  // namespace qr
