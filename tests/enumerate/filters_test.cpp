#include "enumerate/filters.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <optional>

#include "platform/errors.h"
#include "support/child_process.h"
#include "run/run_context.h"
#include "support/fake_dialogs.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::TempDir;

// A local zone ten hours east of UTC, so that a local day and a UTC day part at 10:00 local:
// a filter that compared UTC days would fail the midnight and late-evening cases below.
class LocalZone {
 public:
  LocalZone() {
    tz_.emplace("TZ", "QRT-10");
    tzset();
  }
  ~LocalZone() {
    tz_.reset();
    tzset();
  }
  LocalZone(const LocalZone&) = delete;
  LocalZone& operator=(const LocalZone&) = delete;

 private:
  std::optional<test::EnvVar> tz_;
};

time_t LocalSeconds(int y, int mo, int d, int h, int mi, int s) {
  struct tm parts {};
  parts.tm_year = y - 1900;
  parts.tm_mon = mo - 1;
  parts.tm_mday = d;
  parts.tm_hour = h;
  parts.tm_min = mi;
  parts.tm_sec = s;
  parts.tm_isdst = -1;
  return mktime(&parts);
}

FileTime LocalTicks(int y, int mo, int d, int h, int mi, int s) {
  return FileTimeFromUnix(LocalSeconds(y, mo, d, h, mi, s), 0);
}

void SetDates(JobSettings& s, const char* sm, const char* sd, const char* sy, const char* em,
              const char* ed, const char* ey) {
  s.StartMonth = sm;
  s.StartDay = sd;
  s.StartYear = sy;
  s.EndMonth = em;
  s.EndDay = ed;
  s.EndYear = ey;
}

DateRange Range(CalendarDate begin, CalendarDate end) { return DateRange{begin, end}; }

FindData Entry(const std::string& name) {
  FindData e;
  e.name = name;
  e.kind = EntryKind::Regular;
  e.attributes = kAttrArchive;
  return e;
}

bool SameDate(const CalendarDate& a, const CalendarDate& b) {
  return a.year == b.year && a.month == b.month && a.day == b.day;
}

// --- Date boxes ---------------------------------------------------------------------------

TEST(DateBoxesTest, AllSixBoxesFilledAndNumericSwitchTheFilterOn) {
  JobSettings s;
  EXPECT_FALSE(DateFilterEnabled(s));
  SetDates(s, "1", "1", "2000", "1", "1", "2000");
  EXPECT_TRUE(DateFilterEnabled(s));
  SetDates(s, " 1 ", "1", "2000", "12", "31", " 2000");
  EXPECT_TRUE(DateFilterEnabled(s)) << "blanks around a number are allowed";

  for (std::string JobSettings::*box :
       {&JobSettings::StartMonth, &JobSettings::StartDay, &JobSettings::StartYear,
        &JobSettings::EndMonth, &JobSettings::EndDay, &JobSettings::EndYear}) {
    for (const char* bad : {"", "   ", "x", "1/1"}) {
      JobSettings t;
      SetDates(t, "1", "1", "2000", "1", "1", "2000");
      t.*box = bad;
      EXPECT_FALSE(DateFilterEnabled(t)) << "box value '" << bad << "'";
      EXPECT_FALSE(BuildDateRange(t).has_value()) << "box value '" << bad << "'";
    }
  }
}

TEST(DateBoxesTest, BoxesReadAsMonthDayYear) {
  JobSettings s;
  SetDates(s, "2", "29", "2020", "12", "31", "2021");
  auto r = BuildDateRange(s);
  ASSERT_TRUE(r.has_value());
  EXPECT_TRUE(SameDate(r->begin, {2020, 2, 29}));
  EXPECT_TRUE(SameDate(r->end, {2021, 12, 31}));

  // Short years take the window 1930..2029; longer ones stand as typed.
  const struct {
    const char* typed;
    int year;
  } years[] = {{"0", 2000},  {"00", 2000}, {"5", 2005},   {"29", 2029},  {"30", 1930},
               {"99", 1999}, {"199", 199}, {"0999", 999}, {" 07 ", 2007}};
  for (const auto& y : years) {
    SetDates(s, "3", "4", y.typed, "3", "4", y.typed);
    r = BuildDateRange(s);
    ASSERT_TRUE(r.has_value()) << y.typed;
    EXPECT_TRUE(SameDate(r->begin, {y.year, 3, 4})) << y.typed << " gave " << r->begin.year;
  }
}

