#include "verify/verification_record.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "platform/find_data.h"
#include "platform/times_io.h"
#include "platform/unicode_text.h"
#include "support/child_process.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

using test::Md5Of;
using test::ReadBytes;
using Row = std::map<std::string, std::string>;

// Access and modification apart, so that a swapped column shows.
constexpr int64_t kModified = 1600000000;
constexpr int64_t kAccessed = 1600086400 + 3723;

void SetTimes(const std::string& path, int64_t atime, int64_t mtime, long atimeNs = 0) {
  test::SetTimes(path, {static_cast<time_t>(atime), atimeNs}, {static_cast<time_t>(mtime), 0});
}
std::string DateOf(int64_t unixSeconds) { return VerificationDate(FileTimeFromUnix(unixSeconds, 0)); }
bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// Lines ended by CR LF; a text not ending in one fails the test.
std::vector<std::string> CrLfLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2) {
    lines.push_back(text.substr(start, end - start));
  }
  EXPECT_EQ(start, text.size()) << "unterminated line in: " << text;
  return lines;
}

// Fields as written: quotes kept, a comma between quotes not a separator.
std::vector<std::string> SplitCsv(const std::string& line) {
  std::vector<std::string> out(1);
  bool quoted = false;
  for (char c : line) {
    if (c == '"') quoted = !quoted;
    if (c == ',' && !quoted) {
      out.emplace_back();
    } else {
      out.back() += c;
    }
  }
  return out;
}

class VerificationRecordTest : public ::testing::Test, protected test::RunFixture {
 protected:
  VerificationRecordTest() { UseLogFolder(dir.MakeDir("log")); }

  // A fresh log folder with the CSV header written as the run writes it.
  void UseLogFolder(const std::string& folder) {
    log = folder;
    ctx.settings.LogPath = log;
    ctx.paths = ComputeRunPaths(log);
    ASSERT_TRUE(CreateUnicodeFile(ctx.paths.VerificationLogPath));
    ASSERT_TRUE(AppendUnicodeText(ctx.paths.VerificationLogPath,
                                  VerificationHeader(ctx.settings) + "\r\n", false));
  }

  std::string File(const std::string& name, const std::string& bytes) {
    const std::string p = dir.WriteFile(name, bytes);
    SetTimes(p, kAccessed, kModified);
    return p;
  }
  void Record(std::string source, std::string target, const std::string& known = "") {
    WriteVerificationRecord(ctx, source, target, known, "");
  }
  // The error log behind its byte-order mark.
  std::string ErrorLog() {
    EXPECT_EQ(ReadBytes(ctx.paths.ErrorLogPath).substr(0, 2), "\xFF\xFE");
    return test::Utf16FileText(ctx.paths.ErrorLogPath);
  }

  // The data lines of the CSV, each line's fields by header name.
  std::vector<Row> Rows() {
    const auto lines = CrLfLines(test::Utf16FileText(ctx.paths.VerificationLogPath));
    if (lines.empty()) return {};
    const auto names = SplitCsv(lines[0]);
    std::vector<Row> rows;
    for (size_t i = 1; i < lines.size(); ++i) {
      const auto fields = SplitCsv(lines[i]);
      EXPECT_EQ(fields.size(), names.size()) << lines[i];
      Row& row = rows.emplace_back();
      for (size_t k = 0; k < names.size() && k < fields.size(); ++k) row[names[k]] = fields[k];
    }
    return rows;
  }
  Row OnlyRow() {
    auto rows = Rows();
    EXPECT_EQ(rows.size(), 1u);
    return rows.empty() ? Row{} : rows.back();
  }

  std::string log;
};

