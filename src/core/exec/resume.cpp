#include "exec/resume.h"

#include "jobdb/db_connection.h"
#include "jobdef/job_file.h"
#include "platform/errors.h"
#include "platform/plain_text.h"
#include "platform/text.h"
#include "platform/unicode_text.h"
#include "run/run_context.h"

namespace qr {

namespace {

// One count or sum on a connection of its own; a sum over no rows is NULL and counts as 0.
double QueryNumber(RunContext& ctx, const std::string& sql, const std::string& column) {
  DbConnection db;
  db.Open(ctx.paths.DatabasePath);
  ResultSet rs = db.Query(sql);
  if (rs.RowCount() <= 0) return 0;
  rs.MoveFirst();
  return rs.Field(column).Number();
}

// The lines of the error log, whichever encoding it has.
int32_t ErrorLogLines(const std::string& path) {
  int err = 0;
  std::optional<std::string> bytes = ReadWholeFile(path, &err);
  if (!bytes) throw SystemError(err);
  if (IsUnicodeFile(path)) {
    std::u16string text(reinterpret_cast<const char16_t*>(bytes->data() + 2),
                        (bytes->size() - 2) / 2);
    return static_cast<int32_t>(SplitLines(Utf16ToUtf8(text)).size());
  }
  return static_cast<int32_t>(SplitLines(*bytes).size());
}

}  // namespace

void SetResumeCounts(RunContext& ctx) {
  RunCounters& c = ctx.counters;
  try {
    c.TotalFiles = 0;
    c.TotalFiles = static_cast<int32_t>(
        QueryNumber(ctx, "Select count(*) as lTotal from tFiles", "lTotal"));
    c.FilesProcessed = 0;
    c.FilesProcessed = static_cast<int32_t>(QueryNumber(
        ctx, "Select count(*) as lDone from tFiles where completed = '1'", "lDone"));
    c.TotalBytes = 0;
    c.TotalBytes = static_cast<int64_t>(
        QueryNumber(ctx, "Select sum(source_size) as tSize from tFiles", "tSize"));
    c.BytesProcessed = 0;
    c.BytesProcessed = static_cast<int64_t>(QueryNumber(
        ctx, "Select sum(source_size) as dSize from tFiles where completed = '1'", "dSize"));
    c.ResumeBaseBytes = c.BytesProcessed;
    c.HashExcludedFiles = 0;
    c.HashExcludedFiles = static_cast<int32_t>(QueryNumber(
        ctx, "Select count(*) as exCount from tFiles where excluded = '1'", "exCount"));
    c.HashExcludedBytes = 0;
    c.HashExcludedBytes = static_cast<int64_t>(QueryNumber(
        ctx, "Select sum(source_size) as dSize from tFiles where excluded = '1'", "dSize"));
    c.ErrorCount = 0;
    c.ErrorCount = ErrorLogLines(ctx.paths.ErrorLogPath);
  } catch (const RunError& e) {
    // A job with no error log yet has no errors.
    if (e.number() == ENOENT) {
      c.ErrorCount = 0;
      return;
    }
    ctx.ShowMessage("Resume Count Set Error\r\n" + IntText(e.number()) + ": " + e.description(),
                Icon::None);
  }
}

std::optional<ExecResult> ResumeJob(RunContext& ctx, const std::string& jobFile) {
  ReadRVFile(ctx, jobFile);
  // A job record has no name: it is offered to continue. A prepared job is run anew.
  Answer answer = Answer::No;
  if (Trim(ctx.job.JobName).empty()) {
    answer = ctx.dialogs.MessageBox("Do you wish to continue this job from where you left off?",
                                    ctx.program.titleText + ": Resume Copy Job", Icon::Question,
                                    Buttons::YesNo);
  }
  ctx.ResumeOfferAccepted = answer == Answer::Yes;
  if (answer == Answer::Yes) {
    ctx.Resuming = true;
    return ExecCopy(ctx);
  }
  if (Trim(ctx.job.JobName).empty()) return std::nullopt;
  Answer run = ctx.Message("Running job: " + ctx.job.JobName + "\r\n\r\n" +
                               ctx.job.SpecialInstructions + "\r\n\r\nIn case of errors:" +
                               ctx.job.ErrorInstructions +
                               "\r\n\r\nDo you want to run this job now?",
                           Icon::Question, Buttons::OkCancel);
  ctx.Resuming = false;
  if (run != Answer::Ok) return std::nullopt;
  return ExecCopy(ctx);
}

std::optional<ExecResult> ResumeClick(RunContext& ctx) {
  std::string path = ctx.dialogs.OpenFile("Choose a Ravelin Job file to open",
                                          "Ravelin Job Files (*.rvj,*.lsw)|*.rvj;*.lsw", "");
  if (path.empty()) return std::nullopt;
  return ResumeJob(ctx, path);
}

}  // namespace qr
