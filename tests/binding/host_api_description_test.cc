#include "binding/host_api_description.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "binding/declare.h"
#include "binding/type_registry.h"

namespace kav {
namespace host_api_description_test {

struct Queue {
  int32_t id = 0;
};
constexpr auto BindingFields(const Queue*) {
  return Fields(Field("id", &Queue::id));
}

struct Holder {
  std::vector<Queue> queues;
  std::string label;
  uint32_t shown_as_text = 0;
};
constexpr auto BindingFields(const Holder*) {
  return Fields(Field("queues", &Holder::queues, 0, "The queues", true),
                Field("label", &Holder::label));
}

struct NoFields {};
constexpr auto BindingFields(const NoFields*) {
  return Fields();
}

const KavApiType* FindTypeRecord(const HostApiDescription& description, std::string_view name) {
  for (uint32_t i = 0; i < description.type_count; ++i) {
    if (description.types[i].name == name) return &description.types[i];
  }
  return nullptr;
}

template <class T>
size_t CountByLinks(const T* first) {
  size_t count = 0;
  for (const T* record = first; record != nullptr; record = record->next) ++count;
  return count;
}

TEST(HostApiDescriptionTest, DescribesBuiltinsTypesAndFunctions) {
  TypeRegistry registry;
  registry.InitializeRegistry();

  // Only the built-in registrations.
  HostApiDescription builtins = BuildHostApiDescription(registry);
  EXPECT_EQ(+builtins.function_count, 0u);
  EXPECT_EQ(+builtins.functions, nullptr);
  EXPECT_EQ(+builtins.type_count, 15u);
  EXPECT_EQ(CountByLinks(builtins.types), 15u);
  ASSERT_EQ(+builtins.event_count, 1u);
  EXPECT_STREQ(builtins.events[0].name, "OnCallback");
  EXPECT_STREQ(builtins.events[0].type_name, "BindingCallbackEvent");
  EXPECT_STREQ(builtins.events[0].description, "Fired when a callback is invoked.");
  ASSERT_EQ(+builtins.events[0].tag_count, 1u);
  EXPECT_STREQ(builtins.events[0].tags[0], "$builtin");
  EXPECT_EQ(+builtins.events[0].next, nullptr);

  RegisterStructure<Queue>(registry, "Queue");
  TypeBuilder holder = RegisterStructure<Holder>(registry, "Holder");
  holder.AddField("shownAsText", offsetof(Holder, shown_as_text), FieldTypeOf<uint32_t>(registry),
                  "", 0, {TypeKind::kString});
  RegisterStructure<NoFields>(registry, "NoFields");

  auto function = std::make_unique<FunctionDescription>();
  function->name = "GetThings";
  function->parameters.resize(2);
  function->parameters[0].name = "ids";
  function->parameters[0].type = {TypeKind::kVector, TypeKind::kInt32};
  function->parameters[0].optional = true;
  function->parameters[1].name = "raw";
  function->parameters[1].type = {TypeKind::kObject};
  function->parameters[1].hostType = {TypeKind::kStruct, TypeKind::kNone,
                                      registry.FindTypeByName("Queue")};
  function->result = {TypeKind::kVector, TypeKind::kStruct, registry.FindTypeByName("Queue")};
  function->async = true;
  function->threadSafe = true;
  function->tags = {"a", "b"};
  registry.RegisterFunction(std::move(function));

  HostApiDescription description = BuildHostApiDescription(registry);
  ASSERT_EQ(+description.function_count, 1u);
  const KavApiFunction& get_things = description.functions[0];
  EXPECT_STREQ(get_things.name, "GetThings");
  EXPECT_EQ(+get_things.zero[0], 0u);
  EXPECT_EQ(+get_things.zero[1], 0u);
  EXPECT_EQ(+get_things.result_kind, 15u);
  EXPECT_EQ(+get_things.result_element_kind, 17u);
  EXPECT_STREQ(get_things.result_type_name, "Queue");
  EXPECT_STREQ(get_things.async_type_name, "Queue");
  EXPECT_EQ(+get_things.thread_safe, 1);
  ASSERT_EQ(+get_things.tag_count, 2u);
  EXPECT_STREQ(get_things.tags[1], "b");
  ASSERT_EQ(+get_things.parameter_count, 2u);
  EXPECT_EQ(CountByLinks(get_things.parameters), 2u);
  EXPECT_EQ(+get_things.parameters[0].kind, 15u);
  EXPECT_EQ(+get_things.parameters[0].element_kind, 6u);
  EXPECT_STREQ(get_things.parameters[0].type_name, "");
  EXPECT_EQ(+get_things.parameters[0].optional, 1);
  EXPECT_EQ(+get_things.parameters[1].kind, 17u);  // the host type wins
  EXPECT_STREQ(get_things.parameters[1].type_name, "Queue");

  struct TypeRow {
    const char* name;
    bool has_fields;
    bool has_enumerators;
    uint32_t member_count;
  };
  const std::vector<TypeRow> rows = {
      {"BindingAsyncState", false, true, 6},
      {"BindingHelpFormat", false, true, 2},
      {"Holder", true, false, 3},
      {"NoFields", false, false, 0},
      {"BindingFullApiHelp", true, false, 3},
  };
  EXPECT_EQ(+description.type_count, 18u);
  EXPECT_EQ(CountByLinks(description.types), 18u);
  for (const TypeRow& row : rows) {
    SCOPED_TRACE(row.name);
    const KavApiType* type = FindTypeRecord(description, row.name);
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(type->fields != nullptr, row.has_fields);
    EXPECT_EQ(type->enumerators != nullptr, row.has_enumerators);
    EXPECT_EQ(+type->member_count, row.member_count);
    EXPECT_EQ(CountByLinks(type->fields) + CountByLinks(type->enumerators), row.member_count);
  }

  const KavApiType* state = FindTypeRecord(description, "BindingAsyncState");
  ASSERT_NE(state, nullptr);
  // Enumerators in name order.
  EXPECT_STREQ(state->enumerators[0].name, "Cancelled");
  EXPECT_EQ(+state->enumerators[0].value, 3);
  EXPECT_STREQ(state->enumerators[5].name, "Succeeded");
  EXPECT_STREQ(state->enumerators[2].description, "The operation encountered an error");
  EXPECT_EQ(+state->size, 4u);

  ASSERT_NE(FindTypeRecord(description, "Holder"), nullptr);
  const KavApiType& holder_record = *FindTypeRecord(description, "Holder");
  struct FieldRow {
    const char* name;
    uint32_t kind;
    uint32_t element_kind;
    const char* type_name;
    uint8_t optional;
    uint32_t offset;
  };
  const std::vector<FieldRow> fields = {
      {"queues", 15, 17, "Queue", 1, static_cast<uint32_t>(offsetof(Holder, queues))},
      {"label", 12, 0, "", 0, static_cast<uint32_t>(offsetof(Holder, label))},
      {"shownAsText", 12, 0, "", 0, static_cast<uint32_t>(offsetof(Holder, shown_as_text))},
  };
  for (size_t i = 0; i < fields.size(); ++i) {
    SCOPED_TRACE(fields[i].name);
    const KavApiField& field = holder_record.fields[i];
    EXPECT_STREQ(field.name, fields[i].name);
    EXPECT_EQ(+field.kind, fields[i].kind);
    EXPECT_EQ(+field.element_kind, fields[i].element_kind);
    EXPECT_STREQ(field.type_name, fields[i].type_name);
    EXPECT_EQ(+field.optional, fields[i].optional);
    EXPECT_EQ(+field.offset, fields[i].offset);
  }
  EXPECT_STREQ(holder_record.fields[0].description, "The queues");

  // The texts are the registry's own strings, not copies.
  EXPECT_EQ(+get_things.name, registry.FindFunction("GetThings")->name.c_str());
}

}  // namespace host_api_description_test
}  // namespace kav
