#pragma once
// Writing only inside the folders a run writes to. The person names a run's target and log
// folders; those roots are trusted as named, links in their own paths included. Below a root no
// symbolic link is ever followed: each folder is opened from the root down with O_NOFOLLOW, and
// the last part of a path is opened, created, stamped or renamed relative to the folder that
// holds it. A link (or a FIFO, socket or device) found where a file is to be written is removed
// and replaced by a real file, never written through; a link where a folder is needed is
// replaced by a real folder. Paths outside every root are handled as named (settings files, the
// sources).
#include <sys/stat.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace qr {

// The roots of the run in hand; an empty list confines nothing.
void SetConfinedRoots(std::vector<std::string> roots);
std::vector<std::string> ConfinedRoots();

// Sets the roots for its lifetime and clears them after.
class ConfinedRootsScope {
 public:
  ConfinedRootsScope() = default;
  ~ConfinedRootsScope() { SetConfinedRoots({}); }
  ConfinedRootsScope(const ConfinedRootsScope&) = delete;
  ConfinedRootsScope& operator=(const ConfinedRootsScope&) = delete;
};

// True when `path` lies strictly below one of the roots.
bool IsConfined(const std::string& path);

// open(2) for writing: `flags` as open takes them. Below a root the file is reached without
// following links, and a link or special file at its name is first replaced (so a file that
// is to be appended to starts anew as a real file). O_EXCL still fails on any existing entry,
// a link included. The descriptor, or -1 with errno set.
int OpenForWriting(const std::string& path, int flags, mode_t mode);

// mkdir(2); below a root a link at the name is replaced by the new folder. 0 or the errno.
int MakeFolder(const std::string& path, mode_t mode);

// True when `path` is a folder. Below a root only a real folder reached without links counts.
bool FolderExistsNoFollow(const std::string& path);

// True when an entry that is no folder has this name: a file, a link (even a dangling one), a
// special file. Outside the roots links are looked at themselves too.
bool NonFolderEntryExists(const std::string& path);

// chmod(2) of the object itself, never of a link's target. 0 or the errno.
int ChangeMode(const std::string& path, mode_t mode);

// utimensat(2) on the object itself below a root (a link there gets its own times, its target
// none); as named elsewhere. `ts` as utimensat takes it. 0 or the errno.
int SetTimesAt(const std::string& path, const struct timespec ts[2]);

// statx(2) of the object itself below a root (as named elsewhere, links followed), then,
// where `change` fills the two times and answers true, utimensat(2) of the same entry: the path
// is resolved once for both. 0 or the errno of the statx; `setError` takes that of utimensat.
int StatxThenSetTimes(const std::string& path, unsigned int mask, struct statx& st,
                      const std::function<bool(const struct statx&, struct timespec ts[2])>& change,
                      int& setError);

// renameat2 with RENAME_NOREPLACE, both folders reached without links below a root. 0 or the
// errno.
int RenameNoReplace(const std::string& from, const std::string& to);

// Removes a link or special file at `path` below a root, so that nothing opens it by name; a
// regular file or a folder stays. True when something was removed.
bool RemoveLinkAt(const std::string& path);

// True when the entry at `path` itself is a link or a special file.
bool LinkOrSpecialAt(const std::string& path);

// stat(2) and statx(2) of the entry itself below a root; elsewhere links are followed. 0 or the
// errno.
int StatNoFollow(const std::string& path, struct stat& st);
int StatxNoFollow(const std::string& path, unsigned int mask, struct statx& st);

// unlink(2), the folder reached without links below a root. 0 or the errno.
int RemoveFile(const std::string& path);

}  // namespace qr
