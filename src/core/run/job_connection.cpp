#include "run/job_connection.h"

#include "jobdb/db_connection.h"
#include "jobdb/job_database.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "run/run_context.h"

namespace qr {

namespace {

const char* const kBufferDashes = "-----------------------------------------------------------";

std::string BoxReport(const char* label, int number, const std::string& description,
                      int systemError) {
  return std::string(label) + "\r\n" + IntText(number) + ": " + description + "\r\n" +
         IntText(systemError) + "\r\n";
}

int LastSystemError(const RunContext& ctx, int ownError) {
  if (ownError != 0) return ownError;
  return ctx.db ? ctx.db->LastSystemError() : 0;
}

// SQLite's own number for a damaged file.
constexpr int kDatabaseCorrupt = 11;

void ReportWalkRecordFailure(RunContext& ctx, int number, const std::string& description) {
  ctx.WriteSilentLog("Walk Record Error: \r\n" + IntText(number) + ": " + description);
}

}  // namespace

DbConnection& Connection(RunContext& ctx) {
  if (!ctx.db) OpenConnection(ctx);
  return *ctx.db;
}

void OpenConnection(RunContext& ctx) {
  ctx.db = std::make_unique<DbConnection>();
  // A failed open is not reported here: the statement that follows fails and is reported.
  ctx.db->Open(ctx.paths.DatabasePath);
}

void DropConnection(RunContext& ctx) { ctx.db.reset(); }

void CreateJobDatabase(RunContext& ctx, const std::string& path) {
  WithHandler(
      [&] {
        ctx.db = std::make_unique<DbConnection>();
        // A failed creation shows in the first statement, which reports why the file did not
        // open.
        ctx.db->Create(path);
        BuildJobSchema(*ctx.db);
        DropConnection(ctx);
      },
      // The connection stays as the failure left it; later statements fail and say so.
      [&](int number, const std::string& description) {
        ctx.ShowMessage(
            BoxReport("DB Creation Error: ", number, description, LastSystemError(ctx, 0)),
            Icon::None);
      });
}

bool ValidateJobDatabase(RunContext& ctx, const std::string& path) {
  bool ranToEnd = false;
  WithHandler(
      [&] {
        ctx.db = std::make_unique<DbConnection>();
        // A job's database is the only record of its work: one that can't be opened or read is
        // reported and left exactly as it is, never emptied or made again.
        if (!ctx.db->Open(path)) ctx.db->Execute("Select * from tHashes");  // says why
        // Every page is read once, so a truncated or overwritten file shows here rather than
        // as a job with fewer rows.
        ResultSet check = ctx.db->Query("PRAGMA quick_check");
        const std::string verdict = check.RowCount() > 0 ? check.Value(0, 0).Text() : "";
        if (verdict != "ok") throw RunError(kDatabaseCorrupt, verdict);
        if (!HasHashesTable(*ctx.db)) BuildRepairedJobSchema(*ctx.db);
        DropConnection(ctx);
        ranToEnd = true;
      },
      [&](int number, const std::string& description) {
        ctx.ShowMessage(
            BoxReport("DB Validation Error: ", number, description, LastSystemError(ctx, 0)),
            Icon::None);
      });
  return ranToEnd;
}

void AddQueryToBuffer(RunContext& ctx, const std::string& sql) {
  std::string stage;
  WithHandler(
      [&] {
        auto& statements = ctx.queryBuffer.statements;
        stage = "Setting new buffer size";
        stage = "Setting buffer array to new buffer size";
        statements.emplace_back();
        stage = "Adding query to buffer";
        statements.back() = sql;
      },
      [&](int number, const std::string& description) {
        ctx.WriteSilentLog(
            SilentReport("Cannot add query to buffer.", number, description, stage, kBufferDashes));
      });
}

void FlushQueryBuffer(RunContext& ctx) {
  std::string stage;
  auto report = [&](int number, const std::string& description) {
    ctx.WriteSilentLog(SilentReport("Error while flushing query buffer.", number, description,
                                    stage, kBufferDashes));
  };
  auto& statements = ctx.queryBuffer.statements;
  if (statements.empty()) return;
  bool begun = false;
  WithHandler(
      [&] {
        stage = "Beginning transaction";
        Connection(ctx).Execute("BEGIN");
        begun = true;
      },
      report);
  // Not begun (the database is busy or gone): the rows wait for the next flush.
  if (!begun) return;
  stage = "Looping through buffered queries";
  // A statement that fails is reported and dropped alone: it never takes later rows with it.
  for (const std::string& sql : statements) {
    WithHandler([&] { Connection(ctx).Execute(sql); },
                // The statement names the file or folder whose row is lost.
                [&](int number, const std::string& description) {
                  report(number, description + "\r\n" + sql);
                });
  }
  bool committed = false;
  WithHandler(
      [&] {
        stage = "Committing transaction";
        Connection(ctx).Execute("COMMIT");
        committed = true;
      },
      report);
  if (committed) {
    statements.clear();
    return;
  }
  // Nothing of the batch is kept by the database; it stays whole for the next flush.
  WithHandler([&] { Connection(ctx).Execute("ROLLBACK"); }, [](int, const std::string&) {});
}

// Kept in the database header's user version, so the schema stays as it is.
bool WalkEnded(RunContext& ctx) {
  bool ended = false;
  WithHandler(
      [&] {
        DbConnection db;
        if (!db.Open(ctx.paths.DatabasePath)) db.Execute("PRAGMA user_version");  // says why
        ResultSet rs = db.Query("PRAGMA user_version");
        ended = rs.RowCount() > 0 && rs.Value(0, 0).Int64() == 1;
      },
      [&](int number, const std::string& description) {
        ReportWalkRecordFailure(ctx, number, description);
      });
  return ended;
}

void MarkWalkEnded(RunContext& ctx, bool ended) {
  WithHandler(
      [&] {
        // Rows still buffered belong to the walk: they are committed before it counts as ended.
        if (ended) FlushQueryBuffer(ctx);
        DbConnection db;
        if (!db.Open(ctx.paths.DatabasePath)) db.Execute("PRAGMA user_version");
        db.Execute(ended ? "PRAGMA user_version = 1" : "PRAGMA user_version = 0");
      },
      [&](int number, const std::string& description) {
        ReportWalkRecordFailure(ctx, number, description);
      });
}

void BeginRewalk(RunContext& ctx) {
  WithHandler(
      [&] {
        DbConnection& db = Connection(ctx);
        // Without it each file of the walk would scan the whole table.
        db.Execute("Create Index if not exists iSourcePaths on tFiles(source_path)");
        ResultSet rs = db.Query("Select max(file_key) as k from tFiles");
        ctx.queryBuffer.rewalkKeyLimit = rs.RowCount() > 0 ? rs.Field("k").Int64() : 0;
      },
      [&](int number, const std::string& description) {
        ReportWalkRecordFailure(ctx, number, description);
      });
}

bool HasFileRow(RunContext& ctx, const std::string& sourcePath) {
  if (ctx.queryBuffer.rewalkKeyLimit <= 0) return false;
  bool found = false;
  WithHandler(
      [&] {
        found = Connection(ctx)
                    .Query("Select file_key from tFiles where source_path = " +
                           SqlQuote(sourcePath) + " and file_key <= '" +
                           IntText(ctx.queryBuffer.rewalkKeyLimit) + "' limit 1")
                    .RowCount() > 0;
      },
      [&](int number, const std::string& description) {
        ReportWalkRecordFailure(ctx, number, description);
      });
  return found;
}

}  // namespace qr
