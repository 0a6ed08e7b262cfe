// Text as the logs and names carry it: the UTF-8 decoder and the pattern matcher that counts
// characters with it, UTF-16 conversion, the log writers' edge cases (their ordinary output is
// checked by the log tests of the runs), and dates as the records show them.
#include "platform/dates.h"
#include "platform/like_match.h"
#include "platform/plain_text.h"
#include "platform/text.h"
#include "platform/unicode_text.h"
#include "platform/utf8.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <ctime>

#include "support/child_process.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::ReadBytes;
using test::RecordingReporter;
using test::TempDir;

TEST(Utf8, EveryEdgeOfTheValidRangeDecodesAndEncodesBack) {
  // The edges of each sequence length and around the surrogates.
  const std::pair<std::string, char32_t> valid[] = {
      {std::string(1, '\0'), 0x00}, {"\x7F", 0x7F},   {"\xC2\x80", 0x80},
      {"\xDF\xBF", 0x7FF},          {"\xE0\xA0\x80", 0x800}, {"\xED\x9F\xBF", 0xD7FF},
      {"\xEE\x80\x80", 0xE000},     {"\xEF\xBF\xBF", 0xFFFF}, {"\xF0\x90\x80\x80", 0x10000},
      {"\xF4\x8F\xBF\xBF", 0x10FFFF}};
  for (const auto& [bytes, code] : valid) {
    SCOPED_TRACE(static_cast<uint32_t>(code));
    char32_t c = 0;
    EXPECT_EQ(DecodeUtf8("a" + bytes + "b", 1, c), bytes.size());
    EXPECT_EQ(c, code);
    std::string encoded;
    AppendUtf8(code, encoded);
    EXPECT_EQ(encoded, bytes);
    EXPECT_EQ(Utf8CharCount("a" + bytes + "b"), 3u);
  }
  // A sequence that runs past the end of the view is cut short.
  char32_t c = 0;
  EXPECT_EQ(DecodeUtf8(std::string_view("\xC3\xA4").substr(0, 1), 0, c), 0u);
}

// Overlong forms (NUL, the highest of three and four bytes), the first and last surrogate,
// U+110000, lead bytes past it, a stray continuation, sequences cut short or broken by ASCII.
constexpr const char* kInvalid[] = {
    "\x80",           "\xC0\x80",         "\xE0\x9F\xBF",         "\xF0\x8F\xBF\xBF",
    "\xED\xA0\x80",   "\xED\xBF\xBF",     "\xF4\x90\x80\x80",     "\xF5\x80\x80\x80",
    "\xF8\x88\x80\x80\x80", "\xFF",       "\xE2\x82",             "\xC3(",
    "\xE2(\xA1"};

