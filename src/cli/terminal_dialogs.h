#pragma once
// The Dialogs seam for a terminal: every box is printed to the error stream and answered from
// --yes, from the person at the terminal, or, with nobody there, by refusing.
#include <istream>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/dialogs.h"
#include "progress_line.h"

namespace qr::cli {

// Text safe to print on a terminal: CR LF (and a lone CR) become plain line breaks, and every
// other control character (C0 but line break and tab, DEL, C1) and every byte that is no part of
// well-formed UTF-8 is shown as \xNN, so that a file name can't start an escape sequence. The
// files and logs keep the real bytes; only what is shown is escaped.
std::string TerminalText(const std::string& text);

class TerminalDialogs : public Dialogs {
 public:
  // `assumeYes`: message boxes take their affirmative button without asking.
  // `interactive`: `in` is a terminal with a person behind it.
  // `line`: the progress line on the same stream, erased before each box so that the two
  // never share a line.
  TerminalDialogs(std::istream& in, std::ostream& err, bool assumeYes, bool interactive,
                  ProgressLine* line = nullptr)
      : in_(in), err_(err), assumeYes_(assumeYes), interactive_(interactive), line_(line) {}

  Answer MessageBox(const std::string& text, const std::string& title, Icon icon,
                    Buttons buttons) override;
  std::optional<std::string> InputBox(const std::string& prompt, const std::string& title,
                                      const std::string& defaultText) override;
  std::string OpenFile(const std::string& title, const std::string& filter,
                       const std::string& startFolder) override;
  std::string SaveFile(const std::string& title, const std::string& filter,
                       const std::string& startFolder) override;
  std::string PickFolder(const std::string& title, const std::string& startFolder) override;
  void Notice(const std::string& text) override;

 private:
  void PrintHeader(const std::string& title, Icon icon);
  // One line from the terminal; nullopt at the end of input or on a read failure (Ctrl-C).
  std::optional<std::string> ReadLine();
  std::string AskPath(const std::string& title);

  std::istream& in_;
  std::ostream& err_;
  bool assumeYes_;
  bool interactive_;
  ProgressLine* line_;
};

}  // namespace qr::cli
