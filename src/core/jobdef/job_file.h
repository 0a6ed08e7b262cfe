#pragma once
// Job files: the job record _jobfile.rvj that a run writes of itself, the prepared job (.lsw)
// that the job manager writes and reads, and the main window's reader of either kind.
#include <string>
#include <vector>

#include "run/job_settings.h"

namespace qr {

class RunContext;

// Writes the job record anew in its fixed line order. Normalises Extensions in place first.
// False when the file can't be written.
bool WriteJobRecord(RunContext& ctx);
// Appends one ready-made line to the job record of the current log folder; a failed append is
// silently lost and never stops the run.
void AddJobFileEntry(RunContext& ctx, const std::string& line);

// Loads a job file of either kind into the main window's state and the options, applying its
// lines in file order. A file that doesn't exist changes nothing. Sources go through AddSource
// with [RVDrive] replaced. An unreadable file, or no number where one is needed, throws RunError
// to the caller.
void ReadRVFile(RunContext& ctx, const std::string& path);

// The job manager's own fields; every other option of a prepared job lives in JobSettings.
// Defaults are those of a freshly opened job manager.
struct PreparedJob {
  std::string OrderName;
  std::string Instructions;
  std::string ErrorNotes;
  std::string Target = "[RVDrive]/[JobName]/";
  std::string LogPath = "[RVDrive]/_Logs/[JobName]/";
  std::string CommonLog;
  std::vector<std::string> Sources;  // as typed, variables unexpanded
  std::string Ext;
  int ExtAction = kExtensionCopyOnly;
  std::string ExtFile;
  bool LSWSearchCreated = false;
  bool LSWSearchModified = false;
  bool LSWSearchAccessed = false;
  std::string BeginMonth, BeginDay, BeginYear;
  std::string EndMonth, EndDay, EndYear;
  std::string CompName;
};

// Writes a prepared job in its fixed line order, replacing any earlier file. Ext is normalised
// in place first, as the job record's writer does with the options' extension text. False when
// the file can't be written; the job manager reports nothing either way.
bool SaveJobFile(PreparedJob& job, const JobSettings& options, const std::string& path);

// Fills the job manager's fields and the options from a job file of either kind. The form is
// cleared first (the text fields, the sources and the options' exclusion patterns; inclusion
// patterns accumulate). Sources are taken verbatim; counters and ROBOCOPY flags are not read.
// A blank path does nothing. An unreadable file, or no number where one is needed, throws
// RunError.
void LoadFromFile(const std::string& path, PreparedJob& job, JobSettings& options);

}  // namespace qr
