#include "terminal_dialogs.h"

#include <algorithm>
#include <cctype>

#include "absolute_path.h"
#include "platform/utf8.h"

namespace qr::cli {

namespace {

const char* IconLabel(Icon icon) {
  switch (icon) {
    case Icon::Information:
      return "information";
    case Icon::Exclamation:
      return "warning";
    case Icon::Critical:
      return "error";
    case Icon::Question:
      return "question";
    case Icon::None:
      break;
  }
  return "";
}

std::string Folded(const std::string& s) {
  std::string out;
  for (char c : s) {
    if (c == ' ' || c == '\t') continue;
    out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return out;
}

const char* AnswerText(Answer a) {
  switch (a) {
    case Answer::Ok:
      return "OK";
    case Answer::Cancel:
      return "Cancel";
    case Answer::Yes:
      return "Yes";
    case Answer::No:
      return "No";
  }
  return "";
}

std::string HexEscape(unsigned char b) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  return std::string("\\x") + kDigits[b >> 4] + kDigits[b & 0xF];
}

}  // namespace

std::string TerminalText(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const auto b = static_cast<unsigned char>(text[i]);
    if (b == '\r') {
      out += '\n';
      i += (i + 1 < text.size() && text[i + 1] == '\n') ? 2 : 1;
      continue;
    }
    if (b == '\n' || b == '\t' || (b >= 0x20 && b < 0x7F)) {
      out += text[i++];
      continue;
    }
    char32_t c = 0;
    const size_t len = DecodeUtf8(text, i, c);
    // Other C0 controls, DEL and the C1 controls U+0080..U+009F are shown byte by byte, and so
    // is a byte that starts no well-formed character.
    if (len == 0 || c < 0x20 || (c >= 0x7F && c < 0xA0)) {
      for (size_t k = 0; k < std::max<size_t>(len, 1); ++k) {
        out += HexEscape(static_cast<unsigned char>(text[i + k]));
      }
      i += std::max<size_t>(len, 1);
      continue;
    }
    out.append(text, i, len);
    i += len;
  }
  return out;
}

void TerminalDialogs::PrintHeader(const std::string& title, Icon icon) {
  if (line_ != nullptr) line_->Erase();
  err_ << "--- " << TerminalText(title);
  const char* label = IconLabel(icon);
  if (*label != '\0') err_ << " (" << label << ")";
  err_ << " ---\n";
}

std::optional<std::string> TerminalDialogs::ReadLine() {
  std::string line;
  if (!std::getline(in_, line)) {
    err_ << "\n";
    return std::nullopt;
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

Answer TerminalDialogs::MessageBox(const std::string& text, const std::string& title, Icon icon,
                                   Buttons buttons) {
  PrintHeader(title, icon);
  err_ << TerminalText(text) << "\n";

  // A three-way question answered on a terminal is Yes or Cancel: "no" refuses, as it does
  // everywhere else here.
  const bool yesNo = buttons == Buttons::YesNo || buttons == Buttons::YesNoCancel;
  const Answer yes = yesNo ? Answer::Yes : Answer::Ok;
  const Answer no = buttons == Buttons::YesNo ? Answer::No : Answer::Cancel;
  Answer answer = yes;
  if (assumeYes_) {
    err_ << "> " << AnswerText(yes) << " (--yes)\n";
    return yes;
  }
  if (!interactive_) {
    // Nobody to ask: a question is refused, a notice is taken as read.
    answer = buttons == Buttons::Ok ? Answer::Ok : no;
    err_ << "> " << AnswerText(answer);
    if (buttons != Buttons::Ok) err_ << " (no terminal to ask; --yes accepts)";
    err_ << "\n";
    return answer;
  }

  if (buttons == Buttons::Ok) {
    err_ << "[Enter] OK: " << std::flush;
    ReadLine();
    return Answer::Ok;
  }
  const std::string prompt =
      yesNo ? "[y] Yes / [n] No: " : "[y] OK / [n] Cancel: ";
  for (;;) {
    err_ << prompt << std::flush;
    std::optional<std::string> line = ReadLine();
    if (!line) {
      answer = no;
      break;
    }
    std::string f = Folded(*line);
    if (f == "y" || f == "yes" || f == "ok" || f == "o") {
      answer = yes;
      break;
    }
    if (f == "n" || f == "no" || f == "cancel" || f == "c") {
      answer = no;
      break;
    }
  }
  err_ << "> " << AnswerText(answer) << "\n";
  return answer;
}

std::optional<std::string> TerminalDialogs::InputBox(const std::string& prompt,
                                                     const std::string& title,
                                                     const std::string& defaultText) {
  if (!interactive_) return std::nullopt;
  PrintHeader(title, Icon::None);
  err_ << TerminalText(prompt) << "\n";
  err_ << "[" << TerminalText(defaultText) << "]: " << std::flush;
  std::optional<std::string> line = ReadLine();
  if (!line) return std::nullopt;
  if (line->empty()) return defaultText;
  return line;
}

std::string TerminalDialogs::AskPath(const std::string& title) {
  if (!interactive_) return {};
  PrintHeader(title, Icon::None);
  err_ << "Path (empty for none): " << std::flush;
  std::optional<std::string> line = ReadLine();
  if (!line || line->empty()) return {};
  return AbsolutePath(*line);
}

std::string TerminalDialogs::OpenFile(const std::string& title, const std::string&,
                                      const std::string&) {
  return AskPath(title);
}

std::string TerminalDialogs::SaveFile(const std::string& title, const std::string&,
                                      const std::string&) {
  return AskPath(title);
}

void TerminalDialogs::Notice(const std::string& text) {
  if (line_ != nullptr) line_->Erase();
  err_ << "ravelin-run: " << TerminalText(text) << "\n" << std::flush;
}

std::string TerminalDialogs::PickFolder(const std::string& title, const std::string&) {
  return AskPath(title);
}

}  // namespace qr::cli
