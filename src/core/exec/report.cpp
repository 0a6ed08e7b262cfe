#include "exec/report.h"

#include <cstdio>
#include <vector>

#include "copy/native_transfer.h"
#include "jobdb/db_connection.h"
#include "platform/errors.h"
#include "platform/machine.h"
#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/plain_text.h"
#include "platform/text.h"

namespace qr {

std::string ElapsedTime(TimePoint start, TimePoint end) {
  auto s = std::chrono::duration_cast<std::chrono::seconds>(end - start).count();
  char buf[64];
  std::snprintf(buf, sizeof buf, "%02lld:%02lld:%02lld:%02lld", static_cast<long long>(s / 86400),
                static_cast<long long>((s / 3600) % 24), static_cast<long long>((s / 60) % 60),
                static_cast<long long>(s % 60));
  return buf;
}

std::string BuildReportText(const RunCounters& c, bool cancelled) {
  std::string t = cancelled ? "The process has been canceled." : "The process has completed successfully.";
  t += "\r\n\r\n";
  t += "Files copied: " + IntText(c.FilesProcessed - c.HashExcludedFiles) + " of " +
       IntText(c.TotalFiles) + "\r\n";
  t += "Bytes copied: " + IntText(c.BytesProcessed - c.HashExcludedBytes) + " of " +
       IntText(c.TotalBytes) + "\r\n";
  t += "Errors: " + IntText(c.ErrorCount) + "\r\n\r\n";
  t += "Time Elapsed: " + ElapsedTime(c.StartTime, c.EndTime) + "\r\n";
  if (c.TimestampMismatches > 0) {
    t += "\r\nTimestamps on " + IntText(c.TimestampMismatches) +
         " files could not be matched exactly.\r\nSee log for details.\r\n";
  }
  return t;
}

namespace {

// Files of the job that no pass has finished; -1 when the database can't be read. A run that
// never made its database has told why in a box already.
int64_t UnfinishedFiles(const std::string& databasePath) {
  if (!FileExists(databasePath)) return 0;
  try {
    DbConnection db;
    if (!db.Open(databasePath)) return -1;
    ResultSet rs = db.Query("Select count(*) as n from tFiles where completed = '0'");
    if (rs.RowCount() < 1) return -1;
    rs.MoveFirst();
    return rs.Field("n").Int64();
  } catch (const RunError&) {
    return -1;
  }
}

}  // namespace

std::string WhereFailuresWereRecorded(RunContext& ctx) {
  std::vector<std::string> places;
  if (ctx.counters.ErrorCount > 0) places.push_back(ctx.paths.ErrorLogPath);
  if (ctx.failures.timestampLogWritten) places.push_back(ctx.paths.TimestampLogPath);
  if (!ctx.failures.missingEntriesLog.empty()) places.push_back(ctx.failures.missingEntriesLog);
  if (!ctx.failures.silentLogPath.empty()) places.push_back(ctx.failures.silentLogPath);
  if (ctx.failures.boxShown) places.push_back("the messages above");
  if (!ctx.paths.DatabasePath.empty()) {
    const int64_t left = UnfinishedFiles(ctx.paths.DatabasePath);
    if (left < 0) {
      places.push_back(ctx.paths.DatabasePath + " (which could not be read)");
    } else if (left > 0) {
      places.push_back(ctx.paths.DatabasePath + " (files not finished: " + IntText(left) + ")");
    }
  }
  std::string line;
  for (const std::string& place : places) line += (line.empty() ? "" : "; ") + place;
  return line;
}

void ActivityLog(RunContext& ctx, const std::string& text) {
  std::string path = WithTrailingSep(ctx.settings.CommonLogPath) + "ActivityLog.txt";
  std::string line = GeneralDate(ToLocal(Clock::now())) + "\t" + ComputerName() + "\t" + text;
  int err = 0;
  if (!AppendLine(path, line, &err)) throw SystemError(err);
}

namespace {

void WriteTally(RunContext& ctx, const std::string& report) {
  if (!ctx.settings.CreateTally) return;
  int err = 0;
  if (!WriteWholeFile(ctx.paths.TallyPath, report + "\r\n", &err)) throw SystemError(err);
}

// The completion copy of a prepared job: its presence tells the job picker the job is done.
void CopyPreparedJob(RunContext& ctx) {
  const std::string& job = ctx.job.JobFilePath;
  if (job.size() < 4 || LowerCase(job.substr(job.size() - 4)) != ".lsw") return;
  std::string target =
      WithTrailingSep(ctx.settings.LogPath) + ReplaceAll(NamePart(job), ".lsw", ".lsd");
  CopyFilePlain(ctx, job, target);
}

}  // namespace

void FinishRunReport(RunContext& ctx) {
  const RunCounters& c = ctx.counters;
  if (c.CancelRequested) {
    std::string report = BuildReportText(c, true);
    if (!ctx.program.flags.silent) ctx.Message(report, Icon::Information);
    WriteTally(ctx, report);
  } else {
    CopyPreparedJob(ctx);
    std::string report = BuildReportText(c, false);
    if (ctx.activityLogOn) {
      ActivityLog(ctx, "Processing Completed (Errors=" + IntText(c.ErrorCount) +
                           ") (FilesCopied=" + IntText(c.FilesProcessed - c.HashExcludedFiles) +
                           "/" + IntText(c.TotalFiles) +
                           ") (BytesCopied=" + IntText(c.BytesProcessed - c.HashExcludedBytes) +
                           "/" + IntText(c.TotalBytes) + ") (Target=" + ctx.settings.TargetPath +
                           ") (Logs=" + ctx.settings.LogPath + ")");
    }
    if (!ctx.program.flags.silent) ctx.Message(report, Icon::Information);
    WriteTally(ctx, report);
  }
  if (c.ErrorCount > 0 && !Trim(ctx.job.ErrorInstructions).empty() && !ctx.program.flags.silent) {
    ctx.Message("Errors occurred during this job.\r\nThe error instructions for this job are:\r\n\r\n" +
                    ctx.job.ErrorInstructions,
                Icon::None);
  }
}

}  // namespace qr
