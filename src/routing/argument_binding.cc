#include "routing/argument_binding.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "binding/host_value.h"
#include "binding/type_registry.h"
#include "diagnostics/format.h"
#include "routing/integer_list.h"
#include "serialization/json.h"
#include "serialization/msgpack.h"
#include "serialization/yaml.h"

namespace kav {
namespace {

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

bool IsIntegerKind(TypeKind kind) {
  switch (kind) {
    case TypeKind::kInt8:
    case TypeKind::kInt16:
    case TypeKind::kInt32:
    case TypeKind::kInt64:
    case TypeKind::kUint8:
    case TypeKind::kUint16:
    case TypeKind::kUint32:
    case TypeKind::kUint64:
      return true;
    default:
      return false;
  }
}

}  // namespace

HeaderMap ReadHeaders(const KavRequest& request) {
  HeaderMap headers;
  for (uint32_t i = 0; request.headers != nullptr && i < request.header_count; ++i) {
    const KavHeaderEntry& header = request.headers[i];
    if (header.name == nullptr) continue;
    headers[header.name] = header.value != nullptr ? header.value : "";
  }
  return headers;
}

TextPairs HeaderArguments(const HeaderMap& headers, const FunctionDescription& function,
                          const Endpoint& endpoint) {
  TextPairs arguments;
  if (headers.empty()) return arguments;
  for (size_t i = 0; i < function.parameters.size(); ++i) {
    ParameterLocation location = endpoint.locations[i];
    if (location != ParameterLocation::kAny && location != ParameterLocation::kHeader) continue;
    auto found = headers.find(Lower(function.parameters[i].name));
    if (found != headers.end()) arguments.emplace_back(function.parameters[i].name, found->second);
  }
  return arguments;
}

TextPairs ParseQuery(std::string_view url) {
  TextPairs pairs;
  size_t question = url.find('?');
  if (question == std::string_view::npos) return pairs;
  std::string_view query = url.substr(question + 1);
  // One allocation for the pairs (tests/host/answer_memory_test.cc).
  pairs.reserve(1 + static_cast<size_t>(std::count(query.begin(), query.end(), '&')));
  // Names seen so far, by position. A short query is searched linearly; the
  // index is built only once the query has many names (dispatch_bench
  // BM_V3CallThroughTable).
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

bool ArgumentBinder::DeferIntegerList(size_t index, std::string_view text) {
  if (!defer_integer_lists_ || index >= kMaxIntegerLists) return false;
  const TypeSpecification& type = function_.parameters[index].type;
  if (type.kind != TypeKind::kVector || !IsIntegerKind(type.elementKind)) return false;
  // A plain list opens with "[", which never looks like MessagePack, so the
  // generic way would read it as JSON.
  const std::optional<size_t> count = PlainIntegerListCount(text);
  if (!count) return false;
  arguments_[index].Clear();
  integer_lists_[index] = {text, *count};
  return true;
}

void ArgumentBinder::MaterializeArgument(size_t index) {
  const IntegerList* list = IntegerListOf(index);
  if (list == nullptr) return;
  const std::string_view text = list->text;
  ForgetIntegerList(index);
  DecodeArgumentText(arguments_[index], index, text, {}, true);
}

std::span<const BindingProperty> ArgumentBinder::MaterializedArguments() {
  for (size_t index = 0; index < kMaxIntegerLists; ++index) MaterializeArgument(index);
  return arguments_;
}

void ArgumentBinder::FailUnknownArgument(std::string_view name) {
  result_.SetError(
      FormatMessage("Unknown argument '%1' for '%2'.", {name, std::string_view(function_.name)}));
}

void ArgumentBinder::BindArguments(const TextPairs& headers, const PathParameters& path,
                                   const TextPairs& query) {
  BindTexts(headers, path, query);
}

template <class Query>
void ArgumentBinder::BindTexts(const TextPairs& headers, const PathParameters& path,
                               const Query& query) {
  for (size_t i = 0; i < function_.parameters.size(); ++i) {
    const ParameterDescription& parameter = function_.parameters[i];
    if (parameter.type.kind == TypeKind::kBool && !parameter.optional && arguments_[i].IsEmpty()) {
      arguments_[i].SetBool(false);
    }
  }
  for (const auto& [key, text] : headers) {
    if (!result_.Ok()) return;
    BindOne(key, text, ParameterLocation::kHeader);
  }
  for (const auto& [key, text] : path) {
    if (!result_.Ok()) return;
    BindOne(key, text, ParameterLocation::kPath);
  }
  for (const auto& [key, text] : query) {
    if (!result_.Ok()) return;
    BindOne(key, text, ParameterLocation::kQuery);
  }
}

std::string_view ArgumentBinder::DecodedQueryText(std::string_view text) {
  // Most texts have nothing to decode: they are used where they are.
  if (std::none_of(text.begin(), text.end(), [](char c) { return c == '%' || c == '+'; })) {
    return text;
  }
  return decoded_query_texts_.emplace_back(PercentDecode(text));
}

bool ArgumentBinder::ReadQueryPieces(std::string_view url) {
  query_piece_count_ = 0;
  const size_t question = url.find('?');
  if (question == std::string_view::npos) return true;
  std::string_view query = url.substr(question + 1);
  while (true) {
    const size_t ampersand = query.find('&');
    const std::string_view piece = query.substr(0, ampersand);
    const size_t equals = piece.find('=');
    const std::string_view name = DecodedQueryText(piece.substr(0, equals));
    const std::string_view value = equals == std::string_view::npos
                                       ? std::string_view()
                                       : DecodedQueryText(piece.substr(equals + 1));
    size_t position = 0;
    while (position < query_piece_count_ && query_pieces_[position].first != name) ++position;
    if (position == query_piece_count_) {
      if (query_piece_count_ == kInlineQueryPieces) return false;
      ++query_piece_count_;
    }
    query_pieces_[position] = {name, value};
    if (ampersand == std::string_view::npos) return true;
    query = query.substr(ampersand + 1);
  }
}

void ArgumentBinder::BindRequest(const KavRequest& request, const HeaderMap& headers,
                                 const PathParameters& path) {
  // Absent sources are skipped without a call: most requests bring only a
  // query, and a function without parameters binds nothing at all
  // (dispatch_bench BM_FlagCallThroughTable).
  if (!headers.empty()) header_arguments_ = HeaderArguments(headers, function_, endpoint_);
  // A query of a few pieces is read where it lies, as ParseQuery would read
  // it: no allocation for it (tests/host/answer_memory_test.cc).
  const std::string_view url = request.url != nullptr ? request.url : "";
  const bool inline_query = ReadQueryPieces(url);
  if (!inline_query) query_ = ParseQuery(url);
  const bool has_query = inline_query ? query_piece_count_ != 0 : !query_.empty();
  if (!function_.parameters.empty() || !header_arguments_.empty() || !path.empty() || has_query) {
    defer_integer_lists_ = true;
    if (inline_query) {
      BindTexts(header_arguments_, path,
                std::span<const TextView>(query_pieces_.data(), query_piece_count_));
    } else {
      BindTexts(header_arguments_, path, query_);
    }
    defer_integer_lists_ = false;
  }
  if (request.argument_count != 0) BindHostArguments(request, path.size());
  if (result_.Ok() && request.body != nullptr) BindBody(request);
}

void ArgumentBinder::BindOne(std::string_view key, std::string_view text,
                             ParameterLocation location) {
  size_t dot = key.find('.');
  std::string_view name = key.substr(0, dot);
  std::optional<size_t> index = FindParameter(name);
  if (!index) {
    FailUnknownArgument(name);
    return;
  }
  ParameterLocation allowed = endpoint_.locations[*index];
  if (allowed != ParameterLocation::kAny && allowed != location) {
    result_.SetError(FormatMessage("Argument '%1' for '%2' was specified in an invalid location.",
                                   {name, std::string_view(function_.name)}));
    return;
  }
  // A later text for the same parameter works on its generic value.
  MaterializeArgument(*index);
  BindingProperty& argument = arguments_[*index];
  if (dot != std::string_view::npos) {
    ApplyIndexPath(argument, *index, key.substr(dot + 1), text);
    return;
  }
  TypeKind kind = function_.parameters[*index].type.kind;
  if (DeferIntegerList(*index, text)) return;
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
      result_.SetError(FormatMessage("Expected value for argument '%1'.", {name}));
      break;
  }
}

void ArgumentBinder::ApplyIndexPath(BindingProperty& value, size_t parameter, std::string_view path,
                                    std::string_view text) {
  const std::string key = function_.parameters[parameter].name + "." + std::string(path);
  if (IndexPathSegments(path) > kMaxIndexPathSegments) {
    result_.SetError(FormatMessage(kIndexPathTooDeep, {key, kMaxIndexPathSegments}));
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
        result_.SetError(FormatMessage("Index %1 is in an incorrect format", {segment}));
        return;
      }
      if (errno == ERANGE || index > kMaxArgumentIndex) {
        result_.SetError(FormatMessage("Index %1 is out of range", {segment}));
        return;
      }
      if (target->Kind() != BindingKind::kCollection) target->MakeCollection();
      const size_t size = target->Size();
      if (index >= size && !index_budget_.Charge(index + 1 - size)) {
        result_.SetError(FormatMessage(kIndexPathOverBudget, {key, kMaxIndexPathElements}));
        return;
      }
      target = &target->At(static_cast<size_t>(index));
    } else {
      if (target->Kind() != BindingKind::kStructure) target->MakeStructure();
      const size_t size = target->Size();
      BindingProperty& member = target->Member(segment);
      if (target->Size() != size && !index_budget_.Charge(1)) {
        result_.SetError(FormatMessage(kIndexPathOverBudget, {key, kMaxIndexPathElements}));
        return;
      }
      target = &member;
    }
    if (dot == std::string_view::npos) break;
    path = path.substr(dot + 1);
  }
  DecodeArgumentText(*target, parameter, text, {}, false);
}