// The decoder and the callers that convert, fold and match text all agree.
TEST(Utf8, AnInvalidByteOrLoneSurrogateIsOneCharacterOfItsOwnEverywhere) {
  const std::u16string R(1, static_cast<char16_t>(kReplacementChar));
  for (const std::string bytes : kInvalid) {
    SCOPED_TRACE(testing::PrintToString(bytes));
    char32_t c = 0xBEEF;
    EXPECT_EQ(DecodeUtf8(bytes, 0, c), 0u);
    EXPECT_EQ(c, char32_t{0xBEEF});
    EXPECT_EQ(Utf8CharCount(bytes), bytes.size()) << "each byte of no sequence is one";
    std::u16string expected = u"A";
    for (char b : bytes) {
      expected += static_cast<unsigned char>(b) < 0x80 ? std::u16string(1, b) : R;
    }
    EXPECT_EQ(Utf8ToUtf16("A" + bytes + "\xC3\xA4"), expected + u"\u00E4");
  }
  // The byte that breaks a sequence is read afresh: here it starts a character of its own.
  EXPECT_EQ(Utf8ToUtf16("\xE2\x82\xC3\xA4"), R + R + u"\u00E4");
  // Folding leaves such bytes alone (an overlong 'A' does not turn into 'a').
  EXPECT_EQ(LowerCase("\xC1\x81X"), "\xC1\x81x");
  EXPECT_TRUE(LikeMatch("\xC0\x80", "??"));
  EXPECT_FALSE(LikeMatch("\xC0\x80", "?"));
  // A lone surrogate read back from UTF-16 is replaced; pairs go there and back.
  EXPECT_EQ(Utf16ToUtf8(std::u16string{u'a', 0xD800, u'b'}), "a\xEF\xBF\xBD" "b");
  EXPECT_EQ(Utf16ToUtf8(std::u16string{0xDC00, 0xDFFF}), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(Utf16ToUtf8(Utf8ToUtf16("Ünïcødé 名前 \xF4\x8F\xBF\xBF")), "Ünïcødé 名前 \xF4\x8F\xBF\xBF");
}

TEST(LikeMatchTest, WildcardsListsAndCodePointsCoverTheWholeTextWithoutRunaways) {
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"", "", true},          {"", "*", true},         {"", "?", false},
      {"abc", "ab", false},    {"abc", "bc", false},    {"ac", "a?c", false},
      {"abc", "*b", false},    {"abc", "a**c", true},   {"abcbc", "*bc", true},
      {"mississippi", "m*iss*ppi", true},               {"file09.txt", "file##.txt", true},
      {"file1x.txt", "file##.txt", false},              {"ABC", "abc", false},
      // Lists and literal brackets.
      {"b", "[abc]", true},    {"d", "[abc]", false},   {"d", "[!abc]", true},
      {"a", "[!abc]", false},  {"5", "[0-35-9]", true}, {"4", "[0-35-9]", false},
      {"-", "[a-]", true},     {"-", "[-a]", true},     {"!", "[a!]", true},
      {"x", "[f-a]", false},  // a range written backwards holds nothing
      {"x", "[]", false},     // an empty list holds nothing...
      {"x", "[!]", true},     // ...so its negation takes any one character
      {"]", "]", true},        {"a]", "[a]]", true},    {"a[1]", "a[[]#]", true},
      // With nothing to close it, "[" is an ordinary character.
      {"a[b", "a[b", true},    {"ab", "a[b", false},    {"a[bcd", "a[*", true},
      // Characters are code points; an invalid byte is one of its own, equal only to itself.
      {"é", "?", true},        {"é", "??", false},      {"\xF0\x9F\x98\x80", "?", true},
      {"é", "[à-ÿ]", true},    {"e", "[à-ÿ]", false},   {"ü", "[!u]", true},
      {"a\xff" "b", "a?b", true},                       {"a\xfe" "b", "a\xff" "b", false}};
  for (const auto& [text, pattern, match] : cases) {
    EXPECT_EQ(LikeMatch(text, pattern), match)
        << "text \"" << text << "\" pattern \"" << pattern << "\"";
  }
  // Backtracking into every star would never end; one backtrack point answers at once.
  const std::string text(400, 'a');
  EXPECT_FALSE(LikeMatch(text, "*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*b"));
  EXPECT_TRUE(LikeMatch(text + "b", "*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*b"));
  // Ordinary folded matches are checked by the filter tests.
  EXPECT_TRUE(LikeMatchFolded("ÄPFEL.TXT", "äpfel.*"));
  EXPECT_FALSE(LikeMatchFolded("\treport.doc", "report.doc")) << "only blanks are trimmed";
}

std::string Bytes(std::initializer_list<int> values) {
  std::string out;
  for (int v : values) out += static_cast<char>(v);
  return out;
}

