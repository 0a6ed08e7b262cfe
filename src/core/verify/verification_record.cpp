#include "verify/verification_record.h"

#include "run/job_settings.h"

namespace qr {

std::string VerificationHeader(const JobSettings& s) {
  std::string h = "Date/Time Copied,";
  if (s.HashSource && s.HashDest) h += "Hashes Match,";
  h += "TS Exact Match,Long Path,Source Path,Source Created Date,Source Modified Date,"
       "Source Access Date,Source Size,";
  if (s.HashSource) h += "Source MD5,";
  h += "Dest Path,Dest Created Date,Dest Modified Date,Dest Access Date,Dest Size,";
  if (s.HashDest) h += "Dest MD5,";
  h += "Error Messages";
  return h;
}

}  // namespace qr
