// Call dispatch: everything between an incoming request record and the
// response record it fills. OnCall is the host's entry for every function of
// the resource table; HandleCall answers a request over a list of routes.
// A call picks its route (routing/route.h), binds its arguments
// (routing/argument_binding.h), prepares and invokes the function's
// implementation (routing/function_implementation.h) and writes the answer
// (routing/response_writing.h). Functions are registered through the
// Dispatcher (routing/function_registration.h, included here).
//
// Ownership: each call owns its arguments, prepared state and CallResult;
// the response owns what was written into it until ReleaseResponse.
//
// Thread-safety: calls may arrive on any host thread; each has its own
// call-local data, and the endpoints they reach are read-only.
#ifndef KAV_ROUTING_DISPATCH_H_
#define KAV_ROUTING_DISPATCH_H_

#include <span>

#include "binding/type_registry.h"
#include "kav/plugin_host.h"
#include "routing/function_registration.h"
#include "routing/response_writing.h"
#include "routing/route.h"

namespace kav {

// The host's entry for every call: the endpoint comes from the request's
// user data (an EndpointBinding). Never throws.
void KAV_CALL OnCall(KavResponse* response, const KavRequest* request);

// Answers `request` over `routes` into `response` (released first). With a
// `registry`, functions tagged "$builtin" are answered as built-ins ("Help":
// the Full help document); without one, enumerators reach the host as
// numbers. Never throws.
void HandleCall(const TypeRegistry* registry, KavResponse& response, const KavRequest& request,
                std::span<const Route> routes);

}  // namespace kav

#endif  // KAV_ROUTING_DISPATCH_H_
