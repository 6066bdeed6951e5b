#include "diagnostics/assert.h"

#include "diagnostics/logging.h"
#include "platform/process.h"

namespace kav {
namespace {

// The exit code of a process ended by FatalError.
constexpr int kFatalErrorExitCode = 3;

bool IsGiven(const char* text) {
  return text && *text;
}

}  // namespace

std::string BuildAssertionReport(const char* expression, const char* file, int32_t line,
                                 const char* function, const char* description) {
  std::string report = "Assertion failed!\n\n";
  if (IsGiven(file)) {
    report += "File: ";
    report += file;
    report += '\n';
  }
  if (line != 0) {
    report += "Line: ";
    report += std::to_string(line);
    report += "\n\n";
  }
  if (IsGiven(function)) {
    report += "Function: ";
    report += function;
    report += "\n\n";
  }
  if (IsGiven(expression)) {
    report += "Expression: ";
    report += expression;
  }
  if (IsGiven(description)) {
    report += "\n\nDescription: ";
    report += description;
  }
  return report;
}

void Assert(const char* expression, const char* description, const char* file, int32_t line,
            const char* function) {
  const std::string report = BuildAssertionReport(expression, file, line, function, description);
  Log(kLogError, kCategoryDbg, "%s", report.c_str());
}

void FatalError(const char* code, std::string_view message) {
  const std::string description(message);
  Assert(code, description.c_str(), nullptr, 0, nullptr);
  ExitProcessNow(kFatalErrorExitCode);
}

}  // namespace kav
