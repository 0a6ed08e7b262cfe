#include "jobdef/settings_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iterator>

#include "platform/errors.h"
#include "platform/path_layer.h"
#include "platform/plain_text.h"
#include "platform/text.h"
#include "platform/utf8.h"
#include "run/job_settings.h"
#include "run/run_context.h"

namespace qr {

namespace {

// Lower case that keeps every character's byte length, so that a position found in the folded
// text is the same position in the text as read. The rare character whose lower case is
// longer or shorter in UTF-8 is left as it stands.
std::string FoldKeepingLength(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  size_t i = 0;
  while (i < s.size()) {
    const auto b = static_cast<unsigned char>(s[i]);
    if (b < 0x80) {
      out += (b >= 'A' && b <= 'Z') ? static_cast<char>(b + 32) : static_cast<char>(b);
      ++i;
      continue;
    }
    char32_t c = 0;
    size_t n = DecodeUtf8(s, i, c);
    if (n == 0) n = 1;  // an invalid byte folds to itself
    std::string_view ch = s.substr(i, n);
    std::string folded = LowerCase(ch);
    out += folded.size() == ch.size() ? folded : std::string(ch);
    i += n;
  }
  return out;
}

// Creates a missing file, empty, and gives its owner write permission, so that a file made
// read-only by hand can still take the program's settings.
void PrepareFile(const std::string& file) {
  struct stat st {};
  if (stat(file.c_str(), &st) != 0) {
    if (errno != ENOENT) throw SystemError(errno);
    const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) throw SystemError(errno);
    close(fd);
    return;
  }
  if (S_ISREG(st.st_mode) && (st.st_mode & S_IWUSR) == 0) {
    // A failure here (not the owner) shows up as a failed write, where it means something.
    chmod(file.c_str(), (st.st_mode & 07777) | S_IWUSR);
  }
}

std::string ReadOrThrow(const std::string& file) {
  int err = 0;
  std::optional<std::string> text = ReadWholeFile(file, &err);
  if (!text) throw SystemError(err);
  return *text;
}

// A file edited by hand here may end its lines with LF or CR alone. The writer finds sections and
// keys by their CR LF neighbours, so every line end is made CR LF first; otherwise a write to
// such a file would add a second section that the reader never reaches.
std::string WithCrLfLineEnds(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 16);
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\r') {
      out += kCrLf;
      if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
    } else if (c == '\n') {
      out += kCrLf;
    } else {
      out += c;
    }
  }
  return out;
}

bool AtOrBelowCr(char c) { return static_cast<unsigned char>(c) <= '\r'; }

const char* const kSavedSettings = "saved_settings";

std::string Flag(bool on) { return on ? "1" : "0"; }

// A number in twips as the window keeps it, in single precision: plain digits, no exponent.
std::string SingleText(int twips) {
  char buffer[64];
  const auto result =
      std::to_chars(std::begin(buffer), std::end(buffer), static_cast<float>(twips),
                    std::chars_format::fixed);
  return std::string(buffer, result.ptr);
}

// A list index from a defaults value: the value if it is a number from 0 to `last`, else 0.
// A fraction goes to the nearest index, a half to the even one, as a list index takes it.
int ListIndexFrom(const std::string& value, int last) {
  if (!IsNumeric(value)) return 0;
  const double d = std::strtod(Trim(value).c_str(), nullptr);
  if (d < 0 || d > last) return 0;
  return static_cast<int>(std::nearbyint(d));
}

struct CheckKey {
  const char* key;
  bool JobSettings::*field;
  void (*setter)(JobSettings&, bool);  // the box's click rule, when it has one
};

