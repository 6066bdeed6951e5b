#include "binding/type_registry.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "binding/declare.h"
#include "binding/static_type.h"

namespace kav::type_registry_test {

enum class Letter : int32_t { kBeta = 3, kAlpha = 3, kGamma = 1 };

struct Queue {
  int32_t id = 0;
  std::vector<uint64_t> members;
};

struct OtherQueue {
  std::string name;
};

struct Holder {
  std::vector<Queue> queues;
  std::map<std::string, Letter> letters;
  Letter letter = Letter::kGamma;
  Queue queue;
  std::optional<uint16_t> maybe;
  BindingProperty object;
};

constexpr auto BindingEnumerators(const Letter*) {
  return Enumerators<Letter>(
      {{"Beta", Letter::kBeta}, {"Alpha", Letter::kAlpha}, {"Gamma", Letter::kGamma, "third"}});
}

constexpr auto BindingFields(const Queue*) {
  return Fields(Field("id", &Queue::id), Field("members", &Queue::members));
}

constexpr auto BindingFields(const OtherQueue*) {
  return Fields(Field("name", &OtherQueue::name, kRequired, "the name", true));
}

constexpr auto BindingFields(const Holder*) {
  return Fields(Field("queues", &Holder::queues), Field("letters", &Holder::letters),
                Field("letter", &Holder::letter), Field("queue", &Holder::queue),
                Field("maybe", &Holder::maybe), Field("object", &Holder::object));
}

namespace {

// The offset of a member measured on a real object.
template <class F>
uint32_t OffsetIn(F Holder::*member) {
  Holder holder;
  return static_cast<uint32_t>(reinterpret_cast<const char*>(&(holder.*member)) -
                               reinterpret_cast<const char*>(&holder));
}

TEST(TypeKindNameTest, NamesEveryCode) {
  const char* expected[] = {"",       "bool",   "int8",   "uint8",  "int16",    "uint16", "int32",
                            "uint32", "int64",  "uint64", "float",  "double",   "string", "object",
                            "blob",   "vector", "enum",   "struct", "callback", "map",    ""};
  for (uint32_t code = 0; code < std::size(expected); ++code) {
    SCOPED_TRACE(code);
    EXPECT_STREQ(TypeKindName(code), expected[code]);
  }
  EXPECT_STREQ(TypeKindName(0xFFFFFFFFu), "");
}

TEST(TypeRegistryTest, FirstRegistrationOfANameWins) {
  TypeRegistry registry;
  TypeBuilder first = RegisterStructure<Queue>(registry, "Queue", std::vector<std::string>{"t"});
  EXPECT_TRUE(first.IsNew());
  TypeBuilder second = RegisterStructure<OtherQueue>(registry, "Queue");
  EXPECT_FALSE(second.IsNew());
  second.SetDescription("changed").AddTag("later").AddEnumValue("X", 1);

  const TypeDescription* queue = registry.FindTypeByName("Queue");
  ASSERT_NE(queue, nullptr);
  ASSERT_EQ(queue->fields.size(), 2u);
  EXPECT_EQ(queue->fields[0].name, "id");
  EXPECT_EQ(queue->fields[1].name, "members");
  EXPECT_EQ(queue->description, "");
  EXPECT_EQ(queue->tags, std::vector<std::string>{"t"});
  EXPECT_TRUE(queue->values.empty());
  EXPECT_EQ(registry.FindType(StaticType::Of<Queue>()), queue);
  EXPECT_EQ(registry.FindType(StaticType::Of<OtherQueue>()), nullptr);
  EXPECT_EQ(registry.Types().size(), 1u);
}

TEST(TypeRegistryTest, FieldDescriptors) {
  TypeRegistry registry;
  RegisterStructure<Queue>(registry, "Queue");
  RegisterEnumeration<Letter>(registry, "Letter");
  RegisterStructure<OtherQueue>(registry, "OtherQueue");
  RegisterStructure<Holder>(registry, "Holder");
  const TypeDescription* queue = registry.FindTypeByName("Queue");
  const TypeDescription* letter = registry.FindTypeByName("Letter");
  const TypeDescription* holder = registry.FindTypeByName("Holder");
  ASSERT_TRUE(queue && letter && holder);

  struct Row {
    const char* name;
    TypeSpecification type;
    TypeIdentifierText identifier;
    uint32_t offset;
  };
  const Row rows[] = {
      {"queues",
       {TypeKind::kVector, TypeKind::kStruct, queue},
       {"vector", "Queue"},
       OffsetIn(&Holder::queues)},
      {"letters",
       {TypeKind::kMap, TypeKind::kEnum, letter},
       {"map", "Letter"},
       OffsetIn(&Holder::letters)},
      {"letter",
       {TypeKind::kEnum, TypeKind::kNone, letter},
       {"Letter", ""},
       OffsetIn(&Holder::letter)},
      {"queue",
       {TypeKind::kStruct, TypeKind::kNone, queue},
       {"Queue", ""},
       OffsetIn(&Holder::queue)},
      {"maybe", {TypeKind::kUint16}, {"uint16", ""}, OffsetIn(&Holder::maybe)},
      {"object", {TypeKind::kObject}, {"object", ""}, OffsetIn(&Holder::object)},
  };
  ASSERT_EQ(holder->fields.size(), std::size(rows));
  for (size_t i = 0; i < std::size(rows); ++i) {
    const FieldDescriptor& field = holder->fields[i];
    SCOPED_TRACE(rows[i].name);
    EXPECT_EQ(field.name, rows[i].name);
    EXPECT_EQ(field.nameHash, static_type_detail::Fnv1a(rows[i].name));
    EXPECT_EQ(field.type, rows[i].type);
    EXPECT_EQ(TypeIdentifier(field.type), rows[i].identifier);
    EXPECT_EQ(field.offset, rows[i].offset);
    EXPECT_EQ(field.flags, 0u) << "neither omitted nor required";
    EXPECT_EQ(field.owner, holder);
    EXPECT_NE(field.converter, nullptr);
    EXPECT_EQ(field.hostType.kind, TypeKind::kNone);
  }
  EXPECT_EQ(holder->size, sizeof(Holder));
  EXPECT_EQ(letter->size, 4u);
  EXPECT_TRUE(letter->isEnum);
  EXPECT_FALSE(holder->isEnum);
  EXPECT_EQ(holder->identity, &StaticType::Of<Holder>());

  const FieldDescriptor& name = registry.FindTypeByName("OtherQueue")->fields.at(0);
  EXPECT_EQ(name.flags, kRequired);
  EXPECT_EQ(name.description, "the name");
  EXPECT_TRUE(name.optional);

  // Identifiers of specifications that refer to no description.
  EXPECT_EQ(TypeIdentifier({TypeKind::kStruct}), (TypeIdentifierText{"struct", ""}));
  EXPECT_EQ(TypeIdentifier({TypeKind::kVector, TypeKind::kEnum}),
            (TypeIdentifierText{"vector", "enum"}));
  EXPECT_EQ(TypeIdentifier({}), (TypeIdentifierText{"", ""}));
}

TEST(TypeRegistryTest, EnumeratorLookups) {
  TypeRegistry registry;
  RegisterEnumeration<Letter>(registry, "Letter");
  const TypeDescription* letter = registry.FindTypeByName("Letter");
  ASSERT_NE(letter, nullptr);

  EXPECT_STREQ(registry.EnumValueName(StaticType::Of<Letter>(), 3), "Alpha")
      << "first in name order, not in registration order";
  EXPECT_STREQ(registry.EnumValueName(StaticType::Of<Letter>(), 1), "Gamma");
  EXPECT_EQ(registry.EnumValueName(StaticType::Of<Letter>(), 2), nullptr);
  EXPECT_EQ(registry.EnumValueName(StaticType::Of<Queue>(), 3), nullptr) << "unregistered type";
  EXPECT_TRUE(TypeRegistry::IsEnumValue(letter, 3));
  EXPECT_FALSE(TypeRegistry::IsEnumValue(letter, 0));
  EXPECT_FALSE(TypeRegistry::IsEnumValue(nullptr, 3));
  EXPECT_EQ(letter->values.at("Gamma").description, "third");

  // Overwriting an enumerator of the same name through a new builder.
  TypeBuilder builder = registry.RegisterType("Fresh", 4, StaticType::Of<int32_t>(), true);
  builder.AddEnumValue("A", 1, "one").AddEnumValue("A", 5).AddTag("").AddTag("x");
  const TypeDescription* fresh = registry.FindTypeByName("Fresh");
  ASSERT_EQ(fresh->values.size(), 1u);
  EXPECT_EQ(fresh->values.at("A").value, 5);
  EXPECT_EQ(fresh->values.at("A").description, "");
  EXPECT_EQ(fresh->tags, std::vector<std::string>{"x"}) << "an empty tag adds nothing";
}

TEST(TypeRegistryTest, EventsAndFunctions) {
  TypeRegistry registry;
  RegisterStructure<Queue>(registry, "Queue");
  const TypeDescription* queue = registry.FindTypeByName("Queue");

  EventRegistration event = registry.RegisterEvent("OnQueue", queue);
  EXPECT_FALSE(event.existed);
  event.event->description = "first";
  EventRegistration again = registry.RegisterEvent("OnQueue", nullptr);
  EXPECT_TRUE(again.existed);
  EXPECT_EQ(again.event, event.event);
  EXPECT_EQ(again.event->type, queue);
  EXPECT_EQ(registry.FindEvent("OnQueue"), event.event);
  EXPECT_EQ(registry.Events().size(), 1u);

  struct CountingHandler : FunctionHandler {
    explicit CountingHandler(int& destroyed) : destroyed(destroyed) {}
    ~CountingHandler() override { ++destroyed; }
    int& destroyed;
  };
  int destroyed = 0;
  auto make = [&](const char* name) {
    auto function = std::make_unique<FunctionDescription>();
    function->name = name;
    function->handler = std::make_unique<CountingHandler>(destroyed);
    return function;
  };
  EXPECT_EQ(registry.FunctionChangeCounter(), 0u);
  const FunctionDescription* hidden = registry.RegisterFunction(make("GetHidden"), false);
  EXPECT_EQ(registry.FindFunction("GetHidden"), nullptr) << "unpublished: not indexed";
  EXPECT_EQ(registry.FunctionChangeCounter(), 0u);

  const FunctionDescription* first = registry.RegisterFunction(make("GetQueue"));
  const FunctionDescription* second = registry.RegisterFunction(make("GetQueue"));
  EXPECT_EQ(registry.FindFunction("GetQueue"), second) << "a published name replaces";
  EXPECT_EQ(first->name, "GetQueue") << "the replaced description stays alive";
  EXPECT_EQ(registry.FunctionChangeCounter(), 2u);
  EXPECT_EQ(registry.Functions(), std::vector<const FunctionDescription*>{second});

  registry.UnregisterFunction(second);
  EXPECT_EQ(registry.FindFunction("GetQueue"), nullptr);
  EXPECT_EQ(registry.FunctionChangeCounter(), 3u);
  EXPECT_EQ(destroyed, 1);
  registry.UnregisterFunction(hidden);
  EXPECT_EQ(destroyed, 2);

  registry.InitializeRegistry();
  EXPECT_TRUE(registry.Initialized());
  registry.RegisterFunction(make("Again"));
  RegisterStructure<Queue>(registry, "Queue");
  registry.InitializeRegistry();  // clears what was registered before
  EXPECT_EQ(destroyed, 4);
  EXPECT_EQ(registry.FindFunction("Again"), nullptr);
  EXPECT_EQ(registry.FindTypeByName("Queue"), nullptr);
  EXPECT_EQ(registry.FindEvent("OnQueue"), nullptr);
}

}  // namespace
}  // namespace kav::type_registry_test
