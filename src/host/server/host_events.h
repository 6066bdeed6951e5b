// What the event stream says about the plugin's events and log lines, as
// one line of JSON each:
//   plugin event: {"name": ..., "payload": ...}, the payload's enumerators
//     named from the plugin's API description (and a resource event's data
//     as the answer of the plugin's resource at that uri);
//   log line: {"level": N, "levelName": "OKAY"|"WARN"|"ERROR"|"ALWAYS", "text": ...}.
//
// Thread-compatible: free functions.
#ifndef KAV_HOST_SERVER_HOST_EVENTS_H_
#define KAV_HOST_SERVER_HOST_EVENTS_H_

#include <string>

#include "host/api_description.h"
#include "host/reference_host.h"

namespace kav::host {

std::string PublishedEventJson(const PublishedEvent& event, const ApiDescription& description);
std::string LogLineJson(const LogLine& line);

}  // namespace kav::host

#endif  // KAV_HOST_SERVER_HOST_EVENTS_H_
