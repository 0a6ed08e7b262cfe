#include "platform/like_match.h"

#include <gtest/gtest.h>

#include <string>

namespace qr {
namespace {

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
             {"abc", "ab", false},    {"abc", "bc", false},    {"abc", "a?c", true},
             {"ac", "a?c", false},    {"abc", "*b", false},    {"abc", "a**c", true},
             {"abcbc", "*bc", true},  {"mississippi", "m*iss*ppi", true},
             {"mississippi", "m*iss*ppx", false},              {"file12.txt", "file##.txt", true},
             {"file1x.txt", "file##.txt", false},              {"ABC", "abc", false}});
}

TEST(LikeMatchTest, ListsAndLiteralBrackets) {
  ExpectAll({{"b", "[abc]", true},    {"d", "[abc]", false},   {"d", "[!abc]", true},
             {"a", "[!abc]", false},  {"M", "[a-z]", false},   {"5", "[0-35-9]", true},
             {"4", "[0-35-9]", false}, {"-", "[a-]", true},    {"-", "[-a]", true},
             {"!", "[a!]", true},
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

TEST(LikeMatchTest, ManyStarsOnALongMissStayLinearAndFoldedMatchesTrimBlanksAndFoldCase) {
  // Backtracking into every star would never end; one backtrack point answers at once.
  const std::string text(400, 'a');
  EXPECT_FALSE(LikeMatch(text, "*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*b"));
  EXPECT_TRUE(LikeMatch(text + "b", "*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*b"));

  EXPECT_TRUE(LikeMatchFolded("  report.doc  ", " *.DOC"));
  EXPECT_TRUE(LikeMatchFolded("ÄPFEL.TXT", "äpfel.*"));
  EXPECT_TRUE(LikeMatchFolded("Q", "[a-z]"));
  EXPECT_FALSE(LikeMatchFolded("\treport.doc", "report.doc")) << "only blanks are trimmed";
}

}  // namespace
}  // namespace qr
