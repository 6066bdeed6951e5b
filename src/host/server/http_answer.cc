#include "host/server/http_answer.h"

#include "host/host_value.h"

namespace kav::host {

HttpAnswer HttpAnswer::Json(int status, std::string json) {
  HttpAnswer answer;
  answer.status = status;
  answer.body = std::move(json);
  return answer;
}

HttpAnswer HttpAnswer::Error(int status, std::string_view message) {
  return Json(status, ErrorJson(status, message));
}

std::string ErrorJson(int status, std::string_view message) {
  return Value::MakeMap({{"httpStatus", Value::Signed(status)},
                         {"message", Value::String(std::string(message))}})
      .ToJson();
}

}  // namespace kav::host
