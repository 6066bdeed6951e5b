// Integer lists bound straight from their texts give a call exactly what
// the generic way gives it: the same values, and the same error when a
// value does not fit. Each row is called twice through the resource table:
// as written, and with a leading space ("%20"), which the JSON reader skips
// but which keeps the text from being a plain list.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "binding/host_value.h"
#include "binding/type_registry.h"
#include "plugin/maybe_type.h"
#include "routing/dispatch.h"
#include "routing/function_registration.h"
#include "serialization/json.h"

namespace kav {
namespace {

template <class T>
std::string Listed(const std::vector<T>& values) {
  std::string text;
  for (const T& value : values) text += std::to_string(value) + ";";
  return text;
}

MaybeType<Failure, std::string> Describe(const std::vector<int32_t>& ids,
                                         std::vector<uint64_t> members,
                                         const std::vector<int8_t>& small) {
  return "ids " + Listed(ids) + " members " + Listed(members) + " small " + Listed(small);
}

struct Outcome {
  std::string error;
  std::string json;
  bool operator==(const Outcome&) const = default;
};

class Fixture {
 public:
  Fixture() : dispatcher_(registry_) {
    registry_.InitializeRegistry();
    dispatcher_.RegisterGet("/lists", &Describe)
        .AddQueryParameter("ids", "")
        .AddQueryParameter("members", "")
        .AddQueryParameter("small", "");
    entry_ = dispatcher_.BuildResourceTable()->entries;
  }

  Outcome Call(const std::string& url) const {
    KavRequest request{};
    request.method = KAV_METHOD_GET;
    request.url = url.c_str();
    request.user_data = entry_->user_data;
    KavResponse response{};
    entry_->call(&response, &request);
    Outcome outcome;
    if (response.error != nullptr) outcome.error = response.error;
    BindingResult value;
    EXPECT_TRUE(FromHostValue(value, value, response.body, "<result>"));
    outcome.json = SerializeJson(value);
    response.release(&response);
    return outcome;
  }

 private:
  TypeRegistry registry_;
  Dispatcher dispatcher_;
  const KavResourceEntry* entry_ = nullptr;
};

TEST(IntegerListBindingTest, PlainListsBindAsTheGenericWayDoes) {
  struct Row {
    const char* name;
    const char* query;  // "{}" stands for the list text, given twice
    const char* list;
    bool fails;  // the generic way fails too
  };
  const Row rows[] = {
      {"ids", "ids={}&members=[1]&small=[1]", "[400,420,440]", false},
      {"no ids", "ids={}&members=[1]&small=[1]", "[]", false},
      {"negative ids", "ids={}&members=[1]&small=[1]", "[-2147483648,-1,0]", false},
      {"an id too large", "ids={}&members=[1]&small=[1]", "[2147483648]", true},
      {"a negative member", "ids=[1]&members={}&small=[1]", "[1,-1]", true},
      {"the largest member", "ids=[1]&members={}&small=[1]", "[18446744073709551615]", false},
      {"a member too large", "ids=[1]&members={}&small=[1]", "[18446744073709551616]", true},
      {"small values at their bounds", "ids=[1]&members=[1]&small={}", "[-128,127]", false},
      {"a small value too large", "ids=[1]&members=[1]&small={}", "[128]", true},
      {"a later index path adds to the list", "ids={}&ids.2=9&members=[1]&small=[1]", "[1,2]",
       false},
      {"a later index path past the list", "ids={}&ids.3=9&members=[1]&small=[1]", "[1]", false},
      {"an argument bound twice", "ids=[5]&members={}&members={}&small=[1]", "[7]", false},
  };
  Fixture fixture;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const auto url = [&](const std::string& list) {
      std::string query = row.query;
      for (size_t at = query.find("{}"); at != std::string::npos; at = query.find("{}")) {
        query.replace(at, 2, list);
      }
      return "/lists?" + query;
    };
    const Outcome plain = fixture.Call(url(row.list));
    const Outcome generic = fixture.Call(url(std::string("%20") + row.list));
    EXPECT_EQ(plain, generic) << "plain: " << plain.error << plain.json
                              << "\ngeneric: " << generic.error << generic.json;
    EXPECT_EQ(!plain.error.empty(), row.fails) << plain.error;
  }
}

}  // namespace
}  // namespace kav
