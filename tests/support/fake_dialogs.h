#pragma once
// The scripted stand-ins for the two seams: every box shown is recorded, answers come from a
// queue (the affirmative default when it runs dry).
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/dialogs.h"
#include "platform/event_pump.h"

namespace qr::test {

struct ShownBox {
  std::string text;
  std::string title;
  Icon icon;
  Buttons buttons;
};

class FakeDialogs : public Dialogs {
 public:
  std::vector<ShownBox> shown;
  std::deque<Answer> answers;
  std::deque<std::optional<std::string>> inputs;
  std::deque<std::string> picks;  // answers of the file and folder pickers
  std::vector<std::string> pickerTitles;            // the title of every picker shown, in order
  // The filter and start folder of each picker, beside its entry of pickerTitles.
  struct PickerDetails {
    std::string filter;
    std::string startFolder;
  };
  std::vector<PickerDetails> pickerDetails;
  std::vector<std::string> notices;

  Answer MessageBox(const std::string& text, const std::string& title, Icon icon,
                    Buttons buttons) override;
  std::optional<std::string> InputBox(const std::string& prompt, const std::string& title,
                                      const std::string& defaultText) override;
  std::string OpenFile(const std::string& title, const std::string& filter,
                       const std::string& startFolder) override;
  std::string SaveFile(const std::string& title, const std::string& filter,
                       const std::string& startFolder) override;
  std::string PickFolder(const std::string& title, const std::string& startFolder) override;
  void Notice(const std::string& text) override { notices.push_back(text); }

  // The texts of all boxes, in order.
  std::vector<std::string> Texts() const;
};

class FakePump : public EventPump {
 public:
  int pumps = 0;
  // Called on each pump, for a test to press Cancel at a chosen moment.
  std::function<void(int)> onPump;
  void Pump() override;
};

}  // namespace qr::test
