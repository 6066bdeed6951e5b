// Generic-value operations on their own, without any codec:
//   building a tree through the API the readers use (Append, Member, setters)
//   and dropping it; copying a tree into a fresh root; walking it with a
//   visitor that does nothing (against RapidJSON's Document::Accept into a
//   handler that does nothing, the floor for a tree walk); clearing a child
//   subtree in place; small roots that need a store.
// Data: the 1000-queue list of bench_data.h.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <string>

#include "bench_data.h"
#include "binding/binding_property.h"

namespace kav::bench {
namespace {

class NullVisitor final : public BindingPropertyVisitor {
 public:
  size_t nodes = 0;
  void VisitNull() override { ++nodes; }
  void VisitBool(bool) override { ++nodes; }
  void VisitSigned(int64_t) override { ++nodes; }
  void VisitUnsigned(uint64_t) override { ++nodes; }
  void VisitFloat(double) override { ++nodes; }
  void VisitString(std::string_view) override { ++nodes; }
  void VisitBlob(std::span<const uint8_t>) override { ++nodes; }
  void VisitEnum(const BindingEnum&) override { ++nodes; }
  void BeginCollection(size_t) override { ++nodes; }
  void BeginElement(size_t) override {}
  void EndElement(size_t) override {}
  void EndCollection() override {}
  void BeginStructure(size_t) override { ++nodes; }
  void VisitKey(std::string_view) override {}
  void EndMember(std::string_view) override {}
  void EndStructure() override {}
};

void BuildAndDrop(benchmark::State& state) {
  for (auto _ : state) {
    BindingProperty tree = QueueList(static_cast<size_t>(state.range(0)));
    benchmark::DoNotOptimize(tree.Size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void CopyTree(benchmark::State& state) {
  const BindingProperty source = QueueList(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    BindingProperty copy(source);
    benchmark::DoNotOptimize(copy.Size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void WalkTree(benchmark::State& state) {
  const BindingProperty source = QueueList(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    NullVisitor visitor;
    source.Visit(visitor);
    benchmark::DoNotOptimize(visitor.nodes);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// Counts what NullVisitor counts, so both walks do the same work.
struct NullHandler {
  size_t nodes = 0;
  bool Null() { return ++nodes; }
  bool Bool(bool) { return ++nodes; }
  bool Int(int) { return ++nodes; }
  bool Uint(unsigned) { return ++nodes; }
  bool Int64(int64_t) { return ++nodes; }
  bool Uint64(uint64_t) { return ++nodes; }
  bool Double(double) { return ++nodes; }
  bool RawNumber(const char*, rapidjson::SizeType, bool) { return ++nodes; }
  bool String(const char*, rapidjson::SizeType, bool) { return ++nodes; }
  bool StartObject() { return ++nodes; }
  bool Key(const char*, rapidjson::SizeType, bool) { return true; }
  bool EndObject(rapidjson::SizeType) { return true; }
  bool StartArray() { return ++nodes; }
  bool EndArray(rapidjson::SizeType) { return true; }
};

void WalkDocument(benchmark::State& state) {
  const std::string text = QueueListJson(static_cast<size_t>(state.range(0)));
  rapidjson::Document document;
  document.Parse(text.c_str());
  for (auto _ : state) {
    NullHandler handler;
    document.Accept(handler);
    benchmark::DoNotOptimize(handler.nodes);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void ClearChildren(benchmark::State& state) {
  const BindingProperty source = QueueList(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    BindingProperty holder;
    holder.Member("queues") = source;
    state.ResumeTiming();
    holder.Member("queues").Clear();
    benchmark::DoNotOptimize(holder.Size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void SmallRoots(benchmark::State& state) {
  for (auto _ : state) {
    BindingProperty value;
    value.Member("queueId").SetUnsigned(420);
    value.Member("eligible").SetBool(true);
    value.Member("restrictions").MakeCollection();
    benchmark::DoNotOptimize(value.Size());
  }
}

BENCHMARK(BuildAndDrop)->Arg(kQueueCount);
BENCHMARK(CopyTree)->Arg(kQueueCount);
BENCHMARK(WalkTree)->Arg(kQueueCount)->Arg(20);
BENCHMARK(WalkDocument)->Arg(kQueueCount)->Arg(20);
BENCHMARK(ClearChildren)->Arg(kQueueCount);
BENCHMARK(SmallRoots);

}  // namespace
}  // namespace kav::bench
