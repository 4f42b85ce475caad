// Writing and reading the JSON of messages, including texts that are deliberately misread.
#include "wire/json.h"

#include <random>

#include <gtest/gtest.h>

namespace vlk {
namespace {

using namespace std::string_literals;

TEST(JsonWriter, WritesAnEmptyObjectWithoutFields) {
  EXPECT_EQ(JsonWriter().finish(), "{}");
}

TEST(JsonWriter, WritesFieldsInOrderWithoutBlanksAndAllowsRepeatedKeys) {
  JsonWriter writer;
  writer.add_string("a", "x")
      .add_int("b", -1)
      .add_bool("c", true)
      .add_bool("c", false)
      .add_raw("d", "[1, 2]");
  EXPECT_EQ(writer.finish(), R"({"a":"x","b":-1,"c":true,"c":false,"d":[1, 2]})");
  writer.add_int("e", 1);
  EXPECT_EQ(writer.finish(), R"({"a":"x","b":-1,"c":true,"c":false,"d":[1, 2],"e":1})");
}

TEST(JsonWriter, EscapesOnlyTabLineFeedReturnQuoteAndBackslash) {
  std::string every;
  for (int byte = 0; byte < 256; ++byte)
    every += static_cast<char>(byte);
  std::string expected;
  for (const char byte : every) {
    switch (byte) {
      case '\t':
        expected += "\\t";
        break;
      case '\n':
        expected += "\\n";
        break;
      case '\r':
        expected += "\\r";
        break;
      case '"':
        expected += "\\\"";
        break;
      case '\\':
        expected += "\\\\";
        break;
      default:
        expected += byte;
    }
  }
  EXPECT_EQ(JsonWriter().add_string("k", every).finish(), "{\"k\":\"" + expected + "\"}");
}

TEST(JsonWriter, WritesIntegersAtTheirLimits) {
  EXPECT_EQ(JsonWriter().add_int("s", 0xFFFFFFFFu).finish(), R"({"s":4294967295})");
  EXPECT_EQ(JsonWriter().add_int("s", INT64_MIN).finish(), R"({"s":-9223372036854775808})");
}

TEST(JsonReader, ReadsBackWhatTheWriterEscaped) {
  const std::string value = "tab\t line\n return\r quote\" slash\\ raw\x01 end\0zero"s;
  const JsonValue<std::string> read = read_string(JsonWriter().add_string("k", value).finish(), "k");
  EXPECT_TRUE(read.found);
  EXPECT_EQ(read.value, value);
}

struct StringCase {
  std::string text;
  bool found;
  std::string value;
};

TEST(JsonReader, ReadsStrings) {
  const StringCase cases[] = {
      {"", false, ""},
      {"{}", false, ""},
      {R"("k")", false, ""},
      {R"({"k")", false, ""},
      {R"({"k"  )", false, ""},
      {R"({"k":)", false, ""},
      {R"({"k":  )", false, ""},
      {R"({"k":1})", false, ""},
      {R"({"k":null})", false, ""},
      {R"({"k":""})", true, ""},
      {R"({"k":"v"})", true, "v"},
      {"{\"k\" \t : \t \"v\"}", true, "v"},
      {"{\"k\"\n:\"v\"}", false, ""},
      {"{\"k\":\n\"v\"}", false, ""},
      {"{\"k\":\r\"v\"}", false, ""},
      {R"({"k":"v)", false, ""},
      {R"({"k":"v\)", false, ""},
      {R"({"k":"v\")", false, ""},
      {R"({"k":"a\nb\rc\td\"e\\f\/g\bh\u0041"})", true, "a\nb\rc\td\"e\\f/gbhu0041"},
      {R"({"outer":{"k":"deep"},"k":"flat"})", true, "deep"},
      {R"({"a":"k","k":"x"})", false, ""},  // "k" is found as a value first, although a field "k" follows
      {R"({"xk":"1","k":"2"})", true, "2"},
      {R"({"k":"1","k":"2"})", true, "1"},
  };
  for (const StringCase& one : cases) {
    const JsonValue<std::string> read = read_string(one.text, "k");
    EXPECT_EQ(read.found, one.found) << one.text;
    EXPECT_EQ(read.value, one.value) << one.text;
    EXPECT_EQ(value_or(read, "default"), one.found ? one.value : "default") << one.text;
  }
}

struct IntCase {
  std::string text;
  bool found;
  std::int64_t value;
};

TEST(JsonReader, ReadsIntegers) {
  const IntCase cases[] = {
      {R"({"k":0})", true, 0},
      {R"({"k":42})", true, 42},
      {R"({"k":-42})", true, -42},
      {R"({"k":+42})", true, 42},
      {R"({"k": 7 })", true, 7},
      {R"({"k":12.9})", true, 12},
      {R"({"k":1e5})", true, 1},
      {R"({"k":007})", true, 7},
      {R"({"k":5)", true, 5},
      {R"({"k":"5"})", false, 0},
      {R"({"k":true})", false, 0},
      {R"({"k":null})", false, 0},
      {R"({"k":-})", false, 0},
      {R"({"k":-)", false, 0},
      {R"({"k":- 5})", false, 0},
      {R"({"k":--5})", false, 0},
      {R"({"k":)", false, 0},
      {R"({"k":9223372036854775807})", true, INT64_MAX},
      {R"({"k":-9223372036854775808})", true, INT64_MIN},
      {R"({"k":18446744073709551616})", true, 0},                    // wraps around
      {R"({"k":99999999999999999999})", true, 7766279631452241919},  // wraps around and is found
  };
  for (const IntCase& one : cases) {
    const JsonValue<std::int64_t> read = read_int(one.text, "k");
    EXPECT_EQ(read.found, one.found) << one.text;
    EXPECT_EQ(read.value, one.value) << one.text;
    EXPECT_EQ(value_or(read, -3), one.found ? one.value : -3) << one.text;
  }
}

TEST(JsonReader, FieldsOfAnEmptyTextHaveTheirFallbackValues) {
  EXPECT_EQ(value_or(read_string("", "rep_name"), "A representative"), "A representative");
  EXPECT_EQ(value_or(read_int("", "max_fps"), 15), 15);
}

TEST(JsonReader, NeverReadsPastTheEndOfMutatedTexts) {
  const std::string base =
      R"({"code":"AUTH_FAILED","message":"a \"b\" \\ c","n":-12,"m":  99999999999999999999 })";
  std::mt19937 random(1);
  for (int round = 0; round < 10000; ++round) {
    std::string text = base;
    for (unsigned edits = random() % 8 + 1; edits > 0 && !text.empty(); --edits) {
      const std::size_t at = random() % text.size();
      switch (random() % 4) {
        case 0:
          text[at] = static_cast<char>(random());
          break;
        case 1:
          text.erase(at, random() % 6);
          break;
        case 2:
          text.insert(at, 1, "\"\\:{},- 0"[random() % 9]);
          break;
        default:
          text.resize(at);
          break;
      }
    }
    const std::string tight(text.data(), text.size());
    for (const char* key : {"code", "message", "n", "m", "", "\"", "absent"}) {
      const JsonValue<std::string> string = read_string(tight, key);
      EXPECT_LE(string.value.size(), tight.size());
      (void)read_int(tight, key);
      const std::size_t position = find_value(tight, key);
      EXPECT_TRUE(position == std::string_view::npos || position <= tight.size());
    }
  }
}

}  // namespace
}  // namespace vlk
