// The host's reading of a plugin's resource table and API description, on
// the real plugin, and the naming of enumerators in its answers.
#include "host/api_description.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/reference_host.h"

namespace kav::host {
namespace {

class ApiDescriptionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(host_.Load()) << host_.error();
    description_ = ApiDescription::Read(host_.resource_table());
  }

  ReferenceHost host_;
  ApiDescription description_;
};

constexpr const char kEligibility[] = "KavQueueEligibilityEligibility";
constexpr const char kRestriction[] = "KavQueueEligibilityEligibilityRestriction";
constexpr const char kRestrictionCode[] = "KavQueueEligibilityEligibilityRestrictionCode";

TEST_F(ApiDescriptionTest, ReadsEveryResourceOfTheTable) {
  struct Row {
    const char* name;
    uint32_t method;
    const char* path;
    std::vector<std::pair<std::string, uint32_t>> parameters;  // name, location
    ApiTypeRef result;
  };
  const ApiTypeRef eligibility_list{15, 17, kEligibility};
  const Row rows[] = {
      {"PostKavQueueEligibilityV1Eligibility",
       KAV_METHOD_POST,
       "/kav-queue-eligibility/v1/eligibility",
       {{"eligibilityQueryParam", 5}},
       eligibility_list},
      {"PostKavQueueEligibilityV2Eligibility",
       KAV_METHOD_POST,
       "/kav-queue-eligibility/v2/eligibility",
       {{"eligibilityQueryParam", 5}},
       eligibility_list},
      {"GetKavQueueEligibilityV3Eligibility",
       KAV_METHOD_GET,
       "/kav-queue-eligibility/v3/eligibility",
       {{"summonerIds", 1}, {"queueIds", 1}},
       eligibility_list},
      {"GetKavQueueEligibilityV3Custom",
       KAV_METHOD_GET,
       "/kav-queue-eligibility/v3/custom",
       {{"teamSize", 1}, {"pickMode", 1}},
       eligibility_list},
      {"GetKavQueueEligibilityV1InitialConfigurationComplete",
       KAV_METHOD_GET,
       "/kav-queue-eligibility/v1/initial-configuration-complete",
       {},
       ApiTypeRef{1, 0, ""}},
  };
  ASSERT_EQ(description_.resources().size(), std::size(rows));
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const ApiResource* resource = description_.FindResource(row.name);
    ASSERT_NE(resource, nullptr);
    EXPECT_EQ(description_.FindResource(resource->entry), resource);
    EXPECT_EQ(resource->method, row.method);
    EXPECT_EQ(resource->path_template, row.path);
    EXPECT_EQ(resource->result, row.result);
    ASSERT_EQ(resource->parameters.size(), row.parameters.size());
    for (size_t i = 0; i < row.parameters.size(); ++i) {
      EXPECT_EQ(resource->parameters[i].name, row.parameters[i].first);
      EXPECT_EQ(resource->parameters[i].location, row.parameters[i].second);
    }
  }
  const ApiResource* v3 = description_.FindResource("GetKavQueueEligibilityV3Eligibility");
  ASSERT_NE(v3, nullptr);
  EXPECT_EQ(v3->parameters[0].type, (ApiTypeRef{15, 9, ""}));  // vector of uint64
  EXPECT_EQ(v3->parameters[1].type, (ApiTypeRef{15, 6, ""}));  // vector of int32
  EXPECT_EQ(description_.FindResource("NoSuchFunction"), nullptr);
}

TEST_F(ApiDescriptionTest, ReadsStructuresAndEnumerations) {
  const ApiType* restriction = description_.FindType(kRestriction);
  ASSERT_NE(restriction, nullptr);
  EXPECT_FALSE(restriction->IsEnumeration());
  const ApiField* code = restriction->FindField("restrictionCode");
  ASSERT_NE(code, nullptr);
  EXPECT_EQ(code->type, (ApiTypeRef{16, 0, kRestrictionCode}));
  const ApiField* args = restriction->FindField("restrictionArgs");
  ASSERT_NE(args, nullptr);
  EXPECT_EQ(args->type.kind, 19u);
  EXPECT_EQ(args->type.element_kind, 12u);

  const ApiType* codes = description_.FindType(kRestrictionCode);
  ASSERT_NE(codes, nullptr);
  EXPECT_TRUE(codes->IsEnumeration());
  EXPECT_EQ(codes->enumerators.size(), 22u);
  const std::pair<int32_t, const char*> named[] = {
      {0, "QueueDisabled"}, {16, "PlayerMinorRestriction"}, {21, "UnknownRestriction"}};
  for (const auto& [value, name] : named) {
    SCOPED_TRACE(name);
    const ApiEnumerator* enumerator = codes->FindEnumerator(value);
    ASSERT_NE(enumerator, nullptr);
    EXPECT_EQ(enumerator->name, name);
  }
  EXPECT_EQ(codes->FindEnumerator(22), nullptr);
  EXPECT_EQ(description_.FindType("NoSuchType"), nullptr);
  EXPECT_FALSE(description_.events().empty());
}

