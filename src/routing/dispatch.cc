#include "routing/dispatch.h"

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <optional>

#include "binding/api_help.h"
#include "binding/host_api_description.h"
#include "binding/host_value.h"
#include "diagnostics/assert.h"
#include "diagnostics/format.h"
#include "platform/allocation.h"
#include "routing/argument_budget.h"
#include "serialization/json.h"
#include "serialization/msgpack.h"
#include "serialization/yaml.h"

namespace kav {

// ---- Registration ----

bool IsAsynchronousResultType(const StaticTypeIdentity& type) {
  // Hashed at compile time: every call asks this.
  constexpr uint32_t kAsyncOperationId = StaticType::Id<AsyncOperation>();
  constexpr uint32_t kAsyncCallbackId = StaticType::Id<AsyncCallback>();
  return type.id == kAsyncOperationId || type.id == kAsyncCallbackId;
}

FunctionBuilder& FunctionBuilder::SetPath(std::string_view path) {
  if (Inert()) return *this;
  endpoint_->pathTemplate = NormalizePathTemplate(path);
  std::string problem = CheckPathTemplate(endpoint_->pathTemplate);
  if (!problem.empty()) {
    std::string report = FormatMessage("Path template '%1' of '%2' matches nothing: %3",
                                       {endpoint_->pathTemplate, function_->name, problem});
    Assert("CheckPathTemplate(path).empty()", report.c_str(), __FILE__, __LINE__, __func__);
  }
  return *this;
}

FunctionBuilder& FunctionBuilder::SetMethod(HttpMethod method) {
  if (Inert()) return *this;
  endpoint_->method = method;
  endpoint_->customMethod.clear();
  return *this;
}

FunctionBuilder& FunctionBuilder::SetCustomMethod(std::string_view method) {
  if (Inert()) return *this;
  endpoint_->method = HttpMethod::kCustom;
  endpoint_->customMethod = std::string(method);
  return *this;
}

FunctionBuilder& FunctionBuilder::AddParameter(std::string_view name, std::string_view description,
                                               ParameterLocation location, bool optional,
                                               TypeSpecification type) {
  if (Inert()) return *this;
  if (next_parameter_ >= function_->parameters.size()) {
    std::string report = FormatMessage("Parameter '%1' is beyond the %2 parameters of '%3'",
                                       {name, function_->parameters.size(), function_->name});
    Assert("next_parameter_ < parameters.size()", report.c_str(), __FILE__, __LINE__, __func__);
    return *this;
  }
  ParameterDescription& parameter = function_->parameters[next_parameter_];
  parameter.name = std::string(name);
  parameter.description = std::string(description);
  parameter.optional = optional;
  if (type.kind != TypeKind::kNone) parameter.hostType = type;
  endpoint_->locations[next_parameter_] = location;
  ++next_parameter_;
  return *this;
}

FunctionBuilder& FunctionBuilder::SetDescription(std::string_view description) {
  if (!Inert()) function_->description = std::string(description);
  return *this;
}

FunctionBuilder& FunctionBuilder::SetHelp(std::string_view help) {
  if (!Inert()) function_->help = std::string(help);
  return *this;
}

FunctionBuilder& FunctionBuilder::SetNameSpace(std::string_view name_space) {
  if (!Inert()) function_->nameSpace = std::string(name_space);
  return *this;
}

FunctionBuilder& FunctionBuilder::AddTag(std::string_view tag) {
  if (!Inert() && !tag.empty()) function_->tags.emplace_back(tag);
  return *this;
}

FunctionBuilder& FunctionBuilder::AddTags(std::span<const std::string> tags) {
  for (const std::string& tag : tags) AddTag(tag);
  return *this;
}

FunctionBuilder& FunctionBuilder::SetThreadSafe(bool thread_safe) {
  if (!Inert()) function_->threadSafe = thread_safe;
  return *this;
}

FunctionBuilder& FunctionBuilder::SetAsync(bool async) {
  if (!Inert()) function_->async = async;
  return *this;
}

FunctionBuilder& FunctionBuilder::SetHostResultType(TypeSpecification type) {
  if (!Inert()) function_->hostResult = type;
  return *this;
}

// What the resource table points to.
struct Dispatcher::ResourceStorage {
  std::vector<KavResourceEntry> entries;
  std::vector<std::vector<KavParameterLocation>> locations;
  std::vector<std::vector<KavTextList>> text_lists;
  std::vector<std::vector<std::vector<const char*>>> texts;
  KavResourceTable table{};
};

Dispatcher::Dispatcher(TypeRegistry& registry) : registry_(registry) {}
Dispatcher::~Dispatcher() = default;

void Dispatcher::SetDefaultTags(std::vector<std::string> tags) {
  default_tags_ = std::move(tags);
}

FunctionBuilder Dispatcher::RegisterDescription(std::string_view name, std::string_view help,
                                                std::vector<TypeSpecification> parameter_types,
                                                TypeSpecification result,
                                                const ImplementationFactory& make_implementation) {
  if (const FunctionDescription* existing = registry_.FindFunction(name)) {
    std::lock_guard lock(mutex_);
    auto found = endpoints_.find(existing);
    if (found != endpoints_.end()) {
      return FunctionBuilder(const_cast<FunctionDescription*>(existing), true, found->second.get());
    }
  }

  auto function = std::make_unique<FunctionDescription>();
  function->name = std::string(name);
  function->help = std::string(help);
  function->result = result;
  for (const std::string& tag : default_tags_) {
    if (!tag.empty()) function->tags.push_back(tag);
  }
  function->parameters.resize(parameter_types.size());
  for (size_t i = 0; i < parameter_types.size(); ++i) {
    function->parameters[i].name = FormatMessage("arg%1", {i});
    function->parameters[i].type = parameter_types[i];
  }
  FunctionDescription* stored = registry_.RegisterFunction(std::move(function));

  auto endpoint = std::make_unique<Endpoint>();
  endpoint->function = stored;
  endpoint->locations.assign(stored->parameters.size(), ParameterLocation::kAny);
  endpoint->implementation = make_implementation(*stored);
  Endpoint* created = endpoint.get();
  std::lock_guard lock(mutex_);
  endpoints_[stored] = std::move(endpoint);
  endpoint_order_.push_back(created);
  return FunctionBuilder(stored, false, created);
}

const KavResourceTable* Dispatcher::BuildResourceTable() {
  HostApiDescription description = BuildHostApiDescription(registry_);
  const HostApiDescriptionBuilder& records = *registry_.HostApiDescriptionSlot();

  std::lock_guard lock(mutex_);
  auto storage = std::make_unique<ResourceStorage>();
  // Reserved up front: entries point into these vectors.
  storage->entries.reserve(endpoint_order_.size());
  storage->locations.reserve(endpoint_order_.size());
  storage->text_lists.reserve(endpoint_order_.size());
  storage->texts.reserve(endpoint_order_.size());

  for (Endpoint* endpoint : endpoint_order_) {
    const FunctionDescription& function = *endpoint->function;
    // An endpoint whose function was replaced in the index is not served.
    if (registry_.FindFunction(function.name) != &function) continue;
    const KavApiFunction* record = records.FindFunction(function.name);
    if (record == nullptr) continue;

    std::vector<KavParameterLocation>& locations = storage->locations.emplace_back();
    for (ParameterLocation location : endpoint->locations) {
      uint32_t code = static_cast<uint32_t>(location);
      locations.push_back(KavParameterLocation{0, code >= 1 && code <= 5 ? code : 0});
    }
    std::vector<std::vector<const char*>>& texts = storage->texts.emplace_back();
    std::vector<KavTextList>& text_lists = storage->text_lists.emplace_back();
    texts.reserve(endpoint->textLists.size());
    for (const std::vector<std::string>& list : endpoint->textLists) {
      std::vector<const char*>& pointers = texts.emplace_back();
      for (const std::string& text : list) pointers.push_back(text.c_str());
      text_lists.push_back(KavTextList{0, pointers.empty() ? nullptr : pointers.data(),
                                       static_cast<uint32_t>(pointers.size())});
    }

    std::unique_ptr<EndpointBinding>& binding = bindings_[function.name];
    if (!binding) binding = std::make_unique<EndpointBinding>();
    binding->registry = &registry_;
    binding->endpoint = endpoint;

    KavResourceEntry& entry = storage->entries.emplace_back();
    entry = KavResourceEntry{};
    entry.user_data = binding.get();
    entry.name = record->name;
    entry.name_space = record->name_space;
    entry.parameters = record->parameters;
    entry.parameter_count = record->parameter_count;
    entry.result_kind = record->result_kind;
    entry.result_element_kind = record->result_element_kind;
    entry.result_type_name = record->result_type_name;
    entry.description = record->description;
    entry.help = record->help;
    entry.thread_safe = record->thread_safe;
    entry.async_type_name = record->async_type_name;
    entry.tags = record->tags;
    entry.tag_count = record->tag_count;
    entry.call = OnCall;
    entry.locations = locations.empty() ? nullptr : locations.data();
    entry.path_template = endpoint->pathTemplate.c_str();
    uint32_t method = static_cast<uint32_t>(endpoint->method);
    entry.method = method >= 1 && method <= 8 ? method : 0;
    entry.flags = endpoint->flags;
    entry.text_lists = text_lists.empty() ? nullptr : text_lists.data();
    entry.text_list_count = static_cast<uint32_t>(text_lists.size());
    entry.custom_method = endpoint->customMethod.c_str();
  }
  for (size_t i = 0; i < storage->entries.size(); ++i) {
    storage->entries[i].next = i + 1 < storage->entries.size() ? &storage->entries[i + 1] : nullptr;
  }

  KavResourceTable& table = storage->table;
  table.entries = storage->entries.empty() ? nullptr : storage->entries.data();
  table.entry_count = static_cast<uint32_t>(storage->entries.size());
  table.types = description.types;
  table.type_count = description.type_count;
  table.events = description.events;
  table.event_count = description.event_count;
  resources_ = std::move(storage);
  return &resources_->table;
}

const Endpoint* Dispatcher::FindEndpoint(const FunctionDescription* function) const {
  std::lock_guard lock(mutex_);
  auto found = endpoints_.find(function);
  return found != endpoints_.end() ? found->second.get() : nullptr;
}

const EndpointBinding* Dispatcher::FindBinding(std::string_view name) const {
  std::lock_guard lock(mutex_);
  auto found = bindings_.find(std::string(name));
  return found != bindings_.end() ? found->second.get() : nullptr;
}

std::vector<Route> Dispatcher::Routes() const {
  std::lock_guard lock(mutex_);
  std::vector<Route> routes;
  routes.reserve(endpoint_order_.size());
  for (const Endpoint* endpoint : endpoint_order_) routes.emplace_back(*endpoint);
  return routes;
}

// ---- Calls ----

namespace {

const char kSharedEmptyText[] = "";

std::string Lower(std::string_view text) {
  std::string lowered(text);
  for (char& c : lowered) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lowered;
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) !=
        std::tolower(static_cast<unsigned char>(prefix[i]))) {
      return false;
    }
  }
  return true;
}

