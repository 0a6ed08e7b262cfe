#include "verify/verification_record.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "platform/find_data.h"
#include "platform/times_io.h"
#include "platform/unicode_text.h"
#include "run/run_context.h"
#include "support/fake_dialogs.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::ReadBytes;
using test::TempDir;

// A moment well inside the range of every field, with access and modification apart so that a
// swapped column shows.
constexpr int64_t kModified = 1600000000;
constexpr int64_t kAccessed = 1600086400 + 3723;


void SetTimes(const std::string& path, int64_t atime, int64_t mtime, long atimeNs = 0,
              long mtimeNs = 0) {
  const struct timespec ts[2] = {{static_cast<time_t>(atime), atimeNs},
                                 {static_cast<time_t>(mtime), mtimeNs}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), ts, 0), 0) << path;
}

std::string DateOf(int64_t unixSeconds) {
  return VerificationDate(FileTimeFromUnix(unixSeconds, 0));
}

// A UTF-16LE log with its byte-order mark, as UTF-8.
std::string ReadUtf16(const std::string& path) {
  const std::string bytes = ReadBytes(path);
  EXPECT_GE(bytes.size(), 2u) << path;
  EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE") << path;
  EXPECT_EQ(bytes.size() % 2, 0u) << path;
  std::u16string units;
  for (size_t i = 2; i + 1 < bytes.size(); i += 2) {
    units += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                   (static_cast<unsigned char>(bytes[i + 1]) << 8));
  }
  return Utf16ToUtf8(units);
}

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