TEST(DateBoxesTest, NumbersThatMakeNoDateThrowTypeMismatch) {
  const struct {
    const char *m, *d, *y;
  } bad[] = {{"13", "1", "2020"}, {"2", "30", "2021"}, {"2", "29", "2021"}, {"0", "1", "2020"},
             {"1", "0", "2020"},  {"4", "31", "2020"}, {"1", "1", "0000"},  {"1.5", "1", "2020"},
             {"1", "-1", "2020"}, {"1", "257", "2020"}};
  for (const auto& b : bad) {
    for (bool inEnd : {false, true}) {
      JobSettings s;
      SetDates(s, "1", "1", "2020", "1", "1", "2020");
      (inEnd ? s.EndMonth : s.StartMonth) = b.m;
      (inEnd ? s.EndDay : s.StartDay) = b.d;
      (inEnd ? s.EndYear : s.StartYear) = b.y;
      ASSERT_TRUE(DateFilterEnabled(s));
      try {
        BuildDateRange(s);
        ADD_FAILURE() << b.m << "/" << b.d << "/" << b.y << " made a date";
      } catch (const RunError& e) {
        EXPECT_EQ(e.number(), 13);
        EXPECT_EQ(e.description(), "Type mismatch");
      }
    }
  }
}

// --- Date test -----------------------------------------------------------------------------

TEST(DateTest, BothDaysCountWholeInLocalTime) {
  LocalZone zone;
  JobSettings s;
  s.SearchModified = true;
  const DateRange r = Range({2021, 3, 10}, {2021, 3, 12});
  FindData e = Entry("a.txt");

  const struct {
    FileTime t;
    bool passes;
    const char* what;
  } cases[] = {
      {LocalTicks(2021, 3, 10, 0, 0, 0), true, "begin day at 00:00"},
      {LocalTicks(2021, 3, 10, 9, 59, 59), true, "begin day, still the day before in UTC"},
      {LocalTicks(2021, 3, 12, 23, 59, 59), true, "end day at 23:59:59"},
      {LocalTicks(2021, 3, 12, 10, 30, 0), true, "end day, already the next day in UTC"},
      {LocalTicks(2021, 3, 9, 23, 59, 59), false, "the day before the begin day"},
      {LocalTicks(2021, 3, 13, 0, 0, 0), false, "the day after the end day"},
  };
  for (const auto& c : cases) {
    e.lastWriteTime = c.t + 9999999;  // a fraction of a second changes nothing
    EXPECT_EQ(DatePasses(s, r, e), c.passes) << c.what;
  }

  // Begin equal to end passes the whole of that one day.
  const DateRange oneDay = Range({2021, 3, 12}, {2021, 3, 12});
  e.lastWriteTime = LocalTicks(2021, 3, 12, 0, 0, 0);
  EXPECT_TRUE(DatePasses(s, oneDay, e));
  e.lastWriteTime = LocalTicks(2021, 3, 12, 23, 59, 0);
  EXPECT_TRUE(DatePasses(s, oneDay, e));

  // A begin day after the end day holds no day at all.
  const DateRange backwards = Range({2021, 3, 12}, {2021, 3, 10});
  for (int day = 9; day <= 13; ++day) {
    e.lastWriteTime = LocalTicks(2021, 3, day, 12, 0, 0);
    EXPECT_FALSE(DatePasses(s, backwards, e)) << "3/" << day;
  }
}

