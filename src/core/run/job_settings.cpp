#include "run/job_settings.h"

#include "platform/dialogs.h"
#include "platform/path_layer.h"
#include "platform/paths.h"
#include "platform/plain_text.h"
#include "platform/text.h"

namespace qr {

void SetRobocopy(JobSettings& s, bool on) {
  if (s.Robocopy == on) return;
  s.Robocopy = on;
  SetRavelin(s, !on);
}

void SetRavelin(JobSettings& s, bool on) {
  if (s.Ravelin == on) return;
  s.Ravelin = on;
  SetRobocopy(s, !on);
}

void SetCreateLog(JobSettings& s, bool on) {
  if (s.CreateLog == on) return;
  s.CreateLog = on;
  // The hash boxes keep their values while disabled.
  s.enabled.HashSource = on;
  s.enabled.HashDest = on;
}

void SetFullPaths(JobSettings& s, bool on) {
  if (s.FullPaths == on) return;
  s.FullPaths = on;
  s.enabled.RootFolders = on;
  s.enabled.CreateSubs = !on;
}

void SetManualFlags(JobSettings& s, bool on) {
  if (s.ManualFlags == on) return;
  s.ManualFlags = on;
  s.enabled.ManualFlagsText = on;
  s.enabled.RobocopyFlagBoxes = !on;
}

// The three copy modes allow at most one on.
void SetCopyBackup(JobSettings& s, bool on) {
  if (s.CopyBackup == on) return;
  s.CopyBackup = on;
  if (on) {
    SetCopyRestartable(s, false);
    SetCopyZB(s, false);
  }
}

void SetCopyRestartable(JobSettings& s, bool on) {
  if (s.CopyRestartable == on) return;
  s.CopyRestartable = on;
  if (on) {
    SetCopyBackup(s, false);
    SetCopyZB(s, false);
  }
}

void SetCopyZB(JobSettings& s, bool on) {
  if (s.CopyZB == on) return;
  s.CopyZB = on;
  if (on) {
    SetCopyBackup(s, false);
    SetCopyRestartable(s, false);
  }
}

bool IsFileList(const std::string& entry) {
  return Trim(entry).substr(0, 11) == "[File List]";
}

std::string GetOptionString(const JobSettings& s) {
  std::string letters;
  if (s.CopyData) letters += 'D';
  if (s.CopyAttributes) letters += 'A';
  if (s.CopyTimestamps) letters += 'T';
  if (s.CopySecurity) letters += 'S';
  if (s.CopyOwner) letters += 'O';
  if (s.CopyAudit) letters += 'U';
  std::string out;
  if (!letters.empty()) out = "/COPY:" + letters + " ";
  if (s.CopyBackup) out += "/B ";
  if (s.CopyRestartable) out += "/Z ";
  if (s.CopySubs) out += "/S ";
  if (s.CopyZB) out += "/ZB ";
  out += "/R:4 ";
  out += "/W:2 ";
  if (out.size() > 1) out.pop_back();
  return out;
}

namespace {

// One comma-separated piece: what follows its first ".", trimmed and lower-cased. A piece that
// ends in its first point yields nothing.
void AddExtensionPiece(JobSettings& s, const std::string& piece) {
  if (Trim(piece).empty()) return;
  size_t dot = piece.find('.');
  size_t pos = dot == std::string::npos ? 0 : dot + 1;  // 1-based, 0 when there is none
  if (pos >= piece.size()) return;
  s.ExtensionList.push_back(LowerCase(Trim(piece.substr(pos))));
}

void AddExtensionLine(JobSettings& s, const std::string& line) {
  for (const auto& piece : Split(line, ",")) AddExtensionPiece(s, piece);
}

}  // namespace

void BuildExtensionList(JobSettings& s, Dialogs& dialogs, const std::string& title) {
  s.ExtensionList.clear();
  if (!Trim(s.Extensions).empty()) {
    AddExtensionLine(s, LineEndsToCommas(s.Extensions));
  }
  if (Trim(s.ExtListFile).empty()) return;
  if (!FileExists(s.ExtListFile)) {
    dialogs.MessageBox("The extension list file:\r\n" + s.ExtListFile + "\r\nCould not be found.",
                       title, Icon::None, Buttons::Ok);
    return;
  }
  auto lines = ReadLines(s.ExtListFile);
  if (!lines) {
    dialogs.MessageBox("Could not build extension list", title, Icon::None, Buttons::Ok);
    return;
  }
  for (const auto& line : *lines) AddExtensionLine(s, line);
}

std::string LineEndsToCommas(std::string_view text) {
  std::string out = ReplaceAll(text, "\r\n", ",");
  out = ReplaceAll(out, "\r", ",");
  return ReplaceAll(out, "\n", ",");
}

RunPaths ComputeRunPaths(const std::string& logPath) {
  std::string base = WithTrailingSep(logPath);
  RunPaths p;
  p.DatabasePath = base + "_job.sdb";
  p.VerificationLogPath = base + "_verification_log.csv";
  p.JobRecordPath = base + "_jobfile.rvj";
  p.HashListPath = base + "hashlist.md5";
  p.ExclusionLogPath = base + "exclusions.log";
  p.TallyPath = base + "tally.txt";
  p.ErrorLogPath = base + "_errors.log";
  p.TimestampLogPath = base + "_ts_mismatch.log";
  p.FileListPath = base + "filelist.txt";
  p.SuspectLogPath = base + "suspect.log";
  return p;
}

}  // namespace qr
