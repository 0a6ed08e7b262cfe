#pragma once
// What every fuzz target shares: a scratch folder for the file the parser reads.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace qr::fuzz {

// One scratch folder a process, removed when the process ends normally: each input overwrites
// the same files.
inline const std::filesystem::path& Scratch() {
  struct Folder {
    std::filesystem::path path;
    Folder() {
      std::string tmpl = (std::filesystem::temp_directory_path() / "ravelin-fuzz-XXXXXX").string();
      if (mkdtemp(tmpl.data()) == nullptr) std::abort();
      path = tmpl;
    }
    ~Folder() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
  };
  static const Folder folder;
  return folder.path;
}

inline std::string WriteInput(const std::string& name, const uint8_t* data, size_t size) {
  const std::string path = (Scratch() / name).string();
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  return path;
}

}  // namespace qr::fuzz