TEST(DateTest, AnyStampNamedByAnOnBoxPasses) {
  LocalZone zone;
  const DateRange r = Range({2020, 6, 1}, {2020, 6, 30});
  const FileTime in = LocalTicks(2020, 6, 15, 12, 0, 0);
  const FileTime out = LocalTicks(2019, 6, 15, 12, 0, 0);

  FindData createdOnly = Entry("c.txt");
  createdOnly.creationTime = in;
  createdOnly.lastWriteTime = out;
  createdOnly.lastAccessTime = out;
  FindData accessedOnly = Entry("a.txt");
  accessedOnly.creationTime = out;
  accessedOnly.lastWriteTime = out;
  accessedOnly.lastAccessTime = in;

  JobSettings s;
  s.SearchCreated = true;
  EXPECT_TRUE(DatePasses(s, r, createdOnly));
  EXPECT_FALSE(DatePasses(s, r, accessedOnly));
  s.SearchCreated = false;
  s.SearchModified = true;
  s.SearchAccessed = true;
  EXPECT_FALSE(DatePasses(s, r, createdOnly)) << "the creation stamp is not asked for";
  EXPECT_TRUE(DatePasses(s, r, accessedOnly));

  // With the filter on and all three boxes off, nothing can pass.
  FindData allIn = Entry("all.txt");
  allIn.creationTime = allIn.lastWriteTime = allIn.lastAccessTime = in;
  EXPECT_FALSE(DatePasses(JobSettings{}, r, allIn));
}

TEST(DateTest, LocalDateOfAFileTime) {
  LocalZone zone;
  // 2021-03-09 14:00 UTC is already 2021-03-10 00:00 here.
  const FileTime t = FileTimeFromUnix(1615298400, 0);
  EXPECT_TRUE(SameDate(FileTimeToLocalDate(t), {2021, 3, 10}));
  EXPECT_TRUE(SameDate(FileTimeToLocalDate(t - 1), {2021, 3, 9}));
}

// --- Extension test ------------------------------------------------------------------------

TEST(ExtensionTest, TextBehindTheLastDotFoldedToLowerCase) {
  JobSettings s;
  s.ExtensionList = {"txt", "gz"};
  s.Extension = kExtensionCopyOnly;
  EXPECT_TRUE(ExtensionPasses(s, "notes.txt"));
  EXPECT_TRUE(ExtensionPasses(s, "NOTES.TXT"));
  EXPECT_TRUE(ExtensionPasses(s, "backup.tar.gz"));
  EXPECT_TRUE(ExtensionPasses(s, ".txt")) << "a hidden file's name is all extension";
  EXPECT_FALSE(ExtensionPasses(s, "notes.txt.bak"));
  EXPECT_FALSE(ExtensionPasses(s, "txt")) << "a name without a dot never matches";
  EXPECT_FALSE(ExtensionPasses(s, "notes.")) << "a trailing dot gives an empty extension";

  s.Extension = kExtensionDoNotCopy;
  EXPECT_FALSE(ExtensionPasses(s, "notes.txt"));
  EXPECT_FALSE(ExtensionPasses(s, "NOTES.TXT"));
  EXPECT_TRUE(ExtensionPasses(s, "txt"));
  EXPECT_TRUE(ExtensionPasses(s, "notes."));
  EXPECT_TRUE(ExtensionPasses(s, "notes.doc"));

  // No list: everything passes, in either mode.
  s.ExtensionList.clear();
  for (int mode : {kExtensionCopyOnly, kExtensionDoNotCopy}) {
    s.Extension = mode;
    EXPECT_TRUE(ExtensionPasses(s, "notes.txt"));
    EXPECT_TRUE(ExtensionPasses(s, "README"));
  }
}

// --- Chain of a walked file and folder -----------------------------------------------------

