#include "queue_eligibility/queue_eligibility_module.h"

#include "routing/dispatch.h"

namespace kav {

void QueueEligibilityModule::RegisterApi() {
  queue_eligibility::RegisterEligibilityApiTypes(*type_registry(), type_name_prefix(), help_tags(),
                                                 service_types_);

  Dispatcher& api = dispatcher();
  api.RegisterPost("/kav-queue-eligibility/v1/eligibility",
                   [this](const EligibilityQueryParams& query) { return EligibilityV1(query); })
      .AddBodyParameter("eligibilityQueryParam", "");
  api.RegisterPost("/kav-queue-eligibility/v2/eligibility",
                   [this](const EligibilityQueryParams& query) { return EligibilityV2(query); })
      .AddBodyParameter("eligibilityQueryParam", "");
  api.RegisterGet(
         "/kav-queue-eligibility/v3/eligibility",
         [this](const std::vector<uint64_t>& summoner_ids, const std::vector<int32_t>& queue_ids) {
           return EligibilityV3(summoner_ids, queue_ids);
         })
      .AddQueryParameter("summonerIds", "")
      .AddQueryParameter("queueIds", "");
  api.RegisterGet("/kav-queue-eligibility/v3/custom",
                  [this](int32_t team_size, const std::string& pick_mode) {
                    return CustomEligibilityV3(team_size, pick_mode);
                  })
      .AddQueryParameter("teamSize", "")
      .AddQueryParameter("pickMode", "");
  api.RegisterGet("/kav-queue-eligibility/v1/initial-configuration-complete",
                  [this]() { return InitialConfigurationComplete(); });
}

}  // namespace kav
