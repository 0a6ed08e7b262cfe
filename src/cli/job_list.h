#pragma once
// The job picker's view on a terminal: the prepared jobs due on this computer, and one of them
// found by its name to run.
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "ui/job_picker.h"

namespace qr::cli {

// Each job's name, then its instructions indented below it, in the picker's order; a line
// that says so when there is none. `folder` is the job folder that was looked in.
void PrintDueJobs(const std::vector<JobEntry>& jobs, const std::string& folder, std::ostream& out);

// The job file of the due job named `name`: the name as listed, else the one name equal to it
// folded to lower case. nullopt, with the reason in `error`, when no job or more than one
// answers to it.
std::optional<std::string> FindDueJob(const std::vector<JobEntry>& jobs, const std::string& name,
                                      std::string& error);

}  // namespace qr::cli
