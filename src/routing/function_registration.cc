#include "routing/function_registration.h"

#include "diagnostics/assert.h"
#include "diagnostics/format.h"

namespace kav {

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
  std::lock_guard lock(mutex_);
  resources_ = std::make_unique<ResourceTable>(registry_, endpoint_order_, bindings_);
  return resources_->table();
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

}  // namespace kav
