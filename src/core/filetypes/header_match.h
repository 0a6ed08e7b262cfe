#pragma once
// The table of file types by category, read from the definition file, with marks, lookups for
// the file type picker, and the check of one file's extension and first bytes against the
// marked types.
#include <cstdint>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "run/run_context.h"

namespace qr {

// One line of the definition file: five tab-separated fields, each trimmed.
struct FileTypeDefinition {
  std::string category;
  std::string typeName;
  std::string extensions;  // separated by ";"
  std::string header;      // a regular expression over the file's bytes, one character a byte
  int32_t offset = 0;      // where in the first bytes the pattern is run from
  bool marked = false;
  // The compiled header; absent when the pattern is empty or does not compile, so that the
  // type can still be listed and chosen by extension.
  std::shared_ptr<const std::wregex> pattern;
};

// The number of bytes of a file's start that CheckFile looks at.
inline constexpr size_t kHeaderBytes = 1024;

class clsHeaderMatch {
 public:
  explicit clsHeaderMatch(RunContext& ctx);

  // Empties the table and reads the file. A missing file, a line with fewer than five fields or
  // an offset that is no number ends the load with a message; what was read stays. A pattern
  // that does not compile is named in a message and its type kept without a header.
  bool LoadDefinitionFile(const std::string& path);

  // Marks every type of the category (case folded) and shows how many in a box.
  void MarkCategory(const std::string& category, bool mark);
  // Marks the types of that name (case folded), without a word.
  void MarkFileType(const std::string& type, bool mark);
  int CountInCategory(const std::string& category) const;
  // The name of the index-th type (from 0) of the category; empty when there are fewer.
  std::string FileTypeInCatArray(const std::string& category, int index) const;
  // The category of the record at `index` (1 to EntryCount); empty outside.
  std::string CategoryByIndex(int index) const;
  // The upper bound of the table: definitions stand at 1 to EntryCount, place 0 stays empty.
  int EntryCount() const { return static_cast<int>(table_.size()) - 1; }
  const FileTypeDefinition& Entry(int index) const { return table_.at(static_cast<size_t>(index)); }
  // The categories in the order of their first appearance, each once.
  std::vector<std::string> Categories() const;

  // "[name]" marks a whole category, "[~name]" one type; any text not beginning with "[" is
  // left alone.
  void MarkFromTypeString(const std::string& text);

  // Checks one file against the marked types: its extension, then its first bytes. True when
  // either fits. The file's times are put back afterwards.
  bool CheckFile(const std::string& path);
  const std::string& ExtensionActual() const { return extensionActual_; }
  const std::string& ExtensionExpected() const { return extensionExpected_; }
  bool ExtensionMatch() const { return extensionMatch_; }
  bool HeaderMatch() const { return headerMatch_; }

 private:
  void LoadFailure(int number, const std::string& description);

  RunContext& ctx_;
  std::vector<FileTypeDefinition> table_;
  std::string extensionActual_;
  std::string extensionExpected_;
  bool extensionMatch_ = false;
  bool headerMatch_ = false;
};

// The bytes as text, one character a byte (0 to 255), as the header patterns see them.
std::wstring WidenBytes(const std::string& bytes);

}  // namespace qr
