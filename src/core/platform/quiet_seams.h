#pragma once
// A person who says yes to every question and picks nothing, and a pump with nothing to do: for
// runs that nobody watches (screenshots, benchmarks, fuzzing).
#include <optional>
#include <string>

#include "platform/dialogs.h"
#include "platform/event_pump.h"

namespace qr {

class AffirmativeDialogs : public Dialogs {
 public:
  Answer MessageBox(const std::string&, const std::string&, Icon, Buttons buttons) override {
    return buttons == Buttons::YesNo || buttons == Buttons::YesNoCancel ? Answer::Yes : Answer::Ok;
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

class NoPump : public EventPump {
 public:
  void Pump() override {}
};

}  // namespace qr
