#pragma once
// The settings files under AppPath that start-up reads and the normal close writes, and the two
// routines through which every one of them is read and written, one key at a time.
#include <string>

namespace qr {

class RunContext;

// The value of `key` in `section` (both compared without case), or the empty text. Creates a
// missing file, empty, and makes a read-only file writable. A line holding "[" ends the section
// for the reader, so a value with that character reads back empty. Throws RunError when the file
// can't be created or read.
std::string INIread(const std::string& file, const std::string& section, const std::string& key);
// Sets `key` in `section`, adding the key or the section when missing; the whole file is
// rewritten with CR LF line ends and a final line end. Throws RunError on failure.
void INIwrite(const std::string& file, const std::string& section, const std::string& key,
              const std::string& value);

// robocopy_settings.ini: read at start, written at close and when missing at start.
void GetINIVals(RunContext& ctx);
void SetINIVals(RunContext& ctx);
// log_processes.ini: read if present, else created with every key "1".
void LoadLogProcesses(RunContext& ctx);
// defaults.ini, if it exists: its values overwrite the options.
void GetDefaults(RunContext& ctx);
// "Save Current Options as Default": the same keys that GetDefaults reads.
void SaveDefaults(RunContext& ctx);
// local.ini and ravelin.ini, written at close, never read.
void WriteLocalSettings(RunContext& ctx);

}  // namespace qr
