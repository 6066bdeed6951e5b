#include "serialization/yaml.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "serialization/reader_test_support.h"

namespace kav {
namespace {

using reader_test::Describe;

struct Row {
  const char* name;
  std::string text;
  bool ok;
  // The value (Describe form) or, for a failure, the message.
  std::string expected;
};

void ExpectRows(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingResult result = ReadYaml(row.text);
    EXPECT_EQ(result.Ok(), row.ok) << Describe(result);
    EXPECT_EQ(row.ok ? Describe(result) : std::string(result.Error()), row.expected);
  }
}

TEST(YamlReaderTest, TypesScalars) {
  ExpectRows({
      {"unsigned", "a: 1", true, "{a:u1}"},
      {"signed", "a: -1", true, "{a:s-1}"},
      {"fraction", "a: 1.5", true, "{a:f1.5}"},
      {"integral float text", "a: 1.0", true, "{a:u1}"},
      {"exponent", "a: 1e3", true, "{a:u1000}"},
      {"hexadecimal through strtod", "a: 0x10", true, "{a:u16}"},
      {"leading plus", "a: +7", true, "{a:u7}"},
      {"negative zero", "a: -0", true, "{a:u0}"},
      {"leading zeros are decimal", "a: 007", true, "{a:u7}"},
      {"fifteen digits", "a: -999999999999999", true, "{a:s-999999999999999}"},
      {"sixteen digits", "a: 1234567890123456", true, "{a:u1234567890123456}"},
      {"beyond 2^53 loses precision", "a: 9007199254740993", true, "{a:u9007199254740992}"},
      {"2^63 reaches the unsigned range", "a: 9223372036854775808", true,
       "{a:u9223372036854775808}"},
      {"most negative", "a: -9223372036854775808", true, "{a:s-9223372036854775808}"},
      {"beyond 64 bits stays float", "a: 1e30", true, "{a:f1e+30}"},
      {"inf is text", "a: inf", true, "{a:'inf'}"},
      {"nan is text", "a: nan", true, "{a:'nan'}"},
      {"overflow is text", "a: 1e999", true, "{a:'1e999'}"},
      {"trailing text", "a: 12abc", true, "{a:'12abc'}"},
      {"yes", "a: yes", true, "{a:true}"},
      {"Off", "a: Off", true, "{a:false}"},
      {"y", "a: y", true, "{a:true}"},
      {"mixed case is text", "a: tRue", true, "{a:'tRue'}"},
      {"single-quoted word", "a: 'yes'", true, "{a:'yes'}"},
      {"double-quoted number", "a: \"1\"", true, "{a:'1'}"},
      {"tilde", "a: ~", true, "{a:~}"},
      {"Null", "a: Null", true, "{a:~}"},
      {"missing value", "a:", true, "{a:~}"},
      {"quoted empty", "a: ''", true, "{a:''}"},
      {"empty key", "'': 1", true, "{:u1}"},
      {"empty key among others", "{b: 2, '': 1, \"\": 3, c: ''}", true, "{:u3,b:u2,c:''}"},
      {"literal strip chomping", "a: |-\n  true\n", true, "{a:true}"},
      {"literal clip chomping", "a: |\n  true\n", true, "{a:'true\n'}"},
      {"folded strip chomping", "a: >-\n  12\n", true, "{a:u12}"},
      {"plain text", "a: hello world", true, "{a:'hello world'}"},
      {"empty stream", "", true, "~"},
      {"comment only", "# nothing\n", true, "~"},
      {"root scalar", "42", true, "u42"},
      {"flow collections", "{a: [x, 'y', 2], b: {c: }}", true, "{a:['x','y',u2],b:{c:~}}"},
      {"block collections", "a:\n  - 1\n  - b: 2\nc: d\n", true, "{a:[u1,{b:u2}],c:'d'}"},
      {"flow key without value", "{a, b: 1}", true, "{a:~,b:u1}"},
  });
}

TEST(YamlReaderTest, AppliesCoreTags) {
  ExpectRows({
      {"str", "a: !!str 1", true, "{a:'1'}"},
      {"int", "a: !!int 42", true, "{a:u42}"},
      {"negative int", "a: !!int -42", true, "{a:s-42}"},
      {"int with automatic base", "a: !!int 0x1F", true, "{a:u31}"},
      {"int in bad format", "a: !!int abc", false,
       "Value abc for 'yaml' of type uint64_t is in an incorrect format"},
      {"negative int in bad format", "a: !!int -1.5", false,
       "Value -1.5 for 'yaml' of type int64_t is in an incorrect format"},
      {"int out of range", "a: !!int 18446744073709551616", false,
       "Value 18446744073709551616 for 'yaml' of type uint64_t is out of range"},
      {"float", "a: !!float 1", true, "{a:f1}"},
      {"float out of range", "a: !!float 1e400", false,
       "Value 1e400 for 'yaml' of type double is out of range"},
      {"bool", "a: !!bool yes", true, "{a:true}"},
      {"bool false word", "a: !!bool NO", true, "{a:false}"},
      {"bool other word leaves empty", "a: !!bool maybe", true, "{a:~}"},
      {"null tag unsupported", "a: !!null ~", false,
       "Unsupported YAML tag 'tag:yaml.org,2002:null'."},
      {"local tag unsupported", "a: !custom x", false, "Unsupported YAML tag '!custom'."},
      {"str key", "!!str 1: x", true, "{1:'x'}"},
      {"int key", "!!int 1: x", false,
       "Invalid mapping key. Only string scalar keys are allowed. At line: 1 col: 1"},
  });
}

TEST(YamlReaderTest, ResolvesAnchorsAndAliases) {
  ExpectRows({
      {"sequence alias", "a: &x [1, 2]\nb: *x", true, "{a:[u1,u2],b:[u1,u2]}"},
      {"mapping alias", "a: &x {c: d}\nb: [*x, *x]", true, "{a:{c:'d'},b:[{c:'d'},{c:'d'}]}"},
      {"scalar alias keeps typing", "a: &x 5\nb: *x", true, "{a:u5,b:u5}"},
      {"key anchor gives the key text", "&k a: 1\nb: *k", true, "{a:u1,b:'a'}"},
      {"alias of a key as a key", "&k a: 1\nb: {*k : 2}", true, "{a:u1,b:{a:u2}}"},
      {"alias of a string as a key", "- &s k\n- {*s : 1}", true, "['k',{k:u1}]"},
      {"alias of a number as a key", "- &n 1\n- {*n : 1}", false,
       "Invalid mapping key. Only string scalar keys are allowed. At line: 2 col: 4"},
      {"alias of a node inside the target", "a: &x {b: &y 1}\na: *y", true, "{a:u1}"},
      {"cyclic alias", "&x [1, *x]", false,
       "Cannot deserialize cyclic aliases. Alias \"x\". At line: 1 col: 8"},
      {"cyclic alias in a mapping", "a: &m\n  b: *m\n", false,
       "Cannot deserialize cyclic aliases. Alias \"m\". At line: 2 col: 6"},
      {"undefined alias", "a: 1\nb: *nope", false,
       "Undefined alias encountered: \"nope\". At line: 2 col: 4"},
      {"duplicate anchor", "&a x: 1\ny: &a 2", false,
       "Duplicate occurrence of anchor \"a\". At line: 2 col: 4"},
      {"stale anchor path", "a: &x 1\na: {c: *x}", true, "{a:{c:{c:~}}}"},
  });
}

TEST(YamlReaderTest, ReportsStructureErrors) {
  ExpectRows({
      {"sequence as key", "[1]: x", false, "Unexpected start of sequence. At line: 1 col: 1"},
      {"mapping as key", "a: 1\n? {b: 1}\n: x", false,
       "Unexpected start of mapping. At line: 2 col: 3"},
      {"two documents", "a: 1\n---\nb: 2", false, "Multi-document YAML is not supported."},
      {"empty first document", "---\n...\n---\na: 1", true, "{a:u1}"},
      {"null first document", "--- ~\n---\na: 1", true, "{a:u1}"},
      {"parser error", "a: b: c", false,
       "YAML parser error: mapping values are not allowed in this context. At line: 0 col: 4"},
      {"parser error at the end", "a: [1", false,
       "YAML parser error: did not find expected ',' or ']'. At line: 1 col: 0"},
      {"invalid UTF-8", "a: \xff", false,
       "YAML parser error: invalid leading UTF-8 octet. At line: 0 col: 0"},
  });
}

TEST(YamlReaderTest, RepeatedKeys) {
  ExpectRows({
      {"scalar replaces scalar", "a: 1\na: 2", true, "{a:u2}"},
      {"scalar replaces sequence", "a: [1]\na: 2", true, "{a:u2}"},
      {"sequence appends to sequence", "a: [1]\na: [2]", true, "{a:[u1,u2]}"},
      {"anchor in an appended element", "a: [1]\na: [&x 2]\nb: *x", true, "{a:[u1,u2],b:u2}"},
      {"mapping replaces scalar", "a: 1\na: {b: 1}", true, "{a:{b:u1}}"},
      {"mapping replaces sequence", "a: [1]\na: {b: 1}", true, "{a:{b:u1}}"},
      {"scalar replaces mapping", "a: {b: 1}\na: 2", true, "{a:u2}"},
      {"alias replaces mapping", "x: &v 3\na: {b: 1}\na: *v", true, "{a:u3,x:u3}"},
      {"mapping after mapping", "a: {b: 1}\na: {c: 2}", false,
       "Unexpected start of mapping. At line: 2 col: 4"},
      {"sequence after mapping", "a: {b: 1}\na: [1]", false,
       "Unexpected start of sequence. At line: 2 col: 4"},
  });
}

std::string Nested(size_t depth, bool flow) {
  std::string text;
  for (size_t i = 0; i < depth; ++i) text += flow ? "[" : "- ";
  text += "1";
  if (flow) text.append(depth, ']');
  return text;
}

TEST(YamlReaderTest, HostileInputEndsInErrors) {
  // Nine levels, each anchoring a sequence of nine aliases of the level
  // before: 9^9 strings if expanded.
  std::string bomb = "l0: &l0 [lol, lol, lol, lol, lol, lol, lol, lol, lol]\n";
  for (int level = 1; level <= 9; ++level) {
    std::string previous = "*l" + std::to_string(level - 1);
    bomb += "l" + std::to_string(level) + ": &l" + std::to_string(level) + " [";
    for (int i = 0; i < 9; ++i) bomb += (i ? ", " : "") + previous;
    bomb += "]\n";
  }
  // The aliases of l1 to l4 copy 9 * (10 + 91 + 820 + 7381) = 74,718 nodes
  // (plus one path step each); each alias in l5 (line 6) would copy the
  // 66,430 nodes of l4, so its first one, at column 10, is refused.
  // Aliases of a 6400-byte text: each costs 1 node + 100 text units + 1 path
  // step, so alias 981 (column 5 + 4 * 980) crosses 100,000.
  std::string flood = "a: &k " + std::string(6400, 'x') + "\nb: [";
  for (int i = 0; i < 10000; ++i) flood += "*k, ";
  flood += "]";
  // Each anchor wraps an alias of the one before, one level deeper each
  // line, starting 900 levels deep: a_k nests 900 + k levels, and the copy
  // of a_(k-1) lands below the root mapping and a_k's sequence. Within the
  // expansion budget (94,149 units up to a99), the copy of a99 in a100
  // would nest 1001 levels: refused at line 101, column 14.
  std::string wrapping = "a0: &a0 " + Nested(900, true) + "\n";
  for (int level = 1; level < 150; ++level) {
    const std::string name = "a" + std::to_string(level);
    wrapping += name + ": &" + name + " [*a" + std::to_string(level - 1) + "]\n";
  }
  // An alias of a node 995 levels deep copied below ten more.
  const std::string deep_copy =
      "a: &a " + Nested(995, true) + "\nb: " + std::string(10, '[') + "*a" + std::string(10, ']');
  ExpectRows({
      {"anchors wrapping aliases of the one before", wrapping, false,
       "Nesting exceeds 1000 levels. At line: 101 col: 14"},
      {"a deep node copied below more nesting", deep_copy, false,
       "Nesting exceeds 1000 levels. At line: 2 col: 14"},
      {"alias flood of a long text", flood, false,
       "Alias expansion exceeds 100000 nodes. Alias \"k\". At line: 2 col: 3925"},
      {"alias bomb", bomb, false,
       "Alias expansion exceeds 100000 nodes. Alias \"l4\". At line: 6 col: 10"},
      {"flow nesting at the limit", Nested(kYamlMaxDepth, true), true,
       std::string(kYamlMaxDepth, '[') + "u1" + std::string(kYamlMaxDepth, ']')},
      {"flow nesting past the limit", Nested(kYamlMaxDepth + 1, true), false,
       "Nesting exceeds 1000 levels. At line: 1 col: 1001"},
      {"hostile flow nesting", Nested(100000, true), false,
       "Nesting exceeds 1000 levels. At line: 1 col: 1001"},
      {"hostile block nesting", Nested(100000, false), false,
       "Nesting exceeds 1000 levels. At line: 1 col: 2001"},
  });
}

}  // namespace
}  // namespace kav