void ArgumentBinder::DecodeArgumentText(BindingProperty& target, size_t parameter,
                                        std::string_view text, std::string_view content_type,
                                        bool structured) {
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
    result_.SetError(FormatMessage(format, {std::string_view(function_.parameters[parameter].name),
                                            std::string_view(function_.name), decoded.Error()}));
    return;
  }
  target = std::move(static_cast<BindingProperty&>(decoded));
}

void ArgumentBinder::BindHostArguments(const KavRequest& request, size_t path_parameter_count) {
  for (uint32_t i = 0; request.arguments != nullptr && i < request.argument_count; ++i) {
    if (!result_.Ok()) return;
    const KavArgumentEntry& entry = request.arguments[i];
    std::optional<size_t> index;
    if (entry.name == nullptr) {
      size_t position = i + path_parameter_count;
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
    ForgetIntegerList(*index);
    BindingProperty& argument = arguments_[*index];
    argument.Clear();
    BindingResult converted;
    if (!FromHostValue(converted, argument, entry.value, function_.parameters[*index].name)) {
      result_.SetError(converted.Error());
      return;
    }
  }
}

void ArgumentBinder::BindBody(const KavRequest& request) {
  if (request.body == nullptr) return;
  std::optional<size_t> body_parameter;
  for (size_t i = 0; i < endpoint_.locations.size(); ++i) {
    if (endpoint_.locations[i] == ParameterLocation::kBody) {
      body_parameter = i;
      break;
    }
  }
  if (!body_parameter || *body_parameter >= arguments_.size()) return;

  std::string_view content_type = request.content_type != nullptr ? request.content_type : "";
  const char* body = reinterpret_cast<const char*>(request.body);
  BindingResult decoded;
  if (StartsWithNoCase(content_type, "application/x-msgpack")) {
    uint32_t consumed = 0;
    decoded = ReadMessagePack(request.body, request.body_length, consumed);
    if (decoded.Ok() && consumed < request.body_length) {
      result_.SetError("Extra MessgePack data found in body");
      return;
    }
  } else if (StartsWithNoCase(content_type, "application/json") ||
             StartsWithNoCase(content_type, "application/vnd.api+json")) {
    decoded = DeserializeJson(TextUpToNul(body, request.body_length));
  } else if (StartsWithNoCase(content_type, "application/x-yaml")) {
    decoded = ReadYaml(TextUpToNul(body, request.body_length));
  } else {
    result_.SetError("Unsupported body content type");
    return;
  }
  if (!decoded.Ok()) {
    result_.SetError(decoded.Error());
    return;
  }
  ForgetIntegerList(*body_parameter);
  arguments_[*body_parameter] = std::move(static_cast<BindingProperty&>(decoded));
}

}  // namespace kav
