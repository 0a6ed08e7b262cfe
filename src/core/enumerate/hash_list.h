#pragma once
// The hash-list step of the walk and the tHashes table. The step stays switched off in a run
// (its option is disabled in the dialog) but works when called.
#include <string>

namespace qr {

class RunContext;

// The path of the first file known with `hash`, or an empty text when the hash is new.
std::string RegisterFileHash(RunContext& ctx, const std::string& path, const std::string& hash);
// Writes tHashes, one upper-case hash a line, sorted; no run calls it.
void DumpHashList(RunContext& ctx, const std::string& path);

}  // namespace qr
