#include "support/fake_dialogs.h"

namespace qr::test {

Answer FakeDialogs::MessageBox(const std::string& text, const std::string& title, Icon icon,
                               Buttons buttons) {
  shown.push_back({text, title, icon, buttons});
  if (answers.empty()) {
    return buttons == Buttons::YesNo || buttons == Buttons::YesNoCancel ? Answer::Yes : Answer::Ok;
  }
  const Answer a = answers.front();
  answers.pop_front();
  return a;
}

std::optional<std::string> FakeDialogs::InputBox(const std::string& prompt,
                                                 const std::string& title,
                                                 const std::string& defaultText) {
  shown.push_back({prompt, title, Icon::None, Buttons::OkCancel});
  if (inputs.empty()) return defaultText;
  auto a = inputs.front();
  inputs.pop_front();
  return a;
}

namespace {
// Records a picker's title, filter and start folder, and gives the next scripted pick.
std::string Picked(FakeDialogs& d, const std::string& title, const std::string& filter,
                   const std::string& startFolder) {
  d.pickerTitles.push_back(title);
  d.pickerDetails.push_back({filter, startFolder});
  if (d.picks.empty()) return {};
  std::string p = d.picks.front();
  d.picks.pop_front();
  return p;
}
}  // namespace

std::string FakeDialogs::OpenFile(const std::string& title, const std::string& filter,
                                  const std::string& startFolder) {
  return Picked(*this, title, filter, startFolder);
}
std::string FakeDialogs::SaveFile(const std::string& title, const std::string& filter,
                                  const std::string& startFolder) {
  return Picked(*this, title, filter, startFolder);
}
std::string FakeDialogs::PickFolder(const std::string& title, const std::string& startFolder) {
  return Picked(*this, title, "", startFolder);
}

std::vector<std::string> FakeDialogs::Texts() const {
  std::vector<std::string> out;
  for (const auto& b : shown) out.push_back(b.text);
  return out;
}

void FakePump::Pump() {
  ++pumps;
  if (onPump) onPump(pumps);
}

}  // namespace qr::test