// The check boxes of defaults.ini. ManualFlags is not here: its key is shared with the text.
const CheckKey kDefaultChecks[] = {
    {"CopyAttributes", &JobSettings::CopyAttributes, nullptr},
    {"CopyAudit", &JobSettings::CopyAudit, nullptr},
    {"CopyBackup", &JobSettings::CopyBackup, SetCopyBackup},
    {"CopyData", &JobSettings::CopyData, nullptr},
    {"CopyEmpties", &JobSettings::CopyEmpties, nullptr},
    {"CopyFiles", &JobSettings::CopyFiles, nullptr},
    {"CopyOwner", &JobSettings::CopyOwner, nullptr},
    {"CopyRestartable", &JobSettings::CopyRestartable, SetCopyRestartable},
    {"CopySecurity", &JobSettings::CopySecurity, nullptr},
    {"CopySubs", &JobSettings::CopySubs, nullptr},
    {"CopyTimestamps", &JobSettings::CopyTimestamps, nullptr},
    {"CopyZB", &JobSettings::CopyZB, SetCopyZB},
    {"CreateFileList", &JobSettings::CreateFileList, nullptr},
    {"CreateLog", &JobSettings::CreateLog, SetCreateLog},
    {"CreateSubs", &JobSettings::CreateSubs, nullptr},
    {"CreateTally", &JobSettings::CreateTally, nullptr},
    {"FullPaths", &JobSettings::FullPaths, SetFullPaths},
    {"HashDest", &JobSettings::HashDest, nullptr},
    {"HashSource", &JobSettings::HashSource, nullptr},
    {"Robocopy", &JobSettings::Robocopy, SetRobocopy},
    {"RootFolders", &JobSettings::RootFolders, nullptr},
    {"Ravelin", &JobSettings::Ravelin, SetRavelin},
    {"SearchAccessed", &JobSettings::SearchAccessed, nullptr},
    {"SearchCreated", &JobSettings::SearchCreated, nullptr},
    {"SearchModified", &JobSettings::SearchModified, nullptr},
    {"SeparateTS", &JobSettings::SeparateTS, nullptr},
    {"Silent", &JobSettings::Silent, nullptr},
};

struct TextKey {
  const char* key;
  std::string JobSettings::*field;
};

const TextKey kDefaultTexts[] = {
    {"EndDay", &JobSettings::EndDay},       {"EndMonth", &JobSettings::EndMonth},
    {"EndYear", &JobSettings::EndYear},     {"Extensions", &JobSettings::Extensions},
    {"ExtListFile", &JobSettings::ExtListFile}, {"StartDay", &JobSettings::StartDay},
    {"StartMonth", &JobSettings::StartMonth},   {"StartYear", &JobSettings::StartYear},
};

struct SwitchKey {
  const char* key;
  bool LogProcesses::*field;
};

const SwitchKey kLogProcessKeys[] = {
    {"HASH_SOURCE", &LogProcesses::HASH_SOURCE},
    {"HASH_DEST", &LogProcesses::HASH_DEST},
    {"SOURCE_PROPS", &LogProcesses::SOURCE_PROPS},
    {"DEST_PROPS", &LogProcesses::DEST_PROPS},
    {"COMPARE_HASHES", &LogProcesses::COMPARE_HASHES},
    {"COMPARE_DATES", &LogProcesses::COMPARE_DATES},
    {"COMPARE_SIZES", &LogProcesses::COMPARE_SIZES},
    {"LONG_PATH_CHECK", &LogProcesses::LONG_PATH_CHECK},
    {"OUTPUT_VLOG", &LogProcesses::OUTPUT_VLOG},
    {"OUTPUT_ERROR", &LogProcesses::OUTPUT_ERROR},
    {"PROC_ARRAY", &LogProcesses::PROC_ARRAY},
};

}  // namespace

std::string INIread(const std::string& file, const std::string& section, const std::string& key) {
  const std::string header = "[" + FoldKeepingLength(section) + "]";
  const std::string prefix = FoldKeepingLength(key) + "=";
  PrepareFile(file);
  bool inSection = false;
  for (const std::string& line : SplitLines(ReadOrThrow(file))) {
    const std::string lower = FoldKeepingLength(line);
    if (lower.find('[') != std::string::npos) {
      inSection = lower == header;
    } else if (inSection && lower.compare(0, prefix.size(), prefix) == 0) {
      return line.substr(prefix.size());
    }
  }
  return std::string();
}

