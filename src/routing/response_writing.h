// Response writing: how the outcome of a call (a CallResult) is written into
// the host's 62-byte response record, and how that record is released.
//
// Ownership: WriteResponse moves the result's host value and stream into the
// response and gives it owned copies of the error text, the text and the
// name/value pairs, all allocated through PluginAllocate/PluginDuplicate; the
// host gives everything back by calling the response's release function
// (ReleaseResponse), and closes a stream through its close function, which
// destroys the BodyStream. An empty text is the shared empty text, never
// freed.
//
// Thread-safety: the functions touch only the records they are given.
#ifndef KAV_ROUTING_RESPONSE_WRITING_H_
#define KAV_ROUTING_RESPONSE_WRITING_H_

#include "kav/plugin_host.h"
#include "routing/function_implementation.h"

namespace kav {

class TypeRegistry;

// Writes `result` into `response`, which must own nothing yet: a failed
// result as its error text; otherwise its value as a host value (enumerators
// of a BindingProperty value named by `registry` when given, numbers
// otherwise), status 400 when that value cannot be converted. Then the flag
// byte, the format code (1 to 3, else 0), the status, the text, the pairs and
// the stream, and ReleaseResponse as the release function. Throws
// std::bad_alloc when memory runs out; what was written stays releasable.
void WriteResponse(KavResponse& response, CallResult& result, const TypeRegistry* registry);

// Releases whatever `response` owns and writes status 500 with `message` (a
// static text when no copy can be made) and an empty text. Never throws.
void WriteInternalError(KavResponse& response, const char* message) noexcept;

// The response's release function: frees what the response owns and
// zero-fills the record.
void KAV_CALL ReleaseResponse(KavResponse* response);

}  // namespace kav

#endif  // KAV_ROUTING_RESPONSE_WRITING_H_