std::string_view TrimLeadingSpaces(std::string_view text) {
  size_t first = text.find_first_not_of(' ');
  return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

std::string_view TextUpToNul(const char* text, size_t length) {
  std::string_view view(text, length);
  return view.substr(0, view.find('\0'));
}

bool IsStructuredKind(TypeKind kind) {
  return kind == TypeKind::kObject || kind == TypeKind::kVector || kind == TypeKind::kStruct;
}

using TextPairs = std::vector<std::pair<std::string, std::string>>;

// The query of `url` split into decoded (name, value) pairs; a repeated name
// keeps its first position and takes the later value.
TextPairs ParseQuery(std::string_view url) {
  TextPairs pairs;
  size_t question = url.find('?');
  if (question == std::string_view::npos) return pairs;
  std::string_view query = url.substr(question + 1);
  // Names seen so far, by position. A short query is searched linearly; the
  // index is built only once the query has many names.
  constexpr size_t kLinearSearchLimit = 16;
  std::unordered_map<std::string, size_t> positions;
  auto find_position = [&](const std::string& name) -> std::optional<size_t> {
    if (pairs.size() <= kLinearSearchLimit) {
      for (size_t i = 0; i < pairs.size(); ++i) {
        if (pairs[i].first == name) return i;
      }
      return std::nullopt;
    }
    if (positions.empty()) {
      for (size_t i = 0; i < pairs.size(); ++i) positions.emplace(pairs[i].first, i);
    }
    auto found = positions.find(name);
    if (found == positions.end()) return std::nullopt;
    return found->second;
  };
  while (true) {
    size_t ampersand = query.find('&');
    std::string_view piece = query.substr(0, ampersand);
    size_t equals = piece.find('=');
    std::string name = PercentDecode(piece.substr(0, equals));
    std::string value =
        equals == std::string_view::npos ? std::string() : PercentDecode(piece.substr(equals + 1));
    if (std::optional<size_t> position = find_position(name)) {
      pairs[*position].second = std::move(value);
    } else {
      if (!positions.empty()) positions.emplace(name, pairs.size());
      pairs.emplace_back(std::move(name), std::move(value));
    }
    if (ampersand == std::string_view::npos) break;
    query = query.substr(ampersand + 1);
  }
  return pairs;
}

// One call being dispatched.
class Call {
 public:
  Call(const KavRequest& request, const RouteMatch& match, const TypeRegistry* registry)
      : request_(request),
        function_(*match.function),
        endpoint_(*match.endpoint),
        path_parameters_(match.pathParameters),
        registry_(registry),
        arguments_(function_.parameters.size()) {}

  void Run(KavResponse& response);

 private:
  BindingResult& status() { return result_.value; }
  std::string_view url() const { return request_.url != nullptr ? request_.url : ""; }

  std::optional<size_t> FindParameter(std::string_view name) const {
    for (size_t i = 0; i < function_.parameters.size(); ++i) {
      if (function_.parameters[i].name == name) return i;
    }
    return std::nullopt;
  }
  void FailUnknownArgument(std::string_view name) {
    status().SetError(
        FormatMessage("Unknown argument '%1' for '%2'.", {name, std::string_view(function_.name)}));
  }

  std::unordered_map<std::string, std::string> HeaderMap() const;
  void BindArguments(const TextPairs& headers, const TextPairs& query);
  void BindOne(std::string_view key, std::string_view text, ParameterLocation location);
  void ApplyIndexPath(BindingProperty& value, size_t parameter, std::string_view path,
                      std::string_view text);
  void DecodeArgumentText(BindingProperty& target, size_t parameter, std::string_view text,
                          std::string_view content_type, bool structured);
  void BindHostArguments();
  void BindBody();
  void Invoke();

  const KavRequest& request_;
  const FunctionDescription& function_;
  const Endpoint& endpoint_;
  const PathParameters& path_parameters_;
  const TypeRegistry* registry_;
  std::vector<BindingProperty> arguments_;
  IndexPathBudget index_budget_;
  CallResult result_;
};

std::unordered_map<std::string, std::string> Call::HeaderMap() const {
  std::unordered_map<std::string, std::string> headers;
  for (uint32_t i = 0; request_.headers != nullptr && i < request_.header_count; ++i) {
    const KavHeaderEntry& header = request_.headers[i];
    if (header.name == nullptr) continue;
    // Header names are case-insensitive: the map is keyed by the lower-cased
    // name, looked up with the lower-cased parameter name.
    headers[Lower(header.name)] = header.value != nullptr ? header.value : "";
  }
  return headers;
}

void Call::BindArguments(const TextPairs& headers, const TextPairs& query) {
  for (size_t i = 0; i < function_.parameters.size(); ++i) {
    const ParameterDescription& parameter = function_.parameters[i];
    if (parameter.type.kind == TypeKind::kBool && !parameter.optional && arguments_[i].IsEmpty()) {
      arguments_[i].SetBool(false);
    }
  }
  for (const auto& [key, text] : headers) {
    if (!status().Ok()) return;
    BindOne(key, text, ParameterLocation::kHeader);
  }
  for (const auto& [key, text] : path_parameters_) {
    if (!status().Ok()) return;
    BindOne(key, text, ParameterLocation::kPath);
  }
  for (const auto& [key, text] : query) {
    if (!status().Ok()) return;
    BindOne(key, text, ParameterLocation::kQuery);
  }
}

void Call::BindOne(std::string_view key, std::string_view text, ParameterLocation location) {
  size_t dot = key.find('.');
  std::string_view name = key.substr(0, dot);
  std::optional<size_t> index = FindParameter(name);
  if (!index) {
    FailUnknownArgument(name);
    return;
  }
  ParameterLocation allowed = endpoint_.locations[*index];
  if (allowed != ParameterLocation::kAny && allowed != location) {
    status().SetError(FormatMessage("Argument '%1' for '%2' was specified in an invalid location.",
                                    {name, std::string_view(function_.name)}));
    return;
  }
  BindingProperty& argument = arguments_[*index];
  if (dot != std::string_view::npos) {
    ApplyIndexPath(argument, *index, key.substr(dot + 1), text);
    return;
  }
  TypeKind kind = function_.parameters[*index].type.kind;
  if (!text.empty()) {
    DecodeArgumentText(argument, *index, text, {}, IsStructuredKind(kind));
    return;
  }
  switch (kind) {
    case TypeKind::kBool:
      argument.SetBool(true);
      break;
    case TypeKind::kObject:
    case TypeKind::kStruct:
      argument.Clear();
      argument.MakeStructure();
      break;
    case TypeKind::kVector:
      argument.Clear();
      argument.MakeCollection();
      break;
    default:
      status().SetError(FormatMessage("Expected value for argument '%1'.", {name}));
      break;
  }
}

void Call::ApplyIndexPath(BindingProperty& value, size_t parameter, std::string_view path,
                          std::string_view text) {
  const std::string key = function_.parameters[parameter].name + "." + std::string(path);
  if (IndexPathSegments(path) > kMaxIndexPathSegments) {
    status().SetError(FormatMessage(kIndexPathTooDeep, {key, kMaxIndexPathSegments}));
    return;
  }
  BindingProperty* target = &value;
  while (true) {
    size_t dot = path.find('.');
    std::string_view segment = path.substr(0, dot);
    if (!segment.empty() && std::isdigit(static_cast<unsigned char>(segment.front()))) {
      std::string digits(segment);
      char* end = nullptr;
      errno = 0;
      unsigned long index = std::strtoul(digits.c_str(), &end, 0);
      if (*end != '\0') {
        status().SetError(FormatMessage("Index %1 is in an incorrect format", {segment}));
        return;
      }
      if (errno == ERANGE || index > kMaxArgumentIndex) {
        status().SetError(FormatMessage("Index %1 is out of range", {segment}));
        return;
      }
      if (target->Kind() != BindingKind::kCollection) target->MakeCollection();
      const size_t size = target->Size();
      if (index >= size && !index_budget_.Charge(index + 1 - size)) {
        status().SetError(FormatMessage(kIndexPathOverBudget, {key, kMaxIndexPathElements}));
        return;
      }
      target = &target->At(static_cast<size_t>(index));
    } else {
      if (target->Kind() != BindingKind::kStructure) target->MakeStructure();
      const size_t size = target->Size();
      BindingProperty& member = target->Member(segment);
      if (target->Size() != size && !index_budget_.Charge(1)) {
        status().SetError(FormatMessage(kIndexPathOverBudget, {key, kMaxIndexPathElements}));
        return;
      }
      target = &member;
    }
    if (dot == std::string_view::npos) break;
    path = path.substr(dot + 1);
  }
  DecodeArgumentText(*target, parameter, text, {}, false);
}

void Call::DecodeArgumentText(BindingProperty& target, size_t parameter, std::string_view text,
                              std::string_view content_type, bool structured) {
  bool guess = structured && content_type.empty();
  std::string_view trimmed = TrimLeadingSpaces(text);
  const char* format = nullptr;
  BindingResult decoded;
  if (StartsWithNoCase(content_type, "application/x-msgpack") ||
      (guess && LooksLikeMessagePack(text.data(), text.size()))) {
    format = "Couldn't deserialize MessagePack value for parameter '%1' of '%2': %3";
    uint32_t consumed = 0;
    decoded = ReadMessagePack(reinterpret_cast<const uint8_t*>(text.data()),
                              static_cast<uint32_t>(text.size()), consumed);
  } else if (StartsWithNoCase(content_type, "application/json") ||
             (guess && !trimmed.empty() && (trimmed.front() == '{' || trimmed.front() == '['))) {
    format = "Couldn't deserialize JSON value for parameter '%1' of '%2': %3";
    decoded = DeserializeJson(text);
  } else if (StartsWithNoCase(content_type, "text/x-yaml") ||
             (guess && trimmed.starts_with("---"))) {
    format = "Couldn't deserialize YAML value for parameter '%1' of '%2': %3";
    decoded = ReadYaml(text);
  } else if (StartsWithNoCase(content_type, "application/octet-stream")) {
    target.SetBlob(
        std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
    return;
  } else {
    target.SetString(text);
    return;
  }
  if (!decoded.Ok()) {
    status().SetError(FormatMessage(format, {std::string_view(function_.parameters[parameter].name),
                                             std::string_view(function_.name), decoded.Error()}));
    return;
  }
  target = std::move(static_cast<BindingProperty&>(decoded));
}

void Call::BindHostArguments() {
  size_t path_count = path_parameters_.size();
  for (uint32_t i = 0; request_.arguments != nullptr && i < request_.argument_count; ++i) {
    if (!status().Ok()) return;
    const KavArgumentEntry& entry = request_.arguments[i];
    std::optional<size_t> index;
    if (entry.name == nullptr) {
      size_t position = i + path_count;
      if (position < arguments_.size()) {
        index = position;
      } else {
        FailUnknownArgument(std::to_string(position));
        return;
      }
    } else {
      index = FindParameter(entry.name);
      if (!index) {
        FailUnknownArgument(entry.name);
        return;
      }
    }
    BindingProperty& argument = arguments_[*index];
    argument.Clear();
    BindingResult converted;
    if (!FromHostValue(converted, argument, entry.value, function_.parameters[*index].name)) {
      status().SetError(converted.Error());
      return;
    }
  }
}

void Call::BindBody() {
  if (request_.body == nullptr) return;
  std::optional<size_t> body_parameter;
  for (size_t i = 0; i < endpoint_.locations.size(); ++i) {
    if (endpoint_.locations[i] == ParameterLocation::kBody) {
      body_parameter = i;
      break;
    }
  }
  if (!body_parameter || *body_parameter >= arguments_.size()) return;

  std::string_view content_type = request_.content_type != nullptr ? request_.content_type : "";
  const char* body = reinterpret_cast<const char*>(request_.body);
  BindingResult decoded;
  if (StartsWithNoCase(content_type, "application/x-msgpack")) {
    uint32_t consumed = 0;
    decoded = ReadMessagePack(request_.body, request_.body_length, consumed);
    if (decoded.Ok() && consumed < request_.body_length) {
      status().SetError("Extra MessgePack data found in body");
      return;
    }
  } else if (StartsWithNoCase(content_type, "application/json") ||
             StartsWithNoCase(content_type, "application/vnd.api+json")) {
    decoded = DeserializeJson(TextUpToNul(body, request_.body_length));
  } else if (StartsWithNoCase(content_type, "application/x-yaml")) {
    decoded = ReadYaml(TextUpToNul(body, request_.body_length));
  } else {
    status().SetError("Unsupported body content type");
    return;
  }
  if (!decoded.Ok()) {
    status().SetError(decoded.Error());
    return;
  }
  arguments_[*body_parameter] = std::move(static_cast<BindingProperty&>(decoded));
}

// Releases the prepared arguments however the call ends.
class PreparedGuard {
 public:
  PreparedGuard(FunctionImplementation& implementation, PreparedArguments* state)
      : implementation_(implementation), state_(state) {}
  ~PreparedGuard() {
    if (state_ != nullptr) implementation_.ReleaseArguments(state_);
  }
  PreparedGuard(const PreparedGuard&) = delete;
  PreparedGuard& operator=(const PreparedGuard&) = delete;

 private:
  FunctionImplementation& implementation_;
  PreparedArguments* state_;
};

void WriteResponse(KavResponse& response, CallResult& result, const TypeRegistry* registry);

void Call::Invoke() {
  FunctionImplementation* implementation = endpoint_.implementation.get();
  if (implementation == nullptr) {
    status().SetError("Invalid function");
    result_.status = 404;
    return;
  }
  PreparedArguments* state =
      implementation->PrepareArguments(status(), arguments_, request_.context);
  PreparedGuard guard(*implementation, state);
  if (!status().Ok()) return;
  result_.names = registry_;

  if (!IsAsynchronousResultType(implementation->ResultType())) {
    implementation->Invoke(result_, nullptr, state, request_.context);
    return;
  }
  AsyncCallContext context;
  context.callContext = request_.context;
  // 100 ns ticks since 1970-01-01.
  context.time = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                           std::chrono::system_clock::now().time_since_epoch())
                                           .count() /
                                       100);
  context.url = std::string(url());
  context.registry = registry_;
  context.method = HttpMethodFromCode(request_.method);
  if (context.method == HttpMethod::kCustom && request_.custom_method != nullptr) {
    context.customMethod = request_.custom_method;
  }
  context.headers = HeaderMap();
  implementation->Invoke(result_, &context, state, request_.context);
}

