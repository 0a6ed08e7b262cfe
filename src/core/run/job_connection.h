#pragma once
// The run's one connection to its job database, and the statements buffered for it.
#include <string>

namespace qr {

class DbConnection;
class RunContext;

void CreateJobDatabase(RunContext& ctx, const std::string& path);
// True when it ran to its end; the caller ignores the result.
bool ValidateJobDatabase(RunContext& ctx, const std::string& path);

// The routines below report their failures to the silent log and go on; when the silent log
// itself can't be written, that RunError passes to the caller.
void AddQueryToBuffer(RunContext& ctx, const std::string& sql);
void FlushQueryBuffer(RunContext& ctx);

// Whether the walk of the sources that filled the database ran to its end. A walk that was
// killed or cancelled leaves it false, and a resume then walks again. Failures go to the silent
// log; a database whose record can't be read counts as not walked to its end.
bool WalkEnded(RunContext& ctx);
void MarkWalkEnded(RunContext& ctx, bool ended);
// A walk that finishes an interrupted one adds only files that had no row before it: from here
// on, HasFileRow answers for the rows that exist now.
void BeginRewalk(RunContext& ctx);
// True on such a walk when `sourcePath` had a row before it began; always false otherwise.
bool HasFileRow(RunContext& ctx, const std::string& sourcePath);

// The run's connection, made and opened on DatabasePath when it is absent (the recovery of a
// missing connection, which is also the normal way for single-file and file-list sources).
DbConnection& Connection(RunContext& ctx);
// Makes a new connection and opens DatabasePath; drops it with DropConnection.
void OpenConnection(RunContext& ctx);
void DropConnection(RunContext& ctx);

}  // namespace qr
