#include "binding/builtin_types.h"

#include <string>

#include "binding/api_help.h"
#include "binding/declare.h"
#include "binding/type_registry.h"

namespace kav {

// ---- Field and enumerator declarations (found by argument-dependent lookup) ----

constexpr auto BindingEnumerators(const BindingHelpFormat*) {
  return Enumerators<BindingHelpFormat>({
      {"Full", BindingHelpFormat::kFull, "Native help format"},
      {"Epytext", BindingHelpFormat::kEpytext, "Python epytext format"},
  });
}

constexpr auto BindingFields(const BindingFullTypeIdentifier*) {
  using T = BindingFullTypeIdentifier;
  return Fields(Field("type", &T::type), Field("elementType", &T::elementType));
}

constexpr auto BindingFields(const BindingFullArgumentHelp*) {
  using T = BindingFullArgumentHelp;
  return Fields(Field("name", &T::name), Field("description", &T::description),
                Field("type", &T::type), Field("optional", &T::optional));
}

constexpr auto BindingFields(const BindingFullFunctionHelp*) {
  using T = BindingFullFunctionHelp;
  return Fields(
      Field("name", &T::name), Field("nameSpace", &T::nameSpace), Field("arguments", &T::arguments),
      Field("returns", &T::returns), Field("description", &T::description), Field("help", &T::help),
      Field("threadSafe", &T::threadSafe), Field("async", &T::async), Field("tags", &T::tags));
}

constexpr auto BindingFields(const BindingFullEnumValueHelp*) {
  using T = BindingFullEnumValueHelp;
  return Fields(Field("name", &T::name), Field("description", &T::description),
                Field("value", &T::value));
}

constexpr auto BindingFields(const BindingFullFieldHelp*) {
  using T = BindingFullFieldHelp;
  return Fields(Field("name", &T::name), Field("description", &T::description),
                Field("offset", &T::offset), Field("type", &T::type),
                Field("optional", &T::optional));
}

constexpr auto BindingFields(const BindingFullTypeHelp*) {
  using T = BindingFullTypeHelp;
  return Fields(Field("name", &T::name), Field("nameSpace", &T::nameSpace), Field("size", &T::size),
                Field("description", &T::description), Field("tags", &T::tags),
                Field("fields", &T::fields), Field("values", &T::values));
}

constexpr auto BindingFields(const BindingFullEventHelp*) {
  using T = BindingFullEventHelp;
  return Fields(Field("name", &T::name), Field("nameSpace", &T::nameSpace), Field("type", &T::type),
                Field("description", &T::description), Field("tags", &T::tags));
}

constexpr auto BindingFields(const BindingFullApiHelp*) {
  using T = BindingFullApiHelp;
  return Fields(Field("functions", &T::functions), Field("types", &T::types),
                Field("events", &T::events));
}

constexpr auto BindingEnumerators(const BindingAsyncState*) {
  return Enumerators<BindingAsyncState>({
      {"None", BindingAsyncState::kNone, "Invalid state"},
      {"Running", BindingAsyncState::kRunning, "The operation is in flight"},
      {"Cancelling", BindingAsyncState::kCancelling,
       "A request to cancel the operation has been made"},
      {"Cancelled", BindingAsyncState::kCancelled, "The operation was cancelled"},
      {"Succeeded", BindingAsyncState::kSucceeded, "The operation completed successfully"},
      {"Failed", BindingAsyncState::kFailed, "The operation encountered an error"},
  });
}

constexpr auto BindingFields(const BindingGenericEvent*) {
  using T = BindingGenericEvent;
  return Fields(Field("data", &T::data, 0, "Event data"));
}

constexpr auto BindingFields(const BindingCallbackEvent*) {
  using T = BindingCallbackEvent;
  return Fields(Field("id", &T::id, 0, "ID of the callback being invoked"),
                Field("parameters", &T::parameters, 0, "Callback parameters"));
}

constexpr auto BindingFields(const BindingGenericAsyncEvent*) {
  using T = BindingGenericAsyncEvent;
  return Fields(Field("asyncToken", &T::asyncToken, 0, "Asynchronous operation token"),
                Field("data", &T::data, 0, "Event data"));
}

constexpr auto BindingFields(const BindingAsyncFailureEvent*) {
  using T = BindingAsyncFailureEvent;
  return Fields(Field("asyncToken", &T::asyncToken, 0, "Asynchronous operation token"),
                Field("error", &T::error, 0, "Error message"));
}

constexpr auto BindingFields(const BindingAsyncCancelEvent*) {
  using T = BindingAsyncCancelEvent;
  return Fields(Field("asyncToken", &T::asyncToken, 0, "Asynchronous operation token"));
}

void RegisterBuiltins(TypeRegistry& registry) {
  const std::string help_tags[] = {"$builtin", "help"};
  const std::string async_tags[] = {"$builtin", "async"};
  const std::string builtin_tags[] = {"$builtin"};

  RegisterEnumeration<BindingHelpFormat>(registry, "BindingHelpFormat", help_tags)
      .SetDescription("Help format for binding functions and types.");
  RegisterStructure<BindingFullTypeIdentifier>(registry, "BindingFullTypeIdentifier", help_tags)
      .SetDescription("Describes the type of a value.");
  RegisterStructure<BindingFullArgumentHelp>(registry, "BindingFullArgumentHelp", help_tags)
      .SetDescription("Describes a function parameter.");
  RegisterStructure<BindingFullFunctionHelp>(registry, "BindingFullFunctionHelp", help_tags)
      .SetDescription("Describes a function.");
  RegisterStructure<BindingFullEnumValueHelp>(registry, "BindingFullEnumValueHelp", help_tags)
      .SetDescription("Describes an enumerator.");
  RegisterStructure<BindingFullFieldHelp>(registry, "BindingFullFieldHelp", help_tags)
      .SetDescription("Describes a member of a struct.");
  RegisterStructure<BindingFullTypeHelp>(registry, "BindingFullTypeHelp", help_tags)
      .SetDescription("Describes a struct or enum type.");
  RegisterStructure<BindingFullEventHelp>(registry, "BindingFullEventHelp", help_tags)
      .SetDescription("Describes an event.");
  RegisterStructure<BindingFullApiHelp>(registry, "BindingFullApiHelp", help_tags)
      .SetDescription("Describes the exposed native API.");

  RegisterEnumeration<BindingAsyncState>(registry, "BindingAsyncState", async_tags)
      .SetDescription("Possible states of an asynchronous operation.");
  RegisterStructure<BindingGenericEvent>(registry, "BindingGenericEvent", builtin_tags)
      .SetDescription("Represents generic data for an event.");
  TypeBuilder callback_event =
      RegisterStructure<BindingCallbackEvent>(registry, "BindingCallbackEvent", builtin_tags);
  callback_event.SetDescription("Represents the parameters of a call to a provided callback.");
  RegisterStructure<BindingGenericAsyncEvent>(registry, "BindingGenericAsyncEvent", async_tags)
      .SetDescription("Represents generic data for an asynchronous event.");
  RegisterStructure<BindingAsyncFailureEvent>(registry, "BindingAsyncFailureEvent", async_tags)
      .SetDescription("Represents a failed asynchronous operation.");
  RegisterStructure<BindingAsyncCancelEvent>(registry, "BindingAsyncCancelEvent", async_tags)
      .SetDescription("Represents a cancelled asynchronous operation.");

  EventRegistration on_callback =
      registry.RegisterEvent("OnCallback", callback_event.Description());
  if (!on_callback.existed) {
    on_callback.event->description = "Fired when a callback is invoked.";
    on_callback.event->tags.push_back("$builtin");
  }
}

}  // namespace kav
