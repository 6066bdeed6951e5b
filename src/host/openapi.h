// An OpenAPI 3.1 document of a plugin's resources, made from what the plugin
// described at registration alone (ApiDescription: the resource table and the
// packed API description it carries):
//  * one operation per resource at its path template and method, with its
//    parameters where the table places them (query, path, header; a body
//    parameter becomes the request body, in JSON, YAML or MessagePack);
//  * the result as the answer's schema, and every described type under
//    components/schemas: structures as objects with typed properties,
//    enumerations as strings naming their enumerators, vectors as arrays,
//    maps as objects with additionalProperties;
//  * the events as webhooks, each with its payload type;
//  * descriptions and tags as the plugin gives them.
// Error answers are described once, as components/schemas/Error
// {"httpStatus": N, "message": "..."}.
//
// Thread-compatible: free functions.
#ifndef KAV_HOST_OPENAPI_H_
#define KAV_HOST_OPENAPI_H_

#include <string>
#include <string_view>

#include "host/api_description.h"
#include "host/host_value.h"

namespace kav::host {

struct OpenApiInfo {
  std::string title;
  std::string version;
  std::string description;
};

// The document; its members in a fixed order, so equal descriptions give
// equal texts.
Value BuildOpenApiDocument(const ApiDescription& description, const OpenApiInfo& info);

// A resource-table path template as an OpenAPI path: "{+rest}" becomes
// "{rest}"; "{name}" stays.
std::string OpenApiPath(std::string_view path_template);

// The key under components/schemas of the type registered as `type_name`:
// the name with every character outside [A-Za-z0-9._-] replaced by "_".
std::string OpenApiSchemaName(std::string_view type_name);

// The lower-case OpenAPI operation key of a method code ("get", ...); ""
// for custom and unknown methods.
const char* OpenApiMethod(uint32_t method);

}  // namespace kav::host

#endif  // KAV_HOST_OPENAPI_H_
