#pragma once
// The main window's source list, which guards itself: every way of adding goes through
// AddSource, which keeps one folder from being listed inside another.
#include <string>

namespace qr {

class RunContext;

// Adds a folder, a file or a file list entry to ctx.settings.Sources with the nesting rules and
// their messages. A folder's trailing separator is cut on the caller's variable too.
void AddSource(RunContext& ctx, std::string& path);

}  // namespace qr
