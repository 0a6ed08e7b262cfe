#pragma once
// The only way times are read and written, for files and folders alike.
#include <string>

#include "platform/find_data.h"
#include "platform/report.h"

namespace qr {

// The created, modified, accessed triple of 64-bit file times.
struct FileTimes {
  FileTime created = 0;
  FileTime modified = 0;
  FileTime accessed = 0;
};

// The three times from the directory entry (the object is never opened). 1 when the entry was
// found, else 0 with the outputs as they were. A trailing separator is cut first.
int GetFileTimes(Reporter& reporter, const std::string& path, FileTimes& times);
// Writes the three times back; an object that is missing or can't be written is passed over in
// silence. A source's mode is never changed for it.
void SetFileTimes(Reporter& reporter, const std::string& path, const FileTimes& times);

}  // namespace qr
