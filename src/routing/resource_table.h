// The resource table handed to the host at registration: one 90-byte entry
// per served function (its record of the host API description, its call
// callback OnCall, its parameter locations, path template, method, flags,
// text lists and custom method), followed by the type and event records of
// the host API description.
//
// Each entry's user data is an EndpointBinding {registry, endpoint}; the
// bindings are kept by function name (the dispatcher's second table) and
// survive a rebuilt table, so that a user-data pointer once handed out keeps
// naming the same endpoint.
//
// Ownership: a ResourceTable owns the entries and every array and text they
// point to, except the description records and their texts, which belong to
// the registry (until its description is built again). The endpoints must
// outlive the table.
//
// Thread-compatible: built during registration; read-only afterwards.
#ifndef KAV_ROUTING_RESOURCE_TABLE_H_
#define KAV_ROUTING_RESOURCE_TABLE_H_

#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "kav/plugin_host.h"
#include "routing/route.h"

namespace kav {

class TypeRegistry;

// The user data of a resource-table entry.
struct EndpointBinding {
  const TypeRegistry* registry = nullptr;
  const Endpoint* endpoint = nullptr;
  // The endpoint's route, compiled once when the table is built; null in a
  // binding made elsewhere, whose calls compile it each time
  // (eligibility_bench CachedSelfEligibility/50/50).
  std::shared_ptr<const Route> route;
};

// Function name to the user data of its entry.
using EndpointBindings = std::unordered_map<std::string, std::unique_ptr<EndpointBinding>>;

class ResourceTable {
 public:
  // Builds the host API description of `registry` and one entry per endpoint
  // of `endpoints`, in that order. An endpoint whose function is no longer
  // the one registered under its name, or that the description lacks, gets
  // no entry. Enters (or updates) each served endpoint in `bindings`.
  ResourceTable(TypeRegistry& registry, std::span<Endpoint* const> endpoints,
                EndpointBindings& bindings);
  ResourceTable(const ResourceTable&) = delete;
  ResourceTable& operator=(const ResourceTable&) = delete;

  const KavResourceTable* table() const { return &table_; }

 private:
  std::vector<KavResourceEntry> entries_;
  std::vector<std::vector<KavParameterLocation>> locations_;
  std::vector<std::vector<KavTextList>> text_lists_;
  std::vector<std::vector<std::vector<const char*>>> texts_;
  KavResourceTable table_{};
};

}  // namespace kav

#endif  // KAV_ROUTING_RESOURCE_TABLE_H_
