#include "verify/verification_record.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
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
    const auto rows = Rows();
    return rows.size() == 1 ? rows[0] : Row{{"rows", std::to_string(rows.size())}};
  }

  std::string log;
};

// Each hash box decides its columns; a good copy gives one clean line, each field in its place.
TEST_F(VerificationRecordTest, EachHashBoxDecidesItsColumnsAndAGoodCopyIsOneCleanLine) {
  const std::string source = File("src/a.txt", "abc");
  const std::string target = File("dst/a.txt", "abc");
  FindData s, t;
  ASSERT_TRUE(FindEntry(source, s) && FindEntry(target, t));
  // The copy's creation time cannot be set here, so the two differ; that alone is no finding.
  const std::string md5 = Md5Of("abc"), times = DateOf(kModified) + "," + DateOf(kAccessed);
  const std::string clean = ",Y,Y,N," + source + "," + VerificationDate(s.creationTime) + "," +
                            times + ",3," + md5 + "," + target + "," +
                            VerificationDate(t.creationTime) + "," + times + ",3," + md5 + ",";
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
                (hashSource ? md5 : "") + "|" + (hashDest ? md5 : ""));
      EXPECT_EQ(pump.pumps, (hashSource ? 1 : 0) + (hashDest ? 1 : 0));  // one pump per hash
      // Unhashed sides still show the dates of their entries, and nothing is an error.
      EXPECT_EQ(row["Source Access Date"] + row["Dest Modified Date"] + row["TS Exact Match"] +
                    row["Error Messages"],
                DateOf(kAccessed) + DateOf(kModified) + "Y");
    }
  }
  ctx.settings.HashSource = ctx.settings.HashDest = true;
  UseLogFolder(dir.MakeDir("both"));
  Record(source, target);
  const std::string line = CrLfLines(test::Utf16FileText(ctx.paths.VerificationLogPath)).at(1);
  EXPECT_EQ(line.substr(line.find(',')), clean);
  EXPECT_EQ(ctx.counters.ErrorCount + ctx.counters.TimestampMismatches, 0);
  EXPECT_FALSE(Exists(ctx.paths.ErrorLogPath));
  EXPECT_EQ(ctx.progress.lblCurrentProcess, "Current Process: ");
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
    ASSERT_EQ(ctx.progress.listErrors.size(), 4u);
    EXPECT_EQ(ctx.progress.listErrors[0], name + " " + c.logErrors.substr(0, c.logErrors.find(") ") + 1));

    // A second error appends to the UTF-16 error log without a second mark.
    Record(source, target);
    const std::string line = quotedSource + "\t" + c.logErrors + "\r\n";
    EXPECT_EQ(ErrorLog(), line + line);
    EXPECT_EQ(ctx.counters.ErrorCount, 2);
    EXPECT_EQ(ctx.progress.lblErrorCount, "2");
  }
}

// Size and hash verdicts, a hash known from the list; a target path of 255 bytes is long.
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

TEST_F(VerificationRecordTest, TimestampDifferencesWithinToleranceClearTheMatchBeyondItFlag) {
  const struct {
    const char* what;
    int64_t accessShift;  // target minus source, seconds
    long accessNs;        // target's extra nanoseconds
    int64_t modifiedShift;
    const char* exact;
    int counted;
  } cases[] = {
      {"access 3 s, the edge", -3, 0, 0, "N", 1},
      {"access 4 s", 4, 0, 0, "Y", 0},
      {"access within the second", 0, 500, 0, "N", 1},
      {"modification 10 s", 0, 0, 10, "Y", 0},
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

  // With the separate log, an error with a flag goes there uncounted; one without, as before.
  ctx.settings.SeparateTS = true;
  const std::string source = File("src/s.txt", "abc");
  const std::string line = source + "\t(Hash values do not match) \r\n";
  const std::string flagged = File("dst/flagged.txt", "abd");
  SetTimes(flagged, kAccessed, kModified + 10);
  Record(source, flagged);
  EXPECT_EQ(ReadBytes(ctx.paths.TimestampLogPath), line);
  EXPECT_EQ(ctx.counters.ErrorCount, 0);
  Record(source, File("dst/plain.txt", "abd"));
  EXPECT_EQ(ErrorLog(), line);
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
