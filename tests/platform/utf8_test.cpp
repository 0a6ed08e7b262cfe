#include "platform/utf8.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "platform/like_match.h"
#include "platform/text.h"
#include "platform/unicode_text.h"

namespace qr {
namespace {

struct Valid {
  const char* bytes;
  char32_t code;
};

// The edges of each sequence length and around the surrogates.
constexpr Valid kValid[] = {
    {"\x00", 0x00},
    {"\x7F", 0x7F},
    {"\xC2\x80", 0x80},
    {"\xDF\xBF", 0x7FF},
    {"\xE0\xA0\x80", 0x800},
    {"\xED\x9F\xBF", 0xD7FF},
    {"\xEE\x80\x80", 0xE000},
    {"\xEF\xBF\xBD", 0xFFFD},
    {"\xEF\xBF\xBF", 0xFFFF},
    {"\xF0\x90\x80\x80", 0x10000},
    {"\xF0\x9F\x98\x80", 0x1F600},
    {"\xF4\x8F\xBF\xBF", 0x10FFFF},
};

TEST(Utf8, EveryEdgeOfTheValidRangeDecodesAndEncodesBack) {
  for (const Valid& v : kValid) {
    // "\x00" is one byte, not an empty text.
    const std::string bytes = v.code == 0 ? std::string(1, '\0') : std::string(v.bytes);
    const std::string framed = "a" + bytes + "b";
    const auto code = static_cast<uint32_t>(v.code);
    char32_t c = 0xDEAD;
    EXPECT_EQ(DecodeUtf8(framed, 1, c), bytes.size()) << std::hex << code;
    EXPECT_EQ(static_cast<uint32_t>(c), code) << std::hex << code;
    std::string encoded;
    AppendUtf8(v.code, encoded);
    EXPECT_EQ(encoded, bytes) << std::hex << code;
    EXPECT_EQ(Utf8CharCount(framed), 3u) << std::hex << code;
  }
}

struct Invalid {
  const char* bytes;
  const char* why;
  size_t characters;  // each byte of no well-formed sequence is one
};

constexpr Invalid kInvalid[] = {
    {"\x80", "a stray continuation byte", 1},
    {"\xC0\x80", "an overlong NUL", 2},
    {"\xE0\x80\xAF", "an overlong three-byte slash", 3},
    {"\xE0\x9F\xBF", "the highest overlong three-byte form", 3},
    {"\xF0\x8F\xBF\xBF", "the highest overlong four-byte form", 4},
    {"\xED\xA0\x80", "the first high surrogate", 3},
    {"\xED\xA0\xBD\xED\xB8\x80", "a surrogate pair spelled out", 6},
    {"\xF4\x90\x80\x80", "U+110000", 4},
    {"\xF5\x80\x80\x80", "a lead byte past U+10FFFF", 4},
    {"\xF8\x88\x80\x80\x80", "a five-byte form", 5},
    {"\xFF", "the byte FF", 1},
    {"\xC3", "a two-byte sequence cut short", 1},
    {"\xE2\x82", "a three-byte sequence cut short", 2},
    {"\xC3(", "a sequence broken by ASCII", 2},
    {"\xE2(\xA1", "a sequence broken in its middle", 3},
    {"\xE2\x82\xC3", "a sequence broken by a new lead byte", 3},
};

TEST(Utf8, InvalidSequencesDecodeToNothingAndCountByTheByte) {
  for (const Invalid& v : kInvalid) {
    const std::string bytes = v.bytes;
    char32_t c = 0xBEEF;
    EXPECT_EQ(DecodeUtf8(bytes, 0, c), 0u) << v.why;
    EXPECT_EQ(static_cast<uint32_t>(c), 0xBEEFu) << v.why;
    EXPECT_EQ(Utf8CharCount(bytes), v.characters) << v.why;
  }
}

TEST(Utf8, ASequenceThatRunsPastTheEndOfTheViewIsCutShort) {
  const std::string text = "\xC3\xA4";
  char32_t c = 0;
  EXPECT_EQ(DecodeUtf8(std::string_view(text).substr(0, 1), 0, c), 0u);
  EXPECT_EQ(DecodeUtf8(text, 0, c), 2u);
  EXPECT_EQ(static_cast<uint32_t>(c), 0xE4u);
}

// The callers that convert, fold and match text all follow the one decoder.
TEST(Utf8, EveryConverterTreatsAnInvalidByteAsOneCharacterOfItsOwn) {
  const std::u16string R(1, static_cast<char16_t>(kReplacementChar));
  for (const Invalid& v : kInvalid) {
    const std::string bytes = v.bytes;
    // To UTF-16: one replacement character per byte of no sequence, the rest kept.
    const std::u16string wide = Utf8ToUtf16("A" + bytes + "\xC3\xA4");
    std::u16string expected = u"A";
    for (char b : bytes) {
      const bool ascii = static_cast<unsigned char>(b) < 0x80;
      expected += ascii ? std::u16string(1, static_cast<char16_t>(b)) : R;
    }
    expected += u"\u00E4";
    EXPECT_EQ(wide, expected) << v.why;
    // Case folding leaves the bytes as they are (an overlong 'A' does not turn into 'a').
    std::string folded = bytes;
    for (char& b : folded) {
      if (b >= 'A' && b <= 'Z') b = static_cast<char>(b + 32);
    }
    EXPECT_EQ(LowerCase(bytes), folded) << v.why;
  }
  // The byte that breaks a sequence is read afresh: here it starts a character of its own.
  EXPECT_EQ(Utf8ToUtf16("\xE2\x82\xC3\xA4"), R + R + u"\u00E4");
  EXPECT_EQ(Utf8CharCount("\xE2\x82\xC3\xA4"), 3u);
  // A pattern's "?" takes an invalid byte as one character, never two or none.
  EXPECT_TRUE(LikeMatch("\xC0\x80", "??"));
  EXPECT_FALSE(LikeMatch("\xC0\x80", "?"));
  EXPECT_TRUE(LikeMatch("\xED\xA0\x80", "???"));
}

}  // namespace
}  // namespace qr
