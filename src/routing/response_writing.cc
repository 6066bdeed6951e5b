#include "routing/response_writing.h"

#include <cstdint>
#include <cstring>
#include <string_view>

#include "binding/host_value.h"
#include "platform/allocation.h"

namespace kav {
namespace {

const char kSharedEmptyText[] = "";
const char kInternalError[] = "Internal server error";

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

}  // namespace

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

void WriteInternalError(KavResponse& response, const char* message) noexcept {
  ReleaseResponse(&response);
  response.release = ReleaseResponse;
  response.status = 500;
  response.text = kSharedEmptyText;
  if (message == nullptr || *message == '\0') message = kInternalError;
  try {
    response.error = PluginDuplicate(message);
    response.error_owned = 1;
  } catch (...) {
    response.error = kInternalError;
  }
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
