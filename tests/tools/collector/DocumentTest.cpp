#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

#include "tools/collector/Document.h"
#include "tools/collector/Refusal.h"

namespace kx::collector {
namespace {

using ::testing::HasSubstr;

std::string refusalOf(const std::string &text) {
  try {
    parseDocument(text);
    return "";
  } catch (const Refusal &refusal) {
    return std::to_string(refusal.status()) + " " + refusal.what();
  }
}

std::string nested(std::size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

std::string objectOf(int members) {
  std::string text;
  for (int member = 0; member < members; ++member) {
    text += (member == 0 ? "\"" : ",\"") + std::to_string(member) + "\":0";
  }
  return "{" + text + "}";
}

TEST(DocumentTest, KeepsTheOrderOfTheMembers) {
  EXPECT_EQ(parseDocument(R"({"z":1,"a":[true,null],"m":{"b":"x","a":-1.5}})").dump(),
            R"({"z":1,"a":[true,null],"m":{"b":"x","a":-1.5}})");
}

TEST(DocumentTest, RefusesWhatIsNotJSON) {
  for (const char *text :
       {"", " ", "{", "[1,]", "{'a':1}", "{\"a\":1}x", "[NaN]", "[01]", "// c\n1", "[\"\t\"]"}) {
    EXPECT_THAT(refusalOf(text), HasSubstr("400 the body is not JSON text: ")) << text;
  }
}

TEST(DocumentTest, SaysWhereItIsNotJSON) {
  const auto bytesOf = [](const std::string &text) {
    try {
      parseDocument(text);
    } catch (const Refusal &refusal) {
      return std::make_pair(refusal.subject().bytes.offset, refusal.subject().bytes.length);
    }
    return std::make_pair(std::size_t{99}, std::size_t{99});
  };
  EXPECT_EQ(bytesOf("[1,]"), std::make_pair(std::size_t{3}, std::size_t{1}));
  EXPECT_EQ(bytesOf("[1"), std::make_pair(std::size_t{2}, std::size_t{0}));
  EXPECT_EQ(bytesOf(""), std::make_pair(std::size_t{0}, std::size_t{0}));
}

TEST(DocumentTest, KeepsEveryKindOfValueAsItIs) {
  const std::string text =
      R"({"n":null,"b":[true,false],"i":[-9223372036854775808,18446744073709551615,0],"f":[1.5,-0.0,1e+300],)"
      R"("o":{},"a":[],"s":["","ü"],"deep":[[[{"x":[{}]}]]]})";
  const Document document = parseDocument(text);
  EXPECT_EQ(document, Document::parse(text));
  EXPECT_TRUE(document["i"][0].is_number_integer());
  EXPECT_TRUE(document["i"][1].is_number_unsigned());
  EXPECT_TRUE(document["f"][1].is_number_float());
}

/// The document as text, or "refused"; by a reader that takes JSON and has no other rules.
std::string readByOthers(const std::string &text) {
  const Document document = Document::parse(text, nullptr, /*allow_exceptions=*/false);
  return document.is_discarded() ? "refused" : document.dump();
}

/// The same by ours; what its own rules refuse is "ruled out".
std::string readByUs(const std::string &text) {
  try {
    return parseDocument(text).dump();
  } catch (const Refusal &refusal) {
    const std::string reason = refusal.what();
    return reason.rfind("the body is not JSON text", 0) == 0 ? "refused" : "ruled out";
  }
}

TEST(DocumentTest, ReadsWhateverIsNearlyJSONAsOthersDo) {
  const std::string seeds[] = {
      R"([{"a":"x\n\"\\ü東🎉","b":[-0,0,-0.0,1e5,1.25E-3,123456789.987654321],"c":{"d":null,"e":true}}])",
      R"( { "a\/b" : [ false , 18446744073709551615 , -9223372036854775808, "\u00fc\ud83c\udf89" ] } )"
      "\r\n\t",
      R"(["\u0000",1e308,4.9e-324,2.2250738585072011e-308,0.1,9007199254740993,1.7976931348623159e308,1e-999])"};
  // Bytes that mean something to JSON or to UTF-8, and some that do not.
  const std::string bytes(
      " \"\\,:[]{}0123456789+-.eEutnfa/\0\x1F\x7F\x80\xBF\xC0\xC3\xE0\xED\xF0\xF4\xF5\xFF", 43);
  for (const std::string &seed : seeds) {
    for (std::size_t at = 0; at <= seed.size(); ++at) {
      EXPECT_EQ(readByUs(seed.substr(0, at)), readByOthers(seed.substr(0, at)));
      for (const char byte : bytes) {
        std::string inserted = seed;
        inserted.insert(at, 1, byte);
        std::string replaced = seed;
        if (at < seed.size()) replaced[at] = byte;
        for (const std::string &text : {inserted, replaced}) {
          const std::string ours = readByUs(text);
          if (ours == "ruled out") continue;
          EXPECT_EQ(ours, readByOthers(text)) << text;
        }
      }
    }
  }
}

