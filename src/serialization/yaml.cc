#include "serialization/yaml.h"

#include <yaml.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "binding/text_conversion.h"
#include "diagnostics/format.h"

namespace kav {
namespace {

constexpr std::string_view kStrTag = "tag:yaml.org,2002:str";
constexpr std::string_view kIntTag = "tag:yaml.org,2002:int";
constexpr std::string_view kFloatTag = "tag:yaml.org,2002:float";
constexpr std::string_view kBoolTag = "tag:yaml.org,2002:bool";

constexpr std::string_view kMultiDocument = "Multi-document YAML is not supported.";
constexpr std::string_view kInvalidKey =
    "Invalid mapping key. Only string scalar keys are allowed. At line: %1 col: %2";
constexpr std::string_view kDuplicateAnchor =
    "Duplicate occurrence of anchor \"%1\". At line: %2 col: %3";
constexpr std::string_view kSequenceAsKey = "Unexpected start of sequence. At line: %1 col: %2";
constexpr std::string_view kMappingAsKey = "Unexpected start of mapping. At line: %1 col: %2";
constexpr std::string_view kCyclicAlias =
    "Cannot deserialize cyclic aliases. Alias \"%1\". At line: %2 col: %3";
constexpr std::string_view kUndefinedAlias =
    "Undefined alias encountered: \"%1\". At line: %2 col: %3";
constexpr std::string_view kParserError = "YAML parser error: %1. At line: %2 col: %3";
constexpr std::string_view kUnsupportedTag = "Unsupported YAML tag '%1'.";
constexpr std::string_view kTooDeep = "Nesting exceeds %1 levels. At line: %2 col: %3";
constexpr std::string_view kAliasBudget =
    "Alias expansion exceeds %1 nodes. Alias \"%2\". At line: %3 col: %4";
constexpr std::string_view kTooManyElements = "Sequence exceeds %1 elements. At line: %2 col: %3";
constexpr std::string_view kOutOfMemory =
    "YAML document does not fit in memory. At line: %1 col: %2";

// The value layer's bound on the element count of a collection.
constexpr size_t kMaxElements = 0x0FFFFFFF;

bool IsNullWord(std::string_view text) {
  return text.empty() || text == "~" || text == "null" || text == "Null" || text == "NULL";
}

bool IsTrueWord(std::string_view text) {
  return text == "true" || text == "True" || text == "TRUE" || text == "y" || text == "Y" ||
         text == "yes" || text == "Yes" || text == "YES" || text == "on" || text == "On" ||
         text == "ON";
}

bool IsFalseWord(std::string_view text) {
  return text == "false" || text == "False" || text == "FALSE" || text == "n" || text == "N" ||
         text == "no" || text == "No" || text == "NO" || text == "off" || text == "Off" ||
         text == "OFF";
}

// What a plain scalar can be, told by its first byte: only a number starts
// with a digit, a sign, a point or white space, and only the words of null
// and of the booleans start with one of "~nNtTyYoOfF". Anything else is text.
enum class PlainStart : uint8_t { kText, kNumber, kWord };

constexpr std::array<PlainStart, 256> kPlainStart = [] {
  std::array<PlainStart, 256> table{};
  for (char c : std::string_view("0123456789-+. \t\n\v\f\r")) {
    table[static_cast<uint8_t>(c)] = PlainStart::kNumber;
  }
  for (char c : std::string_view("~nNtTyYoOfF")) table[static_cast<uint8_t>(c)] = PlainStart::kWord;
  return table;
}();

// True when strtod reads all of `text` (NUL-terminated after `text.size()`
// bytes) to a finite number. REQUIRES: `text` starts as a number may.
bool ReadsAsFiniteNumber(std::string_view text, double& out) {
  char* end = nullptr;
  double value = std::strtod(text.data(), &end);
  if (end != text.data() + text.size() || !std::isfinite(value)) return false;
  out = value;
  return true;
}

// The common case of a number in a plain scalar, without strtod: an
// optional "-" and 1 to 15 decimal digits. Such a number is exact in a
// double, so the result is what strtod and the integer conversion give.
bool StoreShortInteger(BindingProperty& target, std::string_view text) {
  bool negative = !text.empty() && text.front() == '-';
  std::string_view digits = text.substr(negative ? 1 : 0);
  if (digits.empty() || digits.size() > 15) return false;
  uint64_t magnitude = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') return false;
    magnitude = magnitude * 10 + static_cast<uint64_t>(c - '0');
  }
  if (negative && magnitude != 0) {
    target.SetSigned(-static_cast<int64_t>(magnitude));
  } else {
    target.SetUnsigned(magnitude);  // "-0" reads as 0, which is not negative
  }
  return true;
}

// Stores a finite number read from a plain scalar: float when it has a
// fractional part (or does not fit the 64-bit integer ranges), else signed
// when negative, else unsigned.
void StoreNumber(BindingProperty& target, double value) {
  constexpr double kTwoTo63 = 9223372036854775808.0;
  constexpr double kTwoTo64 = 18446744073709551616.0;
  if (value != std::trunc(value)) {
    target.SetFloat(value);
  } else if (value < 0) {
    if (value >= -kTwoTo63) {
      target.SetSigned(static_cast<int64_t>(value));
    } else {
      target.SetFloat(value);
    }
  } else if (value < kTwoTo63) {
    target.SetUnsigned(static_cast<uint64_t>(value));
  } else if (value < kTwoTo64) {
    target.SetUnsigned(static_cast<uint64_t>(value - kTwoTo63) + (uint64_t{1} << 63));
  } else {
    target.SetFloat(value);
  }
}

std::string_view ToView(const yaml_char_t* text) {
  return text ? std::string_view(reinterpret_cast<const char*>(text)) : std::string_view();
}

// One step from a node to a child: an element index or a member name.
struct PathStep {
  bool is_index = false;
  size_t index = 0;
  std::string name;
};

// Paths of anchored nodes are kept as a tree of steps, each pointing at its
// parent step, so that anchors deep in a document share their common prefix:
// entering an anchor costs one step per frame not yet recorded, not one per
// level. kRootPath is the empty path of the root.
constexpr size_t kRootPath = static_cast<size_t>(-1);
constexpr size_t kNoPath = static_cast<size_t>(-2);

struct PathNode {
  size_t parent;  // kRootPath for a child of the root
  PathStep step;
};

// What an anchor stands for: the text of an anchored mapping key, or the
// path from the root to the anchored node. Paths stay valid while
// collections grow, unlike addresses. `open` marks an anchored sequence or
// mapping that is still being filled (an alias to it would be cyclic).
struct Anchor {
  bool is_key_text = false;
  bool open = false;
  std::string key_text;
  size_t path = kRootPath;
};

// Where a node goes: the value to fill and the step to it from its parent
// (none for the root).
struct Slot {
  BindingProperty* target;
  bool is_index;  // else a member, named in the tree, or the root
  size_t index;
};

// An open sequence or mapping, or for the time of one event the node whose
// path is recorded or whose alias is copied. Scalars need no frame.
struct Frame {
  Slot slot;
  size_t path = kNoPath;             // this frame's path node once recorded
  Anchor* open_anchor = nullptr;     // the anchor of this sequence or mapping
  bool mapping = false;              // an open mapping, filled through the builder
  size_t count = 0;                  // an open sequence's elements so far
  BindingProperty* value = nullptr;  // an open mapping's member awaiting its value

