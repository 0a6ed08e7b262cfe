#include "support/fake_dialogs.h"

namespace qr::test {

Answer FakeDialogs::MessageBox(const std::string& text, const std::string& title, Icon icon,
                               Buttons buttons) {
  shown.push_back({text, title, icon, buttons});
  if (!answers.empty()) {
    Answer a = answers.front();
    answers.pop_front();
    return a;
  }
  switch (buttons) {
    case Buttons::YesNo:
    case Buttons::YesNoCancel:
      return Answer::Yes;
    case Buttons::Ok:
    case Buttons::OkCancel:
      break;
  }
  return Answer::Ok;
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
std::string NextPick(std::deque<std::string>& picks) {
  if (picks.empty()) return {};
  std::string p = picks.front();
  picks.pop_front();
  return p;
}
}  // namespace

std::string FakeDialogs::OpenFile(const std::string& title, const std::string& filter,
                                  const std::string& startFolder) {
  pickerTitles.push_back(title);
  pickerDetails.push_back({filter, startFolder});
  return NextPick(picks);
}
std::string FakeDialogs::SaveFile(const std::string& title, const std::string& filter,
                                  const std::string& startFolder) {
  pickerTitles.push_back(title);
  pickerDetails.push_back({filter, startFolder});
  return NextPick(picks);
}
std::string FakeDialogs::PickFolder(const std::string& title, const std::string& startFolder) {
  pickerTitles.push_back(title);
  pickerDetails.push_back({"", startFolder});
  return NextPick(picks);
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