size_t Occurrences(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

bool Exists(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

class VerificationRecordTest : public ::testing::Test {
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

  // A file with the common test times.
  std::string File(const std::string& name, const std::string& bytes) {
    const std::string p = dir.WriteFile(name, bytes);
    SetTimes(p, kAccessed, kModified);
    return p;
  }

  void Record(std::string source, std::string target) {
    WriteVerificationRecord(ctx, source, target, "", "");
  }

  // The header and the data lines of the CSV, each line's fields by header name.
  std::vector<std::map<std::string, std::string>> Rows() {
    const auto lines = CrLfLines(ReadUtf16(ctx.paths.VerificationLogPath));
    EXPECT_FALSE(lines.empty());
    if (lines.empty()) return {};
    EXPECT_EQ(lines[0], VerificationHeader(ctx.settings));
    const auto names = SplitCsv(lines[0]);
    std::vector<std::map<std::string, std::string>> rows;
    for (size_t i = 1; i < lines.size(); ++i) {
      const auto fields = SplitCsv(lines[i]);
      EXPECT_EQ(fields.size(), names.size()) << lines[i];
      std::map<std::string, std::string> row;
      for (size_t k = 0; k < names.size() && k < fields.size(); ++k) row[names[k]] = fields[k];
      rows.push_back(row);
    }
    return rows;
  }

  std::map<std::string, std::string> OnlyRow() {
    auto rows = Rows();
    EXPECT_EQ(rows.size(), 1u);
    return rows.empty() ? std::map<std::string, std::string>{} : rows.back();
  }

  TempDir dir;
  test::FakeDialogs dialogs;
  test::FakePump pump;
  RunContext ctx{dialogs, pump};
  std::string log;
};

TEST_F(VerificationRecordTest, AGoodCopyGivesOneCleanLine) {
  const std::string bytes = "collected bytes\n";
  const std::string source = File("src/a.txt", bytes);
  const std::string target = File("dst/a.txt", bytes);
  // The copy's creation time cannot be set here, so the two differ; that alone is no finding.
  if (CanSetCreationTime(target)) GTEST_SKIP() << "the temporary folder keeps creation times";
  FindData s, t;
  ASSERT_TRUE(FindEntry(source, s));
  ASSERT_TRUE(FindEntry(target, t));

  Record(source, target);

  const auto row = OnlyRow();
  EXPECT_TRUE(std::regex_match(row.at("Date/Time Copied"),
                               std::regex(R"(\d{1,2}/\d{1,2}/\d{4}( \d{1,2}:\d\d:\d\d [AP]M)?)")))
      << row.at("Date/Time Copied");
  EXPECT_EQ(row.at("Hashes Match"), "Y");
  EXPECT_EQ(row.at("TS Exact Match"), "Y");
  EXPECT_EQ(row.at("Long Path"), "N");
  EXPECT_EQ(row.at("Source Path"), source);
  EXPECT_EQ(row.at("Dest Path"), target);
  EXPECT_EQ(row.at("Source MD5"), test::Md5Of(bytes));
  EXPECT_EQ(row.at("Dest MD5"), test::Md5Of(bytes));
  EXPECT_EQ(row.at("Source Size"), "16");
  EXPECT_EQ(row.at("Dest Size"), "16");
  for (const char* side : {"Source", "Dest"}) {
    EXPECT_EQ(row.at(std::string(side) + " Modified Date"), DateOf(kModified));
    EXPECT_EQ(row.at(std::string(side) + " Access Date"), DateOf(kAccessed));
  }
  // Both real creation dates are shown.
  EXPECT_EQ(row.at("Source Created Date"), VerificationDate(s.creationTime));
  EXPECT_EQ(row.at("Dest Created Date"), VerificationDate(t.creationTime));
  EXPECT_EQ(row.at("Error Messages"), "");

  EXPECT_EQ(ctx.counters.ErrorCount, 0);
  EXPECT_EQ(ctx.counters.TimestampMismatches, 0);
  EXPECT_TRUE(ctx.progress.listErrors.empty());
  EXPECT_FALSE(Exists(ctx.paths.ErrorLogPath));
  EXPECT_FALSE(Exists(ctx.paths.TimestampLogPath));
  EXPECT_EQ(ctx.progress.lblCurrentProcess, "Current Process: ");
  EXPECT_EQ(pump.pumps, 2);
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(VerificationRecordTest, EachHashBoxDecidesItsColumnsAndLineMatchesHeader) {
  const std::string bytes = "abc";
  const std::string source = File("src/a.txt", bytes);
  const std::string target = File("dst/a.txt", bytes);
  int n = 0;
  for (bool hashSource : {true, false}) {
    for (bool hashDest : {true, false}) {
      SCOPED_TRACE(testing::Message() << "source " << hashSource << ", dest " << hashDest);
      ctx.settings.HashSource = hashSource;
      ctx.settings.HashDest = hashDest;
      UseLogFolder(dir.MakeDir("log" + std::to_string(++n)));
      pump.pumps = 0;

      Record(source, target);

      const auto row = OnlyRow();  // also checks the field count against the header
      EXPECT_EQ(row.count("Hashes Match"), hashSource && hashDest ? 1u : 0u);
      EXPECT_EQ(row.count("Source MD5"), hashSource ? 1u : 0u);
      EXPECT_EQ(row.count("Dest MD5"), hashDest ? 1u : 0u);
      if (hashSource) {
        EXPECT_EQ(row.at("Source MD5"), test::Md5Of(bytes));
      }
      if (hashDest) {
        EXPECT_EQ(row.at("Dest MD5"), test::Md5Of(bytes));
      }
      EXPECT_EQ(pump.pumps, (hashSource ? 1 : 0) + (hashDest ? 1 : 0));
      // Unhashed sides still show the dates of their entries.
      EXPECT_EQ(row.at("Source Access Date"), DateOf(kAccessed));
      EXPECT_EQ(row.at("Dest Modified Date"), DateOf(kModified));
      EXPECT_EQ(row.at("TS Exact Match"), "Y");
      EXPECT_EQ(row.at("Error Messages"), "");
    }
  }
  EXPECT_EQ(ctx.counters.ErrorCount, 0);
}

TEST_F(VerificationRecordTest, AMissingTargetIsRecordedAndLogged) {
  const std::string source = File("src/gone.txt", "12345");
  const std::string target = dir / "dst/gone.txt";

  Record(source, target);

  const auto row = OnlyRow();
  for (const char* column :
       {"Dest Created Date", "Dest Modified Date", "Dest Access Date", "Dest Size"}) {
    EXPECT_EQ(row.at(column), "N/A") << column;
  }
  EXPECT_EQ(row.at("Dest MD5"), "");
  EXPECT_EQ(row.at("Source MD5"), test::Md5Of("12345"));
  EXPECT_EQ(row.at("TS Exact Match"), "Y");
  EXPECT_EQ(row.at("Hashes Match"), "N");
  const std::string errors =
      "(Destination file not found) (Unable to hash destination) (File size mismatch) "
      "(Hash values do not match) ";
  EXPECT_EQ(row.at("Error Messages"), "(File size mismatch) (Hash values do not match) " + errors);

  // The error log is created as UTF-16 on its first line.
  EXPECT_EQ(ReadUtf16(ctx.paths.ErrorLogPath), source + "\t" + errors + "\r\n");
  EXPECT_EQ(ctx.counters.ErrorCount, 1);
  EXPECT_EQ(ctx.progress.lblErrorCount, "1");
  EXPECT_EQ(ctx.progress.listErrors,
            (std::vector<std::string>{
                "gone.txt (Destination file not found)", "gone.txt (Unable to hash destination)",
                "gone.txt (File size mismatch)", "gone.txt (Hash values do not match)"}));

  // A second error appends to the log that is there, without a second mark.
  Record(source, target);
  EXPECT_EQ(ReadUtf16(ctx.paths.ErrorLogPath),
            source + "\t" + errors + "\r\n" + source + "\t" + errors + "\r\n");
  EXPECT_EQ(ctx.counters.ErrorCount, 2);
  EXPECT_EQ(ctx.progress.lblErrorCount, "2");
  EXPECT_EQ(Rows().size(), 2u);
}

TEST_F(VerificationRecordTest, AVanishedSourceIsRecordedAndLogged) {
  const std::string source = dir / "src/vanished.txt";
  const std::string target = File("dst/vanished.txt", "abc");

  Record(source, target);

  const auto row = OnlyRow();
  for (const char* column :
       {"Source Created Date", "Source Modified Date", "Source Access Date", "Source Size"}) {
    EXPECT_EQ(row.at(column), "N/A") << column;
  }
  EXPECT_EQ(row.at("Source MD5"), "");
  EXPECT_EQ(row.at("Dest Modified Date"), DateOf(kModified));
  const std::string errors =
      "(Source file not found) (Unable to hash source) (File size mismatch) "
      "(Unable to validate. Source file in use.) ";
  EXPECT_EQ(row.at("Error Messages"),
            "(File size mismatch) (Unable to validate. Source file in use.) " + errors);
  EXPECT_EQ(ReadUtf16(ctx.paths.ErrorLogPath), source + "\t" + errors + "\r\n");
  EXPECT_EQ(ctx.counters.ErrorCount, 1);
  EXPECT_EQ(ctx.counters.TimestampMismatches, 0);
}

TEST_F(VerificationRecordTest, SizeAndHashVerdictsAppearTwiceInTheLastColumn) {
  const std::string source = File("src/a.txt", "abc");

  Record(source, File("dst/longer.txt", "abcdef"));
  Record(source, File("dst/altered.txt", "abd"));

  const auto rows = Rows();
  ASSERT_EQ(rows.size(), 2u);
  const std::string& sized = rows[0].at("Error Messages");
  EXPECT_EQ(Occurrences(sized, "(File size mismatch) "), 2u) << sized;
  EXPECT_EQ(rows[0].at("Dest Size"), "6");

  const std::string& altered = rows[1].at("Error Messages");
  EXPECT_EQ(altered, "(Hash values do not match) (Hash values do not match) ");
  EXPECT_EQ(rows[1].at("Hashes Match"), "N");
  EXPECT_EQ(rows[1].at("TS Exact Match"), "Y");

  EXPECT_EQ(ctx.counters.ErrorCount, 2);
  const auto lines = CrLfLines(ReadUtf16(ctx.paths.ErrorLogPath));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1], source + "\t(Hash values do not match) ");
}

TEST_F(VerificationRecordTest, AKnownSourceHashIsTakenAsTheSourcesDigest) {
  std::string source = File("src/a.txt", "abc");
  std::string target = File("dst/a.txt", "abd");

  WriteVerificationRecord(ctx, source, target, test::Md5Of("abd"), "");

  const auto row = OnlyRow();
  EXPECT_EQ(row.at("Source MD5"), test::Md5Of("abd"));
  EXPECT_EQ(row.at("Hashes Match"), "Y");
  EXPECT_EQ(ctx.counters.ErrorCount, 0);
}

TEST_F(VerificationRecordTest, AFailedCopyUsesTheTimesReadBeforeItAndDoesNotHashTheSource) {
  const std::string source = File("src/a.txt", "same");
  const std::string target = File("dst/a.txt", "same");
  // The source's own access time has moved since; the copies taken before the transfer match
  // the target.
  SetTimes(source, kAccessed + 1, kModified);
  FindData t;
  ASSERT_TRUE(FindEntry(target, t));
  ctx.copyFailed = true;
  ctx.FCT = t.creationTime;
  ctx.FLAT = FileTimeFromUnix(kAccessed, 0);
  ctx.FLMT = FileTimeFromUnix(kModified - 7200, 0);
  SetTimes(target, kAccessed, kModified - 7200);

  Record(source, target);

  const auto row = OnlyRow();
  EXPECT_EQ(row.at("Source MD5"), "");
  EXPECT_EQ(row.at("Dest MD5"), test::Md5Of("same"));
  EXPECT_EQ(pump.pumps, 1);
  EXPECT_EQ(row.at("Source Access Date"), DateOf(kAccessed));
  EXPECT_EQ(row.at("Source Modified Date"), DateOf(kModified - 7200));
  EXPECT_EQ(row.at("TS Exact Match"), "Y");
  EXPECT_EQ(row.at("Error Messages"),
            "(Unable to validate. Source file in use.) (Unable to validate. Source file in use.) ");
  EXPECT_EQ(ctx.counters.ErrorCount, 1);
  EXPECT_EQ(ctx.counters.TimestampMismatches, 0);
  EXPECT_EQ(ctx.progress.listErrors,
            std::vector<std::string>{"a.txt (Unable to validate. Source file in use.)"});
}

TEST_F(VerificationRecordTest, APathWithACommaComesBackQuotedEverywhere) {
  const std::string sourcePlain = File("src/a,b.txt", "x");
  const std::string targetPlain = dir / "dst/a,b.txt";  // missing, so an error line follows
  std::string source = sourcePlain;
  std::string target = targetPlain;

  WriteVerificationRecord(ctx, source, target, "", "");

  EXPECT_EQ(source, "\"" + sourcePlain + "\"");
  EXPECT_EQ(target, "\"" + targetPlain + "\"");
  const auto row = OnlyRow();
  EXPECT_EQ(row.at("Source Path"), source);
  EXPECT_EQ(row.at("Dest Path"), target);
  const auto lines = CrLfLines(ReadUtf16(ctx.paths.ErrorLogPath));
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].substr(0, source.size() + 1), source + "\t");
  // The error list names the file as it was before quoting.
  ASSERT_FALSE(ctx.progress.listErrors.empty());
  EXPECT_EQ(ctx.progress.listErrors[0], "a,b.txt (Destination file not found)");
}