  // REQUIRES: not the root frame.
  PathStep Step() const {
    return {
        slot.is_index, slot.index,
        slot.is_index ? std::string() : std::string(BindingProperty::NameOfMember(*slot.target))};
  }
  bool SameStep(const PathStep& step) const {
    return slot.is_index == step.is_index &&
           (slot.is_index ? slot.index == step.index
                          : BindingProperty::NameOfMember(*slot.target) == step.name);
  }
};

// What copying a node through an alias costs, and how deep it nests.
struct CopyMeasure {
  size_t cost = 0;   // one per node, one more per 64 bytes of string text
  size_t depth = 0;  // sequences and mappings nested in the node, itself included
};

// Measures `node`'s subtree; stops as soon as the cost exceeds `limit`.
// Iterative: the subtree may be deep.
CopyMeasure MeasureCopy(const BindingProperty& node, size_t limit) {
  CopyMeasure measure;
  struct Pending {
    const BindingProperty* node;
    size_t depth;  // containers above it within the subtree
  };
  std::vector<Pending> pending{{&node, 0}};
  while (!pending.empty() && measure.cost <= limit) {
    const Pending current = pending.back();
    pending.pop_back();
    ++measure.cost;
    const BindingKind kind = current.node->Kind();
    if (kind == BindingKind::kString) {
      measure.cost += current.node->Size() / 64;
    } else if (kind == BindingKind::kCollection || kind == BindingKind::kStructure) {
      measure.depth = std::max(measure.depth, current.depth + 1);
      if (kind == BindingKind::kCollection) {
        for (size_t i = 0, n = current.node->Size(); i < n; ++i) {
          pending.push_back({&current.node->At(i), current.depth + 1});
        }
      } else {
        for (auto [name, member] : current.node->Members()) {
          pending.push_back({&member, current.depth + 1});
        }
      }
    }
  }
  return measure;
}

// Owns the parser and the current event: both are given back to libyaml on
// every path out of a read.
struct ParserResources {
  yaml_parser_t parser;
  yaml_event_t event;
  bool initialized = false;

