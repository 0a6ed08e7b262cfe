#pragma once
// The rows of the job database that enumeration writes: one per file that survives the filters,
// one per folder while empty folders are kept, each with its target path.
#include <string>

#include "platform/find_data.h"

namespace qr {

class RunContext;

// Both report their failures to the silent log and go on; when the silent log itself can't be
// written, that RunError passes to the caller.
// One tFiles row for folder + name; `folder` gains its trailing separator in place.
void InsertFileRow(RunContext& ctx, std::string& folder, const std::string& name,
                   const FindData& findData);
void InsertFolderRow(RunContext& ctx, const std::string& folderPath, const FindData& findData);

}  // namespace qr
