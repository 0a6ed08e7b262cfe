#pragma once
// A run-time failure carried from the operation that met it to its routine's handler, with the
// number and description that the handler's report shows. Never crosses a stage.
#include <stdexcept>
#include <string>

namespace qr {

// The number reported for a failure that carries no number of its own.
inline constexpr int kInternalErrorNumber = 51;

class RunError : public std::runtime_error {
 public:
  RunError(int number, std::string description);
  int number() const { return number_; }
  const std::string& description() const { return description_; }

 private:
  int number_;
  std::string description_;
};

// From an errno value: the number is errno, the description strerror's text.
RunError SystemError(int err);

// The failures of a lookup that only mean "nothing for us here": nothing there, a file where a
// folder was expected, no permission, a link loop, a name too long. Anything else is worth a
// report.
bool IsPlainAbsence(int err);

}  // namespace qr