  ParserResources() {
    std::memset(&parser, 0, sizeof parser);
    std::memset(&event, 0, sizeof event);  // deleting a zeroed event is harmless
  }
  ParserResources(const ParserResources&) = delete;
  ParserResources& operator=(const ParserResources&) = delete;
  ~ParserResources() {
    yaml_event_delete(&event);
    if (initialized) yaml_parser_delete(&parser);
  }
};

class YamlReader {
 public:
  BindingResult Read(std::string_view text) {
    ParserResources resources;
    yaml_parser_t& parser = resources.parser;
    yaml_event_t& event = resources.event;
    if (!yaml_parser_initialize(&parser)) {
      result_.SetError(FormatMessage(kParserError, {"cannot initialize the parser", 0, 0}));
      return std::move(result_);
    }
    resources.initialized = true;
    yaml_parser_set_encoding(&parser, YAML_UTF8_ENCODING);
    static const unsigned char kNoText[1] = {0};
    const unsigned char* input =
        text.data() ? reinterpret_cast<const unsigned char*>(text.data()) : kNoText;
    yaml_parser_set_input_string(&parser, input, text.size());

    // Growing the value may throw (out of memory); that ends the read with
    // an error, never thrown on.
    structures_.emplace();
    depth_ = 0;
    try {
      bool parsed = yaml_parser_parse(&parser, &event) != 0;
      while (parsed && event.type != YAML_STREAM_END_EVENT) {
        HandleEvent(event);
        if (!result_.Ok()) break;
        yaml_event_delete(&event);
        parsed = yaml_parser_parse(&parser, &event) != 0;
      }
    } catch (const std::bad_alloc&) {
      depth_ = 0;
      FailAt(kOutOfMemory, event.start_mark);
    }
    depth_ = 0;
    structures_.reset();  // before the value is failed or moved out

    if (result_.Ok() && parser.error != YAML_NO_ERROR) {
      std::string_view problem = parser.problem ? parser.problem : "unknown problem";
      result_.SetError(FormatMessage(
          kParserError, {problem, parser.problem_mark.line, parser.problem_mark.column}));
    }
    return std::move(result_);
  }

 private:
  void Fail(std::string message) {
    structures_.reset();  // closes the open mappings before the value is cleared
    result_.SetError(message);
  }

  // Fails with a message whose last two placeholders are the line and
  // column of `mark`, counted from 1.
  void FailAt(std::string_view format, const yaml_mark_t& mark) {
    Fail(FormatMessage(format, {mark.line + 1, mark.column + 1}));
  }
  void FailAt(std::string_view format, std::string_view name, const yaml_mark_t& mark) {
    Fail(FormatMessage(format, {name, mark.line + 1, mark.column + 1}));
  }

  Frame& Top() { return frames_[depth_ - 1]; }

  Frame& Push(const Slot& slot) {
    if (depth_ == frames_.size()) frames_.emplace_back();
    Frame& frame = frames_[depth_++];
    frame.slot = slot;
    frame.path = depth_ == 1 ? kRootPath : kNoPath;
    frame.open_anchor = nullptr;
    frame.mapping = false;
    frame.count = 0;
    frame.value = nullptr;
    return frame;
  }