TEST(DocumentTest, ReadsNumbersToTheLastBit) {
  for (const char *number :
       {"0.1", "123456789012345678901234567890", "1.7976931348623157e308", "5e-324",
        "2.2250738585072014e-308", "9007199254740993.0", "0.30000000000000004", "-52.520008000000004",
        "18446744073709551616", "-9223372036854775809", "1e-400", "-0"}) {
    const Document expected = Document::parse(number);
    const Document read = parseDocument(number);
    EXPECT_EQ(read.type(), expected.type()) << number;
    EXPECT_EQ(read, expected) << number;
  }
}

TEST(DocumentTest, RefusesANumberOutOfRange) {
  EXPECT_THAT(refusalOf("[1e999]"), HasSubstr("400 the body is not JSON text: "));
}

TEST(DocumentTest, RefusesTextThatIsNotUTF8) {
  for (const char *text :
       {"[\"\xFF\"]", "[\"\xC0\xAF\"]", "[\"\xED\xA0\x80\"]", "[\"\xE2\x82\"]", "[\"\\uD800\"]"}) {
    EXPECT_THAT(refusalOf(text), HasSubstr("400 the body is not JSON text: ")) << text;
  }
}

TEST(DocumentTest, RefusesAByteOrderMark) {
  EXPECT_EQ(refusalOf("\xEF\xBB\xBF[1]"), "400 the JSON text begins with a byte order mark");
}

TEST(DocumentTest, RefusesAKeyThatStandsTwiceInOneObject) {
  EXPECT_EQ(refusalOf(R"({"a":1,"b":2,"a":1})"), "400 the key \"a\" stands twice in one object");
  EXPECT_EQ(refusalOf(R"([{"x":{"b":2,"b":1}}])"), "400 the key \"b\" stands twice in one object");
  EXPECT_EQ(refusalOf(R"({"a":1,"\u0061":1})"), "400 the key \"a\" stands twice in one object");
}

TEST(DocumentTest, TakesTheSameKeyInSeveralObjects) {
  EXPECT_EQ(refusalOf(R"({"a":{"a":1},"b":[{"a":1},{"a":2}]})"), "");
}

TEST(DocumentTest, BoundsTheDepth) {
  EXPECT_EQ(refusalOf(nested(8)), "");
  EXPECT_EQ(refusalOf(std::string(8, '[') + "1" + std::string(8, ']')), "");
  EXPECT_EQ(refusalOf(std::string(9, '[') + "1" + std::string(9, ']')),
            "400 the JSON text is nested too deeply");
  EXPECT_EQ(refusalOf(std::string(8, '[') + R"({"a":1})" + std::string(8, ']')),
            "400 the JSON text is nested too deeply");
  EXPECT_EQ(refusalOf(nested(10)), "400 the JSON text is nested too deeply");
  EXPECT_EQ(refusalOf(std::string(1000000, '[')), "400 the JSON text is nested too deeply");
}

