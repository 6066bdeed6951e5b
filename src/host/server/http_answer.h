// HttpAnswer: what the server sends for one request, made by the parts that
// answer (the plugin gateway, the host control, the console) without knowing
// the HTTP library.
#ifndef KAV_HOST_SERVER_HTTP_ANSWER_H_
#define KAV_HOST_SERVER_HTTP_ANSWER_H_

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kav::host {

struct HttpAnswer {
  int status = 200;
  std::string content_type = "application/json";
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
  bool chunked = false;           // sent with chunked transfer coding
  bool close_connection = false;  // the connection ends after this answer

  static HttpAnswer Json(int status, std::string json);
  // {"httpStatus": status, "message": message}.
  static HttpAnswer Error(int status, std::string_view message);
};

// {"httpStatus": status, "message": message} as compact JSON.
std::string ErrorJson(int status, std::string_view message);

}  // namespace kav::host

#endif  // KAV_HOST_SERVER_HTTP_ANSWER_H_
