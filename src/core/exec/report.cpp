#include "exec/report.h"

#include <cstdio>

#include "copy/native_transfer.h"
#include "platform/errors.h"
#include "platform/machine.h"
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
