#include "queue_eligibility/api_types.h"

#include <string>

namespace kav::queue_eligibility {
namespace {

template <class T>
void RegisterApiType(TypeRegistry& registry, std::string_view prefix, std::string_view name,
                     const std::vector<std::string>& tags) {
  std::string full_name;
  full_name.reserve(prefix.size() + name.size());
  full_name.append(prefix).append(name);
  if constexpr (std::is_enum_v<T>) {
    (void)RegisterEnumeration<T>(registry, full_name, tags);
  } else {
    (void)RegisterStructure<T>(registry, full_name, tags);
  }
}

template <class T>
void RegisterServiceType(TypeRegistry& registry, std::string_view type_name,
                         std::string_view class_name, const std::vector<std::string>& tags,
                         ServiceTypeTables& tables) {
  (void)RegisterStructure<T>(registry, type_name, tags);
  const StaticTypeIdentity& identity = StaticType::Of<T>();
  tables.byTypeName.insert_or_assign(
      std::string(type_name), ServiceTypeTables::ClassEntry{std::string(class_name), &identity});
  tables.classNameById.insert_or_assign(identity.id, std::string(class_name));
}

}  // namespace

void RegisterEligibilityApiTypes(TypeRegistry& registry, std::string_view prefix,
                                 const std::vector<std::string>& tags, ServiceTypeTables& tables) {
  using namespace api;
  RegisterApiType<QueueAvailability>(registry, prefix, "QueueAvailability", tags);
  RegisterApiType<Queue>(registry, prefix, "Queue", tags);
  RegisterApiType<EligibilityRestrictionCode>(registry, prefix, "EligibilityRestrictionCode", tags);
  RegisterApiType<EligibilityRestriction>(registry, prefix, "EligibilityRestriction", tags);
  RegisterApiType<Eligibility>(registry, prefix, "Eligibility", tags);
  RegisterApiType<EligibilityQueryParams>(registry, prefix, "EligibilityQueryParams", tags);
  RegisterApiType<SummonerResource>(registry, prefix, "SummonerSummoner", tags);
  RegisterApiType<CollectionsRental>(registry, prefix, "CollectionsRental", tags);
  RegisterApiType<CollectionsOwnership>(registry, prefix, "CollectionsOwnership", tags);
  RegisterApiType<CollectionsChampion>(registry, prefix, "CollectionsChampion", tags);
  RegisterApiType<CollectionsPlayableChampionCounts>(registry, prefix,
                                                     "CollectionsPlayableChampionCounts", tags);
  RegisterApiType<QueueShutdownStatus>(registry, prefix, "QueueShutdownStatus", tags);
  RegisterApiType<LoginSessionStates>(registry, prefix, "LoginSessionStates", tags);
  RegisterApiType<LoginSession>(registry, prefix, "LoginSession", tags);
  RegisterApiType<ChampionPlayableCountsForEligibility>(
      registry, prefix, "ChampionPlayableCountsForEligibility", tags);
  RegisterApiType<League>(registry, prefix, "League", tags);

  RegisterServiceType<mqds::GatekeeperRestrictionDtoV3>(
      registry, kGatekeeperRestrictionTypeName, kGatekeeperRestrictionClassName, tags, tables);
  RegisterServiceType<mqds::GetQueueRestrictionsForQueuesRequestV2>(
      registry, kGetQueueRestrictionsRequestTypeName, kGetQueueRestrictionsRequestClassName, tags,
      tables);
}

}  // namespace kav::queue_eligibility
