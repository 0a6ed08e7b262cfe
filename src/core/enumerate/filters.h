#pragma once
// The filter chain: which files become rows. Filters look at the listing's record only.
#include <optional>
#include <string>

#include "platform/dates.h"
#include "platform/find_data.h"

namespace qr {

class RunContext;
struct JobSettings;

struct CalendarDate {
  int year = 0, month = 0, day = 0;
};

struct DateRange {
  CalendarDate begin;
  CalendarDate end;
};

// True when all six date boxes are filled and numeric.
bool DateFilterEnabled(const JobSettings& s);
// The begin and end dates from the boxes, or nullopt when the filter is off. Numbers that make
// no date throw RunError.
std::optional<DateRange> BuildDateRange(const JobSettings& s);
// A file time's local calendar date.
CalendarDate FileTimeToLocalDate(FileTime t);

// The extension test on a bare name.
bool ExtensionPasses(const JobSettings& s, const std::string& name);
// The date test: any stamp named by the on boxes within the range, both days inclusive.
bool DatePasses(const JobSettings& s, const DateRange& range, const FindData& entry);
// Steps 1 to 4 of the chain of a walked file: inclusion, exclusion, extension, date. `folder`
// ends in its separator; `range` is nullopt when the date filter is off.
bool WalkedFilePasses(const JobSettings& s, const std::optional<DateRange>& range,
                      const std::string& folder, const FindData& entry);
// The chain of a walked folder: `subject` is folder + name + separator.
bool WalkedFolderExcluded(const JobSettings& s, const std::string& subject);
// The chain of a file named directly (a single file source or a file list entry): extension
// and date only. A failure is reported ("Filter error on") and leaves the file out.
bool FilterSingleFile(RunContext& ctx, const std::string& path);

}  // namespace qr