void Call::Run(KavResponse& response) {
  std::unordered_map<std::string, std::string> headers = HeaderMap();
  TextPairs header_arguments;
  if (!headers.empty()) {
    for (size_t i = 0; i < function_.parameters.size(); ++i) {
      ParameterLocation location = endpoint_.locations[i];
      if (location != ParameterLocation::kAny && location != ParameterLocation::kHeader) continue;
      auto found = headers.find(Lower(function_.parameters[i].name));
      if (found != headers.end()) {
        header_arguments.emplace_back(function_.parameters[i].name, found->second);
      }
    }
  }
  TextPairs query = ParseQuery(url());
  BindArguments(header_arguments, query);
  BindHostArguments();
  if (status().Ok()) BindBody();
  if (status().Ok()) Invoke();
  WriteResponse(response, result_, registry_);
}

// ---- Responses ----

KavBool KAV_CALL ReadBodyStream(void* handle, uint8_t* buffer, uint32_t* size, uint8_t* more) {
  try {
    bool has_more = *more != 0;
    bool ok = static_cast<BodyStream*>(handle)->Read(buffer, *size, has_more);
    *more = has_more ? 1 : 0;
    return ok ? 1 : 0;
  } catch (...) {
    *size = 0;
    return 0;
  }
}

void KAV_CALL CloseBodyStream(void* handle) {
  delete static_cast<BodyStream*>(handle);
}

