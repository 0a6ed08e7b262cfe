#include "run/job_connection.h"

#include <cerrno>
#include <cstdio>

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

// Opening for output and closing again, which leaves an empty file.
bool EmptyFile(const std::string& path, int& error) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) {
    error = errno;
    return false;
  }
  std::fclose(f);
  return true;
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
        ctx.Message(BoxReport("DB Creation Error: ", number, description, LastSystemError(ctx, 0)),
                    Icon::None);
      });
}

bool ValidateJobDatabase(RunContext& ctx, const std::string& path) {
  bool ranToEnd = false;
  int systemError = 0;
  WithHandler(
      [&] {
        ctx.db = std::make_unique<DbConnection>();
        bool buildSchema = false;
        if (ctx.db->Open(path)) {
          buildSchema = !HasHashesTable(*ctx.db);
        } else {
          // Not a database: it starts again as an empty one.
          if (!EmptyFile(path, systemError)) throw SystemError(systemError);
          buildSchema = ctx.db->Create(path);
        }
        if (buildSchema) BuildRepairedJobSchema(*ctx.db);
        DropConnection(ctx);
        ranToEnd = true;
      },
      [&](int number, const std::string& description) {
        ctx.Message(BoxReport("DB Validation Error: ", number, description,
                              LastSystemError(ctx, systemError)),
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
  WithHandler(
      [&] {
        auto& statements = ctx.queryBuffer.statements;
        if (statements.empty()) return;
        stage = "Beginning transaction";
        Connection(ctx).Execute("BEGIN");
        stage = "Looping through buffered queries";
        for (const std::string& sql : statements) Connection(ctx).Execute(sql);
        stage = "Committing transaction";
        Connection(ctx).Execute("COMMIT");
        statements.clear();
      },
      // The statements stay for the next flush, and the transaction stays open.
      [&](int number, const std::string& description) {
        ctx.WriteSilentLog(SilentReport("Error while flushing query buffer.", number, description,
                                        stage, kBufferDashes));
      });
}

}  // namespace qr
