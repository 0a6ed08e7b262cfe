#include "jobdb/job_database.h"

#include <cerrno>
#include <cstdio>
#include <new>

#include "copy/target_paths.h"
#include "jobdb/db_connection.h"
#include "platform/errors.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "run/run_context.h"

namespace qr {

namespace {

constexpr int kOutOfMemory = 7;
// Target folders this long broke the classic path limit; the row remembers it.
constexpr size_t kLongPathCharacters = 256;

const char* const kCreateHashes =
    "Create Table tHashes(hash_id INTEGER PRIMARY KEY, hash char(32) NOT NULL, path text)";
const char* const kCreateHashIndex = "Create Index iHashes On tHashes(hash)";
const char* const kCreateFolders =
    "Create Table tFolders("
    "folder_key INTEGER PRIMARY KEY, "
    "source varchar(32000), "
    "path varchar(32000), "
    "created_low int(11), "
    "created_high int(11), "
    "mod_low int(11), "
    "mod_high int(11), "
    "access_low int(11), "
    "access_high int(11), "
    "dest_path text, "
    "completed char(1) default '0', "
    "excluded char(1) default '0', "
    "exclusion_reason text"
    ")";
const char* const kCreateFolderPathIndex = "Create Index iFolderPaths on tFolders(path)";
const char* const kCreateFolderSourceIndex = "Create Index iFolderSources on tFolders(source)";
const char* const kCreateCompletedIndex = "Create Index iCompleted on tFiles(completed)";

// A repaired database has no "folder" column: the two ways of making a database differ, and
// both kinds exist in the field.
std::string CreateFilesTable(bool withFolderColumn) {
  std::string sql = "Create Table tFiles(";
  sql += "file_key INTEGER PRIMARY KEY, ";
  sql += "date_copied varchar(256), ";
  sql += "file_type varchar(256), ";
  if (withFolderColumn) sql += "folder int(11), ";
  sql += "extension varchar(24), ";
  sql += "suspect char(1) default '0', ";
  sql += "expected text, ";
  sql += "hashes_match char(1), ";
  sql += "ts_exact_match char(1), ";
  sql += "long_path char(1), ";
  sql += "source_path text, ";
  sql += "source_created_low int(11), ";
  sql += "source_created_high int(11), ";
  sql += "source_mod_low int(11), ";
  sql += "source_mod_high int(11), ";
  sql += "source_access_low int(11), ";
  sql += "source_access_high int(11), ";
  sql += "source_size varchar(64), ";
  sql += "source_hash char(32), ";
  sql += "dest_path text, ";
  sql += "dest_created_low int(11), ";
  sql += "dest_created_high int(11), ";
  sql += "dest_mod_low int(11), ";
  sql += "dest_mod_high int(11), ";
  sql += "dest_access_low int(11), ";
  sql += "dest_access_high int(11), ";
  sql += "dest_size varchar(64), ";
  sql += "dest_hash char(32), ";
  sql += "has_errors char(1), ";
  sql += "errors text, ";
  sql += "completed char(1) default '0', ";
  sql += "excluded char(1) default '0', ";
  sql += "exclusion_reason text";
  sql += ")";
  return sql;
}

// Runs `body`; a failure reaches `report` with its number and description. A failure of the
// report itself (the silent log can't be opened) passes on to the caller.
template <typename Body, typename Report>
void WithHandler(Body&& body, Report&& report) {
  try {
    body();
  } catch (const RunError& e) {
    report(e.number(), e.description());
  } catch (const std::bad_alloc&) {
    report(kOutOfMemory, "Out of memory");
  } catch (const std::exception& e) {
    report(kInternalErrorNumber, e.what());
  }
}

std::string SilentReport(const char* label, int number, const std::string& description,
                         const std::string& stage, const char* dashes) {
  return std::string(label) + "\r\n" + IntText(number) + ": " + description +
         "\r\nStage: " + stage + "\r\n" + dashes;
}

const char* const kInsertDashes = "----------------------------------------------------------";
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

// Characters, not bytes: a UTF-8 name is as long as it reads. A stray byte counts as one.
size_t CharacterCount(const std::string& text) {
  size_t n = 0;
  for (unsigned char c : text) {
    if ((c & 0xC0) != 0x80) ++n;
  }
  return n;
}

// The text behind the last dot of the name, or the whole name when it has none.
std::string ExtensionOf(const std::string& name) {
  size_t dot = name.rfind('.');
  return dot == std::string::npos ? name : name.substr(dot + 1);
}

std::string Half(int32_t half) { return SqlQuote(IntText(half)) + ", "; }

// The six halves of the three times, created, modified, accessed, each after its stage.
void AddTimeHalves(std::string& sql, std::string& stage, const FindData& f) {
  stage = "Adding Source cdt.low to query";
  sql += Half(LowHalf(f.creationTime));
  stage = "Adding Source cdt.high to query";
  sql += Half(HighHalf(f.creationTime));
  stage = "Adding Source mdt.low to query";
  sql += Half(LowHalf(f.lastWriteTime));
  stage = "Adding Source mdt.high to query";
  sql += Half(HighHalf(f.lastWriteTime));
  stage = "Adding Source adt.low to query";
  sql += Half(LowHalf(f.lastAccessTime));
  stage = "Adding Source adt.high to query";
  sql += Half(HighHalf(f.lastAccessTime));
}

bool HasHashesTable(DbConnection& db) {
  // An empty file is an empty database: the table is missing and the query fails.
  try {
    return db.Query("Select * from tHashes").ColumnCount() > 0;
  } catch (const RunError&) {
    return false;
  }
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

void FlushWhenFull(RunContext& ctx) {
  if (ctx.queryBuffer.statements.size() >= QueryBuffer::kFlushThreshold) FlushQueryBuffer(ctx);
}

}  // namespace

int32_t LowHalf(FileTime t) { return static_cast<int32_t>(static_cast<uint32_t>(t)); }

int32_t HighHalf(FileTime t) { return static_cast<int32_t>(static_cast<uint32_t>(t >> 32)); }

FileTime FromHalves(int32_t low, int32_t high) {
  return (FileTime{static_cast<uint32_t>(high)} << 32) | static_cast<uint32_t>(low);
}

std::string SizeText(uint32_t sizeHigh, uint32_t sizeLow) {
  double size = static_cast<double>(sizeHigh) * 4294967296.0 + static_cast<double>(sizeLow);
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.15g", size);
  return buf;
}

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
        DbConnection& db = *ctx.db;
        db.Execute(kCreateHashes);
        db.Execute(kCreateHashIndex);
        db.Execute(CreateFilesTable(true));
        db.Execute(kCreateFolders);
        db.Execute(kCreateFolderPathIndex);
        db.Execute(kCreateFolderSourceIndex);
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
        if (buildSchema) {
          DbConnection& db = *ctx.db;
          db.Execute(kCreateHashes);
          db.Execute(kCreateHashIndex);
          db.Execute(CreateFilesTable(false));
          db.Execute(kCreateCompletedIndex);
        }
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

void InsertFileRow(RunContext& ctx, std::string& folder, const std::string& name,
                   const FindData& findData) {
  std::string stage;
  WithHandler(
      [&] {
        folder = WithTrailingSep(folder);
        stage = "Setting src hash";
        const std::string sourceHash;  // hashes are taken at copy time
        stage = "Setting query values";
        std::string sql =
            "Insert into tFiles("
            "extension, "
            "suspect, "
            "expected, "
            "long_path, "
            "source_path, "
            "source_created_low, "
            "source_created_high, "
            "source_mod_low, "
            "source_mod_high, "
            "source_access_low, "
            "source_access_high, "
            "source_size, "
            "source_hash, "
            "dest_path, "
            "completed"
            ") values(";
        stage = "Adding extension to query";
        sql += SqlQuote(ExtensionOf(name)) + ", ";
        sql += "'', ";  // suspect
        sql += "'', ";  // expected
        stage = "Adding long path flag to query";
        sql +=
            CharacterCount(GetTargetFolder(ctx, folder)) >= kLongPathCharacters ? "'1', " : "'0', ";
        stage = "Adding src path to query";
        const std::string sourcePath = folder + name;
        sql += SqlQuote(sourcePath) + ", ";
        AddTimeHalves(sql, stage, findData);
        stage = "Adding file size to query";
        sql += SqlQuote(SizeText(findData.sizeHigh, findData.sizeLow)) + ", ";
        stage = "Adding hash to query";
        sql += SqlQuote(sourceHash) + ", ";
        stage = "Adding destination path to query";
        sql += SqlQuote(GetTargetFilePath(ctx, sourcePath)) + ", ";
        stage = "Finalizing query";
        sql += "'0')";
        AddQueryToBuffer(ctx, sql);
        FlushWhenFull(ctx);
      },
      [&](int number, const std::string& description) {
        ctx.WriteSilentLog(
            SilentReport("Data Insert Error: ", number, description, stage, kInsertDashes));
      });
}

void InsertFolderRow(RunContext& ctx, const std::string& folderPath, const FindData& findData) {
  std::string stage;
  WithHandler(
      [&] {
        stage = "Setting src hash";
        stage = "Setting query values";
        std::string sql =
            "Insert into tFolders("
            "source, "
            "created_low, "
            "created_high, "
            "mod_low, "
            "mod_high, "
            "access_low, "
            "access_high, "
            "dest_path"
            ") values(";
        sql += SqlQuote(folderPath) + ", ";
        AddTimeHalves(sql, stage, findData);
        stage = "Adding destination directory to query";
        sql += SqlQuote(GetTargetFolder(ctx, folderPath)) + ")";
        AddQueryToBuffer(ctx, sql);
        FlushWhenFull(ctx);
      },
      [&](int number, const std::string& description) {
        ctx.WriteSilentLog(SilentReport("Folder Data Insertion Error: ", number, description, stage,
                                        kInsertDashes));
      });
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
