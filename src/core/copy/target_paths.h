#pragma once
// Where a source lands, and the creation of target folders level by level.
#include <cstdint>
#include <string>

namespace qr {

// Creates a folder (one trailing separator cut first). 0, or the errno of the failed creation.
int32_t CreateOneDirectory(const std::string& path);
// Creates every missing level of `targetFolder` below its first component, which is never
// created. The last creation's result: 0 for none or success, else its errno.
int32_t CreateTargetDirs(const std::string& targetFolder);

}  // namespace qr
