#pragma once
// What every fuzz target shares: a person who answers every box with its first button and picks
// nothing, a pump that does nothing, and a scratch folder for the file the parser reads.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/dialogs.h"
#include "platform/event_pump.h"

namespace qr::fuzz {

class QuietDialogs : public Dialogs {
 public:
  Answer MessageBox(const std::string&, const std::string&, Icon, Buttons buttons) override {
    return buttons == Buttons::YesNo ? Answer::Yes : Answer::Ok;
  }
  std::optional<std::string> InputBox(const std::string&, const std::string&,
                                      const std::string&) override {
    return std::nullopt;
  }
  std::string OpenFile(const std::string&, const std::string&, const std::string&) override {
    return {};
  }
  std::string SaveFile(const std::string&, const std::string&, const std::string&) override {
    return {};
  }
  std::string PickFolder(const std::string&, const std::string&) override { return {}; }
};

class QuietPump : public EventPump {
 public:
  void Pump() override {}
};

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
