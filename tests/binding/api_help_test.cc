#include "binding/api_help.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "binding/type_registry.h"

namespace kav {
namespace {

TypeDescription MakeEnum(std::string name, uint32_t size,
                         std::vector<EnumValueDescription> values) {
  TypeDescription type;
  type.name = std::move(name);
  type.size = size;
  type.isEnum = true;
  for (EnumValueDescription& value : values) type.values[value.name] = value;
  return type;
}

FieldDescriptor MakeField(std::string name, TypeSpecification type, std::string description = {}) {
  FieldDescriptor field;
  field.name = std::move(name);
  field.type = type;
  field.description = std::move(description);
  return field;
}

ParameterDescription MakeParameter(std::string name, TypeSpecification type,
                                   std::string description = {}, bool optional = false) {
  ParameterDescription parameter;
  parameter.name = std::move(name);
  parameter.type = type;
  parameter.description = std::move(description);
  parameter.optional = optional;
  return parameter;
}

TEST(EpytextTest, EscapesAndTypeNames) {
  struct EscapeRow {
    std::string in;
    std::string out;
  };
  for (const EscapeRow& row : std::vector<EscapeRow>{
           {"plain", "plain"},
           {"-a-b", "E{-}a-b"},
           {"{size}", "E{lb}sizeE{rb}"},
           {"-{", "E{-}E{lb}"},
           {"", ""},
           {std::string("ab\0{cd", 6), "ab"},
       }) {
    SCOPED_TRACE(row.in);
    EXPECT_EQ(EpytextEscape(row.in), row.out);
  }

  TypeDescription mode = MakeEnum("Mode", 4, {});
  TypeDescription queue;
  queue.name = "Queue";
  struct TypeRow {
    const char* name;
    TypeSpecification type;
    const char* expected;
  };
  const std::vector<TypeRow> rows = {
      {"none", {}, ""},
      {"bool", {TypeKind::kBool}, "bool"},
      {"uint64", {TypeKind::kUint64}, "uint64"},
      {"double", {TypeKind::kDouble}, "double"},
      {"object", {TypeKind::kObject}, "object"},
      {"callback", {TypeKind::kCallback}, "callback"},
      {"blob", {TypeKind::kBlob}, "bytearray"},
      {"enum", {TypeKind::kEnum, TypeKind::kNone, &mode}, "L{Mode}"},
      {"struct", {TypeKind::kStruct, TypeKind::kNone, &queue}, "L{Queue}"},
      {"vector of uint64", {TypeKind::kVector, TypeKind::kUint64}, "list[uint64]"},
      {"vector of struct", {TypeKind::kVector, TypeKind::kStruct, &queue}, "list[L{Queue}]"},
      {"map of enum", {TypeKind::kMap, TypeKind::kEnum, &mode}, "dict[L{Mode}]"},
      {"map of blob", {TypeKind::kMap, TypeKind::kBlob}, "dict[bytearray]"},
      {"unknown code", {static_cast<TypeKind>(42)}, ""},
  };
  for (const TypeRow& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(EpytextTypeName(row.type), row.expected);
  }
}

TEST(EpytextTest, TextsAreByteExact) {
  TypeDescription mode = MakeEnum("Mode", 4, {{2, "B", "second"}, {1, "A", ""}});
  TypeDescription tagged_enum = MakeEnum("Level", 4, {{3, "Z", ""}, {3, "Y", ""}, {-1, "X", ""}});
  tagged_enum.description = "-Levels {x}";
  tagged_enum.tags = {"a", "b"};

  TypeDescription ids;
  ids.name = "Ids";
  ids.fields.push_back(MakeField("ids", {TypeKind::kVector, TypeKind::kUint64}));
  TypeDescription described;
  described.name = "Described";
  described.description = "A {record}";
  described.tags = {"t"};
  described.fields.push_back(
      MakeField("mode", {TypeKind::kEnum, TypeKind::kNone, &mode}, "raw {text}"));

  FunctionDescription bare;
  bare.name = "Bare";
  bare.parameters.push_back(MakeParameter("x", {TypeKind::kInt32}));
  FunctionDescription full;
  full.name = "Full";
  full.description = "Does {it}";
  full.help = "-Help";
  full.parameters.push_back(
      MakeParameter("teamSize", {TypeKind::kUint32}, "{size}", /*optional=*/true));
  full.parameters.push_back(MakeParameter("ids", {TypeKind::kVector, TypeKind::kUint64}, "Ids"));
  full.result = {TypeKind::kStruct, TypeKind::kNone, &ids};
  full.tags = {"a", "b"};
  full.threadSafe = true;
  full.async = true;

  EventDescription event;
  event.name = "OnThing";
  EventDescription tagged_event;
  tagged_event.name = "OnOther";
  tagged_event.description = "Fired {now}";
  tagged_event.tags = {"x"};

  struct Row {
    const char* name;
    std::string text;
    std::string expected;
  };
  const std::vector<Row> rows = {
      {"enum without description", EpytextType(mode),
       "@cvar A: (1)\r\n@cvar B: (2) second\r\n@size: 4\r\n"},
      {"enum with description, tags and equal values", EpytextType(tagged_enum),
       "E{-}Levels E{lb}xE{rb}\r\n\r\n@cvar X: (-1)\r\n@cvar Y: (3)\r\n@cvar Z: (3)\r\n"
       "@tags: a,b\r\n@size: 4\r\n"},
      {"struct without descriptions", EpytextType(ids),
       "@ivar ids: \r\n@type ids: list[uint64]\r\n"},
      {"struct with descriptions", EpytextType(described),
       "A E{lb}recordE{rb}\r\n\r\n@ivar mode: raw {text}\r\n@type mode: L{Mode}\r\n@tags: t\r\n"},
      {"bare function", EpytextFunction(bare), "@type x: int32\r\n"},
      {"full function", EpytextFunction(full),
       "Does E{lb}itE{rb}\r\n\r\nE{-}Help\r\n\r\n"
       "@param teamSize: (optional) E{lb}sizeE{rb}\r\n@type teamSize: uint32\r\n"
       "@param ids: Ids\r\n@type ids: list[uint64]\r\n"
       "@rtype: L{Ids}\r\n@tags: a,b\r\n@threadsafe: true\r\n@async: L{Ids}\r\n"},
      {"event without description", EpytextEvent(event), "\r\n\r\n"},
      {"event with description and tags", EpytextEvent(tagged_event),
       "Fired E{lb}nowE{rb}\r\n\r\n@tags: x\r\n"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(row.text, row.expected);
  }
}

class DescribeApiTest : public ::testing::Test {
 protected:
  void SetUp() override { registry_.InitializeRegistry(); }
  TypeRegistry registry_;
};

TEST_F(DescribeApiTest, ListsItemsSortedInBothFormats) {
  const TypeDescription* state = registry_.FindTypeByName("BindingAsyncState");
  ASSERT_NE(state, nullptr);
  auto function = std::make_unique<FunctionDescription>();
  function->name = "Zeta";
  function->description = "Z";
  function->parameters.push_back(
      MakeParameter("ids", {TypeKind::kVector, TypeKind::kUint64}, "The ids", /*optional=*/true));
  function->result = {TypeKind::kEnum, TypeKind::kNone, state};
  function->async = true;
  function->threadSafe = true;
  function->tags = {"t1"};
  const FunctionDescription* zeta = registry_.RegisterFunction(std::move(function));
  auto alpha = std::make_unique<FunctionDescription>();
  alpha->name = "Alpha";
  registry_.RegisterFunction(std::move(alpha));

  BindingResult full = DescribeApi(registry_, BindingHelpFormat::kFull);
  ASSERT_TRUE(full.Ok()) << full.Error();
  const BindingProperty& functions = full.Find("functions");
  ASSERT_EQ(functions.Size(), 2u);
  EXPECT_EQ(functions.At(0).Find("name").AsString(), "Alpha");
  EXPECT_EQ(functions.At(0).Find("returns").Find("type").AsString(), "");
  const BindingProperty& described = functions.At(1);
  EXPECT_EQ(described.Find("name").AsString(), "Zeta");
  EXPECT_EQ(described.Find("description").AsString(), "Z");
  EXPECT_EQ(described.Find("async").AsString(), "BindingAsyncState");
  EXPECT_TRUE(described.Find("threadSafe").AsBool());
  EXPECT_EQ(described.Find("returns").Find("type").AsString(), "BindingAsyncState");
  EXPECT_EQ(described.Find("tags").At(0).AsString(), "t1");
  const BindingProperty& argument = described.Find("arguments").At(0);
  EXPECT_EQ(argument.Find("name").AsString(), "ids");
  EXPECT_EQ(argument.Find("type").Find("type").AsString(), "vector");
  EXPECT_EQ(argument.Find("type").Find("elementType").AsString(), "uint64");
  EXPECT_TRUE(argument.Find("optional").AsBool());

  // Types sorted by name; enumerators by value; events with their payload.
  const BindingProperty& types = full.Find("types");
  ASSERT_EQ(types.Size(), 15u);
  EXPECT_EQ(types.At(0).Find("name").AsString(), "BindingAsyncCancelEvent");
  const BindingProperty* async_state = nullptr;
  for (size_t i = 0; i < types.Size(); ++i) {
    if (types.At(i).Find("name").AsString() == "BindingAsyncState") async_state = &types.At(i);
  }
  ASSERT_NE(async_state, nullptr);
  const BindingProperty& values = async_state->Find("values");
  ASSERT_EQ(values.Size(), 6u);
  for (size_t i = 0; i < values.Size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(values.At(i).Find("value").AsSigned(-1), static_cast<int64_t>(i));
  }
  EXPECT_EQ(values.At(0).Find("name").AsString(), "None");
  EXPECT_EQ(async_state->Find("size").AsUnsigned(), 4u);
  const BindingProperty& event = full.Find("events").At(0);
  EXPECT_EQ(event.Find("name").AsString(), "OnCallback");
  EXPECT_EQ(event.Find("type").Find("type").AsString(), "BindingCallbackEvent");

  BindingResult epytext = DescribeApi(registry_, BindingHelpFormat::kEpytext);
  ASSERT_TRUE(epytext.Ok()) << epytext.Error();
  EXPECT_EQ(epytext.Find("functions").Find("Zeta").AsString(), EpytextFunction(*zeta));
  EXPECT_EQ(epytext.Find("types").Find("BindingAsyncCancelEvent").AsString(),
            "Represents a cancelled asynchronous operation.\r\n\r\n"
            "@ivar asyncToken: Asynchronous operation token\r\n@type asyncToken: uint32\r\n"
            "@tags: $builtin,async\r\n");
  EXPECT_EQ(epytext.Find("events").Find("OnCallback").AsString(),
            "Fired when a callback is invoked.\r\n\r\n@tags: $builtin\r\n");
}

TEST_F(DescribeApiTest, EmptyListsAndUnknownFormats) {
  struct Row {
    BindingHelpFormat format;
    bool types_listed;
  };
  for (const Row& row : std::vector<Row>{{BindingHelpFormat::kFull, true},
                                         {BindingHelpFormat::kEpytext, true},
                                         {static_cast<BindingHelpFormat>(3), false}}) {
    SCOPED_TRACE(static_cast<int>(row.format));
    BindingResult result = DescribeApi(registry_, row.format);
    ASSERT_TRUE(result.Ok());
    EXPECT_EQ(result.Kind(), BindingKind::kStructure);
    EXPECT_EQ(result.Size(), 3u);
    EXPECT_TRUE(result.Find("functions").IsEmpty());
    EXPECT_EQ(result.Find("types").IsEmpty(), !row.types_listed);
  }
}

}  // namespace
}  // namespace kav
