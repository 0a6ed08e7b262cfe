#pragma once
// The seam through which the core asks a person something. The window program answers with
// Qt dialogs, the headless runner from its flags or the terminal, tests from a script.
#include <optional>
#include <string>
#include <vector>

namespace qr {

enum class Icon { None, Information, Exclamation, Critical, Question };
enum class Buttons { Ok, OkCancel, YesNo, YesNoCancel };
enum class Answer { Ok, Cancel, Yes, No };

// Texts keep their CR LF line ends here; a drawing layer may show them as it likes.
class Dialogs {
 public:
  virtual ~Dialogs() = default;
  virtual Answer MessageBox(const std::string& text, const std::string& title, Icon icon,
                            Buttons buttons) = 0;
  // nullopt when the person cancels the box.
  virtual std::optional<std::string> InputBox(const std::string& prompt, const std::string& title,
                                              const std::string& defaultText) = 0;
  // Each picker returns the chosen path, or an empty text when nothing was chosen.
  virtual std::string OpenFile(const std::string& title, const std::string& filter,
                               const std::string& startFolder) = 0;
  virtual std::string SaveFile(const std::string& title, const std::string& filter,
                               const std::string& startFolder) = 0;
  virtual std::string PickFolder(const std::string& title, const std::string& startFolder) = 0;
  // A line for the person that asks nothing (the command about to be started, say). The window
  // program shows none; the runner prints it.
  virtual void Notice(const std::string& /*text*/) {}
};

}  // namespace qr
