#pragma once
// The copying pass: turns the job database's rows into copied files and stamped folders.
#include <string>

namespace qr {

class RunContext;

void ProcessJobQueue(RunContext& ctx);
void CopyFileListSource(RunContext& ctx, const std::string& entry);
void CopyFolderSource(RunContext& ctx, const std::string& folder);

}  // namespace qr
