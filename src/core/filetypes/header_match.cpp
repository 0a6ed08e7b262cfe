#include "filetypes/header_match.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <locale>

#include "platform/file_head.h"
#include "platform/file_times.h"
#include "platform/paths.h"
#include "platform/plain_text.h"
#include "platform/text.h"

namespace qr {

namespace {

// The numbers and words the platform's own failures carry, so that a person who edits the
// definition file by hand learns what is wrong and on which line.
constexpr int kSubscriptOutOfRange = 9;
constexpr int kTypeMismatch = 13;
constexpr int kRegexSyntaxError = 5017;

std::string LineText(size_t lineNumber) { return "line " + std::to_string(lineNumber); }

bool ParseOffset(const std::string& text, int32_t& out) {
  const char* first = text.data();
  const char* last = first + text.size();
  if (first != last && *first == '+') ++first;
  const auto [end, ec] = std::from_chars(first, last, out);
  return ec == std::errc() && end == last && first != last;
}

std::shared_ptr<const std::wregex> Compile(const std::string& header, std::string& error) {
  if (header.empty()) return nullptr;
  try {
    auto re = std::make_shared<std::wregex>();
    // The classic locale: case folding of a byte pattern must not depend on the person's
    // locale.
    re->imbue(std::locale::classic());
    re->assign(WidenBytes(header), std::regex::ECMAScript | std::regex::icase);
    return re;
  } catch (const std::regex_error& e) {
    error = e.what();
    return nullptr;
  }
}

}  // namespace

std::wstring WidenBytes(const std::string& bytes) {
  std::wstring text;
  text.reserve(bytes.size());
  for (char c : bytes) text += static_cast<wchar_t>(static_cast<unsigned char>(c));
  return text;
}

clsHeaderMatch::clsHeaderMatch(RunContext& ctx) : ctx_(ctx), table_(1) {}

void clsHeaderMatch::LoadFailure(int number, const std::string& description) {
  ctx_.Message("Could not load file types definitions." + std::string(kCrLf) +
                   std::to_string(number) + " : " + description,
               Icon::Exclamation);
}

bool clsHeaderMatch::LoadDefinitionFile(const std::string& path) {
  table_.assign(1, FileTypeDefinition{});
  int err = 0;
  std::optional<std::vector<std::string>> lines = ReadLines(path, &err);
  if (!lines) {
    LoadFailure(err, std::strerror(err));
    return false;
  }
  size_t lineNumber = 0;
  for (const std::string& line : *lines) {
    ++lineNumber;
    std::vector<std::string> fields = Split(line, "\t");
    for (std::string& field : fields) field = Trim(field);
    const std::string first = fields.empty() ? std::string() : fields[0];
    if (first == "Category" || first.rfind('#', 0) == 0) continue;
    // A blank line too has fewer than five fields: the file is read strictly, so that a
    // damaged file shows where it went wrong instead of being half understood.
    if (fields.size() < 5) {
      LoadFailure(kSubscriptOutOfRange, "Subscript out of range (" + LineText(lineNumber) +
                                            " has fewer than five tab-separated fields)");
      return false;
    }
    FileTypeDefinition d;
    d.category = fields[0];
    d.typeName = fields[1];
    d.extensions = fields[2];
    d.header = fields[3];
    if (!ParseOffset(fields[4], d.offset)) {
      LoadFailure(kTypeMismatch, "Type mismatch (" + LineText(lineNumber) + ": the offset \"" +
                                     fields[4] + "\" is not a whole number)");
      return false;
    }
    std::string regexError;
    d.pattern = Compile(d.header, regexError);
    if (!regexError.empty()) {
      LoadFailure(kRegexSyntaxError, "Syntax error in regular expression (" + LineText(lineNumber) +
                                         ", " + d.typeName + ": " + regexError +
                                         "); the type is kept without its header");
    }
    table_.push_back(std::move(d));
  }
  return true;
}

void clsHeaderMatch::MarkCategory(const std::string& category, bool mark) {
  const std::string wanted = LowerCase(category);
  int count = 0;
  for (size_t i = 1; i < table_.size(); ++i) {
    if (LowerCase(table_[i].category) == wanted) {
      table_[i].marked = mark;
      ++count;
    }
  }
  ctx_.Message(std::to_string(count) + " types marked", Icon::Information);
}

void clsHeaderMatch::MarkFileType(const std::string& type, bool mark) {
  const std::string wanted = LowerCase(type);
  for (size_t i = 1; i < table_.size(); ++i) {
    if (LowerCase(table_[i].typeName) == wanted) table_[i].marked = mark;
  }
}

int clsHeaderMatch::CountInCategory(const std::string& category) const {
  const std::string wanted = LowerCase(category);
  int count = 0;
  for (size_t i = 1; i < table_.size(); ++i) {
    if (LowerCase(table_[i].category) == wanted) ++count;
  }
  return count;
}

std::string clsHeaderMatch::FileTypeInCatArray(const std::string& category, int index) const {
  const std::string wanted = LowerCase(category);
  int seen = 0;
  for (size_t i = 1; i < table_.size(); ++i) {
    if (LowerCase(table_[i].category) != wanted) continue;
    if (seen == index) return table_[i].typeName;
    ++seen;
  }
  return {};
}

std::string clsHeaderMatch::CategoryByIndex(int index) const {
  if (index < 1 || index > EntryCount()) return {};
  return table_[static_cast<size_t>(index)].category;
}

std::vector<std::string> clsHeaderMatch::Categories() const {
  std::vector<std::string> names;
  for (size_t i = 1; i < table_.size(); ++i) {
    bool known = false;
    for (const std::string& n : names)
      known = known || LowerCase(n) == LowerCase(table_[i].category);
    if (!known) names.push_back(table_[i].category);
  }
  return names;
}

void clsHeaderMatch::MarkFromTypeString(const std::string& text) {
  if (text.size() < 2 || text[0] != '[') return;
  const bool single = text.size() >= 3 && text[1] == '~';
  const std::string wanted =
      LowerCase(single ? text.substr(2, text.size() - 3) : text.substr(1, text.size() - 2));
  for (size_t i = 1; i < table_.size(); ++i) {
    if (LowerCase(single ? table_[i].typeName : table_[i].category) == wanted) {
      table_[i].marked = true;
    }
  }
}

bool clsHeaderMatch::CheckFile(const std::string& path) {
  extensionMatch_ = false;
  headerMatch_ = false;
  extensionExpected_.clear();
  const std::string name = NamePart(path);
  const size_t dot = name.rfind('.');
  extensionActual_ = dot == std::string::npos ? std::string() : name.substr(dot + 1);

  const std::string actual = UpperCase(extensionActual_);
  for (size_t i = 1; i < table_.size() && !actual.empty(); ++i) {
    if (!table_[i].marked) continue;
    for (const std::string& ext : Split(table_[i].extensions, ";")) {
      if (UpperCase(Trim(ext)) == actual) extensionMatch_ = true;
    }
  }

  FileTimes times;
  const bool timesRead = GetFileTimes(ctx_, path, times) == 1;
  std::string bytes;
  int err = 0;
  auto fail = [&](const std::string& number, const std::string& description) {
    ReportFailure(
        ctx_,
        "Error checking file type for " + path + std::string(kCrLf) + number + " : " + description,
        Icon::Exclamation,
        "Error checking file type for " + path + " : " + number + " : " + description);
  };
  switch (ReadFileHead(path, kHeaderBytes, bytes, &err)) {
    case HeadRead::NotOpened:
      break;
    case HeadRead::ReadFailed:
      fail(std::to_string(err), std::strerror(err));
      break;
    case HeadRead::Read: {
      const std::wstring text = WidenBytes(bytes);
      for (size_t i = 1; i < table_.size() && !headerMatch_; ++i) {
        const FileTypeDefinition& d = table_[i];
        if (!d.marked || !d.pattern || d.offset < 0) continue;
        if (text.size() < static_cast<size_t>(d.offset)) continue;
        try {
          if (std::regex_search(text.begin() + d.offset, text.end(), *d.pattern)) {
            headerMatch_ = true;
            extensionExpected_ = d.extensions;
          }
        } catch (const std::regex_error& e) {
          // A pattern too costly for the engine fails this file's check, not the program.
          fail(std::to_string(kRegexSyntaxError), e.what());
          break;
        }
      }
      break;
    }
  }
  if (timesRead) SetFileTimes(ctx_, path, times);
  return extensionMatch_ || headerMatch_;
}

}  // namespace qr