TEST_F(VerificationRecordTest, AGoodCopyGivesOneCleanLine) {
  const std::string source = File("src/a.txt", "collected bytes\n");
  const std::string target = File("dst/a.txt", "collected bytes\n");
  // The copy's creation time cannot be set here, so the two differ; that alone is no finding.
  if (CanSetCreationTime(target)) GTEST_SKIP() << "the temporary folder keeps creation times";
  FindData s, t;
  ASSERT_TRUE(FindEntry(source, s) && FindEntry(target, t));

  Record(source, target);

  EXPECT_EQ(VerificationHeader(ctx.settings),
            "Date/Time Copied,Hashes Match,TS Exact Match,Long Path,Source Path,"
            "Source Created Date,Source Modified Date,Source Access Date,Source Size,Source MD5,"
            "Dest Path,Dest Created Date,Dest Modified Date,Dest Access Date,Dest Size,Dest MD5,"
            "Error Messages");
  const auto lines = CrLfLines(test::Utf16FileText(ctx.paths.VerificationLogPath));
  ASSERT_EQ(lines.size(), 2u);
  const std::string copied = lines[1].substr(0, lines[1].find(','));
  EXPECT_TRUE(
      std::regex_match(copied, std::regex(R"(\d{1,2}/\d{1,2}/\d{4}( \d{1,2}:\d\d:\d\d [AP]M)?)")))
      << copied;
  const std::string md5 = Md5Of("collected bytes\n"), times = DateOf(kModified) + "," + DateOf(kAccessed);
  EXPECT_EQ(lines[1].substr(copied.size()),
            ",Y,Y,N," + source + "," + VerificationDate(s.creationTime) + "," + times + ",16," +
                md5 + "," + target + "," + VerificationDate(t.creationTime) + "," + times +
                ",16," + md5 + ",");
  EXPECT_EQ(ctx.counters.ErrorCount + ctx.counters.TimestampMismatches, 0);
  EXPECT_FALSE(Exists(ctx.paths.ErrorLogPath));
  EXPECT_EQ(ctx.progress.lblCurrentProcess, "Current Process: ");
}

TEST_F(VerificationRecordTest, EachHashBoxDecidesItsColumnsAndLineMatchesHeader) {
  const std::string source = File("src/a.txt", "abc");
  const std::string target = File("dst/a.txt", "abc");
  int n = 0;
  for (bool hashSource : {true, false}) {
    for (bool hashDest : {true, false}) {
      SCOPED_TRACE(testing::Message() << "source " << hashSource << ", dest " << hashDest);
      ctx.settings.HashSource = hashSource;
      ctx.settings.HashDest = hashDest;
      UseLogFolder(dir.MakeDir("log" + std::to_string(++n)));
      pump.pumps = 0;

      Record(source, target);

      Row row = OnlyRow();  // also checks the field count against the header
      EXPECT_EQ(row.count("Hashes Match"), hashSource && hashDest ? 1u : 0u);
      EXPECT_EQ(row["Source MD5"] + "|" + row["Dest MD5"],
                (hashSource ? Md5Of("abc") : "") + "|" + (hashDest ? Md5Of("abc") : ""));
      EXPECT_EQ(pump.pumps, (hashSource ? 1 : 0) + (hashDest ? 1 : 0));  // one pump per hash
      // Unhashed sides still show the dates of their entries, and nothing is an error.
      EXPECT_EQ(row["Source Access Date"] + row["Dest Modified Date"] + row["TS Exact Match"] +
                    row["Error Messages"],
                DateOf(kAccessed) + DateOf(kModified) + "Y");
    }
  }
}

