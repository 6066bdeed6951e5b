// Argument binding: how the values of one call's parameters are collected
// from the request's headers, the path parameters of the matched route, the
// query string, the host's argument entries and the body, and how argument
// texts are decoded by content type (MessagePack, JSON, YAML, blob or
// string). The values stay generic (BindingProperty); converting them to the
// handler's native types is the implementation's job (PrepareArguments).
//
// BindRequest binds a parameter of kind vector with integer elements whose
// text is a plain integer list (routing/integer_list.h) as that text alone:
// the implementation reads it straight into its native vector, or asks for
// the generic value (MaterializeArgument), which is the one binding would
// have made (eligibility_bench CachedSelfEligibility/50/50).
//
// Every step stops at the first failure: the failure's message goes into the
// binder's result and later sources are not examined.
//
// Thread-compatible: a binder belongs to one call.
#ifndef KAV_ROUTING_ARGUMENT_BINDING_H_
#define KAV_ROUTING_ARGUMENT_BINDING_H_

#include <array>
#include <cstddef>
#include <list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "binding/binding_property.h"
#include "binding/type_registry.h"
#include "kav/plugin_host.h"
#include "routing/argument_budget.h"
#include "routing/route.h"

namespace kav {

// (key, text) pairs in the order they are applied.
using TextPairs = std::vector<std::pair<std::string, std::string>>;
// Header values by name, as the request gives the names.
using HeaderMap = std::unordered_map<std::string, std::string>;

// The request's headers by name as given (not case-folded); a later header
// of the same name replaces the earlier value. Entries without a name are
// skipped; a null value reads as "".
HeaderMap ReadHeaders(const KavRequest& request);

// The header arguments of `function`: for each parameter whose location
// (from `endpoint`) is Any or Header, in parameter order, its lower-cased name
// looked up in `headers`; a hit gives (parameter name, value). So a header
// reaches a parameter only when it is named in lower case, whatever the
// parameter's own case.
TextPairs HeaderArguments(const HeaderMap& headers, const FunctionDescription& function,
                          const Endpoint& endpoint);

// The query of `url` (after its first "?") split at every "&" into
// percent-decoded (name, value) pairs, each piece split at its first "=" (a
// piece without one is a name with an empty value). A repeated name keeps its
// first position and takes the later value. No "?": no pairs.
TextPairs ParseQuery(std::string_view url);

// Collects the argument values of one call of `function` (reached through
// `endpoint`), one per parameter, all empty at first. Failures are written
// into `result` (the first one stays: a step does nothing once it failed).
// REQUIRES: `function`, `endpoint` and `result` outlive the binder, and the
// endpoint has one location per parameter of the function.
class ArgumentBinder {
 public:
  // A parameter's text that is a plain integer list of `count` elements.
  struct IntegerList {
    std::string_view text;
    size_t count = 0;
  };
  // Only the first parameters may be bound as integer lists.
  static constexpr size_t kMaxIntegerLists = 4;

  ArgumentBinder(const FunctionDescription& function, const Endpoint& endpoint,
                 BindingResult& result)
      : function_(function), endpoint_(endpoint), result_(result) {
    // Most functions have a few parameters: their values need no allocation
    // (tests/host/answer_memory_test.cc).
    const size_t count = function.parameters.size();
    if (count <= kInlineArguments) {
      arguments_ = std::span<BindingProperty>(inline_arguments_.data(), count);
    } else {
      more_arguments_.resize(count);
      arguments_ = more_arguments_;
    }
  }
  ArgumentBinder(const ArgumentBinder&) = delete;
  ArgumentBinder& operator=(const ArgumentBinder&) = delete;

  // The generic values; a parameter bound as an integer list is empty here
  // until MaterializeArgument.
  std::span<const BindingProperty> arguments() const { return arguments_; }
  // The integer list of parameter `index`, or null when it has a generic
  // value. Valid as long as the binder.
  const IntegerList* IntegerListOf(size_t index) const {
    return index < kMaxIntegerLists && integer_lists_[index].text.data() != nullptr
               ? &integer_lists_[index]
               : nullptr;
  }
  // Decodes the integer list of parameter `index`, if it has one, into its
  // generic value.
  void MaterializeArgument(size_t index);
  // Every argument as a generic value.
  std::span<const BindingProperty> MaterializedArguments();
  BindingResult& result() { return result_; }

