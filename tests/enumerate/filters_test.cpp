#include "enumerate/filters.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <optional>

#include "platform/errors.h"
#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

// A local zone ten hours east of UTC, so that a local day and a UTC day part at 10:00 local:
// a filter that compared UTC days would fail the midnight and late-evening cases below.
// `reset` is destroyed last, so the library rereads TZ after the variable is restored.
struct LocalZone {
  struct Reset { ~Reset() { tzset(); } } reset;
  test::EnvVar tz{"TZ", std::string("QRT-10")};
  LocalZone() { tzset(); }
};

time_t LocalSeconds(int y, int mo, int d, int h, int mi, int s) {
  std::tm parts{s, mi, h, d, mo - 1, y - 1900, 0, 0, -1, 0, nullptr};
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

FindData Entry(const std::string& name, FileTime written = 0) {
  FindData e;
  e.name = name;
  e.kind = EntryKind::Regular;
  e.attributes = kAttrArchive;
  e.lastWriteTime = written;
  return e;
}

// What the six boxes make: "off", "mismatch" (RunError 13), or the range as "y-m-d y-m-d".
std::string RangeOf(const JobSettings& s) {
  try {
    const auto r = BuildDateRange(s);
    EXPECT_EQ(DateFilterEnabled(s), r.has_value());
    if (!r) return "off";
    auto ymd = [](const CalendarDate& d) {
      return std::to_string(d.year) + "-" + std::to_string(d.month) + "-" + std::to_string(d.day);
    };
    return ymd(r->begin) + " " + ymd(r->end);
  } catch (const RunError& e) {
    EXPECT_TRUE(DateFilterEnabled(s));
    return e.number() == 13 && e.description() == "Type mismatch" ? "mismatch" : e.description();
  }
}

TEST(DateBoxesTest, SixNumericBoxesMakeARangeAndNumbersThatMakeNoDateAreATypeMismatch) {
  const struct {
    const char *sm, *sd, *sy, *em, *ed, *ey, *range;
  } cases[] = {
      {"2", "29", "2020", "12", "31", "2021", "2020-2-29 2021-12-31"},
      {" 1 ", "1", "2000", "12", "31", " 2000", "2000-1-1 2000-12-31"},  // blanks are allowed
      // Any box blank or not a number switches the filter off.
      {"", "1", "2000", "1", "1", "2000", "off"},
      {"1", "   ", "2000", "1", "1", "2000", "off"},
      {"1", "1", "2000", "1/1", "1", "2000", "off"},
      {"1", "1", "2000", "1", "1", "", "off"},
      // Short years take the window 1930..2029; longer ones stand as typed.
      {"3", "4", "0", "3", "4", "29", "2000-3-4 2029-3-4"},
      {"3", "4", "30", "3", "4", "99", "1930-3-4 1999-3-4"},
      {"3", "4", "199", "3", "4", "0999", "199-3-4 999-3-4"},
      {"3", "4", " 07 ", "3", "4", "5", "2007-3-4 2005-3-4"},
      {"13", "1", "2020", "1", "1", "2020", "mismatch"},
      {"1", "1", "2020", "2", "29", "2021", "mismatch"},
      {"1", "1", "2020", "1", "0", "2020", "mismatch"},
      {"4", "31", "2020", "1", "1", "2020", "mismatch"},
      {"1", "1", "2020", "1", "1", "0000", "mismatch"},
      {"1.5", "1", "2020", "1", "1", "2020", "mismatch"},
      {"1", "257", "2020", "1", "1", "2020", "mismatch"},
  };
  for (const auto& c : cases) {
    JobSettings s;
    SetDates(s, c.sm, c.sd, c.sy, c.em, c.ed, c.ey);
    EXPECT_EQ(RangeOf(s), c.range) << c.sm << "/" << c.sd << "/" << c.sy << " - " << c.em << "/"
                                   << c.ed << "/" << c.ey;
  }
}

TEST(DateTest, BothDaysCountWholeInLocalTime) {
  LocalZone zone;
  JobSettings s;
  s.SearchModified = true;
  const DateRange r{{2021, 3, 10}, {2021, 3, 12}};
  const DateRange oneDay{{2021, 3, 12}, {2021, 3, 12}};
  const DateRange backwards{{2021, 3, 12}, {2021, 3, 10}};  // holds no day at all
  const struct {
    DateRange range;
    FileTime t;
    bool passes;
    const char* what;
  } cases[] = {
      {r, LocalTicks(2021, 3, 10, 0, 0, 0), true, "begin day at 00:00"},
      {r, LocalTicks(2021, 3, 10, 9, 59, 59), true, "begin day, still the day before in UTC"},
      {r, LocalTicks(2021, 3, 12, 23, 59, 59), true, "end day at 23:59:59"},
      {r, LocalTicks(2021, 3, 12, 10, 30, 0), true, "end day, already the next day in UTC"},
      {r, LocalTicks(2021, 3, 9, 23, 59, 59), false, "the day before the begin day"},
      {r, LocalTicks(2021, 3, 13, 0, 0, 0), false, "the day after the end day"},
      {oneDay, LocalTicks(2021, 3, 12, 23, 59, 0), true, "one day, its end"},
      {backwards, LocalTicks(2021, 3, 11, 12, 0, 0), false, "backwards, between"},
  };
  for (const auto& c : cases) {
    // A fraction of a second changes nothing.
    EXPECT_EQ(DatePasses(s, c.range, Entry("a.txt", c.t + 9999999)), c.passes) << c.what;
  }
}

TEST(DateTest, AnyStampNamedByAnOnBoxPasses) {
  LocalZone zone;
  const DateRange r{{2020, 6, 1}, {2020, 6, 30}};
  const FileTime in = LocalTicks(2020, 6, 15, 12, 0, 0);
  const FileTime out = LocalTicks(2019, 6, 15, 12, 0, 0);
  FindData createdOnly = Entry("c.txt", out), accessedOnly = Entry("a.txt", out);
  createdOnly.creationTime = accessedOnly.lastAccessTime = in;
  createdOnly.lastAccessTime = accessedOnly.creationTime = out;

  JobSettings s;
  s.SearchCreated = true;
  EXPECT_TRUE(DatePasses(s, r, createdOnly) && !DatePasses(s, r, accessedOnly));
  s.SearchCreated = false;
  s.SearchModified = s.SearchAccessed = true;
  EXPECT_TRUE(!DatePasses(s, r, createdOnly) && DatePasses(s, r, accessedOnly));
  // With the filter on and all three boxes off, nothing can pass.
  FindData allIn = Entry("all.txt", in);
  allIn.creationTime = allIn.lastAccessTime = in;
  EXPECT_FALSE(DatePasses(JobSettings{}, r, allIn));
}

TEST(ExtensionTest, TextBehindTheLastDotFoldedToLowerCase) {
  // Whether each name passes "copy only" txt/gz; "do not copy" must answer the opposite.
  // A hidden file's name is all extension; a name without a dot never matches.
  const std::pair<const char*, bool> names[] = {
      {"NOTES.TXT", true}, {"backup.tar.gz", true}, {".txt", true},
      {"notes.txt.bak", false}, {"txt", false}, {"notes.", false}};
  JobSettings s;
  s.ExtensionList = {"txt", "gz"};
  for (const auto& [name, copied] : names) {
    s.Extension = kExtensionCopyOnly;
    EXPECT_EQ(ExtensionPasses(s, name), copied) << name;
    s.Extension = kExtensionDoNotCopy;
    EXPECT_EQ(ExtensionPasses(s, name), !copied) << name;
  }
  // No list: everything passes, in either mode.
  s.ExtensionList.clear();
  s.Extension = kExtensionCopyOnly;
  EXPECT_TRUE(ExtensionPasses(s, "README"));
}

TEST(WalkedChainTest, InclusionSeesTheBareNameExclusionTheWholePath) {
  const struct {
    std::vector<std::string> inclusion, exclusion;
    const char* folder;
    const char* name;
    bool passes;
  } cases[] = {
      {{"*.doc"}, {}, "/x/", "REPORT.DOC", true},
      {{"*.doc"}, {}, "/x/", "report.docx", false},
      // Any one inclusion pattern is enough; patterns are trimmed.
      {{"  Report.*  ", "*.doc"}, {}, "/x/", "report.txt", true},
      {{"/x/*"}, {}, "/x/", "a.doc", false},  // an inclusion pattern never sees the folder
      {{}, {"/data/x/*"}, "/DATA/X/sub/", "a.txt", false},
      {{}, {"/data/x/*"}, "/data/y/", "a.txt", true},
      {{}, {"a.txt"}, "/data/", "a.txt", true},  // the bare name alone is never excluded
      {{}, {"*/a.txt"}, "/data/", "A.TXT", false},
      {{}, {"*/temp/*"}, "/x/", "temp", true},
  };
  for (const auto& c : cases) {
    JobSettings s;
    s.InclusionPatterns = c.inclusion;
    s.ExclusionPatterns = c.exclusion;
    EXPECT_EQ(WalkedFilePasses(s, std::nullopt, c.folder, Entry(c.name)), c.passes)
        << c.folder << c.name;
  }
  // A folder pattern leaves out the folder itself.
  JobSettings s;
  EXPECT_FALSE(WalkedFolderExcluded(s, "/x/temp/"));
  s.ExclusionPatterns = {"*/temp/*"};
  EXPECT_TRUE(WalkedFolderExcluded(s, "/x/Temp/") && WalkedFolderExcluded(s, "/temp/"));
  EXPECT_FALSE(WalkedFolderExcluded(s, "/x/temporary/"));
}

TEST(WalkedChainTest, EveryStepMustPass) {
  LocalZone zone;
  JobSettings s;
  s.InclusionPatterns = {"*.txt", "*.doc"};
  s.ExclusionPatterns = {"*/private/*"};
  s.ExtensionList = {"txt"};
  s.SearchModified = true;
  const DateRange june{{2020, 6, 1}, {2020, 6, 30}};
  const FindData file = Entry("a.txt", LocalTicks(2020, 6, 10, 8, 0, 0));

  EXPECT_TRUE(WalkedFilePasses(s, june, "/x/", file));
  EXPECT_FALSE(WalkedFilePasses(s, june, "/x/private/", file)) << "exclusion";
  EXPECT_FALSE(WalkedFilePasses(s, june, "/x/", Entry("a.doc"))) << "extension";
  EXPECT_FALSE(WalkedFilePasses(s, DateRange{{2021, 1, 1}, {2021, 1, 2}}, "/x/", file)) << "date";
  EXPECT_TRUE(WalkedFilePasses(s, std::nullopt, "/x/", Entry("b.txt")))
      << "without a date range the stamps are not looked at";
}

// A file named directly: patterns don't apply, the extension and the real file's dates do.
class FilterSingleFileTest : public ::testing::Test, protected test::RunFixture {};

TEST_F(FilterSingleFileTest, ExtensionsAndDatesApplyPatternsDoNotAndOnlyFilesPass) {
  LocalZone zone;
  const std::string txt = dir.WriteFile("in/a.txt", "x");
  const std::string doc = dir.WriteFile("in/b.DOC", "x");
  test::SetTimes(txt, {LocalSeconds(2019, 1, 1, 12, 0, 0), 0},
                 {LocalSeconds(2021, 3, 12, 23, 59, 30), 0});
  ctx.settings.ExclusionPatterns = {"*"};
  ctx.settings.InclusionPatterns = {"nothing"};
  EXPECT_TRUE(FilterSingleFile(ctx, txt));
  ctx.settings.ExtensionList = {"doc"};
  EXPECT_TRUE(!FilterSingleFile(ctx, txt) && FilterSingleFile(ctx, doc));
  ctx.settings.Extension = kExtensionDoNotCopy;
  EXPECT_TRUE(FilterSingleFile(ctx, txt) && !FilterSingleFile(ctx, doc));
  // Folders, links to them and missing paths are never a file to take.
  const std::string folder = dir.MakeDir("folder.txt");
  std::filesystem::create_directory_symlink(folder, dir / "link");
  for (const std::string& p : {folder, dir / "link", dir / "missing.txt"}) {
    EXPECT_FALSE(FilterSingleFile(ctx, p)) << p;
  }

  ctx.settings.ExtensionList.clear();
  ctx.settings.SearchModified = true;
  SetDates(ctx.settings, "3", "12", "2021", "3", "12", "2021");
  EXPECT_TRUE(FilterSingleFile(ctx, txt));
  SetDates(ctx.settings, "3", "13", "21", "12", "31", "21");
  EXPECT_FALSE(FilterSingleFile(ctx, txt));
  // Both tests must pass: a file in range with the wrong extension is still left out.
  SetDates(ctx.settings, "3", "12", "2021", "3", "12", "2021");
  ctx.settings.ExtensionList = {"txt"};
  EXPECT_FALSE(FilterSingleFile(ctx, txt));
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(FilterSingleFileTest, ADateThatCannotBeIsReportedAndLeavesTheFileOut) {
  const std::string path = dir.WriteFile("a.txt", "x");
  SetDates(ctx.settings, "2", "30", "2021", "12", "31", "2021");
  const std::string line = "Filter error on " + path + " : 13 : Type mismatch\r\n";

  EXPECT_FALSE(FilterSingleFile(ctx, path));
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Filter error on\r\n" + path + "\r\n13 : Type mismatch");
  EXPECT_TRUE(dialogs.shown[0].title == kTitleText && dialogs.shown[0].icon == Icon::Exclamation);
  EXPECT_EQ(test::ReadBytes(dir / "_silent.log"), line) << "logged with the box as well";

  ctx.settings.Silent = true;
  EXPECT_FALSE(FilterSingleFile(ctx, path));
  EXPECT_EQ(dialogs.shown.size(), 1u) << "no box in silent mode";
  EXPECT_EQ(test::ReadBytes(dir / "_silent.log"), line + line);
}

}  // namespace
}  // namespace qr