TEST_F(VerificationRecordTest, TimestampDifferencesWithinToleranceClearTheMatchBeyondItFlag) {
  struct Case {
    const char* what;
    int64_t accessShift;  // target minus source, seconds
    long accessNs;        // target's extra nanoseconds
    int64_t modifiedShift;
    const char* exact;
    int counted;
  };
  const Case cases[] = {
      {"access 1 s", 1, 0, 0, "N", 1},
      {"access 3 s, the edge", -3, 0, 0, "N", 1},
      {"access 4 s", 4, 0, 0, "Y", 0},
      {"access within the second", 0, 500, 0, "N", 1},
      {"modification 10 s", 0, 0, 10, "Y", 0},
      {"modification 2 s", 0, 0, -2, "N", 1},
      {"both 1 s: one count per file", 1, 0, 1, "N", 1},
      {"access flagged ends the comparison", 10, 0, 1, "Y", 0},
  };
  int n = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string name = std::to_string(++n) + ".txt";
    const std::string source = File("src/" + name, "same bytes");
    const std::string target = File("dst/" + name, "same bytes");
    SetTimes(target, kAccessed + c.accessShift, kModified + c.modifiedShift, c.accessNs, 0);
    const int before = ctx.counters.TimestampMismatches;

    Record(source, target);

    const auto rows = Rows();
    ASSERT_EQ(rows.size(), static_cast<size_t>(n));
    EXPECT_EQ(rows.back().at("TS Exact Match"), c.exact);
    EXPECT_EQ(rows.back().at("Error Messages"), "");
    EXPECT_EQ(ctx.counters.TimestampMismatches - before, c.counted);
  }
  // Timestamps alone are never an error.
  EXPECT_EQ(ctx.counters.ErrorCount, 0);
  EXPECT_FALSE(Exists(ctx.paths.ErrorLogPath));
  EXPECT_FALSE(Exists(ctx.paths.TimestampLogPath));
  EXPECT_TRUE(ctx.progress.listErrors.empty());
}

