// JSON codec against RapidJSON's own document API on the same bytes:
//   reading: DeserializeJson vs Document::Parse (default flags);
//   writing: SerializeJson (compact) of the value read from the text vs Writer
//            over a StringBuffer from the Document parsed from the same text.
// Data: bench_data.h (a 1000-queue list and a 500-entry eligibility answer).
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>

#include "bench_data.h"
#include "serialization/json.h"

namespace kav::bench {
namespace {

using TextMaker = std::string (*)(size_t);

// One read or write of each side, out of line so that a profiler counts
// exactly one call per iteration (callgrind --toggle-collect).
[[gnu::noinline]] bool CodecReadOnce(const std::string& text) {
  return DeserializeJson(text).Ok();
}
[[gnu::noinline]] bool DocumentReadOnce(const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.c_str());
  return document.HasParseError();
}
[[gnu::noinline]] size_t CodecWriteOnce(const BindingProperty& value) {
  return SerializeJson(value).size();
}
[[gnu::noinline]] size_t DocumentWriteOnce(const rapidjson::Document& document) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  document.Accept(writer);
  return buffer.GetSize();
}

void ReadWithCodec(benchmark::State& state, TextMaker make_text) {
  const std::string text = make_text(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(CodecReadOnce(text));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void ReadWithDocument(benchmark::State& state, TextMaker make_text) {
  const std::string text = make_text(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(DocumentReadOnce(text));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void WriteWithCodec(benchmark::State& state, TextMaker make_text) {
  const BindingResult value = DeserializeJson(make_text(state.range(0)));
  if (!value.Ok()) state.SkipWithError("bench data does not parse");
  size_t bytes = 0;
  for (auto _ : state) {
    bytes = CodecWriteOnce(value);
    benchmark::DoNotOptimize(bytes);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

void WriteWithDocument(benchmark::State& state, TextMaker make_text) {
  const std::string source = make_text(state.range(0));
  rapidjson::Document document;
  document.Parse(source.c_str());
  size_t bytes = 0;
  for (auto _ : state) {
    bytes = DocumentWriteOnce(document);
    benchmark::DoNotOptimize(bytes);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

BENCHMARK_CAPTURE(ReadWithCodec, queues, QueueListJson)->Arg(kQueueCount);
BENCHMARK_CAPTURE(ReadWithDocument, queues, QueueListJson)->Arg(kQueueCount);
BENCHMARK_CAPTURE(ReadWithCodec, eligibility, EligibilityAnswerJson)->Arg(kEligibilityCount);
BENCHMARK_CAPTURE(ReadWithDocument, eligibility, EligibilityAnswerJson)->Arg(kEligibilityCount);
BENCHMARK_CAPTURE(WriteWithCodec, queues, QueueListJson)->Arg(kQueueCount);
BENCHMARK_CAPTURE(WriteWithDocument, queues, QueueListJson)->Arg(kQueueCount);
BENCHMARK_CAPTURE(WriteWithCodec, eligibility, EligibilityAnswerJson)->Arg(kEligibilityCount);
BENCHMARK_CAPTURE(WriteWithDocument, eligibility, EligibilityAnswerJson)->Arg(kEligibilityCount);

}  // namespace
}  // namespace kav::bench