  // Binds every source of one call in order: BindArguments with the header
  // arguments found in `headers` (the request's, from ReadHeaders), the path
  // parameters `path` and the query of the request's URL; then
  // BindHostArguments (positional entries counted after the path
  // parameters) and, while no step failed, BindBody.
  void BindRequest(const KavRequest& request, const HeaderMap& headers, const PathParameters& path);

  // Sets every non-optional bool parameter that is still empty to false,
  // then applies the header arguments, the path parameters and the query
  // arguments in that order, each pair with BindOne.
  void BindArguments(const TextPairs& headers, const PathParameters& path, const TextPairs& query);

  // Binds one text from a source of `location` (Header, Path or Query). The
  // key is the parameter's name, optionally followed by "." and an index
  // path (ApplyIndexPath). Fails for an unknown name, for a parameter that
  // may not come from `location`, and for an empty text (a flag) given to a
  // parameter that is not a bool, object, structure or vector.
  void BindOne(std::string_view key, std::string_view text, ParameterLocation location);

  // Walks `path` ("." separated; a segment starting with a digit is an
  // index read by strtoul in base 0, any other a member name) from `value`,
  // creating collections, structures, elements and members on the way, and
  // decodes `text` into the last target as an unstructured text for
  // `parameter`.
  void ApplyIndexPath(BindingProperty& value, size_t parameter, std::string_view path,
                      std::string_view text);

  // Decodes `text` into `target` by `content_type` (compared
  // case-insensitively as a prefix): MessagePack, JSON, YAML or a blob;
  // anything else is a string. With `structured` and an empty content type,
  // the text's first bytes choose MessagePack, JSON ("{" or "[") or YAML
  // ("---"). A reader's failure names the parameter and the function.
  void DecodeArgumentText(BindingProperty& target, size_t parameter, std::string_view text,
                          std::string_view content_type, bool structured);

  // Applies the request's argument entries in order: a named entry to the
  // parameter of that name, an unnamed entry at position i to parameter
  // i + `path_parameter_count`.
  void BindHostArguments(const KavRequest& request, size_t path_parameter_count);

  // Reads the request's body, by its content type, into the first parameter
  // located in the Body. Nothing happens without a body or such a parameter.
  void BindBody(const KavRequest& request);

 private:
  // Inline: every bound key asks it (dispatch_bench BM_V3CallThroughTable).
  std::optional<size_t> FindParameter(std::string_view name) const {
    for (size_t i = 0; i < function_.parameters.size(); ++i) {
      if (function_.parameters[i].name == name) return i;
    }
    return std::nullopt;
  }
  void FailUnknownArgument(std::string_view name);
  using TextView = std::pair<std::string_view, std::string_view>;
  // BindArguments over any range of (key, text) query pairs.
  template <class Query>
  void BindTexts(const TextPairs& headers, const PathParameters& path, const Query& query);
  // The query of `url` into query_pieces_, as ParseQuery splits and decodes
  // it; false when it has more than kInlineQueryPieces names.
  bool ReadQueryPieces(std::string_view url);
  // `text` percent-decoded: itself when there is nothing to decode.
  std::string_view DecodedQueryText(std::string_view text);
  // Binds `text` to parameter `index` as an integer list when it may be one.
  bool DeferIntegerList(size_t index, std::string_view text);
  void ForgetIntegerList(size_t index) {
    if (index < kMaxIntegerLists) integer_lists_[index] = {};
  }

  const FunctionDescription& function_;
  const Endpoint& endpoint_;
  BindingResult& result_;
  static constexpr size_t kInlineArguments = 4;
  std::array<BindingProperty, kInlineArguments> inline_arguments_;
  std::vector<BindingProperty> more_arguments_;  // beyond kInlineArguments
  std::span<BindingProperty> arguments_;         // one per parameter
  IndexPathBudget index_budget_;
  // BindRequest's texts, which integer lists point into.
  TextPairs header_arguments_;
  TextPairs query_;  // a query of more than kInlineQueryPieces names
  static constexpr size_t kInlineQueryPieces = 8;
  std::array<TextView, kInlineQueryPieces> query_pieces_{};
  size_t query_piece_count_ = 0;
  std::list<std::string> decoded_query_texts_;  // kept in place as they are added
  bool defer_integer_lists_ = false;            // while BindRequest binds texts
  std::array<IntegerList, kMaxIntegerLists> integer_lists_{};
};

}  // namespace kav

#endif  // KAV_ROUTING_ARGUMENT_BINDING_H_
