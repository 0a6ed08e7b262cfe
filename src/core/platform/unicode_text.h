#pragma once
// The UTF-16 little-endian logs that must keep any file name. Names are bytes on this platform:
// they are converted from UTF-8, an invalid byte becoming U+FFFD.
#include <string>
#include <string_view>

#include "platform/report.h"

namespace qr {

std::u16string Utf8ToUtf16(std::string_view text);
std::string Utf16ToUtf8(std::u16string_view text);

// True when the first two bytes are 0xFF, 0xFE.
bool IsUnicodeFile(const std::string& path);
// Creates or empties the file and writes the byte-order mark 0xFF 0xFE.
bool CreateUnicodeFile(const std::string& path);
// Appends `text` as UTF-16LE to an existing file (callers create it first), optionally behind a
// byte-order mark; opened and closed for each call so a crash loses no finished line. A file of
// exactly 3 bytes is first cut back to its first byte. A failure is logged through `reporter`'s
// silent log as "UC Append API Failure (number): description".
bool AppendUnicodeText(const std::string& path, std::string_view text, bool writeMark,
                       Reporter* reporter = nullptr);

}  // namespace qr
