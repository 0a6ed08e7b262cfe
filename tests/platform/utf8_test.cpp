// The UTF-8 decoder, and the pattern matcher that counts characters with it.
#include "platform/utf8.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "platform/like_match.h"
#include "platform/text.h"
#include "platform/unicode_text.h"

namespace qr {
namespace {

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

struct Invalid {
  const char* bytes;
  const char* why;
  size_t characters;  // each byte of no well-formed sequence is one
};

constexpr Invalid kInvalid[] = {
    {"\x80", "a stray continuation byte", 1},         {"\xC0\x80", "an overlong NUL", 2},
    {"\xE0\x9F\xBF", "the highest overlong three-byte form", 3},
    {"\xF0\x8F\xBF\xBF", "the highest overlong four-byte form", 4},
    {"\xED\xA0\x80", "the first high surrogate", 3},  {"\xED\xBF\xBF", "the last low surrogate", 3},
    {"\xF4\x90\x80\x80", "U+110000", 4},
    {"\xF5\x80\x80\x80", "a lead byte past U+10FFFF", 4}, {"\xF8\x88\x80\x80\x80", "five bytes", 5},
    {"\xFF", "the byte FF", 1},                        {"\xE2\x82", "a sequence cut short", 2},
    {"\xC3(", "a sequence broken by ASCII", 2},        {"\xE2(\xA1", "one broken in its middle", 3},
};

// The decoder and the callers that convert, fold and match text all agree.
TEST(Utf8, AnInvalidByteIsOneCharacterOfItsOwnEverywhere) {
  const std::u16string R(1, static_cast<char16_t>(kReplacementChar));
  for (const Invalid& v : kInvalid) {
    SCOPED_TRACE(v.why);
    const std::string bytes = v.bytes;
    char32_t c = 0xBEEF;
    EXPECT_EQ(DecodeUtf8(bytes, 0, c), 0u);
    EXPECT_EQ(c, char32_t{0xBEEF});
    EXPECT_EQ(Utf8CharCount(bytes), v.characters);
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
}

struct Case {
  const char* text;
  const char* pattern;
  bool match;
};

void ExpectAll(std::initializer_list<Case> cases) {
  for (const Case& c : cases) {
    EXPECT_EQ(LikeMatch(c.text, c.pattern), c.match)
        << "text \"" << c.text << "\" pattern \"" << c.pattern << "\"";
  }
}

TEST(LikeMatchTest, WildcardsCoverTheWholeText) {
  ExpectAll({{"", "", true},          {"", "*", true},         {"", "?", false},
             {"abc", "ab", false},    {"abc", "bc", false},    {"ac", "a?c", false},
             {"abc", "*b", false},    {"abc", "a**c", true},   {"abcbc", "*bc", true},
             {"mississippi", "m*iss*ppi", true},               {"file12.txt", "file##.txt", true},
             {"file1x.txt", "file##.txt", false},              {"ABC", "abc", false}});
}

TEST(LikeMatchTest, ListsAndLiteralBrackets) {
  ExpectAll({{"b", "[abc]", true},    {"d", "[abc]", false},   {"d", "[!abc]", true},
             {"a", "[!abc]", false},  {"5", "[0-35-9]", true}, {"4", "[0-35-9]", false},
             {"-", "[a-]", true},     {"-", "[-a]", true},     {"!", "[a!]", true},
             {"x", "[f-a]", false},  // a range written backwards holds nothing
             {"x", "[]", false},     // an empty list holds nothing...
             {"x", "[!]", true},     // ...so its negation takes any one character
             {"]", "]", true},       {"a]", "[a]]", true},     {"a[1]", "a[[]#]", true},
             // With nothing to close it, "[" is an ordinary character.
             {"a[b", "a[b", true},   {"ab", "a[b", false},     {"a[bcd", "a[*", true}});
}

TEST(LikeMatchTest, CharactersAreCodePoints) {
  ExpectAll({{"é", "?", true},        {"é", "??", false},      {"\xF0\x9F\x98\x80", "?", true},
             {"é", "[à-ÿ]", true},    {"e", "[à-ÿ]", false},   {"ü", "[!u]", true},
             // An invalid byte is one character of its own, equal only to itself.
             {"a\xff" "b", "a?b", true},                       {"a\xfe" "b", "a\xff" "b", false}});
}

// Ordinary folded matches are checked by the filter tests.
TEST(LikeMatchTest, ManyStarsOnALongMissStayLinearAndFoldedMatchesTrimOnlyBlanks) {
  // Backtracking into every star would never end; one backtrack point answers at once.
  const std::string text(400, 'a');
  EXPECT_FALSE(LikeMatch(text, "*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*b"));
  EXPECT_TRUE(LikeMatch(text + "b", "*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*b"));

  EXPECT_TRUE(LikeMatchFolded("ÄPFEL.TXT", "äpfel.*"));
  EXPECT_FALSE(LikeMatchFolded("\treport.doc", "report.doc")) << "only blanks are trimmed";
}

}  // namespace
}  // namespace qr
