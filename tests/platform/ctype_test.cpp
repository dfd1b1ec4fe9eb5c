// The charset converter: detection, the conversions tag readers need, and
// refusal of malformed input.
#include "platform/ctype.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "platform/alloc.h"

namespace {

using namespace std::string_literals;

// Both entry points agree; ctypeConvertTo's text is a terminated heap block.
TEST(Ctype, ConvertsOrRefusesWithNoText) {
  ctypeInit(1, kCtypeDetect);
  const struct {
    int from, to;
    std::string in;
    std::optional<std::string> out;  // nothing: refused
  } cases[] = {
      {kCtypeDetect, kCtypeUtf8, "Caf\xc3\xa9 \xe2\x82\xac", "Caf\xc3\xa9 \xe2\x82\xac"},
      // One bad byte makes the whole text Latin-1, valid-looking pairs included.
      {kCtypeDetect, kCtypeUtf8, "\xc3\xa9\xff", "\xc3\x83\xc2\xa9\xc3\xbf"},
      {kCtypeLatin1, kCtypeUtf8, "a\xa9\xff", "a\xc2\xa9\xc3\xbf"},
      {kCtypeUtf16Le, kCtypeUtf8, "c\0\xe9\0"s, "c\xc3\xa9"},
      {kCtypeUtf16Be, kCtypeUtf8, "\0c\0\xe9"s, "c\xc3\xa9"},
      {kCtypeUtf16Le, kCtypeUtf8, "a\0\0\0b\0"s, "a\0b"s},
      {kCtypeUtf32Le, kCtypeUtf8, "\xac\x20\0\0\x00\xf6\x01\0"s, "\xe2\x82\xac\xf0\x9f\x98\x80"},
      {kCtypeUtf32Be, kCtypeUtf8, "\0\0\0A\0\0\0\xe9"s, "A\xc3\xa9"},
      // Longer than one conversion chunk.
      {kCtypeUtf8, kCtypeLatin1, std::string(300, 'a') + "\xc3\xa9",
       std::string(300, 'a') + "\xe9"},
      {kCtypeUtf8, kCtypeUtf8, "caf\xc3", std::nullopt},
      {kCtypeUtf8, kCtypeLatin1, "caf\xe2\x82", std::nullopt},
      {kCtypeUtf16Le, kCtypeUtf8, "a\0b"s, std::nullopt},
      {1, kCtypeUtf8, "abc", std::nullopt},  // unknown codes, and detection as a target
      {kCtypeUtf8, 8, "abc", std::nullopt},
      {kCtypeUtf8, kCtypeDetect, "abc", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.in) + " " + std::to_string(c.from) + "->" +
                 std::to_string(c.to));
    std::string str;
    EXPECT_EQ(ctypeConvertStr(c.from, c.to, c.in, str), c.out.has_value());
    char stale = 'x';
    CtypeIn in{c.from, c.in.data(), c.in.size()};
    CtypeOut out{c.to, &stale, 99};
    ASSERT_EQ(ctypeConvertTo(&in, &out), c.out ? 0 : -1);
    if (!c.out) {
      EXPECT_EQ(out.text, nullptr);
      EXPECT_EQ(out.len, 0u);
      continue;
    }
    EXPECT_EQ(str, *c.out);
    EXPECT_EQ(std::string(out.text, out.len), *c.out);
    EXPECT_EQ(out.text[out.len], '\0');
    RetUB(out.text);
  }
}

TEST(Ctype, NullTextIsRefusedUnlessEmpty) {
  ctypeInit(1, kCtypeDetect);
  CtypeOut out{kCtypeUtf8, nullptr, 0};
  CtypeIn missing{kCtypeUtf8, nullptr, 3};
  EXPECT_EQ(ctypeConvertTo(&missing, &out), -1);
  EXPECT_EQ(ctypeConvertTo(nullptr, &out), -1);
  EXPECT_EQ(ctypeConvertTo(&missing, nullptr), -1);
  CtypeIn empty{kCtypeUtf8, nullptr, 0};
  ASSERT_EQ(ctypeConvertTo(&empty, &out), 0);
  EXPECT_STREQ(out.text, "");
  RetUB(out.text);
}

TEST(Ctype, DisabledConverterConvertsNothing) {
  ctypeInit(0, kCtypeUtf8);
  CtypeIn in{kCtypeLatin1, "abc", 3};
  CtypeOut out{kCtypeUtf8, nullptr, 0};
  EXPECT_EQ(ctypeConvertTo(&in, &out), -1);
  EXPECT_EQ(out.text, nullptr);
  ctypeInit(1, kCtypeDetect);
}

TEST(Ctype, IsUtf8AcceptsOnlyWellFormedText) {
  for (const char* text : {"", "abc\x7f", "\xc2\x80\xdf\xbf", "\xe0\xa0\x80\xef\xbf\xbf",
                           "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf"})
    EXPECT_TRUE(ctypeIsUtf8(text)) << testing::PrintToString(text);
  // Overlongs, surrogates, past U+10FFFF, stray or missing continuations, unused bytes.
  for (const char* text :
       {"\xc0\xaf", "\xc1\xbf", "\xe0\x9f\xbf", "\xf0\x8f\xbf\xbf", "\xed\xa0\x80", "\xed\xbf\xbf",
        "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "a\x80", "\xc3(", "ok\xe2\x82", "\xfe"})
    EXPECT_FALSE(ctypeIsUtf8(text)) << testing::PrintToString(text);
  EXPECT_FALSE(ctypeIsUtf8(std::string_view("\xc3\xa9", 1)));  // the view ends mid-character
}

}  // namespace