TEST_F(VerificationRecordTest, AMissingSideIsRecordedListedAndLogged) {
  const struct {
    std::string missing;  // the column prefix of the side that is not there
    std::string rowErrors, logErrors;
  } cases[] = {
      {"Dest", "(File size mismatch) (Hash values do not match) ",
       "(Destination file not found) (Unable to hash destination) (File size mismatch) "
       "(Hash values do not match) "},
      {"Source", "(File size mismatch) (Unable to validate. Source file in use.) ",
       "(Source file not found) (Unable to hash source) (File size mismatch) "
       "(Unable to validate. Source file in use.) "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.missing);
    UseLogFolder(dir.MakeDir("log-" + c.missing));
    ctx.counters.ErrorCount = 0;
    ctx.progress.listErrors.clear();
    const bool sourceThere = c.missing == "Dest";
    // A comma in the name: both paths come back quoted, in place, in the row and in the log.
    const std::string name = c.missing + ",x.txt";
    const std::string source = sourceThere ? File("src/" + name, "12345") : dir / ("src/" + name);
    const std::string target = sourceThere ? dir / ("dst/" + name) : File("dst/" + name, "12345");
    std::string quotedSource = source, quotedTarget = target;

    WriteVerificationRecord(ctx, quotedSource, quotedTarget, "", "");

    EXPECT_EQ(quotedSource + quotedTarget, "\"" + source + "\"\"" + target + "\"");
    Row row = OnlyRow();
    EXPECT_EQ(row["Source Path"] + row["Dest Path"], quotedSource + quotedTarget);
    const std::string gone = c.missing, there = sourceThere ? "Source" : "Dest";
    EXPECT_EQ(row[gone + " Created Date"] + row[gone + " Modified Date"] +
                  row[gone + " Access Date"] + row[gone + " Size"] + "|" + row[gone + " MD5"],
              "N/AN/AN/AN/A|");
    // The side that is there is still hashed and dated.
    EXPECT_EQ(row[there + " MD5"] + row[there + " Modified Date"], Md5Of("12345") + DateOf(kModified));
    EXPECT_EQ(row["Error Messages"], c.rowErrors + c.logErrors);
    EXPECT_EQ(row["TS Exact Match"], "Y");
    // The error list gets one line per finding, under the file's name as it was before quoting.
    std::vector<std::string> listed;
    for (size_t at = 0; at < c.logErrors.size(); at = c.logErrors.find(") ", at) + 2) {
      listed.push_back(name + " " + c.logErrors.substr(at, c.logErrors.find(") ", at) + 1 - at));
    }
    EXPECT_EQ(ctx.progress.listErrors, listed);

    // The error log is created as UTF-16 on its first line; a second error appends to it
    // without a second mark.
    Record(source, target);
    const std::string line = quotedSource + "\t" + c.logErrors + "\r\n";
    EXPECT_EQ(ErrorLog(), line + line);
    EXPECT_EQ(ctx.counters.ErrorCount, 2);
    EXPECT_EQ(ctx.progress.lblErrorCount, "2");
  }
}

// Size and hash verdicts, a hash known from the list, and a target path of 255 bytes, which is
// long (254 is not) and no error.
TEST_F(VerificationRecordTest, SizeAndHashVerdictsAKnownSourceHashAndLongPaths) {
  const std::string source = File("src/a.txt", "abc");
  Record(source, File("dst/longer.txt", "abcdef"));
  Record(source, File("dst/altered.txt", "abd"));
  Record(source, File("dst/known.txt", "abd"), Md5Of("abd"));
  // A file deleted before its turn: neither side can be hashed, and nothing is proven.
  Record(dir / "src/gone.txt", dir / "dst/gone.txt");
  const size_t folder = (dir / "dst").size();
  const std::string target255 = File("dst/" + std::string(255 - folder - 1, 'n'), "abc");
  Record(source, File("dst/" + std::string(254 - folder - 1, 'n'), "abc"));
  Record(source, target255);

  const auto rows = Rows();
  ASSERT_EQ(rows.size(), 6u);
  // Each verdict appears twice in the last column: once as found, once as logged.
  const std::string both = "(File size mismatch) (Hash values do not match) ";
  EXPECT_EQ(rows[0].at("Error Messages") + rows[0].at("Dest Size"), both + both + "6");
  EXPECT_EQ(rows[1].at("Hashes Match") + rows[1].at("TS Exact Match") + rows[1].at("Error Messages"),
            "NY(Hash values do not match) (Hash values do not match) ");
  EXPECT_EQ(rows[2].at("Source MD5") + rows[2].at("Hashes Match") + rows[2].at("Error Messages"),
            Md5Of("abd") + "Y");
  EXPECT_EQ(rows[3].at("Hashes Match"), "N");
  EXPECT_EQ(rows[4].at("Long Path") + rows[5].at("Long Path") + rows[5].at("Error Messages"), "NY");
  EXPECT_EQ(ReadBytes(log + "/_longpaths.log"), target255 + "\r\n");
  EXPECT_TRUE(ErrorLog().starts_with(source + "\t" + both + "\r\n" + source +
                                     "\t(Hash values do not match) \r\n"));
}

