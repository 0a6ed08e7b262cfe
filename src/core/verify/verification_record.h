#pragma once
// The verification CSV: one line per file, hashes and times of both sides compared.
#include <string>

#include "platform/find_data.h"

namespace qr {

class RunContext;
struct JobSettings;

// The header line of _verification_log.csv, without its line end.
std::string VerificationHeader(const JobSettings& s);

// CR LF becomes a blank (twice over); a text holding a comma is wrapped in double quotes, inner
// quotes left as they are. The text is changed in place as well as returned.
std::string CsvEncapsulate(RunContext& ctx, std::string& text);

// A file time as the record shows it: local time, one-second resolution, general date form.
std::string VerificationDate(FileTime t);

// Hashes source and target as the options say, compares them and their directory entries,
// writes one CSV line and the error or timestamp log lines, and counts. Both paths may come back
// quoted (see CsvEncapsulate).
void WriteVerificationRecord(RunContext& ctx, std::string& sourcePath, std::string& targetPath,
                             const std::string& knownSourceHash, const std::string& unused);

}  // namespace qr
