// The untyped half of AppModule::Request<T>: the request record, the host
// call, the error text, the body (in a host value or streamed) and the
// response's release.
#include "plugin/request.h"

#include <algorithm>
#include <array>

#include "binding/host_value.h"
#include "serialization/json.h"

namespace kav {
namespace {

constexpr char kParameterConversionFormat[] =
    "Request not sent: Error converting parameters for {method} {url}: {error}";
constexpr char kErrorResponseFormat[] = "Error response for {method} {url}: {error}";
constexpr char kStreamReadFormat[] = "Error reading streamed response for {method} {url}: {error}";
constexpr char kResponseConversionFormat[] =
    "Error converting response for {method} {url}: {error}";
constexpr uint32_t kBadRequestStatus = 400;

// The expected stream length is only a reservation hint from the host; a
// larger hint is not trusted with an up-front allocation (the text grows
// as the bytes arrive).
constexpr uint32_t kMaximumStreamReservation = 1u << 20;

Failure RequestFailure(uint32_t code, const char* format, uint32_t method, std::string_view url,
                       std::string_view error) {
  return Failure::Make(code, format, {HttpMethodName(method), url, error});
}

// The method code put into the request record: codes 1 to 8 as they are,
// any other as 0.
uint32_t WireMethod(uint32_t method) {
  return method >= KAV_METHOD_DELETE && method <= KAV_METHOD_CUSTOM ? method : 0;
}

// Owns the host values of the argument entries of one request.
class ArgumentEntries {
 public:
  explicit ArgumentEntries(size_t count) : entries_(count) {}
  ArgumentEntries(const ArgumentEntries&) = delete;
  ArgumentEntries& operator=(const ArgumentEntries&) = delete;
  ~ArgumentEntries() {
    for (KavArgumentEntry& entry : entries_) {
      KavHostValue value = entry.value;
      ReleaseHostValue(value);
      entry.value = value;
    }
  }

  // Builds entry `index` as a positional argument; false when memory ran out.
  bool Set(size_t index, const BindingProperty& argument, const TypeRegistry& registry) {
    KavHostValue value{};
    const bool built = ToHostValue(value, argument, &registry);
    entries_[index].name = nullptr;
    entries_[index].value = value;
    return built;
  }

  const KavArgumentEntry* data() const { return entries_.empty() ? nullptr : entries_.data(); }
  uint32_t size() const { return static_cast<uint32_t>(entries_.size()); }

 private:
  std::vector<KavArgumentEntry> entries_;
};

// Calls the response's release function, if any, when the request is done
// with the response, however it ends.
class ResponseRelease {
 public:
  explicit ResponseRelease(KavResponse& response) : response_(response) {}
  ResponseRelease(const ResponseRelease&) = delete;
  ResponseRelease& operator=(const ResponseRelease&) = delete;
  ~ResponseRelease() {
    KavResponseReleaseFn release = response_.release;
    if (release != nullptr) release(&response_);
  }

 private:
  KavResponse& response_;
};

}  // namespace

namespace request_detail {

Failure ParameterConversionFailure(uint32_t method, std::string_view url, std::string_view error) {
  return RequestFailure(kBadRequestStatus, kParameterConversionFormat, method, url, error);
}

Failure ResponseConversionFailure(uint32_t method, std::string_view url, std::string_view error) {
  return RequestFailure(0, kResponseConversionFormat, method, url, error);
}

}  // namespace request_detail

MaybeType<Failure, BindingProperty> AppModule::SendRequest(
    uint32_t method, std::string_view url, std::span<const BindingProperty> arguments,
    bool read_body) {
  const std::string url_text(url);
  ArgumentEntries entries(arguments.size());
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (!entries.Set(i, arguments[i], registry())) {
      return request_detail::ParameterConversionFailure(method, url,
                                                        "Out of memory for a host value");
    }
  }
  KavRequest request{};
  request.method = WireMethod(method);
  request.url = url_text.c_str();
  request.arguments = entries.data();
  request.argument_count = entries.size();
  request.context = plugin_handle_;

  KavResponse response{};
  ResponseRelease release(response);
  HostRequest(&response, &request);
  return ReadResponse(method, url, response, read_body);
}

MaybeType<Failure, BindingProperty> AppModule::ReadResponse(uint32_t method, std::string_view url,
                                                            const KavResponse& response,
                                                            bool read_body) {
  if (const char* error = response.error; error != nullptr) {
    return RequestFailure(response.status, kErrorResponseFormat, method, url, error);
  }
  if (!read_body) return BindingProperty();
  if (response.stream_read == nullptr) {
    const KavHostValue record = response.body;
    BindingResult status;
    BindingProperty body;
    if (!FromHostValue(status, body, record, "<result>")) {
      return RequestFailure(0, kResponseConversionFormat, method, url, status.Error());
    }
    return body;
  }
  BindingResult streamed = ReadResponseStream(response);
  if (!streamed.Ok()) {
    return RequestFailure(0, kStreamReadFormat, method, url, streamed.Error());
  }
  return BindingProperty(std::move(static_cast<BindingProperty&>(streamed)));
}

BindingResult AppModule::ReadResponseStream(const KavResponse& response) {
  const KavStreamReadFn read = response.stream_read;
  const KavStreamCloseFn close = response.stream_close;
  void* const handle = response.stream_handle;
  const uint32_t expected_length = response.stream_length;  // packed: read by value

  std::string text;
  text.reserve(std::min(expected_length, kMaximumStreamReservation));
  std::array<uint8_t, kStreamReadSize> buffer;
  uint8_t more = 1;
  bool read_failed = false;
  do {
    uint32_t size = kStreamReadSize;
    if (read(handle, buffer.data(), &size, &more) == 0) {
      read_failed = true;
      break;
    }
    size = std::min(size, kStreamReadSize);
    text.append(reinterpret_cast<const char*>(buffer.data()), size);
    if (size < kStreamReadSize && more != 0) Yield();
  } while (more != 0);

  BindingResult body;
  if (read_failed) {
    body.SetError("Stream read error");
  } else {
    body = DeserializeJson(text);
  }
  if (close != nullptr) close(handle);
  return body;
}

}  // namespace kav