TEST_F(VerificationRecordTest, SeparateTimestampLogTakesFlaggedErrorsUncounted) {
  // Equal size, other content, and a modification time 10 s off: an error with a flag.
  const std::string source = File("src/a.txt", "abc");
  auto flaggedTarget = [&](const std::string& name) {
    const std::string t = File("dst/" + name, "abd");
    SetTimes(t, kAccessed, kModified + 10);
    return t;
  };

  ctx.settings.SeparateTS = true;
  Record(source, flaggedTarget("1.txt"));
  EXPECT_EQ(ReadBytes(ctx.paths.TimestampLogPath), source + "\t(Hash values do not match) \r\n");
  EXPECT_FALSE(Exists(ctx.paths.ErrorLogPath));
  EXPECT_EQ(ctx.counters.ErrorCount, 0);
  EXPECT_EQ(ctx.progress.lblErrorCount, "");
  EXPECT_EQ(ctx.progress.listErrors.size(), 1u);

  // An error without a flag still goes to the error log and counts.
  Record(source, File("dst/2.txt", "abd"));
  EXPECT_EQ(ReadUtf16(ctx.paths.ErrorLogPath), source + "\t(Hash values do not match) \r\n");
  EXPECT_EQ(ctx.counters.ErrorCount, 1);

  // With the box off, a flagged error is an ordinary one.
  ctx.settings.SeparateTS = false;
  Record(source, flaggedTarget("3.txt"));
  EXPECT_EQ(CrLfLines(ReadUtf16(ctx.paths.ErrorLogPath)).size(), 2u);
  EXPECT_EQ(ctx.counters.ErrorCount, 2);
  EXPECT_EQ(ctx.progress.lblErrorCount, "2");
  EXPECT_EQ(CrLfLines(ReadBytes(ctx.paths.TimestampLogPath)).size(), 1u);
  EXPECT_EQ(ctx.counters.TimestampMismatches, 0);
}