TEST(WalkedChainTest, InclusionFoldsCaseAndSeesOnlyTheBareName) {
  JobSettings s;
  s.InclusionPatterns = {"*.doc"};
  EXPECT_TRUE(WalkedFilePasses(s, std::nullopt, "/x/", Entry("REPORT.DOC")));
  EXPECT_FALSE(WalkedFilePasses(s, std::nullopt, "/x/", Entry("report.docx")));
  s.InclusionPatterns = {"  Report.*  ", "*.doc"};
  EXPECT_TRUE(WalkedFilePasses(s, std::nullopt, "/x/", Entry("report.txt")))
      << "any one inclusion pattern is enough; patterns are trimmed";
  s.InclusionPatterns = {"/x/*"};
  EXPECT_FALSE(WalkedFilePasses(s, std::nullopt, "/x/", Entry("a.doc")))
      << "an inclusion pattern never sees the folder";
}

TEST(WalkedChainTest, ExclusionSeesTheWholePath) {
  JobSettings s;
  s.ExclusionPatterns = {"/data/x/*"};
  EXPECT_FALSE(WalkedFilePasses(s, std::nullopt, "/data/x/", Entry("a.txt")));
  EXPECT_FALSE(WalkedFilePasses(s, std::nullopt, "/DATA/X/sub/", Entry("a.txt")));
  EXPECT_TRUE(WalkedFilePasses(s, std::nullopt, "/data/y/", Entry("a.txt")));

  s.ExclusionPatterns = {"a.txt"};
  EXPECT_TRUE(WalkedFilePasses(s, std::nullopt, "/data/", Entry("a.txt")))
      << "the bare name is never the subject of an exclusion";
  s.ExclusionPatterns = {"*/a.txt"};
  EXPECT_FALSE(WalkedFilePasses(s, std::nullopt, "/data/", Entry("A.TXT")));
}

TEST(WalkedChainTest, AFolderPatternLeavesOutTheFolderItself) {
  JobSettings s;
  s.ExclusionPatterns = {"*/temp/*"};
  EXPECT_TRUE(WalkedFolderExcluded(s, "/x/temp/"));
  EXPECT_TRUE(WalkedFolderExcluded(s, "/x/Temp/"));
  EXPECT_TRUE(WalkedFolderExcluded(s, "/temp/"));
  EXPECT_FALSE(WalkedFolderExcluded(s, "/x/temporary/"));
  EXPECT_FALSE(WalkedFolderExcluded(s, "/x/"));
  // The same pattern also catches a file below such a folder when the walk reaches it.
  EXPECT_FALSE(WalkedFilePasses(s, std::nullopt, "/x/temp/deep/", Entry("a.txt")));
  EXPECT_TRUE(WalkedFilePasses(s, std::nullopt, "/x/", Entry("temp")));

  s.ExclusionPatterns.clear();
  EXPECT_FALSE(WalkedFolderExcluded(s, "/x/temp/"));
}

TEST(WalkedChainTest, EveryStepMustPass) {
  LocalZone zone;
  JobSettings s;
  s.InclusionPatterns = {"*.txt", "*.doc"};
  s.ExclusionPatterns = {"*/private/*"};
  s.ExtensionList = {"txt"};
  s.SearchModified = true;
  const DateRange june = Range({2020, 6, 1}, {2020, 6, 30});
  FindData file = Entry("a.txt");
  file.lastWriteTime = LocalTicks(2020, 6, 10, 8, 0, 0);

  EXPECT_TRUE(WalkedFilePasses(s, june, "/x/", file));
  EXPECT_FALSE(WalkedFilePasses(s, june, "/x/private/", file)) << "exclusion";
  EXPECT_FALSE(WalkedFilePasses(s, june, "/x/", Entry("a.doc"))) << "extension";
  EXPECT_FALSE(WalkedFilePasses(s, Range({2021, 1, 1}, {2021, 1, 2}), "/x/", file)) << "date";
  EXPECT_TRUE(WalkedFilePasses(s, std::nullopt, "/x/", Entry("b.txt")))
      << "without a date range the stamps are not looked at";
}

// --- A file named directly -----------------------------------------------------------------

class FilterSingleFileTest : public ::testing::Test {
 protected:
  FilterSingleFileTest() { ctx.paths = ComputeRunPaths(dir.path()); }

  TempDir dir;
  test::FakeDialogs dialogs;
  test::FakePump pump;
  RunContext ctx{dialogs, pump};
};