void WriteResponse(KavResponse& response, CallResult& result, const TypeRegistry* registry) {
  bool not_convertible = false;
  if (!result.value.Ok()) {
    // A message view is followed by its NUL byte: no temporary needed.
    std::string_view message = result.value.Error();
    response.error = PluginDuplicate(message.empty() ? "" : message.data());
    response.error_owned = 1;
  } else if (result.has_host_value) {
    response.body = result.host_value;
    result.host_value = KavHostValue{};
    result.has_host_value = false;
  } else if (result.host_value_failed || !ToHostValue(response.body, result.value, registry)) {
    not_convertible = true;
  }
  response.flags = result.flags;
  response.format = result.format >= 1 && result.format <= 3 ? result.format : 0;
  response.status = not_convertible ? 400 : result.status;
  response.text = result.text.empty() ? kSharedEmptyText : PluginDuplicate(result.text.c_str());
  if (!result.pairs.empty()) {
    auto* pairs =
        static_cast<KavTextPair*>(PluginAllocate(sizeof(KavTextPair) * result.pairs.size()));
    std::memset(static_cast<void*>(pairs), 0, sizeof(KavTextPair) * result.pairs.size());
    response.pairs = pairs;
    for (const auto& [name, value] : result.pairs) {
      pairs[response.pair_count].name = PluginDuplicate(name.c_str());
      pairs[response.pair_count].value = PluginDuplicate(value.c_str());
      ++response.pair_count;
    }
  }
  if (result.stream) {
    response.stream_length = result.stream->Length();
    response.stream_handle = result.stream.release();
    response.stream_read = ReadBodyStream;
    response.stream_close = CloseBodyStream;
  }
  response.release = ReleaseResponse;
}