TEST_F(ApiDescriptionTest, NamesEnumeratorsWhereTheTypeDescribesThem) {
  auto restriction_with = [](Value code) {
    return Value::MakeMap({{"restrictionCode", std::move(code)},
                           {"summonerIds", Value::MakeArray({Value::Unsigned(7)})}});
  };
  auto answer_with = [&](Value code) {
    return Value::MakeArray({Value::MakeMap(
        {{"queueId", Value::Signed(420)},
         {"restrictions", Value::MakeArray({restriction_with(std::move(code))})}})});
  };
  const ApiTypeRef answer_type{15, 17, kEligibility};
  struct Row {
    const char* name;
    Value value;
    ApiTypeRef type;
    Value expected;
  };
  const Row rows[] = {
      {"signed code in an answer", answer_with(Value::Signed(0)), answer_type,
       answer_with(Value::String("QueueDisabled"))},
      {"unsigned code", answer_with(Value::Unsigned(21)), answer_type,
       answer_with(Value::String("UnknownRestriction"))},
      {"code without enumerator stays a number", answer_with(Value::Signed(99)), answer_type,
       answer_with(Value::Signed(99))},
      {"negative code without enumerator", answer_with(Value::Signed(-1)), answer_type,
       answer_with(Value::Signed(-1))},
      {"a name stays a name", answer_with(Value::String("QueueDisabled")), answer_type,
       answer_with(Value::String("QueueDisabled"))},
      {"unsigned beyond 32 bits stays", answer_with(Value::Unsigned(1ull << 32)), answer_type,
       answer_with(Value::Unsigned(1ull << 32))},
      {"structure alone", restriction_with(Value::Signed(16)), ApiTypeRef{17, 0, kRestriction},
       restriction_with(Value::String("PlayerMinorRestriction"))},
      {"undescribed structure", restriction_with(Value::Signed(16)),
       ApiTypeRef{17, 0, "NoSuchType"}, restriction_with(Value::Signed(16))},
      {"shape that does not fit", restriction_with(Value::Signed(16)), answer_type,
       restriction_with(Value::Signed(16))},
      {"vector of enumerators", Value::MakeArray({Value::Signed(4), Value::Signed(40)}),
       ApiTypeRef{15, 16, kRestrictionCode},
       Value::MakeArray({Value::String("PlayerBannedRestriction"), Value::Signed(40)})},
      {"map of enumerators", Value::MakeMap({{"a", Value::Signed(9)}}),
       ApiTypeRef{19, 16, kRestrictionCode},
       Value::MakeMap({{"a", Value::String("PlayerBingeRestriction")}})},
      {"member the structure does not describe", Value::MakeMap({{"other", Value::Signed(0)}}),
       ApiTypeRef{17, 0, kRestriction}, Value::MakeMap({{"other", Value::Signed(0)}})},
      {"no type", Value::Signed(0), ApiTypeRef{}, Value::Signed(0)},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(description_.NameEnumerators(row.value, row.type).ToJson(), row.expected.ToJson());
  }
}

TEST(ApiDescriptionReadTest, ToleratesMissingArraysAndTexts) {
  KavApiParameter parameter{};
  parameter.kind = 12;
  KavResourceEntry entry{};
  entry.parameters = &parameter;
  entry.parameter_count = 1;
  entry.tag_count = 3;  // with no tag array
  KavApiType type{};
  type.member_count = 4;  // with neither fields nor enumerators
  KavResourceTable table{};
  table.entries = &entry;
  table.entry_count = 1;
  table.types = &type;
  table.type_count = 1;
  table.event_count = 5;  // with no event array

  const ApiDescription description = ApiDescription::Read(&table);
  ASSERT_EQ(description.resources().size(), 1u);
  const ApiResource& resource = description.resources()[0];
  EXPECT_EQ(resource.name, "");
  EXPECT_TRUE(resource.tags.empty());
  ASSERT_EQ(resource.parameters.size(), 1u);
  EXPECT_EQ(resource.parameters[0].location, 0u);  // no location array
  EXPECT_EQ(resource.parameters[0].type.kind, 12u);
  ASSERT_EQ(description.types().size(), 1u);
  EXPECT_TRUE(description.types()[0].fields.empty());
  EXPECT_TRUE(description.types()[0].enumerators.empty());
  EXPECT_TRUE(description.events().empty());
  EXPECT_TRUE(ApiDescription::Read(nullptr).resources().empty());
}

}  // namespace
}  // namespace kav::host
