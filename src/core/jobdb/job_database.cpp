#include "jobdb/job_database.h"

#include <cstdio>

#include "jobdb/db_connection.h"
#include "platform/text.h"

namespace qr {

namespace {

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

std::string SilentReport(const char* label, int number, const std::string& description,
                         const std::string& stage, const char* dashes) {
  return std::string(label) + "\r\n" + IntText(number) + ": " + description +
         "\r\nStage: " + stage + "\r\n" + dashes;
}

bool HasHashesTable(DbConnection& db) {
  // An empty file is an empty database: the table is missing and the query fails.
  try {
    return db.Query("Select * from tHashes").ColumnCount() > 0;
  } catch (const RunError&) {
    return false;
  }
}

void BuildJobSchema(DbConnection& db) {
  db.Execute(kCreateHashes);
  db.Execute(kCreateHashIndex);
  db.Execute(CreateFilesTable(true));
  db.Execute(kCreateFolders);
  db.Execute(kCreateFolderPathIndex);
  db.Execute(kCreateFolderSourceIndex);
}

void BuildRepairedJobSchema(DbConnection& db) {
  db.Execute(kCreateHashes);
  db.Execute(kCreateHashIndex);
  db.Execute(CreateFilesTable(false));
  db.Execute(kCreateCompletedIndex);
}

}  // namespace qr
