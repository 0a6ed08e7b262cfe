#pragma once
// A fresh temporary folder per test, removed with everything in it afterwards.
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace qr::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // The folder, without a trailing separator.
  const std::string& path() const { return path_; }
  // path() + "/" + relative.
  std::string operator/(std::string_view relative) const;
  // Creates a file (and its folders) with the given bytes; returns its path.
  std::string WriteFile(std::string_view relative, std::string_view bytes) const;
  // Creates a folder (and its parents); returns its path.
  std::string MakeDir(std::string_view relative) const;

 private:
  std::string path_;
};

// The bytes of a file, or an empty text when it can't be read.
std::string ReadBytes(const std::string& path);
// The same, read without moving the file's access time: a test must not disturb what it checks.
std::string ReadBytesQuietly(const std::string& path);
// The text of a UTF-16LE file behind its byte-order mark, as UTF-8, and its lines.
std::string Utf16FileText(const std::string& path);
std::vector<std::string> Utf16FileLines(const std::string& path);
// The MD5 of bytes in memory, lower-case hex, through OpenSSL's one-shot call.
std::string Md5Of(const std::string& bytes);
// Sets a path's access and modification times, of the link itself when followLinks is false;
// fails the running test when it can't.
void SetTimes(const std::string& path, struct timespec accessed, struct timespec modified,
              bool followLinks = true);

}  // namespace qr::test