TEST_F(VerificationRecordTest, AFailedCopyUsesTheTimesReadBeforeItAndDoesNotHashTheSource) {
  const std::string source = File("src/a.txt", "same");
  const std::string target = File("dst/a.txt", "same");
  // The source's own access time has moved since; the times taken before the transfer match
  // the target.
  SetTimes(source, kAccessed + 1, kModified);
  FindData t;
  ASSERT_TRUE(FindEntry(target, t));
  ctx.file.copyFailed = true;
  ctx.file.copyFailure = "cannot write target: No space left on device";
  ctx.file.FCT = t.creationTime;
  ctx.file.FLAT = FileTimeFromUnix(kAccessed, 0);
  ctx.file.FLMT = FileTimeFromUnix(kModified - 7200, 0);
  SetTimes(target, kAccessed, kModified - 7200);

  Record(source, target);

  Row row = OnlyRow();
  EXPECT_EQ(row["Source MD5"] + "|" + row["Dest MD5"], "|" + Md5Of("same"));
  EXPECT_EQ(row["Source Access Date"] + row["Source Modified Date"] + row["TS Exact Match"],
            DateOf(kAccessed) + DateOf(kModified - 7200) + "Y");
  // The transfer's own reason, never a source in use: the source was not hashed at all.
  EXPECT_EQ(row["Error Messages"], "(Copy failed: cannot write target: No space left on device) ");
  EXPECT_EQ(ctx.progress.listErrors,
            std::vector<std::string>{
                "a.txt (Copy failed: cannot write target: No space left on device)"});
}

TEST_F(VerificationRecordTest, TimestampDifferencesWithinToleranceClearTheMatchBeyondItFlag) {
  const struct {
    const char* what;
    int64_t accessShift;  // target minus source, seconds
    long accessNs;        // target's extra nanoseconds
    int64_t modifiedShift;
    const char* exact;
    int counted;
  } cases[] = {
      {"access 1 s", 1, 0, 0, "N", 1},
      {"access 3 s, the edge", -3, 0, 0, "N", 1},
      {"access 4 s", 4, 0, 0, "Y", 0},
      {"access within the second", 0, 500, 0, "N", 1},
      {"modification 10 s", 0, 0, 10, "Y", 0},
      {"modification 2 s", 0, 0, -2, "N", 1},
      {"both 1 s: one count per file", 1, 0, 1, "N", 1},
      {"access flagged ends the comparison", 10, 0, 1, "Y", 0},
  };
  size_t n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string name = std::to_string(++n) + ".txt";
    const std::string source = File("src/" + name, "same bytes");
    const std::string target = File("dst/" + name, "same bytes");
    SetTimes(target, kAccessed + c.accessShift, kModified + c.modifiedShift, c.accessNs);
    const int before = ctx.counters.TimestampMismatches;
    Record(source, target);
    EXPECT_EQ(Rows().back().at("TS Exact Match") + Rows().back().at("Error Messages"), c.exact);
    EXPECT_EQ(ctx.counters.TimestampMismatches - before, c.counted);
  }
  // Timestamps alone are never an error.
  EXPECT_EQ(ctx.counters.ErrorCount, 0);
  EXPECT_FALSE(Exists(ctx.paths.TimestampLogPath));
}

