#include "exec/report.h"

#include <gtest/gtest.h>

#include "support/run_fixture.h"

namespace qr {
namespace {

using std::chrono::seconds;

// The runner's whole runs show the report as it usually stands; here the numbers past 32 bits,
// the hash exclusions and the line that only timestamp mismatches add.
TEST(ReportText, CompletedAndCancelledDifferInTheFirstLineOnly) {
  RunCounters c;
  c.TotalFiles = 12;
  c.FilesProcessed = 12;
  c.HashExcludedFiles = 2;
  c.TotalBytes = 5000000000;
  c.BytesProcessed = 4000000040;
  c.HashExcludedBytes = 40;
  c.ErrorCount = 2;
  c.EndTime = c.StartTime + seconds(75);
  const std::string counts =
      "\r\n\r\nFiles copied: 10 of 12\r\nBytes copied: 4000000000 of 5000000000\r\nErrors: 2"
      "\r\n\r\nTime Elapsed: 00:00:01:15\r\n";
  EXPECT_EQ(BuildReportText(c, false), "The process has completed successfully." + counts);
  c.TimestampMismatches = 3;
  EXPECT_EQ(BuildReportText(c, true),
            "The process has been canceled." + counts +
                "\r\nTimestamps on 3 files could not be matched exactly.\r\nSee log for "
                "details.\r\n");
}

class FinishRunReportTest : public ::testing::Test, protected test::RunFixture {};

TEST_F(FinishRunReportTest, ErrorInstructionsFollowAReportWithErrorsUnlessBlankOrSilent) {
  ctx.counters.ErrorCount = 1;
  for (const char* instructions : {"Call Ann.", "   "}) {
    ctx.job.ErrorInstructions = instructions;
    FinishRunReport(ctx);
  }
  ASSERT_EQ(dialogs.shown.size(), 3u);
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Information);
  EXPECT_EQ(dialogs.shown[1].text,
            "Errors occurred during this job.\r\nThe error instructions for this job are:\r\n\r\n"
            "Call Ann.");
  ctx.job.ErrorInstructions = "Call Ann.";
  ctx.program.flags.silent = true;
  FinishRunReport(ctx);
  EXPECT_EQ(dialogs.shown.size(), 3u);
}

TEST_F(FinishRunReportTest, TallyIsTheReportAndReplacesAnEarlierOne) {
  ctx.settings.CreateTally = true;
  dir.WriteFile("tally.txt", std::string(5000, 'x'));
  FinishRunReport(ctx);
  EXPECT_EQ(test::ReadBytes(dir / "tally.txt"), BuildReportText(ctx.counters, false) + "\r\n");
}

}  // namespace
}  // namespace qr