  void Pop() {
    if (depth_ == 0) return;
    Frame& frame = frames_[--depth_];
    if (frame.open_anchor) frame.open_anchor->open = false;
    if (frame.mapping && structures_) structures_->Close();
  }

  void HandleEvent(const yaml_event_t& event) {
    Slot slot{};
    switch (event.type) {
      case YAML_DOCUMENT_START_EVENT:
        if (!result_.IsEmpty()) Fail(std::string(kMultiDocument));
        return;
      case YAML_SCALAR_EVENT:
        switch (NextPosition(event.start_mark, slot)) {
          case Position::kNode:
            ReadScalar(slot, event);
            return;
          case Position::kKey:
            ReadKey(event);
            return;
          case Position::kFailed:
            return;
        }
        return;
      case YAML_SEQUENCE_START_EVENT:
      case YAML_MAPPING_START_EVENT: {
        const bool is_mapping = event.type == YAML_MAPPING_START_EVENT;
        const Position position = NextPosition(event.start_mark, slot);
        if (position == Position::kFailed) return;
        // A structure target is an earlier mapping under a repeated key:
        // refused like a key position.
        if (position == Position::kKey || slot.target->Kind() == BindingKind::kStructure) {
          FailAt(is_mapping ? kMappingAsKey : kSequenceAsKey, event.start_mark);
          return;
        }
        OpenContainer(
            slot, is_mapping,
            ToView(is_mapping ? event.data.mapping_start.anchor : event.data.sequence_start.anchor),
            event.start_mark);
        return;
      }
      case YAML_ALIAS_EVENT: {
        const Position position = NextPosition(event.start_mark, slot);
        if (position != Position::kFailed) ReadAlias(slot, position == Position::kKey, event);
        return;
      }
      case YAML_SEQUENCE_END_EVENT:
      case YAML_MAPPING_END_EVENT:
        Pop();
        return;
      default:  // stream start, document end
        return;
    }
  }

  enum class Position { kNode, kKey, kFailed };

  // Where the next node goes: the member whose key came last, a new element
  // of the open sequence (kNode, `slot` set), a key of the open mapping
  // (kKey), or else the root (kNode). kFailed when the sequence is full.
  Position NextPosition(const yaml_mark_t& mark, Slot& slot) {
    if (depth_ == 0) {
      slot = {&result_, false, 0};
      return Position::kNode;
    }
    Frame& top = Top();
    if (top.value != nullptr) {
      slot = {std::exchange(top.value, nullptr), false, 0};
      return Position::kNode;
    }
    if (top.mapping) return Position::kKey;
    if (top.count >= kMaxElements) {
      FailAt(kTooManyElements, mark);
      return Position::kFailed;
    }
    slot = {&top.slot.target->Append(), true, top.count++};
    return Position::kNode;
  }

  void ReadKey(const yaml_event_t& event) {
    std::string_view tag = ToView(event.data.scalar.tag);
    if (!tag.empty() && tag != kStrTag) {
      FailAt(kInvalidKey, event.start_mark);
      return;
    }
    std::string_view text(reinterpret_cast<const char*>(event.data.scalar.value),
                          event.data.scalar.length);
    std::string_view anchor = ToView(event.data.scalar.anchor);
    if (!anchor.empty()) {
      Anchor* entry = EnterAnchor(anchor, event.start_mark);
      if (!entry) return;
      entry->is_key_text = true;
      entry->key_text = text;
    }
    StartMember(text);
  }

  // Inserts the member `name` into the mapping on top, the builder's
  // innermost level; the next node is its value.
  void StartMember(std::string_view name) { Top().value = &structures_->Member(name); }

  void ReadScalar(const Slot& slot, const yaml_event_t& event) {
    ConvertScalar(*slot.target, event);
    if (!result_.Ok()) return;
    std::string_view anchor = ToView(event.data.scalar.anchor);
    if (!anchor.empty()) {
      Anchor* entry = EnterAnchor(anchor, event.start_mark);
      if (!entry) return;
      Push(slot);
      entry->path = RecordCurrentPath();
      Pop();
    }
  }