TEST(DocumentTest, BoundsTheMembersOfAnObject) {
  EXPECT_EQ(refusalOf(objectOf(1000)), "");
  EXPECT_EQ(refusalOf(objectOf(1001)), "400 an object in the JSON text has too many keys");
}

TEST(DocumentTest, NoControlCharacterIsPrinted) {
  EXPECT_EQ(quote("a\x1B[31mb\n\t\x7F"), R"("a\u001b[31mb\n\t\u007f")");
  EXPECT_EQ(quote("\xC2\x9B"
                  "31m"),
            R"("\u009b31m")");
  EXPECT_EQ(printable(Document{{"k\x7F", "\xC2\x80"}}), R"({"k\u007f":"\u0080"})");
}

TEST(DocumentTest, WhatReordersBreaksOrHidesTextIsNotPrinted) {
  EXPECT_EQ(quote("a\u202Eb\u2066c\u2028d"), R"("a\u202eb\u2066c\u2028d")");
  EXPECT_EQ(printable(Document{{"k\u202E", "\u2029"}}), R"({"k\u202e":"\u2029"})");
  for (const char *character :
       {"\u00AD", "\u061C", "\u180E", "\u200B", "\u200E", "\u200F", "\u2028", "\u2029", "\u202A", "\u202E",
        "\u2060", "\u2066", "\u2069", "\u206F", "\uFEFF", "\uFFF9", "\uFFFB"}) {
    EXPECT_EQ(quote(character).substr(0, 3), "\"\\u") << character;
    EXPECT_EQ(quote(character).size(), 8u) << quote(character);
  }
  EXPECT_EQ(quote("\U000E0001"), R"("\udb40\udc01")");
  EXPECT_EQ(quote("\U000E007F"), R"("\udb40\udc7f")");
}

TEST(DocumentTest, AllC1ControlsAreEscaped) {
  for (int character = 0x80; character <= 0x9F; ++character) {
    char expected[16];
    std::snprintf(expected, sizeof expected, "\"\\u%04x\"", static_cast<unsigned>(character));
    EXPECT_EQ(quote("\xC2" + std::string(1, static_cast<char>(character))), expected);
  }
}

TEST(DocumentTest, OtherCharactersArePrintedAsTheyAre) {
  // Beside those that are not: the joiners of letters and emoji, blanks, marks.
  for (const char *character : {"~", "\u00AC", "\u00AE", "\u061B", "\u061D", "\u200A", "\u200C", "\u200D",
                                "\u2010", "\u2027", "\u202F", "\u205F", "\u2070", "\uFEFE", "\uFFF8",
                                "\uFFFD", "\U0001F468\u200D\U0001F469", "\U000E0080", "\U0010FFFF"}) {
    EXPECT_EQ(quote(character), "\"" + std::string(character) + "\"");
  }
  EXPECT_EQ(quote("München, \xC2\xA0 東京 /"), "\"München, \xC2\xA0 東京 /\"");
}

TEST(DocumentTest, WhatIsNotUTF8IsPrintedWithReplacementCharacters) {
  EXPECT_EQ(quote("a\xFF"
                  "b\xC2"),
            "\"a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD\"");
}

TEST(DocumentTest, LongTextsAreCutOff) {
  EXPECT_EQ(quote(std::string(200, 'x')), "\"" + std::string(200, 'x') + "\"");
  EXPECT_EQ(quote(std::string(1000, 'x')), "\"" + std::string(200, 'x') + "...\"");
  EXPECT_EQ(printable(std::string(1000, 'x')), "\"" + std::string(499, 'x') + "...");
  // Not within a character.
  std::string umlauts;
  for (int count = 0; count < 500; ++count) umlauts += "ü";
  EXPECT_EQ(printable(umlauts).size(), 1 + 2 * 249 + 3u);
}

}  // namespace
}  // namespace kx::collector
