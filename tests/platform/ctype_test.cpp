// The charset converter: detection, the conversions tag readers need, and
// refusal of malformed input.
#include "platform/ctype.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/alloc.h"

namespace {

using namespace std::string_literals;

class Ctype : public testing::Test {
 protected:
  void SetUp() override { ctypeInit(1, kCtypeDetect); }
};

struct Conversion {
  const char* what;
  int from;
  int to;
  std::string in;
  std::string out;
};

void PrintTo(const Conversion& c, std::ostream* os) {
  *os << c.what;
}

class Converts : public Ctype, public testing::WithParamInterface<Conversion> {};

TEST_P(Converts, ToTerminatedHeapText) {
  const Conversion& c = GetParam();
  CtypeIn in{c.from, c.in.data(), c.in.size()};
  CtypeOut out{c.to, nullptr, 0};
  ASSERT_EQ(ctypeConvertTo(&in, &out), 0);
  ASSERT_NE(out.text, nullptr);
  EXPECT_EQ(std::string(out.text, out.len), c.out);
  EXPECT_EQ(out.text[out.len], '\0');
  RetUB(out.text);

  std::string str;
  ASSERT_TRUE(ctypeConvertStr(c.from, c.to, c.in, str));
  EXPECT_EQ(str, c.out);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Converts,
    testing::Values(
        Conversion{"DetectKeepsAscii", kCtypeDetect, kCtypeUtf8, "Track 01", "Track 01"},
        Conversion{"DetectKeepsUtf8", kCtypeDetect, kCtypeUtf8, "caf\xc3\xa9 \xe2\x82\xac",
                   "caf\xc3\xa9 \xe2\x82\xac"},
        Conversion{"DetectTakesInvalidUtf8AsLatin1", kCtypeDetect, kCtypeUtf8, "caf\xe9",
                   "caf\xc3\xa9"},
        // One bad byte makes the whole text Latin-1, valid-looking pairs included.
        Conversion{"DetectDecidesForWholeText", kCtypeDetect, kCtypeUtf8, "\xc3\xa9\xff",
                   "\xc3\x83\xc2\xa9\xc3\xbf"},
        Conversion{"DetectEmpty", kCtypeDetect, kCtypeUtf8, "", ""},
        Conversion{"Latin1ToUtf8", kCtypeLatin1, kCtypeUtf8, "\xa9\xff", "\xc2\xa9\xc3\xbf"},
        Conversion{"Utf16LeToUtf8", kCtypeUtf16Le, kCtypeUtf8, "c\0a\0f\0\xe9\0"s, "caf\xc3\xa9"},
        Conversion{"Utf16BeToUtf8", kCtypeUtf16Be, kCtypeUtf8, "\0c\0a\0f\0\xe9"s, "caf\xc3\xa9"},
        Conversion{"Utf16SurrogatePair", kCtypeUtf16Le, kCtypeUtf8, "\x3d\xd8\x00\xde"s,
                   "\xf0\x9f\x98\x80"},
        Conversion{"Utf16EmbeddedNul", kCtypeUtf16Le, kCtypeUtf8, "a\0\0\0b\0"s, "a\0b"s},
        Conversion{"Utf32LeToUtf8", kCtypeUtf32Le, kCtypeUtf8, "\xac\x20\0\0\x00\xf6\x01\0"s,
                   "\xe2\x82\xac\xf0\x9f\x98\x80"},
        Conversion{"Utf32BeToUtf8", kCtypeUtf32Be, kCtypeUtf8, "\0\0\0A\0\0\0\xe9"s, "A\xc3\xa9"},
        Conversion{"Utf8ToLatin1", kCtypeUtf8, kCtypeLatin1, "caf\xc3\xa9", "caf\xe9"},
        Conversion{"Utf8ToUtf16Le", kCtypeUtf8, kCtypeUtf16Le, "\xc3\xa9", "\xe9\0"s}),
    [](const testing::TestParamInfo<Conversion>& p) { return std::string(p.param.what); });

class Refuses : public Ctype, public testing::WithParamInterface<Conversion> {};

TEST_P(Refuses, WithNoText) {
  const Conversion& c = GetParam();
  char sentinel = 'x';
  CtypeIn in{c.from, c.in.data(), c.in.size()};
  CtypeOut out{c.to, &sentinel, 99};
  EXPECT_EQ(ctypeConvertTo(&in, &out), -1);
  EXPECT_EQ(out.text, nullptr);
  EXPECT_EQ(out.len, 0u);
  std::string str;
  EXPECT_FALSE(ctypeConvertStr(c.from, c.to, c.in, str));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Refuses,
    testing::Values(Conversion{"TruncatedUtf8ToUtf8", kCtypeUtf8, kCtypeUtf8, "caf\xc3", ""},
                    Conversion{"TruncatedUtf8ToLatin1", kCtypeUtf8, kCtypeLatin1, "caf\xe2\x82",
                               ""},
                    Conversion{"OverlongUtf8ToUtf8", kCtypeUtf8, kCtypeUtf8, "\xc0\xaf", ""},
                    Conversion{"OddLengthUtf16Le", kCtypeUtf16Le, kCtypeUtf8, "a\0b"s, ""},
                    Conversion{"OddLengthUtf16Be", kCtypeUtf16Be, kCtypeUtf8, "\0a\0"s, ""},
                    Conversion{"LoneSurrogateUtf16", kCtypeUtf16Le, kCtypeUtf8,
                               "\x3d\xd8"
                               "a\0"s,
                               ""},
                    Conversion{"ShortUtf32", kCtypeUtf32Le, kCtypeUtf8, "A\0\0"s, ""},
                    Conversion{"UnknownSourceCode", 1, kCtypeUtf8, "abc", ""},
                    Conversion{"UnknownTargetCode", kCtypeUtf8, 8, "abc", ""},
                    Conversion{"DetectIsNoTarget", kCtypeUtf8, kCtypeDetect, "abc", ""}),
    [](const testing::TestParamInfo<Conversion>& p) { return std::string(p.param.what); });

TEST_F(Ctype, NullTextIsRefusedUnlessEmpty) {
  CtypeOut out{kCtypeUtf8, nullptr, 0};
  CtypeIn missing{kCtypeUtf8, nullptr, 3};
  EXPECT_EQ(ctypeConvertTo(&missing, &out), -1);
  EXPECT_EQ(ctypeConvertTo(nullptr, &out), -1);
  EXPECT_EQ(ctypeConvertTo(&missing, nullptr), -1);

  CtypeIn empty{kCtypeUtf8, nullptr, 0};
  ASSERT_EQ(ctypeConvertTo(&empty, &out), 0);
  ASSERT_NE(out.text, nullptr);
  EXPECT_EQ(out.len, 0u);
  EXPECT_EQ(out.text[0], '\0');
  RetUB(out.text);
}

TEST_F(Ctype, DisabledConverterConvertsNothing) {
  ctypeInit(0, kCtypeUtf8);
  EXPECT_EQ(ctypeFsCode(), kCtypeUtf8);
  CtypeIn in{kCtypeLatin1, "abc", 3};
  CtypeOut out{kCtypeUtf8, nullptr, 0};
  EXPECT_EQ(ctypeConvertTo(&in, &out), -1);
  EXPECT_EQ(out.text, nullptr);
}

struct Utf8Check {
  const char* what;
  std::string bytes;
  bool valid;
};

void PrintTo(const Utf8Check& c, std::ostream* os) {
  *os << c.what;
}

class IsUtf8 : public testing::TestWithParam<Utf8Check> {};

TEST_P(IsUtf8, Classifies) {
  EXPECT_EQ(ctypeIsUtf8(GetParam().bytes), GetParam().valid);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, IsUtf8,
    testing::Values(Utf8Check{"Empty", "", true}, Utf8Check{"Ascii", "abc\x7f", true},
                    Utf8Check{"TwoBytes", "\xc2\x80\xdf\xbf", true},
                    Utf8Check{"ThreeBytes", "\xe0\xa0\x80\xef\xbf\xbf", true},
                    Utf8Check{"FourBytes", "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf", true},
                    Utf8Check{"OverlongTwoBytesC0", "\xc0\xaf", false},
                    Utf8Check{"OverlongThreeBytes", "\xe0\x9f\xbf", false},
                    Utf8Check{"OverlongFourBytes", "\xf0\x8f\xbf\xbf", false},
                    Utf8Check{"HighSurrogate", "\xed\xa0\x80", false},
                    Utf8Check{"LowSurrogate", "\xed\xbf\xbf", false},
                    Utf8Check{"AboveMaxCodePoint", "\xf4\x90\x80\x80", false},
                    Utf8Check{"LoneContinuation", "a\x80", false},
                    Utf8Check{"BadContinuation", "\xc3(", false},
                    Utf8Check{"TruncatedAtEnd", "ok\xe2\x82", false},
                    Utf8Check{"FeByte", "\xfe", false}),
    [](const testing::TestParamInfo<Utf8Check>& p) { return std::string(p.param.what); });

}  // namespace