  void ConvertScalar(BindingProperty& target, const yaml_event_t& event) {
    std::string_view text(reinterpret_cast<const char*>(event.data.scalar.value),
                          event.data.scalar.length);
    std::string_view tag = ToView(event.data.scalar.tag);
    if (!tag.empty()) {
      ConvertTagged(target, tag, text);
      return;
    }
    yaml_scalar_style_t style = event.data.scalar.style;
    if (style == YAML_SINGLE_QUOTED_SCALAR_STYLE || style == YAML_DOUBLE_QUOTED_SCALAR_STYLE) {
      target.SetString(text);
      return;
    }
    if (text.empty()) {
      target.Clear();
      return;
    }
    switch (kPlainStart[static_cast<uint8_t>(text.front())]) {
      case PlainStart::kNumber: {
        if (StoreShortInteger(target, text)) return;
        double number = 0;
        if (ReadsAsFiniteNumber(text, number)) {
          StoreNumber(target, number);
          return;
        }
        break;
      }
      case PlainStart::kWord:
        if (IsNullWord(text)) {
          target.Clear();
          return;
        }
        if (IsTrueWord(text)) {
          target.SetBool(true);
          return;
        }
        if (IsFalseWord(text)) {
          target.SetBool(false);
          return;
        }
        break;
      case PlainStart::kText:
        break;
    }
    target.SetString(text);
  }

  void ConvertTagged(BindingProperty& target, std::string_view tag, std::string_view text) {
    BindingResult status;
    if (tag == kStrTag) {
      target.SetString(text);
    } else if (tag == kIntTag) {
      if (!text.empty() && text.front() == '-') {
        int64_t value = 0;
        if (ParseSignedText(status, text, "yaml", "int64_t", std::numeric_limits<int64_t>::min(),
                            std::numeric_limits<int64_t>::max(), value)) {
          target.SetSigned(value);
        }
      } else {
        uint64_t value = 0;
        if (ParseUnsignedText(status, text, "yaml", "uint64_t",
                              std::numeric_limits<uint64_t>::max(), value)) {
          target.SetUnsigned(value);
        }
      }
    } else if (tag == kFloatTag) {
      double value = 0;
      if (ParseFloatText(status, text, "yaml", "double", -1.7976931348623157e308,
                         1.7976931348623157e308, value)) {
        target.SetFloat(value);
      }
    } else if (tag == kBoolTag) {
      if (IsTrueWord(text)) {
        target.SetBool(true);
      } else if (IsFalseWord(text)) {
        target.SetBool(false);
      } else {
        target.Clear();
      }
    } else {
      Fail(FormatMessage(kUnsupportedTag, {tag}));
      return;
    }
    if (!status.Ok()) Fail(std::string(status.Error()));
  }

  void OpenContainer(const Slot& slot, bool is_mapping, std::string_view anchor,
                     const yaml_mark_t& mark) {
    if (depth_ >= kYamlMaxDepth) {
      Fail(FormatMessage(kTooDeep, {kYamlMaxDepth, mark.line + 1, mark.column + 1}));
      return;
    }
    Frame& frame = Push(slot);
    BindingProperty& target = *slot.target;
    if (is_mapping) {
      target.MakeStructure();
      structures_->Open(target);
      frame.mapping = true;
    } else {
      target.MakeCollection();
      frame.count = target.Size();  // a repeated key appends to its sequence
    }
    if (!anchor.empty()) {
      Anchor* entry = EnterAnchor(anchor, mark);
      if (!entry) return;
      entry->path = RecordCurrentPath();
      entry->open = true;
      frame.open_anchor = entry;
    }
  }