TEST_F(VerificationRecordTest, ATargetPathOf255BytesIsLongAnd254IsNot) {
  const std::string source = File("src/a.txt", "x");
  const std::string folder = dir.MakeDir("dst");
  auto targetOfLength = [&](size_t length) {
    const std::string name(length - folder.size() - 1, 'n');
    const std::string t = File("dst/" + name, "x");
    EXPECT_EQ(t.size(), length);
    return t;
  };
  const std::string target254 = targetOfLength(254);
  const std::string target255 = targetOfLength(255);

  Record(source, target254);
  Record(source, target255);

  const auto rows = Rows();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].at("Long Path"), "N");
  EXPECT_EQ(rows[1].at("Long Path"), "Y");
  EXPECT_EQ(ReadBytes(log + "/_longpaths.log"), target255 + "\r\n");
  // A long path is not an error.
  EXPECT_EQ(rows[1].at("Error Messages"), "");
  EXPECT_EQ(ctx.counters.ErrorCount, 0);
}

TEST(CsvEncapsulateTest, LineBreaksBecomeBlanksAndACommaQuotesTheText) {
  test::FakeDialogs dialogs;
  test::FakePump pump;
  RunContext ctx{dialogs, pump};
  struct Case {
    std::string in, out;
  };
  const Case cases[] = {
      {"plain", "plain"},
      {"a\r\nb", "a b"},
      {"a\r\n\r\nb\r\n", "a  b "},
      {"lone\rcr and\nlf", "lone\rcr and\nlf"},
      {"\r\r\n\n", "\r \n"},
      {"a,b", "\"a,b\""},
      {"x\r\ny,z", "\"x y,z\""},
      {"say \"hi\"", "say \"hi\""},
      {"say \"hi\", twice", "\"say \"hi\", twice\""},
      {"", ""},
  };
  for (const Case& c : cases) {
    std::string text = c.in;
    EXPECT_EQ(CsvEncapsulate(ctx, text), c.out) << c.in;
    EXPECT_EQ(text, c.out) << "changed in place: " << c.in;
  }
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST(VerificationDateTest, LocalTimeToTheSecondWithoutTimeAtMidnight) {
  const char* old = std::getenv("TZ");
  const std::optional<std::string> saved = old ? std::optional<std::string>(old) : std::nullopt;
  setenv("TZ", "EST5", 1);  // five hours behind UTC all year, no zone files needed
  tzset();
  // 2023-11-14 22:13:20.9999999 UTC is 5:13:20 PM there; the fraction is dropped.
  EXPECT_EQ(VerificationDate(FileTimeFromUnix(1700000000, 999999900)), "11/14/2023 5:13:20 PM");
  // 2023-11-14 05:00:00 UTC is midnight there.
  EXPECT_EQ(VerificationDate(FileTimeFromUnix(1699938000, 0)), "11/14/2023");
  if (saved) {
    setenv("TZ", saved->c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
}

TEST_F(VerificationRecordTest, AMissingLogFolderIsALoggingErrorAndTheRunGoesOn) {
  const std::string source = File("src/a.txt", "abc");
  const std::string target = File("dst/a.txt", "abd");
  const std::string missing = dir / "no such folder";
  ctx.settings.LogPath = missing;
  ctx.paths = ComputeRunPaths(missing);

  Record(source, target);

  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Logging Error:\r\n" + source +
                                       "\r\n2 : " + std::strerror(ENOENT) +
                                       "\r\n\r\nStage = Outputting CSV string to CSV file");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Critical);
  EXPECT_EQ(dialogs.shown[0].title, kTitleText);
  // The record ended there: nothing counted, nothing logged.
  EXPECT_EQ(ctx.counters.ErrorCount, 0);
  EXPECT_FALSE(Exists(missing));

  // Silent: one line beside the error log instead of a box.
  ctx.settings.Silent = true;
  ctx.paths = ComputeRunPaths(log);
  Record(source, target);
  EXPECT_EQ(dialogs.shown.size(), 1u);
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

}  // namespace
}  // namespace qr
