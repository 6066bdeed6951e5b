// The kav-host command: `serve` started and stopped by signals as a person
// does, and the one-shot form that README and scripts use.
#include "host/server/serve_command.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "served_plugin.h"

namespace kav::host {
namespace {

using ::testing::HasSubstr;

// kav-host run as a child process with its output captured.
class Child {
 public:
  explicit Child(const std::vector<std::string>& arguments) {
    int pipe_fds[2];
    if (pipe(pipe_fds) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(pipe_fds[1], STDOUT_FILENO);
      dup2(pipe_fds[1], STDERR_FILENO);
      close(pipe_fds[0]);
      close(pipe_fds[1]);
      std::vector<char*> argv;
      argv.push_back(const_cast<char*>(KAV_HOST_BINARY));
      for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
      argv.push_back(nullptr);
      execv(KAV_HOST_BINARY, argv.data());
      _exit(127);
    }
    close(pipe_fds[1]);
    output_fd_ = pipe_fds[0];
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    if (pid_ > 0 && exit_code_ == -2) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    if (output_fd_ >= 0) close(output_fd_);
  }

  // Reads output until `pattern` matches it or `seconds` pass; the match.
  std::smatch WaitFor(const std::regex& pattern, int seconds = 30) {
    std::smatch match;
    for (int waited = 0; waited < seconds * 10; ++waited) {
      if (std::regex_search(output_, match, pattern)) return match;
      if (!ReadSome(100)) break;
    }
    std::regex_search(output_, match, pattern);
    return match;
  }
  // Sends `signal_number` and waits for the exit; the exit code.
  int Stop(int signal_number) {
    kill(pid_, signal_number);
    return Wait();
  }
  int Wait() {
    while (ReadSome(1000)) {
    }
    int status = 0;
    waitpid(pid_, &status, 0);
    exit_code_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return exit_code_;
  }
  const std::string& output() const { return output_; }

 private:
  // False at the end of the output.
  bool ReadSome(int timeout_ms) {
    pollfd poller{output_fd_, POLLIN, 0};
    if (poll(&poller, 1, timeout_ms) <= 0) return true;
    char buffer[4096];
    const ssize_t n = read(output_fd_, buffer, sizeof(buffer));
    if (n <= 0) return false;
    output_.append(buffer, static_cast<size_t>(n));
    return true;
  }

  pid_t pid_ = -1;
  int output_fd_ = -1;
  int exit_code_ = -2;
  std::string output_;
};

uint64_t BytesInUse(const std::string& output, const std::string& when) {
  std::smatch match;
  const std::regex pattern(when + R"( +(\d+) bytes in use)");
  if (!std::regex_search(output, match, pattern)) return UINT64_MAX;
  return std::stoull(match[1]);
}

TEST(ServeCommandTest, StopsCleanlyOnSignalsAndLeavesNoPluginMemoryBehind) {
  const struct {
    const char* name;
    int signal_number;
    int calls;
  } rows[] = {
      {"SIGTERM at once", SIGTERM, 0},
      {"SIGINT after calls", SIGINT, 50},
      {"SIGTERM after calls", SIGTERM, 200},
  };
  uint64_t left_after_calls = 0;
  uint64_t held_after_calls = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Child child({"serve", "--port", "0"});
    const std::smatch listening =
        child.WaitFor(std::regex(R"(listening on http://127\.0\.0\.1:(\d+)/)"));
    ASSERT_FALSE(listening.empty()) << child.output();
    httplib::Client client("127.0.0.1", std::stoi(listening[1]));
    for (int i = 0; i < row.calls; ++i) {
      auto result = client.Get(
          i % 2 == 0
              ? "/kav-queue-eligibility/v3/eligibility?summonerIds=[1001,1002]&queueIds=[420,440]"
              : "/kav-queue-eligibility/v3/eligibility?summonerIds=[1001]&queueIds=[440]");
      ASSERT_TRUE(result);
      ASSERT_EQ(result->status, 200);
    }
    EXPECT_EQ(child.Stop(row.signal_number), 0) << child.output();
    EXPECT_THAT(child.output(),
                HasSubstr(row.signal_number == SIGINT ? "SIGINT: stopping" : "SIGTERM: stopping"));
    const uint64_t after_initialize = BytesInUse(child.output(), "after Initialize");
    const uint64_t after_destroy = BytesInUse(child.output(), "after Destroy");
    ASSERT_NE(after_destroy, UINT64_MAX) << child.output();
    EXPECT_LT(after_destroy, after_initialize) << child.output();
    // What the library keeps after Destroy does not grow with the calls
    // served, and neither does what the module holds before it.
    if (row.calls == 0) continue;
    const uint64_t before_destroy = BytesInUse(child.output(), "before Destroy");
    if (left_after_calls == 0) {
      left_after_calls = after_destroy;
      held_after_calls = before_destroy;
    } else {
      EXPECT_EQ(after_destroy, left_after_calls) << child.output();
      EXPECT_EQ(before_destroy, held_after_calls) << child.output();
    }
  }
}

TEST(ServeCommandTest, CommandLineKeepsTheOneShotForm) {
  const struct {
    const char* name;
    std::vector<std::string> arguments;
    int exit_code;
    const char* output;  // a part of it
  } rows[] = {
      {"one CALL",
       {"GET /kav-queue-eligibility/v1/initial-configuration-complete"},
       0,
       "> GET /kav-queue-eligibility/v1/initial-configuration-complete\ntrue\n"},
      {"METHOD and PATH apart",
       {"GET", "/kav-queue-eligibility/v1/initial-configuration-complete"},
       0,
       "\ntrue\n"},
      {"a body for the CALL before it",
       {"POST /kav-queue-eligibility/v2/eligibility", "--body",
        R"({"summonerIds":[1001],"queueIds":[440]})",
        "GET /kav-queue-eligibility/v1/initial-configuration-complete"},
       0,
       "> body (application/json): {\"summonerIds\":[1001],\"queueIds\":[440]}\n"},
      {"a body before any CALL", {"--body", "{}"}, 2, "--body must follow a CALL"},
      {"not a CALL", {"hello"}, 2, "not a CALL"},
      {"no resource", {"GET /nowhere"}, 1, "no resource of the plugin matches GET /nowhere"},
      {"unknown option", {"--frobnicate"}, 2, "kav-host: "},
      {"serve with a CALL", {"serve", "GET /x"}, 2, "serve takes no CALL"},
      {"serve on a bad port", {"serve", "--port", "70000"}, 2, "--port"},
      {"bad core version", {"--core-version", "18.x"}, 2, "not a version X.Y.Z: 18.x"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Child child(row.arguments);
    EXPECT_EQ(child.Wait(), row.exit_code) << child.output();
    EXPECT_THAT(child.output(), HasSubstr(row.output));
  }
}

}  // namespace
}  // namespace kav::host