void INIwrite(const std::string& file, const std::string& section, const std::string& key,
              const std::string& value) {
  const std::string sectionNeedle = "\r\n[" + FoldKeepingLength(section) + "]\r";
  const std::string keyNeedle = "\n" + FoldKeepingLength(key) + "=";
  const std::string_view endMarker = "[]";

  PrepareFile(file);
  std::string t = std::string(kCrLf) + WithCrLfLineEnds(ReadOrThrow(file)) + std::string(endMarker);
  const std::string l = FoldKeepingLength(t);
  const std::string entry = key + "=" + value;

  const size_t p = l.find(sectionNeedle);
  t.resize(t.size() - endMarker.size());
  if (p != std::string::npos) {
    const size_t afterNeedle = p + sectionNeedle.size();
    const size_t nextSection = l.find('[', afterNeedle);
    const size_t k = l.find(keyNeedle, p);
    if (k == std::string::npos || k > nextSection) {
      // First in the section, after the header line's LF.
      t.insert(afterNeedle + 1, entry + std::string(kCrLf));
    } else {
      // The whole line is replaced, so the key takes the case of this call.
      size_t cr = t.find('\r', k);
      if (cr == std::string::npos) cr = t.size();
      t = t.substr(0, k + 1) + entry + t.substr(cr);
    }
  } else {
    t += std::string(kCrLf) + std::string(kCrLf) + "[" + section + "]" + std::string(kCrLf) + entry;
  }

  t.erase(0, 1);
  const std::string triple = "\r\n\r\n\r\n";
  while (t.find(triple) != std::string::npos) t = ReplaceAll(t, triple, "\r\n\r\n");
  while (!t.empty() && AtOrBelowCr(t.back())) t.pop_back();
  size_t lead = 0;
  while (lead < t.size() && AtOrBelowCr(t[lead])) ++lead;
  t.erase(0, lead);
  t += kCrLf;

  int err = 0;
  if (!WriteWholeFile(file, t, &err)) throw SystemError(err);
}

void GetINIVals(RunContext& ctx) {
  JobSettings& s = ctx.settings;
  const std::string file = ctx.program.app.appPath + "/robocopy_settings.ini";
  try {
    auto read = [&](const char* key) { return INIread(file, kSavedSettings, key); };
    auto on = [&](const char* key) { return read(key) == "1"; };
    s.CopyData = on("COPY_D");
    s.CopyAttributes = on("COPY_A");
    s.CopyTimestamps = on("COPY_T");
    s.CopySecurity = on("COPY_S");
    s.CopyOwner = on("COPY_O");
    s.CopyAudit = on("COPY_U");
    SetCopyBackup(s, on("B"));
    SetCopyRestartable(s, on("Z"));
    s.CopySubs = on("S");
    SetCopyZB(s, on("ZB"));
    SetFullPaths(s, on("FullPaths"));
    s.RootFolders = on("RootFolders");
    s.CopyEmpties = on("CopyEmpties");
    s.SeparateTS = on("SeparateTS");
    if (on("Overwrite")) s.Collision = kCollisionOverwrite;
    if (on("Rename")) s.Collision = kCollisionRename;
    // The size is taken back within the same bounds that the close writes it with.
    const std::string ww = read("WW");
    if (IsNumeric(ww) && std::strtod(Trim(ww).c_str(), nullptr) > 5000) {
      ctx.program.geometry.widthTwips = static_cast<int>(std::strtod(Trim(ww).c_str(), nullptr));
    }
    const std::string wh = read("WH");
    if (IsNumeric(wh) && std::strtod(Trim(wh).c_str(), nullptr) > 6000) {
      ctx.program.geometry.heightTwips = static_cast<int>(std::strtod(Trim(wh).c_str(), nullptr));
    }
    ctx.program.clOverride = read("CL_OVERRIDE");
  } catch (const RunError& e) {
    ctx.Message("W Ini Error\r\n" + IntText(e.number()) + " : " + e.description(), Icon::None);
  }
}

void SetINIVals(RunContext& ctx) {
  const JobSettings& s = ctx.settings;
  const std::string file = ctx.program.app.appPath + "/robocopy_settings.ini";
  try {
    auto write = [&](const char* key, const std::string& value) {
      INIwrite(file, kSavedSettings, key, value);
    };
    write("COPY_D", Flag(s.CopyData));
    write("COPY_A", Flag(s.CopyAttributes));
    write("COPY_T", Flag(s.CopyTimestamps));
    write("COPY_S", Flag(s.CopySecurity));
    write("COPY_O", Flag(s.CopyOwner));
    write("COPY_U", Flag(s.CopyAudit));
    write("B", Flag(s.CopyBackup));
    write("Z", Flag(s.CopyRestartable));
    write("S", Flag(s.CopySubs));
    write("ZB", Flag(s.CopyZB));
    write("FullPaths", Flag(s.FullPaths));
    write("RootFolders", Flag(s.RootFolders));
    write("CopyEmpties", Flag(s.CopyEmpties));
    write("SeparateTS", Flag(s.SeparateTS));
    // "Overwrite" is read but not written: an overwrite choice does not outlive the program.
    write("Rename", Flag(s.Collision == kCollisionRename));
    const int width = ctx.program.geometry.widthTwips;
    const int height = ctx.program.geometry.heightTwips;
    write("WW", width > 5000 ? IntText(width) : "12000");
    write("WH", height > 6000 ? IntText(height) : "6000");
    write("CL_OVERRIDE", ctx.program.clOverride);
  } catch (const RunError& e) {
    ctx.Message("W Ini Error\r\n" + IntText(e.number()) + " : " + e.description(), Icon::None);
  }
}