void AnswerBuiltin(KavResponse& response, const TypeRegistry& registry,
                   const FunctionDescription& function) {
  CallResult result;
  if (function.name == "Help") {
    BindingResult document = DescribeApi(registry, BindingHelpFormat::kFull);
    if (document.Ok()) {
      result.value = std::move(document);
    } else {
      result.value.SetError(document.Error());
      result.status = 400;
    }
  } else {
    result.value.SetError("Unsupported builtin function");
    result.status = 400;
  }
  WriteResponse(response, result, &registry);
}

bool HasTag(const FunctionDescription& function, std::string_view tag) {
  for (const std::string& candidate : function.tags) {
    if (candidate == tag) return true;
  }
  return false;
}

// HandleCall with the registry for built-ins and the one for conversions
// given separately.
void HandleRequest(const TypeRegistry* builtins, const TypeRegistry* conversions,
                   KavResponse& response, const KavRequest& request,
                   std::span<const Route> routes) {
  ReleaseResponse(&response);
  response.release = ReleaseResponse;
  try {
    RouteRequest call;
    call.url = request.url != nullptr ? request.url : "";
    call.method = HttpMethodFromCode(request.method);
    if (call.method == HttpMethod::kCustom && request.custom_method != nullptr) {
      call.customMethod = request.custom_method;
    }
    RouteMatch match;
    if (!FindRoute(call, routes, false, match) || match.function == nullptr ||
        match.endpoint == nullptr) {
      CallResult result;
      result.value.SetError("Invalid function");
      result.status = 404;
      WriteResponse(response, result, conversions);
      return;
    }
    if (builtins != nullptr && HasTag(*match.function, "$builtin")) {
      AnswerBuiltin(response, *builtins, *match.function);
      return;
    }
    Call(request, match, conversions).Run(response);
  } catch (const std::exception& error) {
    ReleaseResponse(&response);
    response.release = ReleaseResponse;
    response.status = 500;
    response.text = kSharedEmptyText;
    const char* message =
        error.what() != nullptr && *error.what() != '\0' ? error.what() : "Internal server error";
    try {
      response.error = PluginDuplicate(message);
      response.error_owned = 1;
    } catch (...) {
      response.error = "Internal server error";
    }
  } catch (...) {
    ReleaseResponse(&response);
    response.release = ReleaseResponse;
    response.status = 500;
    response.text = kSharedEmptyText;
    response.error = "Internal server error";
  }
}

}  // namespace

