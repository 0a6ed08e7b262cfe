#include "job_list.h"

#include "platform/text.h"
#include "terminal_dialogs.h"

namespace qr::cli {

void PrintDueJobs(const std::vector<JobEntry>& jobs, const std::string& folder, std::ostream& out) {
  if (jobs.empty()) {
    out << "No prepared job is due on this computer (looked in " << TerminalText(folder) << ").\n";
    return;
  }
  out << "Prepared jobs due on this computer (from " << TerminalText(folder) << "):\n";
  for (const JobEntry& job : jobs) {
    out << "\n" << TerminalText(job.JobName) << "\n";
    if (!Trim(job.JobInstructions).empty()) {
      out << "    " << TerminalText(job.JobInstructions) << "\n";
    }
  }
  out << "\nRun one with: ravelin-run --jobs NAME\n";
}

std::optional<std::string> FindDueJob(const std::vector<JobEntry>& jobs, const std::string& name,
                                      std::string& error) {
  // Names need not be unique: a name shared by several jobs names none of them.
  for (bool folded : {false, true}) {
    std::vector<const JobEntry*> found;
    for (const JobEntry& job : jobs) {
      if (folded ? LowerCase(job.JobName) == LowerCase(name) : job.JobName == name) {
        found.push_back(&job);
      }
    }
    if (found.size() == 1) return found.front()->JobFile;
    if (found.size() > 1) {
      error = "several due jobs are named '" + TerminalText(name) + "':";
      for (const JobEntry* job : found) error += " " + TerminalText(job->JobFile);
      error += "; run one of them by its file";
      return std::nullopt;
    }
  }
  error = "no prepared job named '" + TerminalText(name) +
          "' is due on this computer; 'ravelin-run --jobs' lists those that are";
  return std::nullopt;
}

}  // namespace qr::cli
