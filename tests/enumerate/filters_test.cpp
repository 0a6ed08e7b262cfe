#include "enumerate/filters.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <optional>

#include "platform/errors.h"
#include "platform/text.h"
#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

// Ten hours east of UTC, so that a filter comparing UTC days fails; `reset` is destroyed last,
// so the library rereads TZ after the variable is restored.
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

// The six boxes from "month/day/year/month/day/year".
void SetDates(JobSettings& s, const std::string& dates) {
  const std::vector<std::string> parts = Split(dates, "/");
  ASSERT_EQ(parts.size(), 6u) << dates;
  std::string* boxes[] = {&s.StartMonth, &s.StartDay, &s.StartYear, &s.EndMonth, &s.EndDay, &s.EndYear};
  for (size_t i = 0; i < 6; ++i) *boxes[i] = parts[i];
}

FindData Entry(const std::string& name, FileTime written = 0) {
  FindData e;
  e.name = name;
  e.kind = EntryKind::Regular;
  e.lastWriteTime = written;
  return e;
}

TEST(DateBoxesTest, SixNumericBoxesMakeARangeAndNumbersThatMakeNoDateAreATypeMismatch) {
  const std::pair<const char*, const char*> cases[] = {
      {"2/29/2020/12/31/2021", "2020-2-29 2021-12-31"},
      // Any box blank or not a number switches the filter off.
      {"/1/2000/1/1/2000", "off"},
      {"1/1/2000/1/1/", "off"},
      // Short years take the window 1930..2029; longer ones stand as typed.
      {"3/4/0/3/4/29", "2000-3-4 2029-3-4"},
      {"3/4/30/3/4/99", "1930-3-4 1999-3-4"},
      {"3/4/199/3/4/0999", "199-3-4 999-3-4"},
      {"3/4/ 07 /3/4/5", "2007-3-4 2005-3-4"},  // blanks are allowed
      {"13/1/2020/1/1/2020", "mismatch"},
      {"1/1/2020/2/29/2021", "mismatch"},
      {"1/1/2020/1/1/0000", "mismatch"},
      {"1.5/1/2020/1/1/2020", "mismatch"},
      {"1/257/2020/1/1/2020", "mismatch"},
  };
  for (const auto& [dates, expected] : cases) {
    SCOPED_TRACE(dates);
    JobSettings s;
    SetDates(s, dates);
    std::string range;
    try {
      const auto r = BuildDateRange(s);
      EXPECT_EQ(DateFilterEnabled(s), r.has_value());
      auto ymd = [](const CalendarDate& d) {
        return std::to_string(d.year) + "-" + std::to_string(d.month) + "-" + std::to_string(d.day);
      };
      range = r ? ymd(r->begin) + " " + ymd(r->end) : "off";
    } catch (const RunError& e) {
      range = e.number() == 13 && e.description() == "Type mismatch" ? "mismatch" : e.description();
    }
    EXPECT_EQ(range, expected);
  }
}

TEST(DateTest, BothDaysCountWholeInLocalTimeForAnyStampNamedByAnOnBox) {
  LocalZone zone;
  JobSettings s;
  s.SearchModified = true;
  const DateRange r{{2021, 3, 10}, {2021, 3, 12}};
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
    // A fraction of a second changes nothing.
    EXPECT_EQ(DatePasses(s, r, Entry("a.txt", c.t + 9999999)), c.passes) << c.what;
  }
  // Any stamp named by an on box passes; with all three boxes off, nothing can.
  FindData created = Entry("c.txt", LocalTicks(2019, 6, 15, 12, 0, 0));
  created.creationTime = LocalTicks(2021, 3, 11, 12, 0, 0);
  EXPECT_FALSE(DatePasses(s, r, created));
  s.SearchCreated = true;
  EXPECT_TRUE(DatePasses(s, r, created));
  created.lastAccessTime = created.creationTime;
  EXPECT_FALSE(DatePasses(JobSettings{}, r, created));
}

