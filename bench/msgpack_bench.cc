// MessagePack reader on the shared bench data (a 1000-queue list and a
// 500-entry eligibility answer), beside
//   * msgpack-c's msgpack::unpack of the same bytes into its object tree, and
//   * our JSON reader of the same content as JSON text.
// The bytes are encoded here from the value trees of bench_data.h; unsigned
// numbers use the uint formats so that the decoded tree equals the JSON one
// (checked before timing).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "bench_data.h"
#include "serialization/json.h"
#include "serialization/msgpack.h"

#if defined(KAV_HAVE_MSGPACK)
#include <msgpack.hpp>
#endif

namespace kav::bench {
namespace {

void PutBigEndian(std::vector<uint8_t>& out, uint64_t value, int width) {
  for (int shift = (width - 1) * 8; shift >= 0; shift -= 8) {
    out.push_back(static_cast<uint8_t>(value >> shift));
  }
}

// A header of `family` (0xcc-style first byte of the 1-byte form) with the
// smallest width that holds `count`, or the fix form when `fix_base` allows.
void PutHeader(std::vector<uint8_t>& out, uint64_t count, uint8_t fix_base, uint64_t fix_limit,
               uint8_t first_16, uint8_t first_32) {
  if (count < fix_limit) {
    out.push_back(static_cast<uint8_t>(fix_base + count));
  } else if (count <= 0xFFFF) {
    out.push_back(first_16);
    PutBigEndian(out, count, 2);
  } else {
    out.push_back(first_32);
    PutBigEndian(out, count, 4);
  }
}

void PutString(std::vector<uint8_t>& out, std::string_view text) {
  if (text.size() < 32) {
    out.push_back(static_cast<uint8_t>(0xa0 + text.size()));
  } else if (text.size() <= 0xFF) {
    out.push_back(0xd9);
    out.push_back(static_cast<uint8_t>(text.size()));
  } else {
    PutHeader(out, text.size(), 0, 0, 0xda, 0xdb);
  }
  out.insert(out.end(), text.begin(), text.end());
}

void Encode(const BindingProperty& value, std::vector<uint8_t>& out) {
  switch (value.Kind()) {
    case BindingKind::kBool:
      out.push_back(value.AsBool() ? 0xc3 : 0xc2);
      return;
    case BindingKind::kSigned:
      out.push_back(0xd3);
      PutBigEndian(out, static_cast<uint64_t>(value.AsSigned()), 8);
      return;
    case BindingKind::kUnsigned: {
      uint64_t number = value.AsUnsigned();
      int width = number <= 0xFF ? 1 : number <= 0xFFFF ? 2 : number <= 0xFFFFFFFF ? 4 : 8;
      out.push_back(width == 1 ? 0xcc : width == 2 ? 0xcd : width == 4 ? 0xce : 0xcf);
      PutBigEndian(out, number, width);
      return;
    }
    case BindingKind::kFloat: {
      uint64_t bits;
      double number = value.AsFloat();
      std::memcpy(&bits, &number, sizeof bits);
      out.push_back(0xcb);
      PutBigEndian(out, bits, 8);
      return;
    }
    case BindingKind::kString:
      PutString(out, value.AsString());
      return;
    case BindingKind::kCollection:
      PutHeader(out, value.Size(), 0x90, 16, 0xdc, 0xdd);
      for (size_t i = 0; i < value.Size(); ++i) Encode(value.At(i), out);
      return;
    case BindingKind::kStructure:
      PutHeader(out, value.Size(), 0x80, 16, 0xde, 0xdf);
      for (auto [name, member] : value.Members()) {
        PutString(out, name);
        Encode(member, out);
      }
      return;
    default:
      out.push_back(0xc0);
      return;
  }
}

using TreeMaker = BindingProperty (*)(size_t);
using TextMaker = std::string (*)(size_t);

std::vector<uint8_t> EncodedBytes(TreeMaker make_tree, size_t count) {
  std::vector<uint8_t> bytes;
  Encode(make_tree(count), bytes);
  return bytes;
}

// One read of each side, out of line so that a profiler counts exactly one
// call per iteration (callgrind --toggle-collect).
[[gnu::noinline]] bool ReadOnce(const std::vector<uint8_t>& bytes) {
  uint32_t consumed = 0;
  return ReadMessagePack(bytes.data(), static_cast<uint32_t>(bytes.size()), consumed).Ok();
}

void ReadMessagePackBench(benchmark::State& state, TreeMaker make_tree, TextMaker make_json) {
  const std::vector<uint8_t> bytes = EncodedBytes(make_tree, state.range(0));
  uint32_t consumed = 0;
  BindingResult check =
      ReadMessagePack(bytes.data(), static_cast<uint32_t>(bytes.size()), consumed);
  if (!check.Ok() || consumed != bytes.size() ||
      SerializeJson(check) != SerializeJson(DeserializeJson(make_json(state.range(0))))) {
    state.SkipWithError("MessagePack bytes do not decode to the JSON content");
    return;
  }
  for (auto _ : state) benchmark::DoNotOptimize(ReadOnce(bytes));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}

void ReadSameContentAsJson(benchmark::State& state, TextMaker make_json) {
  const std::string text = make_json(state.range(0));
  for (auto _ : state) {
    BindingResult value = DeserializeJson(text);
    benchmark::DoNotOptimize(value.Ok());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

BENCHMARK_CAPTURE(ReadMessagePackBench, queues, QueueList, QueueListJson)->Arg(kQueueCount);
BENCHMARK_CAPTURE(ReadSameContentAsJson, queues, QueueListJson)->Arg(kQueueCount);
BENCHMARK_CAPTURE(ReadMessagePackBench, eligibility, EligibilityAnswer, EligibilityAnswerJson)
    ->Arg(kEligibilityCount);
BENCHMARK_CAPTURE(ReadSameContentAsJson, eligibility, EligibilityAnswerJson)
    ->Arg(kEligibilityCount);

#if defined(KAV_HAVE_MSGPACK)
[[gnu::noinline]] int UnpackOnce(const std::vector<uint8_t>& bytes) {
  msgpack::object_handle handle =
      msgpack::unpack(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return handle.get().type;
}

void UnpackWithMsgpackC(benchmark::State& state, TreeMaker make_tree) {
  const std::vector<uint8_t> bytes = EncodedBytes(make_tree, state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(UnpackOnce(bytes));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}

BENCHMARK_CAPTURE(UnpackWithMsgpackC, queues, QueueList)->Arg(kQueueCount);
BENCHMARK_CAPTURE(UnpackWithMsgpackC, eligibility, EligibilityAnswer)->Arg(kEligibilityCount);
#endif

}  // namespace
}  // namespace kav::bench
