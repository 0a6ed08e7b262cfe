#include "jobdef/job_file.h"

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
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

// The extension box as a job file carries it: one line, commas for line ends, no tabs. The box
// keeps the normalised text.
void NormaliseExtensions(JobSettings& s) {
  if (Trim(s.Extensions).empty()) return;
  s.Extensions = ReplaceAll(LineEndsToCommas(s.Extensions), "\t", "");
}

}  // namespace

bool WriteJobRecord(RunContext& ctx) {
  JobSettings& s = ctx.settings;
  LineWriter w;
  w.Add("[PROD]", ctx.titleText);
  w.Add("[VERSION]", ctx.versionText);
  w.Add("[APPPATH]", WithoutTrailingSep(ctx.app.programFolder));
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
  NormaliseExtensions(s);
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

}  // namespace qr
