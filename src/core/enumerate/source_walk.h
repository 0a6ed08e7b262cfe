#pragma once
// The tally pass: walks the sources and writes a row for each file that survives the filters.
#include <cstdint>
#include <string>

namespace qr {

class RunContext;

void TallySingleFile(RunContext& ctx, const std::string& path);
// The number of files added from this source.
int32_t TallyFolder(RunContext& ctx, const std::string& path);
// `entry` still holds the "[File List] " marker.
void TallyFileList(RunContext& ctx, const std::string& entry);

}  // namespace qr
