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

// Appends lines to one log like AppendUnicodeText, keeping it open from line to line: a log
// written once a file is opened once a run. The checks made at opening (a link at its name, a
// line cut short) are made again after any failure. Each line is one write(2), so a killed run
// loses no finished line either way.
class UnicodeAppender {
 public:
  UnicodeAppender() = default;
  ~UnicodeAppender() { Close(); }
  UnicodeAppender(const UnicodeAppender&) = delete;
  UnicodeAppender& operator=(const UnicodeAppender&) = delete;

  bool Append(const std::string& path, std::string_view text, Reporter* reporter);
  void Close();

 private:
  std::string path_;
  int fd_ = -1;
};

}  // namespace qr
