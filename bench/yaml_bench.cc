// YAML reader on the shared bench data (a 1000-queue list and a 500-entry
// eligibility answer) written as block-style YAML, beside
//   * libyaml's bare event loop over the same text (parse and delete every
//     event, build nothing): the floor for any reader on top of libyaml, and
//   * yaml-cpp's YAML::Load of the same text into its node tree.
// The text is emitted here from the value trees of bench_data.h (strings
// double-quoted, numbers and booleans plain); before timing, the value read
// back is checked against the tree.
#include <benchmark/benchmark.h>
#include <yaml.h>

#include <cstdio>
#include <string>

#include "bench_data.h"
#include "serialization/json.h"
#include "serialization/yaml.h"

#if defined(KAV_HAVE_YAML_CPP)
#include <yaml-cpp/yaml.h>
#endif

namespace kav::bench {
namespace {

void EmitScalar(const BindingProperty& value, std::string& out) {
  char number[32];
  switch (value.Kind()) {
    case BindingKind::kBool:
      out += value.AsBool() ? "true" : "false";
      return;
    case BindingKind::kSigned:
      out += std::to_string(value.AsSigned());
      return;
    case BindingKind::kUnsigned:
      out += std::to_string(value.AsUnsigned());
      return;
    case BindingKind::kFloat:
      std::snprintf(number, sizeof number, "%.17g", value.AsFloat());
      out += number;
      return;
    case BindingKind::kString:
      out += '"';
      for (char c : value.AsString()) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
      }
      out += '"';
      return;
    case BindingKind::kCollection:
      out += "[]";
      return;
    case BindingKind::kStructure:
      out += "{}";
      return;
    default:
      out += '~';
      return;
  }
}

bool IsNonEmptyContainer(const BindingProperty& value) {
  return (value.Kind() == BindingKind::kCollection || value.Kind() == BindingKind::kStructure) &&
         value.Size() > 0;
}

void EmitChildren(const BindingProperty& value, size_t indent, std::string& out);

// Writes what follows "key:" or "-": the scalar on the same line, or the
// container's children on the lines below, indented by `indent`.
void EmitNode(const BindingProperty& value, size_t indent, std::string& out) {
  if (!IsNonEmptyContainer(value)) {
    out += ' ';
    EmitScalar(value, out);
    out += '\n';
    return;
  }
  out += '\n';
  EmitChildren(value, indent, out);
}

void EmitChildren(const BindingProperty& value, size_t indent, std::string& out) {
  if (value.Kind() == BindingKind::kCollection) {
    for (size_t i = 0; i < value.Size(); ++i) {
      out.append(indent, ' ');
      out += '-';
      EmitNode(value.At(i), indent + 2, out);
    }
    return;
  }
  for (auto [name, member] : value.Members()) {
    out.append(indent, ' ');
    out += name;
    out += ':';
    EmitNode(member, indent + 2, out);
  }
}

std::string YamlText(const BindingProperty& value) {
  std::string out;
  if (IsNonEmptyContainer(value)) {
    EmitChildren(value, 0, out);
  } else {
    EmitScalar(value, out);
  }
  return out;
}

using TreeMaker = BindingProperty (*)(size_t);

// One read of each side, out of line so that a profiler counts exactly one
// call per iteration (callgrind --toggle-collect).
[[gnu::noinline]] bool ReadOnce(const std::string& text) {
  return ReadYaml(text).Ok();
}

// Parses and deletes every event, building nothing; returns the event count.
[[gnu::noinline]] size_t EventLoopOnce(const std::string& text) {
  yaml_parser_t parser;
  yaml_parser_initialize(&parser);
  yaml_parser_set_encoding(&parser, YAML_UTF8_ENCODING);
  yaml_parser_set_input_string(&parser, reinterpret_cast<const unsigned char*>(text.data()),
                               text.size());
  yaml_event_t event;
  size_t events = 0;
  while (yaml_parser_parse(&parser, &event)) {
    bool done = event.type == YAML_STREAM_END_EVENT;
    yaml_event_delete(&event);
    ++events;
    if (done) break;
  }
  yaml_parser_delete(&parser);
  return events;
}

void ReadYamlBench(benchmark::State& state, TreeMaker make_tree) {
  const BindingProperty tree = make_tree(state.range(0));
  const std::string text = YamlText(tree);
  BindingResult check = ReadYaml(text);
  if (!check.Ok() || SerializeJson(check) != SerializeJson(tree)) {
    state.SkipWithError("YAML text does not read back to the bench data");
    return;
  }
  for (auto _ : state) benchmark::DoNotOptimize(ReadOnce(text));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void LibyamlEventLoop(benchmark::State& state, TreeMaker make_tree) {
  const std::string text = YamlText(make_tree(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(EventLoopOnce(text));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

BENCHMARK_CAPTURE(ReadYamlBench, queues, QueueList)->Arg(kQueueCount);
BENCHMARK_CAPTURE(LibyamlEventLoop, queues, QueueList)->Arg(kQueueCount);
BENCHMARK_CAPTURE(ReadYamlBench, eligibility, EligibilityAnswer)->Arg(kEligibilityCount);
BENCHMARK_CAPTURE(LibyamlEventLoop, eligibility, EligibilityAnswer)->Arg(kEligibilityCount);

#if defined(KAV_HAVE_YAML_CPP)
void LoadWithYamlCpp(benchmark::State& state, TreeMaker make_tree) {
  const std::string text = YamlText(make_tree(state.range(0)));
  for (auto _ : state) {
    YAML::Node node = YAML::Load(text);
    benchmark::DoNotOptimize(node.size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

BENCHMARK_CAPTURE(LoadWithYamlCpp, queues, QueueList)->Arg(kQueueCount);
BENCHMARK_CAPTURE(LoadWithYamlCpp, eligibility, EligibilityAnswer)->Arg(kEligibilityCount);
#endif

}  // namespace
}  // namespace kav::bench