TEST_F(VerificationRecordTest, SeparateTimestampLogTakesFlaggedErrorsUncounted) {
  // Equal size, other content, and a modification time 10 s off: an error with a flag.
  const std::string source = File("src/a.txt", "abc");
  auto flaggedTarget = [&](const std::string& name) {
    const std::string t = File("dst/" + name, "abd");
    SetTimes(t, kAccessed, kModified + 10);
    return t;
  };
  const std::string line = source + "\t(Hash values do not match) \r\n";

  ctx.settings.SeparateTS = true;
  Record(source, flaggedTarget("1.txt"));
  EXPECT_EQ(ReadBytes(ctx.paths.TimestampLogPath), line);
  EXPECT_EQ(ctx.counters.ErrorCount, 0);
  EXPECT_EQ(ctx.progress.listErrors.size(), 1u);
  // An error without a flag still goes to the error log and counts.
  Record(source, File("dst/2.txt", "abd"));
  EXPECT_EQ(ErrorLog(), line);
  // With the box off, a flagged error is an ordinary one.
  ctx.settings.SeparateTS = false;
  Record(source, flaggedTarget("3.txt"));
  EXPECT_EQ(ErrorLog(), line + line);
  EXPECT_EQ(ctx.progress.lblErrorCount, "2");
  EXPECT_EQ(ctx.counters.TimestampMismatches, 0);
}

TEST_F(VerificationRecordTest, AMissingLogFolderIsALoggingErrorAndTheRunGoesOn) {
  const std::string source = File("src/a.txt", "abc");
  const std::string target = File("dst/a.txt", "abd");
  const std::string missing = dir / "no such folder";
  ctx.settings.LogPath = missing;
  ctx.paths = ComputeRunPaths(missing);

  Record(source, target);

  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Logging Error:\r\n" + source + "\r\n2 : " +
                                       std::strerror(ENOENT) +
                                       "\r\n\r\nStage = Outputting CSV string to CSV file");
  EXPECT_TRUE(dialogs.shown[0].icon == Icon::Critical && dialogs.shown[0].title == kTitleText);
  // The record ended there: nothing counted, nothing logged.
  EXPECT_EQ(ctx.counters.ErrorCount, 0);
  EXPECT_FALSE(Exists(missing));

  // Silent: one line beside the error log instead of a box.
  ctx.settings.Silent = true;
  ctx.paths = ComputeRunPaths(log);
  Record(source, target);
  const auto silent = CrLfLines(ReadBytes(log + "/_silent.log"));
  ASSERT_FALSE(silent.empty());
  EXPECT_EQ(silent.back(), std::string("Logging Error (2:") + std::strerror(ENOENT) +
                               "): stage: Outputting CSV string to CSV file");

  // The next file, with the folder there, is recorded as usual.
  ctx.settings.LogPath = log;
  Record(source, target);
  EXPECT_EQ(Rows().size(), 1u);
  EXPECT_EQ(ctx.counters.ErrorCount, 1);
}

TEST_F(VerificationRecordTest, CsvFieldsLineBreaksBecomeBlanksAndACommaQuotesTheText) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain", "plain"},         {"a\r\n\r\nb\r\n", "a  b "},      {"lone\rcr and\nlf", "lone\rcr and\nlf"},
      {"\r\r\n\n", "\r \n"},         {"x\r\ny,z", "\"x y,z\""},       {"say \"hi\"", "say \"hi\""},
      {"say \"hi\", twice", "\"say \"hi\", twice\""}, {"", ""}};
  for (const auto& [in, out] : cases) {
    std::string text = in;
    EXPECT_EQ(CsvEncapsulate(ctx, text) + "|" + text, out + "|" + out) << "changed in place: " << in;
  }
}

TEST(VerificationDateTest, LocalTimeToTheSecondWithoutTimeAtMidnight) {
  {
    test::EnvVar tz("TZ", "EST5");  // five hours behind UTC all year, no zone files needed
    tzset();
    // 2023-11-14 22:13:20.9999999 UTC is 5:13:20 PM there; the fraction is dropped.
    EXPECT_EQ(VerificationDate(FileTimeFromUnix(1700000000, 999999900)), "11/14/2023 5:13:20 PM");
    // 2023-11-14 05:00:00 UTC is midnight there.
    EXPECT_EQ(VerificationDate(FileTimeFromUnix(1699938000, 0)), "11/14/2023");
  }
  tzset();
}

}  // namespace
}  // namespace qr
