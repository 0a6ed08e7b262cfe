#include "jobdef/source_list.h"

#include <algorithm>
#include <vector>

#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "run/run_context.h"

namespace qr {

namespace {

// A trailing separator is cut, but a root stays a root.
void NormaliseFolder(std::string& p) {
  if (p.size() > 1 && p.back() == kSep) p.pop_back();
}

// The tests take the path before normalising, with case-sensitive substring searches; so the
// same folder added twice is listed twice, and a path given with a trailing separator finds no
// contained entries. The same rule serves job files and users alike.
void AddFolder(RunContext& ctx, std::string& p) {
  std::vector<std::string>& sources = ctx.settings.Sources;
  std::vector<std::string> contained;
  bool insideAnEntry = false;
  const std::string asParent = p + kSep;
  for (const auto& e : sources) {
    if (IsFileList(e)) continue;
    if (e.find(asParent) != std::string::npos) {
      if (FileOrDirExists("", e)) {
        contained.push_back(e);
      } else if (FileExists(e)) {
        std::string rest = ReplaceAll(e, p, "");
        if (!rest.empty() && rest[0] == kSep) contained.push_back(e);
      }
    }
    if (p.find(e + kSep) != std::string::npos) insideAnEntry = true;
  }
  if (insideAnEntry) {
    ctx.Message(
        "A directory containing the directory you have chosen has already been added to the "
        "source list. This directory will not be added.",
        Icon::Information);
    return;
  }
  if (!contained.empty()) {
    Answer a = ctx.Message(
        "One or more directories in the source list are contained in the directory you have "
        "chosen. Would you like to replace these with the one you have chosen?",
        Icon::Question, Buttons::OkCancel);
    if (a != Answer::Ok) return;
    for (const auto& c : contained) std::erase(sources, c);
  }
  NormaliseFolder(p);
  sources.push_back(p);
}

void AddFile(RunContext& ctx, const std::string& p) {
  std::vector<std::string>& sources = ctx.settings.Sources;
  // The entry is searched without a trailing separator, so a folder /abc also refuses a file
  // /abcdef.txt.
  bool contained = std::any_of(sources.begin(), sources.end(), [&p](const std::string& e) {
    return !IsFileList(e) && p.find(e) != std::string::npos && FileOrDirExists("", e);
  });
  if (contained) {
    ctx.Message(
        "A directory containing the file you have chosen has already been added to the source "
        "list. This file will not be added.",
        Icon::Information);
    return;
  }
  sources.push_back(p);
}

}  // namespace

void AddSource(RunContext& ctx, std::string& path) {
  if (Trim(path).empty()) return;
  if (IsFileList(path)) {
    ctx.settings.Sources.push_back(path);
    return;
  }
  if (FileOrDirExists("", path)) {
    AddFolder(ctx, path);
  } else if (FileExists(path)) {
    AddFile(ctx, path);
  } else if (!ctx.flags.silent) {
    ctx.Message(path + "\r\n\r\nThe path you have specified cannot be found on this machine.",
                Icon::Exclamation);
  }
}

}  // namespace qr
