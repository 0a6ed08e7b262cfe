#pragma once
// The logic of the main window that is not drawing.
#include <optional>
#include <string>

namespace qr {

// Called on each change of the target text. While the two boxes differ by one trailing
// character (typing or deleting at the end of the target), the log text takes the new target
// text; the returned value is that new log text, nullopt when the log stays. A target of one
// character or less never carries the log along. Texts are UTF-8; a character is a code point.
std::optional<std::string> TargetFollowsLog(const std::string& newTarget,
                                            const std::string& logText);

}  // namespace qr
