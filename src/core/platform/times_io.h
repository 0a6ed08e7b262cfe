#pragma once
// Writing a file's or folder's times back. A member that is zero is left as it is, and so is a
// member that already equals the value at 100 ns resolution: writing back the times just read
// leaves the object bit-identical, nanoseconds included. Links are followed.
#include <cstdint>
#include <string>

#include "platform/find_data.h"

namespace qr {

// Access and modification through utimensat; creation only where the file system can take one.
// False when the object can't be reached or a write failed; errno in `error`.
bool WriteFileTimes(const std::string& path, FileTime created, FileTime accessed,
                    FileTime modified, int* error = nullptr);
// A symbolic link's own access and modification times, the link not followed. False when
// `path` is no symbolic link (or can't be reached).
bool ReadLinkTimes(int dirfd, const std::string& path, FileTime& accessed, FileTime& modified);
// Puts them back, the link not followed, where they differ: following a link moves its own
// access time. False when they could not be written (only the link's owner may).
bool WriteLinkTimes(int dirfd, const std::string& path, FileTime accessed, FileTime modified);
// True where the file system holding `path` can take a creation time (an NTFS volume through
// its system.ntfs_crtime attribute). Most Linux file systems cannot.
bool CanSetCreationTime(const std::string& path);
// The same for a path known to lie on `device`: a file system that refused once is not asked
// again, as when times are written.
bool CanSetCreationTime(const std::string& path, uint64_t device);

}  // namespace qr
