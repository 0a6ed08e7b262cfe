#pragma once
// Plain text files in the system code page (UTF-8 here), written with CR LF line ends.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qr {

// Appends `text` and CR LF, creating the file if need be. False on failure, errno in `error`.
bool AppendLine(const std::string& path, std::string_view text, int* error = nullptr);
// Replaces the file's content with `text` exactly as given.
bool WriteWholeFile(const std::string& path, std::string_view text, int* error = nullptr);
// The whole file as bytes; nullopt when it can't be read.
std::optional<std::string> ReadWholeFile(const std::string& path, int* error = nullptr);
// The file's lines (CR LF, CR or LF end a line); nullopt when it can't be read.
std::optional<std::vector<std::string>> ReadLines(const std::string& path, int* error = nullptr);

}  // namespace qr
