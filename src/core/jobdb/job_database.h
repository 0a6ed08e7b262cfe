#pragma once
// The per-job SQLite database _job.sdb: the work list that survives a crash.
#include <cstdint>
#include <string>
#include <vector>

#include "platform/find_data.h"

namespace qr {

class RunContext;

// A file time as its two halves, each a signed 32-bit integer with the very bits of the time.
int32_t LowHalf(FileTime t);
int32_t HighHalf(FileTime t);
FileTime FromHalves(int32_t low, int32_t high);
// A size as the column holds it: the shortest text of a double with 15 significant digits.
std::string SizeText(uint32_t sizeHigh, uint32_t sizeLow);

// The statements buffered for the next transaction of enumeration.
struct QueryBuffer {
  std::vector<std::string> statements;
  static constexpr size_t kFlushThreshold = 10000;
};

void CreateJobDatabase(RunContext& ctx, const std::string& path);
// True when it ran to its end; the caller ignores the result.
bool ValidateJobDatabase(RunContext& ctx, const std::string& path);

// The routines below report their failures to the silent log and go on; when the silent log
// itself can't be written, that RunError passes to the caller.
// One tFiles row for folder + name; `folder` gains its trailing separator in place.
void InsertFileRow(RunContext& ctx, std::string& folder, const std::string& name,
                   const FindData& findData);
void InsertFolderRow(RunContext& ctx, const std::string& folderPath, const FindData& findData);
void AddQueryToBuffer(RunContext& ctx, const std::string& sql);
void FlushQueryBuffer(RunContext& ctx);

// The run's connection, made and opened on DatabasePath when it is absent (the recovery of a
// missing connection, which is also the normal way for single-file and file-list sources).
class DbConnection& Connection(RunContext& ctx);
// Makes a new connection and opens DatabasePath; drops it with DropConnection.
void OpenConnection(RunContext& ctx);
void DropConnection(RunContext& ctx);

}  // namespace qr