TEST_F(FilterSingleFileTest, PatternsDoNotApplyButExtensionsDo) {
  const std::string txt = dir.WriteFile("in/a.txt", "x");
  const std::string doc = dir.WriteFile("in/b.DOC", "x");
  ctx.settings.ExclusionPatterns = {"*"};
  ctx.settings.InclusionPatterns = {"nothing"};
  EXPECT_TRUE(FilterSingleFile(ctx, txt));
  ctx.settings.ExtensionList = {"doc"};
  EXPECT_FALSE(FilterSingleFile(ctx, txt));
  EXPECT_TRUE(FilterSingleFile(ctx, doc));
  ctx.settings.Extension = kExtensionDoNotCopy;
  EXPECT_TRUE(FilterSingleFile(ctx, txt));
  EXPECT_FALSE(FilterSingleFile(ctx, doc));
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(FilterSingleFileTest, DatesOfTheRealFile) {
  LocalZone zone;
  const std::string path = dir.WriteFile("a.txt", "x");
  const struct timespec ts[2] = {{LocalSeconds(2019, 1, 1, 12, 0, 0), 0},
                                 {LocalSeconds(2021, 3, 12, 23, 59, 30), 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), ts, 0), 0);
  ctx.settings.SearchModified = true;

  SetDates(ctx.settings, "3", "12", "2021", "3", "12", "2021");
  EXPECT_TRUE(FilterSingleFile(ctx, path));
  SetDates(ctx.settings, "3", "13", "21", "12", "31", "21");
  EXPECT_FALSE(FilterSingleFile(ctx, path));
  // Both tests must pass: a file in range with the wrong extension is still left out.
  SetDates(ctx.settings, "3", "12", "2021", "3", "12", "2021");
  ctx.settings.ExtensionList = {"doc"};
  EXPECT_FALSE(FilterSingleFile(ctx, path));
  // A blank box switches the filter off, so only the extension counts.
  ctx.settings.ExtensionList.clear();
  SetDates(ctx.settings, "3", "13", "2021", "", "31", "2021");
  EXPECT_TRUE(FilterSingleFile(ctx, path));
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(FilterSingleFileTest, FoldersAndMissingPathsAreFalseWhateverTheSettings) {
  const std::string folder = dir.MakeDir("folder.txt");
  std::filesystem::create_directory_symlink(folder, dir / "link");
  EXPECT_FALSE(FilterSingleFile(ctx, folder));
  EXPECT_FALSE(FilterSingleFile(ctx, dir / "link"));
  EXPECT_FALSE(FilterSingleFile(ctx, dir / "missing.txt"));
  ctx.settings.ExtensionList = {"txt"};
  ctx.settings.Extension = kExtensionDoNotCopy;
  EXPECT_FALSE(FilterSingleFile(ctx, folder));
  EXPECT_TRUE(dialogs.shown.empty());
  EXPECT_FALSE(std::filesystem::exists(dir / "_silent.log"));
}

TEST_F(FilterSingleFileTest, ADateThatCannotBeIsReportedAndLeavesTheFileOut) {
  const std::string path = dir.WriteFile("a.txt", "x");
  SetDates(ctx.settings, "2", "30", "2021", "12", "31", "2021");
  const std::string line = "Filter error on " + path + " : 13 : Type mismatch\r\n";

  EXPECT_FALSE(FilterSingleFile(ctx, path));
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Filter error on\r\n" + path + "\r\n13 : Type mismatch");
  EXPECT_EQ(dialogs.shown[0].title, kTitleText);
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Exclamation);
  EXPECT_EQ(test::ReadBytes(dir / "_silent.log"), line) << "logged with the box as well";

  ctx.settings.Silent = true;
  EXPECT_FALSE(FilterSingleFile(ctx, path));
  EXPECT_EQ(dialogs.shown.size(), 1u) << "no box in silent mode";
  EXPECT_EQ(test::ReadBytes(dir / "_silent.log"), line + line);
}

}  // namespace
}  // namespace qr
