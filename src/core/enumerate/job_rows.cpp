#include "enumerate/job_rows.h"

#include "copy/target_paths.h"
#include "jobdb/job_database.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "platform/utf8.h"
#include "run/job_connection.h"
#include "run/run_context.h"

namespace qr {

namespace {

// Target folders this long broke the classic path limit; the row remembers it.
constexpr size_t kLongPathCharacters = 256;

const char* const kInsertDashes = "----------------------------------------------------------";

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

void FlushWhenFull(RunContext& ctx) {
  if (ctx.queryBuffer.statements.size() >= QueryBuffer::kFlushThreshold) FlushQueryBuffer(ctx);
}

}  // namespace

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
            Utf8CharCount(GetTargetFolder(ctx, folder)) >= kLongPathCharacters ? "'1', " : "'0', ";
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

}  // namespace qr
