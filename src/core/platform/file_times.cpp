#include "platform/file_times.h"

#include <cerrno>
#include <cstring>

#include "platform/errors.h"
#include "platform/find_data.h"
#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "platform/times_io.h"

namespace qr {

int GetFileTimes(Reporter& reporter, const std::string& path, FileTimes& times) {
  // Cutting the separator of "/" leaves nothing, so the root of the tree is never read, just as
  // a drive root isn't.
  const std::string object = WithoutTrailingSep(path);
  FindData entry;
  int err = 0;
  if (FindEntry(LongPathPrefix(object), entry, &err)) {
    times.created = entry.creationTime;
    times.accessed = entry.lastAccessTime;
    times.modified = entry.lastWriteTime;
    return 1;
  }
  if (!IsPlainAbsence(err)) {
    const std::string number = std::to_string(err);
    const std::string description = std::strerror(err);
    ReportFailure(reporter,
                  "GetFileTime Error: " + std::string(kCrLf) + object + std::string(kCrLf) +
                      number + " : " + description,
                  Icon::Exclamation,
                  "GetFileTime Error: " + object + " : " + number + " : " + description);
  }
  return 0;
}

void SetFileTimes(Reporter& /*reporter*/, const std::string& path, const FileTimes& times) {
  // A time that does not take is not reported here: the verification record shows it.
  WriteFileTimes(LongPathPrefix(WithoutTrailingSep(path)), times.created, times.accessed,
                 times.modified);
}

}  // namespace qr