TEST(UnicodeFileTest, MarkOnlyOnCreateAndWhenAskedOddSizesAndAMissingFile) {
  TempDir tmp;
  RecordingReporter reporter;
  const std::string path = tmp.WriteFile("log.txt", "old content");
  ASSERT_TRUE(CreateUnicodeFile(path));
  EXPECT_TRUE(IsUnicodeFile(path));
  ASSERT_TRUE(AppendUnicodeText(path, "\xF0\x9F\x98\x80\xff", false, &reporter));
  ASSERT_TRUE(AppendUnicodeText(path, "y", true, &reporter));
  EXPECT_EQ(ReadBytes(path),
            Bytes({0xFF, 0xFE, 0x3D, 0xD8, 0x00, 0xDE, 0xFD, 0xFF, 0xFF, 0xFE, 'y', 0}));
  EXPECT_FALSE(CreateUnicodeFile(tmp / "no/such/folder/log.txt"));
  EXPECT_FALSE(IsUnicodeFile(tmp.WriteFile("other", Bytes({0xFE, 0xFF}))));
  EXPECT_FALSE(IsUnicodeFile(tmp / "missing"));

  // A file of exactly three bytes is cut to its first; other sizes are appended to.
  const std::pair<std::string, std::string> sizes[] = {
      {"XYZ", Bytes({'X', 'b', 0})}, {"XY", Bytes({'X', 'Y', 'b', 0})},
      {"WXYZ", Bytes({'W', 'X', 'Y', 'Z', 'b', 0})}};
  for (const auto& [before, after] : sizes) {
    ASSERT_TRUE(AppendUnicodeText(tmp.WriteFile(before, before), "b", false, &reporter));
    EXPECT_EQ(ReadBytes(tmp / before), after) << before;
  }
  EXPECT_TRUE(reporter.silentLines.empty());

  EXPECT_FALSE(AppendUnicodeText(tmp / "missing.log", "x", false, &reporter));
  EXPECT_NE(access((tmp / "missing.log").c_str(), F_OK), 0) << "not created";
  EXPECT_EQ(reporter.silentLines,
            std::vector<std::string>{"UC Append API Failure (2): No such file or directory"});
  EXPECT_TRUE(reporter.boxes.empty());
}

TEST(UnicodeFileTest, AHalfWrittenLineNeverRunsIntoTheNext) {
  TempDir tmp;
  const std::string whole = std::string("\xFF\xFE", 2) + std::string("a\0\r\0\n\0", 6);
  // Cut after a whole character, cut inside one, and not cut at all.
  const std::pair<std::string, const char*> cases[] = {
      {whole + std::string("1\0" "1\0", 4), "a\r\n11\r\nnext\r\n"},
      {whole + std::string("1\0" "1", 3), "a\r\n11\r\nnext\r\n"},
      {whole, "a\r\nnext\r\n"}};
  for (const auto& [cut, expected] : cases) {
    const std::string log = tmp.WriteFile("log.csv", cut);
    ASSERT_TRUE(AppendUnicodeText(log, "next\r\n", false, nullptr));
    EXPECT_EQ(test::Utf16FileText(log), expected) << cut.size();
  }
}

TEST(PlainTextTest, WritesAndReadsBackBytesAndCrLfLinesAndFailuresGiveTheSystemsError) {
  test::TempDir tmp;
  const std::string path = tmp.WriteFile("tally.txt", "whole\r\ncut sho");
  // A half-written line never runs into the next.
  ASSERT_TRUE(AppendLine(path, "next") && AppendLine(path, ""));
  EXPECT_EQ(ReadBytes(path), "whole\r\ncut sho\r\nnext\r\n\r\n");
  ASSERT_TRUE(AppendLine(tmp / "new.txt", "first"));
  EXPECT_EQ(ReadBytes(tmp / "new.txt"), "first\r\n");
  std::string big(200000, 'x');
  big[100000] = '\0';
  ASSERT_TRUE(WriteWholeFile(path, big));
  EXPECT_EQ(ReadWholeFile(path), big);
  ASSERT_TRUE(WriteWholeFile(path, "a\r\nb\rc\nd\r\n\r\ne"));
  EXPECT_EQ(ReadLines(path), (std::vector<std::string>{"a", "b", "c", "d", "", "e"}));
  EXPECT_EQ(ReadLines(tmp.WriteFile("empty", "")), std::vector<std::string>{});

  int errors[4] = {};
  EXPECT_FALSE(ReadWholeFile(tmp / "missing", &errors[0]).has_value());
  EXPECT_FALSE(ReadLines(tmp.MakeDir("folder"), &errors[1]).has_value());
  EXPECT_FALSE(AppendLine(tmp / "no/folder/log.txt", "x", &errors[2]));
  EXPECT_FALSE(WriteWholeFile(tmp / "folder", "x", &errors[3]));
  EXPECT_EQ(std::vector<int>(errors, errors + 4),
            (std::vector<int>{ENOENT, EISDIR, ENOENT, EISDIR}));
}