void KAV_CALL OnCall(KavResponse* response, const KavRequest* request) {
  if (response == nullptr) return;
  if (request == nullptr) {
    KavRequest empty{};
    HandleRequest(nullptr, nullptr, *response, empty, {});
    return;
  }
  const auto* binding = static_cast<const EndpointBinding*>(request->user_data);
  if (binding == nullptr || binding->endpoint == nullptr) {
    HandleRequest(nullptr, nullptr, *response, *request, {});
    return;
  }
  try {
    Route route(*binding->endpoint);
    // Built-ins are not served to the host; the registry still names
    // enumerators in the answer.
    HandleRequest(nullptr, binding->registry, *response, *request, {&route, 1});
  } catch (...) {
    HandleRequest(nullptr, nullptr, *response, *request, {});  // answers "Invalid function"
  }
}

void HandleCall(const TypeRegistry* registry, KavResponse& response, const KavRequest& request,
                std::span<const Route> routes) {
  HandleRequest(registry, registry, response, request, routes);
}

void KAV_CALL ReleaseResponse(KavResponse* response) {
  if (response == nullptr) return;
  ReleaseHostValue(response->body);
  if (response->error_owned != 0) PluginFree(const_cast<char*>(response->error));
  if (response->text != nullptr && response->text != kSharedEmptyText) {
    PluginFree(const_cast<char*>(response->text));
  }
  if (response->pairs != nullptr) {
    for (uint32_t i = 0; i < response->pair_count; ++i) {
      PluginFree(const_cast<char*>(response->pairs[i].name));
      PluginFree(const_cast<char*>(response->pairs[i].value));
    }
    PluginFree(const_cast<KavTextPair*>(response->pairs));
  }
  std::memset(static_cast<void*>(response), 0, sizeof(KavResponse));
}

}  // namespace kav
