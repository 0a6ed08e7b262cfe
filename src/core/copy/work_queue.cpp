#include "copy/work_queue.h"

#include <limits>
#include <optional>

#include "copy/file_pipeline.h"
#include "copy/target_paths.h"
#include "jobdb/db_connection.h"
#include "jobdb/job_database.h"
#include "platform/errors.h"
#include "platform/file_times.h"
#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "run/job_connection.h"
#include "run/run_context.h"

namespace qr {

namespace {

constexpr int32_t kBatchSize = 1000;

// The row counter is a signed 32-bit number; a sum past its range is an overflow.
int32_t AddRows(int32_t counter, int rows) {
  int64_t sum = int64_t{counter} + rows;
  if (sum > std::numeric_limits<int32_t>::max()) throw RunError(6, "Overflow");
  return static_cast<int32_t>(sum);
}

// Every field of the row is read in its order, each under its own stage, although the
// pipeline takes only four of them: a failure in any is reported under that stage.
// The key of the row is left in `key` as soon as it is read.
void ProcessRow(RunContext& ctx, const ResultSet& rs, std::string& stage, int64_t& key) {
  stage = "Storing file key";
  key = rs.Field("file_key").Int64();
  stage = "Storing Extension";
  rs.Field("extension").Text();
  stage = "Storing suspect value";
  [[maybe_unused]] bool suspect = Trim(rs.Field("suspect").Text()) == "1";
  stage = "Storing Expected Value";
  [[maybe_unused]] bool expected = Trim(rs.Field("expected").Text()) == "1";
  stage = "Storing source path";
  std::string sourcePath = rs.Field("source_path").Text();
  stage = "Storing low-order creation date";
  rs.Field("source_created_low").Int32();
  stage = "Storing high-order creation date";
  rs.Field("source_created_high").Int32();
  stage = "Storing low-order mod date";
  rs.Field("source_mod_low").Int32();
  stage = "Storing high-order mod date";
  rs.Field("source_mod_high").Int32();
  stage = "Storing low-order access date";
  rs.Field("source_access_low").Int32();
  stage = "Storing high-order access date";
  rs.Field("source_access_high").Int32();
  stage = "Storing source size";
  int64_t size = static_cast<int64_t>(rs.Field("source_size").Number());
  stage = "Storing source hash";
  rs.Field("source_hash").Text();
  stage = "Storing destination path";
  std::string destPath = rs.Field("dest_path").Text();
  stage = "Processing file";
  ProcessFileRow(ctx, sourcePath, destPath, size, key);
  ctx.file.rowMayBeHalfCopied = false;
  // Finished whatever became of the copy, and committed before the next file starts, so the
  // database is the record of progress and a killed run loses at most the row in hand.
  stage = "Updating completed flag";
  Connection(ctx).ExecuteWith("UPDATE tFiles set completed = '1' where file_key = ?",
                              {IntText(key)});
}

void FilePass(RunContext& ctx, std::string& stage) {
  int32_t rowCounter = 1;
  // Every row up to the last key handed on is finished (or, its key no number, can never be),
  // so a later batch starts after it: the same rows in the same order, found through the key
  // instead of by reading every finished row again.
  std::optional<int64_t> lastKey;
  while (rowCounter >= 1) {
    stage = "Setting Query";
    const std::string sql =
        lastKey ? "Select * from tFiles where completed = '0' and file_key > '" +
                      IntText(*lastKey) + "' order by file_key asc limit " + IntText(kBatchSize)
                : "Select * from tFiles where completed = '0' order by file_key asc limit " +
                      IntText(kBatchSize);
    stage = "Querying Database";
    ResultSet rs = Connection(ctx).Query(sql);
    stage = "Checking Result Count";
    rowCounter = AddRows(rowCounter, rs.RowCount());
    if (rs.RowCount() < 1) return;
    stage = "Moving to first row in result set";
    rs.MoveFirst();
    while (true) {
      stage = "Checking for end of result set or cancel press";
      if (rs.Eof() || ctx.counters.CancelRequested) break;
      // A row whose key is no number is passed over and stays unfinished.
      if (rs.Field("file_key").IsNumeric()) {
        int64_t key = 0;
        ProcessRow(ctx, rs, stage, key);
        lastKey = key;
      }
      stage = "Moving to next record in result set.";
      rs.MoveNext();
    }
    // A cancel ends the queue after the row in hand, rather than querying on until the row
    // counter overflows.
    if (ctx.counters.CancelRequested) return;
  }
}

// Folders are stamped after every file, deepest key first, so their stamps are the last thing
// to touch a target folder.
void FolderPass(RunContext& ctx, std::string& stage) {
  int32_t rowCounter = 1;
  while (!ctx.counters.CancelRequested && rowCounter >= 1) {
    const bool copyEmpties = ctx.settings.CopyEmpties;
    stage = "Setting Folder Query";
    const std::string sql =
        "Select * from tFolders where completed = '0' order by folder_key desc limit " +
        IntText(kBatchSize);
    stage = "Querying Database for Folders";
    ResultSet rs = Connection(ctx).Query(sql);
    stage = "Checking Folder Result Count";
    rowCounter = rs.RowCount();
    if (rowCounter < 1) continue;
    stage = "Moving to first row in folder result set";
    rs.MoveFirst();
    while (true) {
      stage = "Checking for end of folder result set or cancel press";
      if (rs.Eof() || ctx.counters.CancelRequested) break;
      if (rs.Field("folder_key").IsNumeric()) {
        stage = "Setting folder key";
        const int64_t key = rs.Field("folder_key").Int64();
        stage = "Setting destination path";
        const std::string dest = rs.Field("dest_path").Text();
        stage = "Setting source path";
        const std::string source = rs.Field("source").Text();
        if (copyEmpties && !FileOrDirExists("", dest)) CreateTargetDirs(ctx, dest, source);
        if (FileOrDirExists("", dest) && FileOrDirExists("", source)) {
          FileTimes times;
          GetFileTimes(ctx, source, times);
          SetFileTimes(ctx, dest, times);
        }
        stage = "Updating completed flag";
        Connection(ctx).Execute("UPDATE tFolders set completed = '1' where folder_key = '" +
                                IntText(key) + "'");
      }
      stage = "Moving to next record in result set.";
      rs.MoveNext();
    }
  }
}

}  // namespace

void ProcessJobQueue(RunContext& ctx) {
  std::string stage;
  try {
    FilePass(ctx, stage);
    FolderPass(ctx, stage);
    stage = "Destructing result set";
  } catch (const RunError& e) {
    // Rows not reached stay unfinished for a resume. No box from here.
    ctx.WriteSilentLog("File Data Error: \r\n" + IntText(e.number()) + ": " + e.description() +
                       "\r\nStage: " + stage);
  }
}

void CopyFileListSource(RunContext& ctx, const std::string& /*entry*/) {
  OpenConnection(ctx);
  ProcessJobQueue(ctx);
  DropConnection(ctx);
}

void CopyFolderSource(RunContext& ctx, const std::string& sourceFolder) {
  std::string stage;
  try {
    const std::string folder = WithTrailingSep(sourceFolder);
    stage = "Initializing hash file array";
    stage = "Defining home path";
    OpenConnection(ctx);
    stage = "Establishing Source Folder TS Collection";
    FileTimes times;
    GetFileTimes(ctx, WithoutTrailingSep(folder), times);
    // The target root of this source exists even if no file lands there.
    stage = "Create Target Directories";
    if (ctx.settings.CopyEmpties) CreateTargetDirs(ctx, GetTargetFolder(ctx, folder), "");
    stage = "Initialize FT Object";
    stage = "Begin recursive processing";
    ProcessJobQueue(ctx);
    stage = "Destroying FT Object";
    stage = "Setting next source folder as current";
    stage = "Set Target Folder Time";
    SetFileTimes(ctx, WithoutTrailingSep(GetTargetFolder(ctx, folder)), times);
    DropConnection(ctx);
  } catch (const RunError& e) {
    if (!ctx.settings.Silent) {
      ctx.ShowMessage("Process Folder Error:\r\n" + IntText(e.number()) + " : " + e.description() +
                          "\r\n" + stage,
                      Icon::Exclamation);
    }
    ctx.WriteSilentLog("Process Folder Error (" + IntText(e.number()) + "): " + e.description() +
                       " : " + stage);
  }
}

}  // namespace qr