// A zone for the life of the guard; POSIX rules need no zone database. `reset` is destroyed
// last, so the library rereads TZ after the variable is restored.
struct Zone {
  struct Reset { ~Reset() { tzset(); } } reset;
  test::EnvVar tz;
  explicit Zone(const char* rule) : tz("TZ", std::string(rule)) { tzset(); }
};

LocalDateTime At(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  return LocalDateTime{y, mo, d, h, mi, s};
}

std::string Fields(const LocalDateTime& l) {
  return std::to_string(l.year) + "-" + std::to_string(l.month) + "-" + std::to_string(l.day) +
         " " + std::to_string(l.hour) + ":" + std::to_string(l.minute) + ":" +
         std::to_string(l.second);
}

// An ordinary afternoon in a zone behind UTC is checked by the verification record's tests.
TEST(DateTextTest, NoTimeAtMidnightTwelveOClockAndTheMediumFormsFirstAndLastMonth) {
  const std::pair<LocalDateTime, const char*> cases[] = {
      {At(2024, 1, 5), "1/5/2024"}, {At(2024, 1, 5, 0, 0, 1), "1/5/2024 12:00:01 AM"},
      {At(2024, 1, 5, 12, 0, 0), "1/5/2024 12:00:00 PM"},
      {At(987, 3, 4, 11, 30, 0), "3/4/0987 11:30:00 AM"}};
  for (const auto& [t, text] : cases) EXPECT_EQ(GeneralDate(t), text);
  EXPECT_EQ(MediumDate(At(2024, 1, 5, 13, 0, 0)), "05-Jan-24");
  EXPECT_EQ(MediumDate(At(1999, 12, 31)), "31-Dec-99");
}

TEST(DateArithmeticTest, CalendarSecondsAndLocalTimesAcrossAClockChange) {
  EXPECT_EQ(SecondsBetween(At(2024, 1, 5), At(2024, 1, 4, 0, 0, 1)), -86399);
  EXPECT_EQ(SecondsBetween(At(2024, 2, 28), At(2024, 3, 1)), 2 * 86400) << "leap year";
  EXPECT_EQ(SecondsBetween(At(1969, 12, 31, 23, 59, 59), At(1970, 1, 1)), 1);
  {
    Zone zone("UTC0");
    // Before 1970, a fraction still counts toward the earlier second.
    EXPECT_EQ(Fields(ToLocal(Clock::from_time_t(-1) + std::chrono::milliseconds(500))),
              "1969-12-31 23:59:59");
  }
  Zone zone("EST5EDT,M3.2.0,M11.1.0");
  // A night on which the clocks change is still a calendar day; summer time is an hour less.
  EXPECT_EQ(SecondsBetween(At(2024, 3, 10), At(2024, 3, 11)), 86400);
  EXPECT_EQ(Fields(LocalFromFileTime(FileTimeFromUnix(1720000000, 0))), "2024-7-3 5:46:40");
}

}  // namespace
}  // namespace qr