// Extensions behind the last dot, any case; inclusion sees the name, exclusion the whole path.
TEST(WalkedChainTest, ExtensionsPatternsAndDatesEachDecide) {
  const std::pair<const char*, bool> names[] = {
      {"NOTES.TXT", true}, {"backup.tar.gz", true}, {".txt", true},
      {"notes.txt.bak", false}, {"txt", false}, {"notes.", false}};
  JobSettings s;
  s.ExtensionList = {"txt", "gz"};
  for (const auto& [name, copied] : names) {
    s.Extension = kExtensionCopyOnly;
    EXPECT_EQ(WalkedFilePasses(s, std::nullopt, "/x/", Entry(name)), copied) << name;
    s.Extension = kExtensionDoNotCopy;
    EXPECT_EQ(ExtensionPasses(s, name), !copied) << name;
  }

  const struct {
    std::vector<std::string> inclusion, exclusion;
    const char* folder;
    const char* name;
    bool passes;
  } cases[] = {
      {{"*.doc"}, {}, "/x/", "REPORT.DOC", true},
      {{"  Report.*  ", "*.doc"}, {}, "/x/", "report.txt", true},  // any one, trimmed
      {{"/x/*"}, {}, "/x/", "a.doc", false},  // an inclusion pattern never sees the folder
      {{}, {"/data/x/*"}, "/DATA/X/sub/", "a.txt", false},
      {{}, {"a.txt"}, "/data/", "a.txt", true},  // the bare name alone is never excluded
  };
  for (const auto& c : cases) {
    JobSettings p;
    p.InclusionPatterns = c.inclusion;
    p.ExclusionPatterns = c.exclusion;
    EXPECT_EQ(WalkedFilePasses(p, std::nullopt, c.folder, Entry(c.name)), c.passes)
        << c.folder << c.name;
  }
  s.ExclusionPatterns = {"*/temp/*"};
  EXPECT_TRUE(WalkedFolderExcluded(s, "/x/Temp/") && !WalkedFolderExcluded(s, "/x/temporary/"));
  s.Extension = kExtensionCopyOnly;
  s.SearchModified = true;
  const FindData june = Entry("a.txt", LocalTicks(2020, 6, 10, 8, 0, 0));
  EXPECT_TRUE(WalkedFilePasses(s, DateRange{{2020, 6, 1}, {2020, 6, 30}}, "/x/", june));
  EXPECT_FALSE(WalkedFilePasses(s, DateRange{{2021, 1, 1}, {2021, 1, 2}}, "/x/", june));
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
  ctx.settings.ExtensionList = {"doc"};
  EXPECT_TRUE(!FilterSingleFile(ctx, txt) && FilterSingleFile(ctx, doc));
  // Folders and links to them are never a file to take.
  std::filesystem::create_directory_symlink(dir.MakeDir("folder.doc"), dir / "link.doc");
  EXPECT_FALSE(FilterSingleFile(ctx, dir / "folder.doc") || FilterSingleFile(ctx, dir / "link.doc"));

  ctx.settings.ExtensionList.clear();
  ctx.settings.SearchModified = true;
  SetDates(ctx.settings, "3/12/2021/3/12/2021");
  EXPECT_TRUE(FilterSingleFile(ctx, txt));
  SetDates(ctx.settings, "3/13/21/12/31/21");
  EXPECT_FALSE(FilterSingleFile(ctx, txt));
  // Both tests must pass: a file in range with the wrong extension is still left out.
  SetDates(ctx.settings, "3/12/2021/3/12/2021");
  ctx.settings.ExtensionList = {"doc"};
  EXPECT_FALSE(FilterSingleFile(ctx, txt));
  EXPECT_TRUE(dialogs.shown.empty());

  // A date that cannot be is reported, in a box and in the log, and leaves the file out.
  SetDates(ctx.settings, "2/30/2021/12/31/2021");
  const std::string line = "Filter error on " + txt + " : 13 : Type mismatch\r\n";
  EXPECT_FALSE(FilterSingleFile(ctx, txt));
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Filter error on\r\n" + txt + "\r\n13 : Type mismatch");
  EXPECT_TRUE(dialogs.shown[0].title == kTitleText && dialogs.shown[0].icon == Icon::Exclamation);
  EXPECT_EQ(test::ReadBytes(dir / "_silent.log"), line);
  ctx.settings.Silent = true;
  EXPECT_FALSE(FilterSingleFile(ctx, txt));
  EXPECT_EQ(dialogs.shown.size(), 1u) << "no box in silent mode";
  EXPECT_EQ(test::ReadBytes(dir / "_silent.log"), line + line);
}

}  // namespace
}  // namespace qr