  void ReadAlias(const Slot& slot, bool key_position, const yaml_event_t& event) {
    std::string_view name = ToView(event.data.alias.anchor);
    const yaml_mark_t& mark = event.start_mark;
    auto found = anchors_.find(std::string(name));
    if (found != anchors_.end() && found->second.open) {
      FailAt(kCyclicAlias, name, mark);
      return;
    }
    if (found == anchors_.end()) {
      FailAt(kUndefinedAlias, name, mark);
      return;
    }
    const Anchor& anchor = found->second;
    size_t remaining = kYamlMaxAliasNodes - alias_cost_;
    size_t cost = 0;
    size_t copied_depth = 0;
    const BindingProperty* source = nullptr;
    if (anchor.is_key_text) {
      cost = 1 + anchor.key_text.size() / 64;
    } else {
      CollectSteps(anchor.path);
      cost = steps_.size();
      source = &Resolve();
      const CopyMeasure measure = MeasureCopy(*source, remaining);
      cost += measure.cost;
      copied_depth = measure.depth;
    }
    if (cost > remaining) {
      Fail(FormatMessage(kAliasBudget, {kYamlMaxAliasNodes, name, mark.line + 1, mark.column + 1}));
      return;
    }
    // The copy lands below the containers open above the target: an alias
    // of an anchor that wraps an alias of the one before would otherwise
    // nest one level deeper each time.
    if (!key_position && depth_ + copied_depth > kYamlMaxDepth) {
      Fail(FormatMessage(kTooDeep, {kYamlMaxDepth, mark.line + 1, mark.column + 1}));
      return;
    }
    alias_cost_ += cost;

    if (key_position) {
      // Only an alias to text can stand for a key.
      if (source && source->Kind() != BindingKind::kString) {
        FailAt(kInvalidKey, mark);
        return;
      }
      StartMember(source ? source->AsString() : std::string_view(anchor.key_text));
      return;
    }
    BindingProperty& target = *slot.target;
    if (!source) {
      target.SetString(anchor.key_text);
      return;
    }
    Push(slot);  // the current path now ends at the target
    if (StepsOverlapCurrentPath()) {
      // The source contains the target or lies inside it (a repeated key
      // reuses a member): copy through a snapshot so that clearing the
      // target cannot pull the source away mid-copy.
      BindingProperty snapshot(*source);
      target = snapshot;
    } else {
      target = *source;
    }
    Pop();
  }

  // Enters `name` into the anchor table; fails (and returns null) when it is
  // already there.
  Anchor* EnterAnchor(std::string_view name, const yaml_mark_t& mark) {
    // An alias finds its anchor's node by path: from here on every member
    // must be in place as soon as it is inserted.
    structures_->FillInPlace();
    auto [it, inserted] = anchors_.try_emplace(std::string(name));
    if (!inserted) {
      FailAt(kDuplicateAnchor, name, mark);
      return nullptr;
    }
    return &it->second;
  }

  // The path node of the innermost frame, recording the steps of the frames
  // that have none yet (each frame is recorded at most once).
  size_t RecordCurrentPath() {
    size_t first = depth_ - 1;
    while (frames_[first].path == kNoPath) --first;  // the root frame is always recorded
    size_t parent = frames_[first].path;
    for (size_t i = first + 1; i < depth_; ++i) {
      const Frame& frame = frames_[i];
      path_nodes_.push_back(PathNode{parent, frame.Step()});
      parent = frames_[i].path = path_nodes_.size() - 1;
    }
    return parent;
  }

  // Fills steps_ with the steps of `path`, from the root down.
  void CollectSteps(size_t path) {
    steps_.clear();
    for (size_t node = path; node != kRootPath; node = path_nodes_[node].parent) {
      steps_.push_back(&path_nodes_[node].step);
    }
    std::reverse(steps_.begin(), steps_.end());
  }

  // True when one of steps_ and the current path is a prefix of the other.
  bool StepsOverlapCurrentPath() const {
    size_t common = std::min(steps_.size(), depth_ - 1);
    for (size_t i = 0; i < common; ++i) {
      if (!frames_[i + 1].SameStep(*steps_[i])) return false;
    }
    return true;
  }

  // The node at steps_ from the root; the shared empty value when the tree
  // no longer has that shape.
  const BindingProperty& Resolve() const {
    const BindingProperty* node = &result_;
    for (const PathStep* step : steps_) {
      node = step->is_index ? &node->At(step->index) : &node->Find(step->name);
    }
    return *node;
  }

  BindingResult result_;
  // Fills the open mappings (the frames marked `mapping`) while the read
  // lasts; gone before result_ is failed or handed out.
  std::optional<StructureBuilder> structures_;
  std::vector<Frame> frames_;  // frames_[0, depth_) are live
  size_t depth_ = 0;
  std::unordered_map<std::string, Anchor> anchors_;  // nodes never move
  std::vector<PathNode> path_nodes_;
  std::vector<const PathStep*> steps_;  // scratch of ReadAlias
  size_t alias_cost_ = 0;
};

}  // namespace

BindingResult ReadYaml(std::string_view text) {
  return YamlReader().Read(text);
}

}  // namespace kav
