#pragma once
// The per-job SQLite database _job.sdb: the work list that survives a crash. Its schema, the
// columns' encodings and the handler its routines share.
#include <cstdint>
#include <new>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/find_data.h"

namespace qr {

class DbConnection;

// A file time as its two halves, each a signed 32-bit integer with the very bits of the time.
int32_t LowHalf(FileTime t);
int32_t HighHalf(FileTime t);
FileTime FromHalves(int32_t low, int32_t high);
// A size as the column holds it: the shortest text of a double with 15 significant digits.
std::string SizeText(uint32_t sizeHigh, uint32_t sizeLow);

// The statements buffered for the next transaction of enumeration.
struct QueryBuffer {
  std::vector<std::string> statements;
  // On a walk that finishes an interrupted one: the highest key that existed before it, so
  // files up to it are not added twice. 0 on every other walk.
  int64_t rewalkKeyLimit = 0;
  static constexpr size_t kFlushThreshold = 10000;
};

// The tables and indexes of a new job database.
void BuildJobSchema(DbConnection& db);
// Those of a database rebuilt by validation: its tFiles has no "folder" column. The two ways of
// making a database differ, and both kinds exist in the field.
void BuildRepairedJobSchema(DbConnection& db);
// False for an empty file, which is an empty database: the one file that is given the tables.
bool HasHashesTable(DbConnection& db);

inline constexpr int kOutOfMemory = 7;

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

// The silent-log entry of a failed database routine: label, number and description, stage.
std::string SilentReport(const char* label, int number, const std::string& description,
                         const std::string& stage, const char* dashes);

}  // namespace qr