void LoadLogProcesses(RunContext& ctx) {
  const std::string file = ctx.program.app.appPath + "/log_processes.ini";
  if (!FileExists(file)) {
    for (const SwitchKey& k : kLogProcessKeys) {
      INIwrite(file, kSavedSettings, k.key, "1");
      ctx.program.logProcesses.*k.field = true;
    }
    return;
  }
  for (const SwitchKey& k : kLogProcessKeys) {
    ctx.program.logProcesses.*k.field = INIread(file, kSavedSettings, k.key) == "1";
  }
}

void GetDefaults(RunContext& ctx) {
  JobSettings& s = ctx.settings;
  const std::string file = ctx.program.app.appPath + "/defaults.ini";
  if (!FileExists(file)) return;
  try {
    auto read = [&](const char* key) { return INIread(file, "Defaults", key); };
    // A box with a click rule is set through it, as a control set from code fires its rule.
    for (const CheckKey& k : kDefaultChecks) {
      const bool on = read(k.key) == "1";
      if (k.setter != nullptr) {
        k.setter(s, on);
      } else {
        s.*k.field = on;
      }
    }
    // One key for the box and the text: the same value serves both.
    const std::string manual = read("ManualFlags");
    SetManualFlags(s, manual == "1");
    s.ManualFlagsText = manual;
    for (const TextKey& k : kDefaultTexts) s.*k.field = read(k.key);
    s.Collision = ListIndexFrom(read("Collision"), kCollisionRename);
    s.Extension = ListIndexFrom(read("Extension"), kExtensionDoNotCopy);
  } catch (const RunError& e) {
    ctx.Message("Could not load defaults (" + IntText(e.number()) + "): " + e.description(),
                Icon::None);
  }
}

void SaveDefaults(RunContext& ctx) {
  const JobSettings& s = ctx.settings;
  const std::string file = ctx.program.app.appPath + "/defaults.ini";
  try {
    auto write = [&](const char* key, const std::string& value) {
      INIwrite(file, "Defaults", key, value);
    };
    for (const CheckKey& k : kDefaultChecks) write(k.key, Flag(s.*k.field));
    write("CreateHashList", Flag(s.CreateHashList));
    // The box first, then the text over it under the same key: a saved "1" would otherwise
    // come back as the manual flags themselves.
    write("ManualFlags", Flag(s.ManualFlags));
    write("ManualFlags", s.ManualFlagsText);
    for (const TextKey& k : kDefaultTexts) write(k.key, s.*k.field);
    write("Collision", IntText(s.Collision));
    write("Extension", IntText(s.Extension));
  } catch (const RunError& e) {
    ctx.Message("Could not save defaults (" + IntText(e.number()) + "): " + e.description(),
                Icon::None);
  }
}

void WriteLocalSettings(RunContext& ctx) {
  // The program is closing: a file that can't be written keeps what it had, and nothing reads
  // these two back, so there is no one to tell.
  try {
    std::error_code ec;
    if (std::filesystem::is_directory(ctx.program.app.hashListFolder, ec)) {
      INIwrite(ctx.program.app.localIniPath, "LocalSettings", "HASHPATH", ctx.program.app.hashListFolder);
    }
  } catch (const RunError&) {
  }
  try {
    const std::string file = ctx.program.app.appPath + "/ravelin.ini";
    INIwrite(file, "Geometry", "MainWidth", SingleText(ctx.program.geometry.widthTwips));
    INIwrite(file, "Geometry", "MainTop", SingleText(ctx.program.geometry.topTwips));
    INIwrite(file, "Geometry", "MainLeft", SingleText(ctx.program.geometry.leftTwips));
    INIwrite(file, "Geometry", "MainHeight", SingleText(ctx.program.geometry.heightTwips));
  } catch (const RunError&) {
  }
}

}  // namespace qr
