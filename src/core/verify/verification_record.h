#pragma once
// The verification CSV: one line per file, hashes and times of both sides compared.
#include <string>

namespace qr {

struct JobSettings;

// The header line of _verification_log.csv, without its line end.
std::string VerificationHeader(const JobSettings& s);

}  // namespace qr
