#include "jobdef/job_file.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>

#include "jobdef/source_list.h"
#include "platform/errors.h"
#include "platform/machine.h"
#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/plain_text.h"
#include "platform/text.h"
#include "run/run_context.h"

namespace qr {

namespace {

class LineWriter {
 public:
  void Add(std::string_view tag, std::string_view value) {
    text_.append(tag);
    text_ += '\t';
    text_.append(value);
    text_.append(kCrLf);
  }
  void Flag(std::string_view tag, bool on) { Add(tag, on ? "1" : "0"); }
  // Written only when not blank after trimming; the value is the trimmed text.
  void TrimmedIfAny(std::string_view tag, const std::string& value) {
    std::string t = Trim(value);
    if (!t.empty()) Add(tag, t);
  }
  // Written only when the trimmed text is a number from 1 to `max`; the value is that text.
  void TrimmedIfInRange(std::string_view tag, const std::string& value, int max) {
    std::string t = Trim(value);
    if (!IsNumeric(t)) return;
    double n = std::strtod(t.c_str(), nullptr);
    if (n >= 1 && n <= max) Add(tag, t);
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

// An extension box as a job file carries it: one line, commas for line ends, no tabs. The box
// keeps the normalised text.
void NormaliseExtensions(std::string& extensions) {
  if (Trim(extensions).empty()) return;
  extensions = ReplaceAll(LineEndsToCommas(extensions), "\t", "");
}

}  // namespace

bool WriteJobRecord(RunContext& ctx) {
  JobSettings& s = ctx.settings;
  LineWriter w;
  w.Add("[PROD]", ctx.program.titleText);
  w.Add("[VERSION]", ctx.program.versionText);
  w.Add("[APPPATH]", WithoutTrailingSep(ctx.program.app.programFolder));
  w.Add("[TARGET]", s.TargetPath);
  w.Add("[JPATH]", s.LogPath);
  if (!Trim(s.CommonLogPath).empty()) w.Add("[COMMONLOG]", s.CommonLogPath);
  for (const auto& src : s.Sources) w.Add("[SRC]", src);
  for (const auto& p : s.ExclusionPatterns) w.Add("[EXCLUSION]", p);
  for (const auto& p : s.InclusionPatterns) w.Add("[FNAMEFILTER]", p);
  // Two separate tests: a record of a run with both boxes set carries both lines.
  if (s.Robocopy) w.Add("[ENGINE]", "RC");
  if (s.Ravelin) w.Add("[ENGINE]", "RV");
  w.TrimmedIfAny("[BMONTH]", s.StartMonth);
  w.TrimmedIfAny("[BDAY]", s.StartDay);
  w.TrimmedIfAny("[BYEAR]", s.StartYear);
  w.TrimmedIfAny("[EMONTH]", s.EndMonth);
  w.TrimmedIfAny("[EDAY]", s.EndDay);
  w.TrimmedIfAny("[EYEAR]", s.EndYear);
  w.Flag("[SEARCHCREATED]", s.SearchCreated);
  w.Flag("[SEARCHMODIFIED]", s.SearchModified);
  w.Flag("[SEARCHACCESSED]", s.SearchAccessed);
  w.Flag("[SILENT]", s.Silent);
  w.Flag("[OVERWRITE]", s.Collision == kCollisionOverwrite);
  w.Flag("[COPYFILES]", s.CopyFiles);
  w.Flag("[TALLYSUM]", s.CreateTally);
  w.Flag("[FILELIST]", s.CreateFileList);
  w.Flag("[RENAME]", s.Collision == kCollisionRename);
  w.Flag("[FULLPATH]", s.FullPaths);
  w.Flag("[ROOTFOLDERS]", s.RootFolders);
  w.Flag("[CREATESUBS]", s.CreateSubs);
  w.Flag("[COPYEMPTIES]", s.CopyEmpties);
  w.Flag("[COPYSUBS]", s.CopySubs);
  w.Flag("[SEPARATE_TS]", s.SeparateTS);
  NormaliseExtensions(s.Extensions);
  if (!Trim(s.Extensions).empty()) w.Add("[EXTS]", s.Extensions);
  if (!Trim(s.ExtListFile).empty()) w.Add("[EXTFILE]", s.ExtListFile);
  w.Flag("[EXTOP]", s.Extension == kExtensionDoNotCopy);
  if (s.Robocopy) {
    w.Flag("[COPYATTR]", s.CopyAttributes);
    w.Flag("[COPYAUDIT]", s.CopyAudit);
    w.Flag("[COPYBACKUP]", s.CopyBackup);
    w.Flag("[COPYDATA]", s.CopyData);
    w.Flag("[COPYOWNER]", s.CopyOwner);
    w.Flag("[COPYRESTART]", s.CopyRestartable);
    w.Flag("[COPYSEC]", s.CopySecurity);
    w.Flag("[COPYTIME]", s.CopyTimestamps);
    w.Flag("[COPYFAILOVER]", s.CopyZB);
  }
  w.Flag("[LOG]", s.CreateLog);
  if (s.CreateLog) {
    w.Flag("[S-HASH]", s.HashSource);
    w.Flag("[D-HASH]", s.HashDest);
  }
  return WriteWholeFile(WithTrailingSep(s.LogPath) + "_jobfile.rvj", w.text());
}

void AddJobFileEntry(RunContext& ctx, const std::string& line) {
  AppendLine(WithTrailingSep(ctx.settings.LogPath) + "_jobfile.rvj", line);
}

namespace {

[[noreturn]] void TypeMismatch() { throw RunError(13, "Type mismatch"); }
[[noreturn]] void Overflow() { throw RunError(6, "Overflow"); }

// A check box value: blanks around an optionally signed whole number, nothing else.
int SmallInteger(const std::string& value) {
  std::string t = Trim(value);
  size_t i = 0;
  bool negative = false;
  if (i < t.size() && (t[i] == '+' || t[i] == '-')) negative = t[i++] == '-';
  if (i == t.size()) TypeMismatch();
  int64_t n = 0;
  for (; i < t.size(); ++i) {
    if (t[i] < '0' || t[i] > '9') TypeMismatch();
    n = n * 10 + (t[i] - '0');
    if (n > 32768) Overflow();
  }
  if (negative) n = -n;
  if (n > std::numeric_limits<int16_t>::max()) Overflow();
  return static_cast<int>(n);
}

// Counts and sizes pass through a fixed-point type with four decimals: the value in
// ten-thousandths, rounded half to even at the fifth decimal.
int64_t FixedPoint(const std::string& value) {
  if (!IsNumeric(value)) TypeMismatch();
  std::string t = Trim(value);
  size_t i = 0;
  bool negative = false;
  if (t[i] == '+' || t[i] == '-') negative = t[i++] == '-';
  constexpr uint64_t kMaxWhole = 922337203685477;  // the type's limit in whole units
  uint64_t whole = 0;
  for (; i < t.size() && t[i] != '.'; ++i) {
    whole = whole * 10 + static_cast<uint64_t>(t[i] - '0');
    if (whole > kMaxWhole) Overflow();
  }
  uint64_t scaled = whole * 10000;
  std::string fraction = i < t.size() ? t.substr(i + 1) : std::string();
  uint64_t tenThousandths = 0;
  for (size_t k = 0; k < 4; ++k) {
    tenThousandths =
        tenThousandths * 10 + (k < fraction.size() ? static_cast<uint64_t>(fraction[k] - '0') : 0);
  }
  scaled += tenThousandths;
  if (fraction.size() > 4) {
    char fifth = fraction[4];
    bool restNonZero = fraction.find_first_not_of('0', 5) != std::string::npos;
    if (fifth > '5' || (fifth == '5' && (restNonZero || scaled % 2 == 1))) ++scaled;
  }
  const uint64_t limit =
      static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + (negative ? 1u : 0u);
  if (scaled > limit) Overflow();
  if (negative)
    return scaled == limit ? std::numeric_limits<int64_t>::min() : -static_cast<int64_t>(scaled);
  return static_cast<int64_t>(scaled);
}

// A fixed-point value to a whole number, half to even.
int64_t WholeOf(int64_t scaled) {
  int64_t q = scaled / 10000;
  int64_t r = scaled % 10000;
  if (r > 5000 || (r == 5000 && q % 2 != 0)) ++q;
  if (r < -5000 || (r == -5000 && q % 2 != 0)) --q;
  return q;
}

int32_t Count32(const std::string& value) {
  int64_t n = WholeOf(FixedPoint(value));
  if (n < std::numeric_limits<int32_t>::min() || n > std::numeric_limits<int32_t>::max()) {
    Overflow();
  }
  return static_cast<int32_t>(n);
}

int64_t Bytes64(const std::string& value) { return WholeOf(FixedPoint(value)); }

// The two senses of a flag in a job file: most boxes are on unless "0"; a few are off unless
// "1", so an empty value lands differently in each.
bool OnUnlessZero(const std::string& value) { return value != "0"; }
bool OffUnlessOne(const std::string& value) { return value == "1"; }

// The tags that both readers apply to the options in the same way. False for any other tag.
bool ApplyOptionTag(JobSettings& s, const std::string& tag, const std::string& value) {
  if (tag == "[EXCLUSION]") {
    s.ExclusionPatterns.push_back(value);
  } else if (tag == "[FNAMEFILTER]") {
    s.InclusionPatterns.push_back(value);
  } else if (tag == "[ENGINE]") {
    // Only the named box is set; its click rule clears the other.
    if (value == "RC") {
      SetRobocopy(s, true);
    } else {
      SetRavelin(s, true);
    }
  } else if (tag == "[COPYFILES]") {
    s.CopyFiles = OnUnlessZero(value);
  } else if (tag == "[TALLYSUM]") {
    s.CreateTally = OnUnlessZero(value);
  } else if (tag == "[FILELIST]") {
    s.CreateFileList = OnUnlessZero(value);
  } else if (tag == "[FULLPATH]") {
    SetFullPaths(s, OnUnlessZero(value));
  } else if (tag == "[ROOTFOLDERS]") {
    s.RootFolders = OnUnlessZero(value);
  } else if (tag == "[CREATESUBS]") {
    s.CreateSubs = OnUnlessZero(value);
  } else if (tag == "[COPYEMPTIES]") {
    s.CopyEmpties = OnUnlessZero(value);
  } else if (tag == "[SEPARATE_TS]") {
    s.SeparateTS = OnUnlessZero(value);
  } else if (tag == "[COPYSUBS]") {
    s.CopySubs = OnUnlessZero(value);
  } else if (tag == "[SILENT]") {
    s.Silent = OffUnlessOne(value);
  } else if (tag == "[LOG]") {
    SetCreateLog(s, SmallInteger(value) != 0);
  } else if (tag == "[S-HASH]") {
    s.HashSource = SmallInteger(value) != 0;
  } else if (tag == "[D-HASH]") {
    s.HashDest = SmallInteger(value) != 0;
  } else if (tag == "[RENAME]") {
    // "0" leaves the choice as it is, so "do nothing" is never restored over another.
    if (value == "1") s.Collision = kCollisionRename;
  } else if (tag == "[OVERWRITE]") {
    if (value == "1") s.Collision = kCollisionOverwrite;
  } else if (tag == "[STARTEX]") {
    s.StartCommand = value;
  } else if (tag == "[SHELLEX]") {
    s.EndCommand = value;
  } else if (tag == "[HASHFILTER]" || tag == "[SKIPSYSFILES]" || tag == "[SKIPSYSDIRS]" ||
             tag == "[SKIPTEMP]" || tag == "[SKIPDUPES]" || tag == "[HASHLIST]") {
    // Reserved: those options keep what the dialog holds when the job runs.
  } else {
    return false;
  }
  return true;
}

// The ROBOCOPY flags, each through its click rule where it has one.
bool ApplyRobocopyTag(JobSettings& s, const std::string& tag, const std::string& value) {
  if (tag == "[COPYATTR]") {
    s.CopyAttributes = SmallInteger(value) != 0;
  } else if (tag == "[COPYAUDIT]") {
    s.CopyAudit = SmallInteger(value) != 0;
  } else if (tag == "[COPYBACKUP]") {
    SetCopyBackup(s, SmallInteger(value) != 0);
  } else if (tag == "[COPYDATA]") {
    s.CopyData = SmallInteger(value) != 0;
  } else if (tag == "[COPYOWNER]") {
    s.CopyOwner = SmallInteger(value) != 0;
  } else if (tag == "[COPYRESTART]") {
    SetCopyRestartable(s, SmallInteger(value) != 0);
  } else if (tag == "[COPYSEC]") {
    s.CopySecurity = SmallInteger(value) != 0;
  } else if (tag == "[COPYTIME]") {
    s.CopyTimestamps = SmallInteger(value) != 0;
  } else if (tag == "[COPYFAILOVER]") {
    SetCopyZB(s, SmallInteger(value) != 0);
  } else {
    return false;
  }
  return true;
}

// Calls `apply(tag, value)` for each tagged line in file order. A line is split at every TAB;
// one with fewer than two fields is skipped, and fields after the value are dropped.
template <typename Apply>
void ForEachTaggedLine(const std::string& path, Apply apply) {
  int err = 0;
  std::optional<std::vector<std::string>> lines = ReadLines(path, &err);
  if (!lines) throw SystemError(err != 0 ? err : EIO);
  for (const auto& line : *lines) {
    std::vector<std::string> fields = Split(line, "\t");
    if (fields.size() < 2) continue;
    apply(fields[0], fields[1]);
  }
}

}  // namespace

void ReadRVFile(RunContext& ctx, const std::string& path) {
  const std::string drive = ProgramDrive(WithoutTrailingSep(ctx.program.app.programFolder));
  if (!FileExists(path, &ctx)) return;
  JobSettings& s = ctx.settings;
  s.Sources.clear();
  s.ExclusionPatterns.clear();
  // Inclusion patterns and the log path are left alone: a second load adds its patterns again.
  ctx.job.JobName.clear();
  ctx.job.SpecialInstructions.clear();
  ctx.job.ErrorInstructions.clear();
  s.TargetPath.clear();
  const std::string endCommandBefore = s.EndCommand;
  bool named = false;
  bool carriesEndCommand = false;

  ForEachTaggedLine(path, [&](const std::string& tag, const std::string& value) {
    if (tag == "[SHELLEX]") carriesEndCommand = true;
    if (ApplyOptionTag(s, tag, value)) return;
    if (tag == "[JNAME]") {
      named = true;
      ctx.job.JobName = value;
    } else if (tag == "[JINSTRUCT]") {
      ctx.job.SpecialInstructions = value;
    } else if (tag == "[JERRINST]") {
      ctx.job.ErrorInstructions = value;
    } else if (tag == "[TARGET]") {
      s.TargetPath = value;
    } else if (tag == "[JPATH]") {
      s.LogPath = value;
    } else if (tag == "[COMMONLOG]") {
      // Only the job manager takes the common log folder from a file.
    } else if (tag == "[SRC]") {
      std::string source = ReplaceAll(value, "[RVDrive]", drive);
      AddSource(ctx, source);
    } else if (tag == "[EXTFILE]") {
      s.ExtListFile = ReplaceAll(value, "[RVDrive]", drive);
    } else if (tag == "[EXTS]") {
      s.Extensions = value;
    } else if (tag == "[EXTOP]") {
      s.Extension = value == "1" ? kExtensionDoNotCopy : kExtensionCopyOnly;
    } else if (tag == "[SEARCHCREATED]") {
      s.SearchCreated = OffUnlessOne(value);
    } else if (tag == "[SEARCHMODIFIED]") {
      s.SearchModified = OffUnlessOne(value);
    } else if (tag == "[SEARCHACCESSED]") {
      s.SearchAccessed = OffUnlessOne(value);
    } else if (tag == "[BMONTH]") {
      s.StartMonth = Trim(value);
    } else if (tag == "[BDAY]") {
      s.StartDay = Trim(value);
    } else if (tag == "[BYEAR]") {
      s.StartYear = Trim(value);
    } else if (tag == "[EMONTH]") {
      s.EndMonth = Trim(value);
    } else if (tag == "[EDAY]") {
      s.EndDay = Trim(value);
    } else if (tag == "[EYEAR]") {
      s.EndYear = Trim(value);
    } else if (tag == "[NUMFILES]") {
      ctx.counters.TotalFiles = Count32(value);
    } else if (tag == "[FILESDONE]") {
      ctx.counters.FilesProcessed = Count32(value);
    } else if (tag == "[JOBSIZE]" || tag == "[TOTALBYTES]") {
      ctx.counters.TotalBytes = Bytes64(value);
    } else if (tag == "[BYTESDONE]") {
      ctx.counters.BytesProcessed = Bytes64(value);
    } else if (tag == "[LASTDIR]") {
      ctx.job.LastDir = value;
    } else if (tag == "[LASTSRC]") {
      ctx.job.LastSrc = value;
    } else if (s.Robocopy) {
      // The ROBOCOPY flags count only while that engine is chosen at this line, as it is in a
      // record of a ROBOCOPY run, whose [ENGINE] line stands earlier.
      ApplyRobocopyTag(s, tag, value);
    }
  });

  // A run never writes an end command into its job record, so one found there was put there by
  // someone else: it runs only when the person asked for it.
  const bool record = !named || LowerCase(path).ends_with(".rvj");
  if (record && carriesEndCommand && !ctx.program.flags.allowRecordEndCommand) {
    const std::string left = s.EndCommand;
    s.EndCommand = endCommandBefore;
    ctx.Message("This job record holds an end command, which no run writes into a job record. "
                "It will not be run:\r\n" + left,
                Icon::Exclamation);
  }
}

bool SaveJobFile(PreparedJob& job, const JobSettings& options, const std::string& path) {
  const JobSettings& s = options;
  LineWriter w;
  w.Add("[JNAME]", job.OrderName);
  w.Add("[JINSTRUCT]", job.Instructions);
  w.Add("[JERRINST]", job.ErrorNotes);
  w.Add("[TARGET]", job.Target);
  w.Add("[JPATH]", job.LogPath);
  if (!Trim(job.CommonLog).empty()) w.Add("[COMMONLOG]", job.CommonLog);
  for (const auto& src : job.Sources) w.Add("[SRC]", src);
  for (const auto& p : s.ExclusionPatterns) w.Add("[EXCLUSION]", p);
  for (const auto& p : s.InclusionPatterns) w.Add("[FNAMEFILTER]", p);
  // One test here, unlike the job record: a prepared job always names exactly one engine.
  w.Add("[ENGINE]", s.Ravelin ? "RV" : "RC");
  w.Flag("[COPYEMPTIES]", s.CopyEmpties);
  w.Flag("[COPYSUBS]", s.CopySubs);
  w.Flag("[COPYFILES]", s.CopyFiles);
  w.Flag("[TALLYSUM]", s.CreateTally);
  w.Flag("[FILELIST]", s.CreateFileList);
  // A month or day out of range is dropped without a word; years are not checked.
  w.TrimmedIfInRange("[BMONTH]", job.BeginMonth, 12);
  w.TrimmedIfInRange("[BDAY]", job.BeginDay, 31);
  w.TrimmedIfAny("[BYEAR]", job.BeginYear);
  w.TrimmedIfInRange("[EMONTH]", job.EndMonth, 12);
  w.TrimmedIfInRange("[EDAY]", job.EndDay, 31);
  w.TrimmedIfAny("[EYEAR]", job.EndYear);
  w.Flag("[SEARCHCREATED]", job.LSWSearchCreated);
  w.Flag("[SEARCHMODIFIED]", job.LSWSearchModified);
  w.Flag("[SEARCHACCESSED]", job.LSWSearchAccessed);
  w.Flag("[SILENT]", s.Silent);
  w.Flag("[OVERWRITE]", s.Collision == kCollisionOverwrite);
  w.Flag("[RENAME]", s.Collision == kCollisionRename);
  w.Flag("[FULLPATH]", s.FullPaths);
  w.Flag("[ROOTFOLDERS]", s.RootFolders);
  w.Flag("[CREATESUBS]", s.CreateSubs);
  w.Flag("[SEPARATE_TS]", s.SeparateTS);
  NormaliseExtensions(job.Ext);
  if (!Trim(job.Ext).empty()) w.Add("[EXTS]", job.Ext);
  if (!Trim(job.ExtFile).empty()) w.Add("[EXTFILE]", job.ExtFile);
  w.Flag("[EXTOP]", job.ExtAction == kExtensionDoNotCopy);
  w.Flag("[LOG]", s.CreateLog);
  if (s.CreateLog) {
    w.Flag("[S-HASH]", s.HashSource);
    w.Flag("[D-HASH]", s.HashDest);
  }
  if (!Trim(job.CompName).empty()) w.Add("[CNAME]", job.CompName);
  if (!Trim(s.StartCommand).empty()) w.Add("[STARTEX]", s.StartCommand);
  if (!Trim(s.EndCommand).empty()) w.Add("[SHELLEX]", s.EndCommand);
  return WriteWholeFile(path, w.text());
}

void LoadFromFile(const std::string& path, PreparedJob& job, JobSettings& options) {
  if (Trim(path).empty()) return;
  JobSettings& s = options;
  // The form's text fields, its sources and the exclusions; the extension action and the date
  // field boxes keep their state, and inclusion patterns accumulate.
  s.ExclusionPatterns.clear();
  job.Sources.clear();
  for (std::string* field :
       {&job.BeginMonth, &job.BeginDay, &job.BeginYear, &job.EndMonth, &job.EndDay, &job.EndYear,
        &job.CommonLog, &job.ErrorNotes, &job.OrderName, &job.Instructions, &job.CompName, &job.Ext,
        &job.ExtFile, &job.LogPath, &job.Target}) {
    field->clear();
  }

  ForEachTaggedLine(path, [&](const std::string& tag, const std::string& value) {
    if (ApplyOptionTag(s, tag, value)) return;
    if (tag == "[JNAME]") {
      job.OrderName = value;
    } else if (tag == "[JINSTRUCT]") {
      job.Instructions = value;
    } else if (tag == "[JERRINST]") {
      job.ErrorNotes = value;
    } else if (tag == "[TARGET]") {
      job.Target = value;
    } else if (tag == "[JPATH]") {
      job.LogPath = value;
    } else if (tag == "[COMMONLOG]") {
      job.CommonLog = value;
    } else if (tag == "[CNAME]") {
      job.CompName = value;
    } else if (tag == "[SRC]") {
      job.Sources.push_back(value);  // variables stay for the machine that runs the job
    } else if (tag == "[EXTFILE]") {
      job.ExtFile = value;
    } else if (tag == "[EXTS]") {
      job.Ext = value;
    } else if (tag == "[EXTOP]") {
      job.ExtAction = value == "1" ? kExtensionDoNotCopy : kExtensionCopyOnly;
    } else if (tag == "[SEARCHCREATED]") {
      job.LSWSearchCreated = OffUnlessOne(value);
    } else if (tag == "[SEARCHMODIFIED]") {
      job.LSWSearchModified = OffUnlessOne(value);
    } else if (tag == "[SEARCHACCESSED]") {
      job.LSWSearchAccessed = OffUnlessOne(value);
    } else if (tag == "[BMONTH]") {
      job.BeginMonth = Trim(value);
    } else if (tag == "[BDAY]") {
      job.BeginDay = Trim(value);
    } else if (tag == "[BYEAR]") {
      job.BeginYear = Trim(value);
    } else if (tag == "[EMONTH]") {
      job.EndMonth = Trim(value);
    } else if (tag == "[EDAY]") {
      job.EndDay = Trim(value);
    } else if (tag == "[EYEAR]") {
      job.EndYear = Trim(value);
    }
  });
}

}  // namespace qr
