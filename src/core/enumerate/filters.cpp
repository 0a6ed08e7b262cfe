#include "enumerate/filters.h"

#include <algorithm>
#include <chrono>
#include <tuple>
#include <vector>

#include "platform/errors.h"
#include "platform/like_match.h"
#include "platform/path_layer.h"
#include "platform/text.h"
#include "run/run_context.h"

namespace qr {

namespace {

RunError TypeMismatch() { return RunError(13, "Type mismatch"); }

// One date box as a whole number. The boxes hold what the person typed; anything but plain
// digits (a sign, a point) can't be part of a month/day/year text.
int BoxNumber(const std::string& box, size_t& digits) {
  const std::string t = Trim(box);
  if (t.empty() || t.size() > 9) throw TypeMismatch();
  int n = 0;
  for (char c : t) {
    if (c < '0' || c > '9') throw TypeMismatch();
    n = n * 10 + (c - '0');
  }
  digits = t.size();
  return n;
}

// month "/" day "/" year as typed, read as MM/DD/YYYY whatever the locale. A one- or two-digit
// year is placed in the window 1930 to 2029; a longer one is taken as it stands, and year 0
// does not exist. A text that names no real day throws, as converting it to a date would.
CalendarDate DateFromBoxes(const std::string& monthBox, const std::string& dayBox,
                           const std::string& yearBox) {
  size_t digits = 0;
  const int month = BoxNumber(monthBox, digits);
  const int day = BoxNumber(dayBox, digits);
  int year = BoxNumber(yearBox, digits);
  if (digits <= 2) year += year < 30 ? 2000 : 1900;
  if (year < 1 || year > 9999 || month < 1 || month > 12 || day < 1 || day > 31) {
    throw TypeMismatch();
  }
  const std::chrono::year_month_day ymd{std::chrono::year{year},
                                        std::chrono::month{static_cast<unsigned>(month)},
                                        std::chrono::day{static_cast<unsigned>(day)}};
  if (!ymd.ok()) throw TypeMismatch();
  return CalendarDate{year, month, day};
}

auto Key(const CalendarDate& d) { return std::tie(d.year, d.month, d.day); }

// Whole calendar days only: the time of day never counts, so both ends are inclusive.
bool InRange(const DateRange& range, const CalendarDate& d) {
  return Key(range.begin) <= Key(d) && Key(d) <= Key(range.end);
}

bool AnyMatches(const std::vector<std::string>& patterns, const std::string& subject) {
  return std::any_of(patterns.begin(), patterns.end(),
                     [&](const std::string& p) { return LikeMatchFolded(subject, p); });
}

}  // namespace

bool DateFilterEnabled(const JobSettings& s) {
  for (const std::string* box :
       {&s.StartDay, &s.StartMonth, &s.StartYear, &s.EndDay, &s.EndMonth, &s.EndYear}) {
    if (Trim(*box).empty() || !IsNumeric(*box)) return false;
  }
  return true;
}

std::optional<DateRange> BuildDateRange(const JobSettings& s) {
  if (!DateFilterEnabled(s)) return std::nullopt;
  DateRange range;
  range.begin = DateFromBoxes(s.StartMonth, s.StartDay, s.StartYear);
  range.end = DateFromBoxes(s.EndMonth, s.EndDay, s.EndYear);
  return range;
}

CalendarDate FileTimeToLocalDate(FileTime t) {
  const LocalDateTime local = LocalFromFileTime(t);
  return CalendarDate{local.year, local.month, local.day};
}

bool ExtensionPasses(const JobSettings& s, const std::string& name) {
  if (s.ExtensionList.empty()) return true;
  const size_t dot = name.rfind('.');
  bool matched = false;
  if (dot != std::string::npos) {
    const std::string extension = LowerCase(name.substr(dot + 1));
    matched = std::any_of(s.ExtensionList.begin(), s.ExtensionList.end(),
                          [&](const std::string& e) { return LowerCase(e) == extension; });
  }
  return s.Extension == kExtensionCopyOnly ? matched : !matched;
}

bool DatePasses(const JobSettings& s, const DateRange& range, const FindData& entry) {
  // Created, modified, accessed: the first stamp in range decides.
  if (s.SearchCreated && InRange(range, FileTimeToLocalDate(entry.creationTime))) return true;
  if (s.SearchModified && InRange(range, FileTimeToLocalDate(entry.lastWriteTime))) return true;
  if (s.SearchAccessed && InRange(range, FileTimeToLocalDate(entry.lastAccessTime))) return true;
  return false;
}

bool WalkedFilePasses(const JobSettings& s, const std::optional<DateRange>& range,
                      const std::string& folder, const FindData& entry) {
  if (!s.InclusionPatterns.empty() && !AnyMatches(s.InclusionPatterns, entry.name)) return false;
  if (AnyMatches(s.ExclusionPatterns, folder + entry.name)) return false;
  if (!ExtensionPasses(s, entry.name)) return false;
  if (range && !DatePasses(s, *range, entry)) return false;
  return true;
}

bool WalkedFolderExcluded(const JobSettings& s, const std::string& subject) {
  return AnyMatches(s.ExclusionPatterns, subject);
}

bool FilterSingleFile(RunContext& ctx, const std::string& path) {
  // The box comes first; the silent log line is written whatever the option says.
  auto report = [&](int number, const std::string& description) {
    const std::string n = IntText(number);
    if (!ctx.settings.Silent) {
      ctx.ShowMessage("Filter error on\r\n" + path + "\r\n" + n + " : " + description,
                      Icon::Exclamation);
    }
    ctx.WriteSilentLog("Filter error on " + path + " : " + n + " : " + description);
  };
  try {
    const std::optional<DateRange> range = BuildDateRange(ctx.settings);
    FindData entry;
    if (!FindEntry(LongPathPrefix(path), entry)) return false;
    if (entry.IsDirectory()) return false;
    const bool extensionPasses = ExtensionPasses(ctx.settings, entry.name);
    if (!range || !extensionPasses) return extensionPasses;
    return DatePasses(ctx.settings, *range, entry);
  } catch (const RunError& e) {
    report(e.number(), e.description());
  } catch (const std::exception& e) {
    report(kInternalErrorNumber, e.what());
  }
  return false;
}

}  // namespace qr
