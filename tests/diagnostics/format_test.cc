#include "diagnostics/format.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace kav {
namespace {

struct MessageCase {
  const char* name;
  std::string format;
  std::vector<FormatArgument> arguments;
  std::string expected;
};

TEST(FormatMessageTest, ConversionsFollowTheArgumentTypes) {
  const std::string sixty_char_conversion = "%" + std::string(58, '0') + "d";
  const std::string sixty_one_char_conversion = "%" + std::string(59, '0') + "d";
  const MessageCase cases[] = {
      {"natural form in reverse order", "%2 before %1", {"a", "b"}, "b before a"},
      {"numbered conversions in reverse order", "%2$s-%1$s", {"a", "b"}, "b-a"},
      {"natural form ends before other characters", "'%1'", {"x"}, "'x'"},
      {"natural form of a 64-bit integer uses ll",
       "%1",
       {std::numeric_limits<int64_t>::max()},
       "9223372036854775807"},
      {"natural form of a 64-bit unsigned",
       "%1",
       {std::numeric_limits<uint64_t>::max()},
       "18446744073709551615"},
      {"explicit conversion of a 64-bit value reads 32 bits", "%d", {(int64_t{1} << 32) + 5}, "5"},
      {"explicit ll conversion of a 64-bit value", "%lld", {(int64_t{1} << 32) + 5}, "4294967301"},
      {"ll conversion of a 32-bit value widens it", "%lld", {-3}, "-3"},
      {"s of a signed integer falls back to d", "%s", {42}, "42"},
      {"s of an unsigned falls back to u", "%s", {42u}, "42"},
      {"d of an unsigned reads it as int", "%d", {4294967295u}, "-1"},
      {"hh narrows", "%hhd", {300}, "44"},
      {"x of 255", "%x", {255}, "ff"},
      {"X with alternate form", "%#X", {255}, "0XFF"},
      {"o of 8", "%o", {8}, "10"},
      {"u with width 5", "%5u", {7u}, "    7"},
      {"plus flag", "%+d", {5}, "+5"},
      {"c of an integer", "%c", {65}, "A"},
      {"d of a character", "%d", {'A'}, "65"},
      {"natural form of a character", "%1", {'z'}, "z"},
      {"natural form of a double", "%1", {2.5}, "2.5"},
      {"d of a double falls back to g", "%d", {2.5}, "2.5"},
      {"zero-padded double", "%08.3f", {3.14159}, "0003.142"},
      {"long double conversion", "%.1Lf", {1.25}, "1.2"},
      {"precision cuts a text", "%.2s", {"hello"}, "he"},
      {"left-justified text", "%-6s|", {"ab"}, "ab    |"},
      {"text without a terminating NUL", "[%s]", {std::string_view("abcdef", 3)}, "[abc]"},
      {"empty text", "[%s]", {""}, "[]"},
      {"embedded NUL ends a text",
       "[%s|%3s]",
       {std::string_view("ab\0c", 4), std::string_view("d\0e", 3)},
       "[ab|  d]"},
      {"n is never performed", "%n", {5}, "5"},
      {"p is not allowed for text", "%p", {"t"}, "t"},
      {"percent sign", "100%% %s", {"sure"}, "100% sure"},
      {"star width comes before the value", "%*d", {5, 42}, "   42"},
      {"negative star width justifies left", "%*d|", {-4, 7}, "7   |"},
      {"star precision", "%.*f", {2, 3.14159}, "3.14"},
      {"negative star precision counts as none", "%.*s", {-1, "abc"}, "abc"},
      {"numbered star", "%1$*2$d", {7, 4}, "   7"},
      {"number beyond the arguments is a width", "%3d", {7}, "  7"},
      {"width at the end of the format loses its last digit", "%3", {"x"}, "x"},
      {"two-digit width at the end keeps one digit", "%23", {"x"}, " x"},
      {"dollar after a width is no conversion", "%5$d", {"a", "b"}, "    ad"},
      {"conversion of sixty characters", "[" + sixty_char_conversion + "]", {7}, "[7]"},
      {"conversion longer than sixty characters stops",
       "a" + sixty_one_char_conversion + "b",
       {7},
       "a"},
      {"missing sequential argument stops", "%s %s", {"a"}, "a "},
      {"no argument at all stops", "100%d", {}, "100"},
      {"missing numbered argument is a width", "%2$s", {"a"}, " as"},
      {"star of a text stops", "a%*d", {"x", 1}, "a"},
      {"star of a double stops", "a%*d", {1.5, 1}, "a"},
      {"star beyond the arguments stops", "a%*d", {}, "a"},
  };
  for (const MessageCase& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(FormatMessage(c.format, c.arguments), c.expected);
  }
}

TEST(FormatMessageTest, ResultIsCutAt4095Characters) {
  const std::string long_text(5000, 'q');
  struct CutCase {
    const char* name;
    std::string format;
    std::vector<FormatArgument> arguments;
    size_t expected_size;
  };
  const CutCase cases[] = {
      {"literal text", long_text, {}, 4095},
      {"long argument", "ab%s", {long_text}, 4095},
      {"wide field", "%5000d", {1}, 4095},
      {"text after a full buffer", "%s%d", {long_text, 1}, 4095},
      {"fits", std::string(4095, 'x'), {}, 4095},
  };
  for (const CutCase& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string result = FormatMessage(c.format, c.arguments);
    EXPECT_EQ(result.size(), c.expected_size);
  }
  EXPECT_EQ(FormatMessage("ab%s", {long_text}).substr(0, 4), "abqq");
}

TEST(FormatMessageTest, VariadicOverloadMatchesTheList) {
  const std::string owner = "owned";
  EXPECT_EQ(FormatMessage("%1/%2/%3/%4", owner, 3u, -2, 'c'), "owned/3/-2/c");
  EXPECT_EQ(FormatMessage("plain"), "plain");
}

struct NamedCase {
  const char* name;
  std::string format;
  std::vector<NamedArgument> arguments;
  std::string positional;
  std::vector<std::pair<std::string, NamedArgument>> parameters;
};

TEST(FormatNamedTest, PlaceholdersBecomePositionalAndAreRecorded) {
  const NamedCase cases[] = {
      {"three placeholders",
       "Error response for {method} {url}: {error}",
       {"GET", "/x", "boom"},
       "Error response for %1 %2: %3",
       {{"error", "boom"}, {"method", "GET"}, {"url", "/x"}}},
      {"doubled braces", "{{a}} {b}", {"v"}, "{a} %1", {{"b", "v"}}},
      {"single closing brace", "a}b", {}, "a}b", {}},
      {"typed key of an unsigned", "{#code}", {5u}, "%1", {{"code_int", 5u}}},
      {"typed key of a signed", "{#count}", {-5}, "%1", {{"count_int", -5}}},
      {"typed key of a bool", "{#flag}", {true}, "%1", {{"flag_bool", true}}},
      {"typed key of a float", "{#ratio}", {0.5}, "%1", {{"ratio_float", 0.5}}},
      {"typed key of a text", "{#who}", {"me"}, "%1", {{"who_str", "me"}}},
      {"typed key with a known suffix", "{#count_long}", {5}, "%1", {{"count_long", 5}}},
      {"typed key ending in _time", "{#at_time}", {7}, "%1", {{"at_time", 7}}},
      {"typed key with an unknown suffix", "{#my_thing}", {"x"}, "%1", {{"my_thing_str", "x"}}},
      {"untyped key keeps its name", "{code}", {5u}, "%1", {{"code", 5u}}},
      {"alternative for an empty text", "{name?none}", {""}, "none", {}},
      {"alternative for zero", "{n?zero}", {0}, "zero", {}},
      {"alternative for false", "{b?no}", {false}, "no", {}},
      {"alternative not used", "{name?none}", {"x"}, "%1", {{"name", "x"}}},
      {"silent placeholder trims white space", "a \t {x!}.", {1}, "a.", {{"x", 1}}},
      {"conversion spec", "{n:5d}", {7}, "%1$5d", {{"n", 7}}},
      {"escaped closing brace", "{a\\}b}", {1}, "%1", {{"a}b", 1}}},
      {"opening brace inside is ignored", "{x{y}", {1}, "%1", {{"xy", 1}}},
      {"empty name is not recorded", "{}", {1}, "%1", {}},
      {"conversions take argument numbers",
       "%s and {name}",
       {"x", "y"},
       "%s and %2",
       {{"name", "y"}}},
      {"numbered conversion takes a number too", "%1$s {b}", {"x", "y"}, "%1$s %2", {{"b", "y"}}},
      {"percent signs are kept", "100%% {p}", {1}, "100%% %1", {{"p", 1}}},
      {"placeholder beyond the arguments vanishes", "{a} {b}", {1}, "%1 ", {{"a", 1}}},
      {"unclosed placeholder ends the scan", "a {b", {1}, "a ", {}},
      {"backslash at the end ends the scan", "a {b\\", {1}, "a ", {}},
  };
  for (const NamedCase& c : cases) {
    SCOPED_TRACE(c.name);
    std::string positional = "stale";
    FormatParameters parameters;
    FormatNamed(c.format, c.arguments, positional, parameters);
    EXPECT_EQ(positional, c.positional);
    FormatParameters expected;
    for (const auto& [key, value] : c.parameters) expected.insert_or_assign(key, value);
    EXPECT_TRUE(parameters == expected) << "got " << parameters.size() << " parameters";
  }
}

TEST(FormatNamedTest, NamedMessageFillsThePositionalFormat) {
  struct Case {
    const char* name;
    std::string format;
    std::vector<NamedArgument> arguments;
    std::string expected;
  };
  const Case cases[] = {
      {"texts",
       "Error response for {method} {url}: {error}",
       {"GET", "/x", "boom"},
       "Error response for GET /x: boom"},
      {"bool as text", "{a} and {b}", {true, false}, "true and false"},
      {"64-bit values",
       "{s} {u}",
       {int64_t{-1} << 40, uint64_t{1} << 40},
       "-1099511627776 1099511627776"},
      {"spec", "[{n:04d}]", {7}, "[0007]"},
      {"mixed with a printf conversion", "%s={v}", {"k", 2.5}, "k=2.5"},
      {"alternative text", "value: {v?unset}", {""}, "value: unset"},
      {"silent placeholder", "trailing {t!}", {"gone"}, "trailing"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FormatParameters parameters;
    EXPECT_EQ(FormatNamedMessage(c.format, c.arguments, parameters), c.expected);
  }
}

TEST(NamedArgumentTest, ConvertsToTheMatchingFormatArgument) {
  EXPECT_EQ(NamedArgument(true).ToFormatArgument().text(), "true");
  EXPECT_EQ(NamedArgument(false).ToFormatArgument().text(), "false");
  EXPECT_EQ(NamedArgument(-4).ToFormatArgument().as_signed(), -4);
  EXPECT_EQ(NamedArgument(4u).ToFormatArgument().type(), FormatArgument::Type::kUnsigned);
  EXPECT_EQ(NamedArgument(0.25).ToFormatArgument().as_double(), 0.25);
  EXPECT_EQ(NamedArgument("t").ToFormatArgument().text(), "t");
  EXPECT_FALSE(NamedArgument(1) == NamedArgument(1u));
  EXPECT_TRUE(NamedArgument(std::string("a")) == NamedArgument("a"));
}

}  // namespace
}  // namespace kav
