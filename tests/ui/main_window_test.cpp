#include "ui/main_window.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace qr {
namespace {

TEST(TargetFollowsLogRule, TheLogFollowsWhileTheTwoDifferByOneTrailingCharacter) {
  struct Case {
    std::string target, log;
    std::optional<std::string> newLog;
  };
  const std::vector<Case> cases = {
      {"/data/x", "/data/", "/data/x"},      // typed one character at the end
      {"/data", "/data/", "/data"},          // deleted one character at the end
      {"/data/xy", "/data/", std::nullopt},  // two apart: the boxes no longer agree
      {"/other", "/data/", std::nullopt},
      {"/data/x", "/data/x", std::nullopt},  // nothing to change
      {"a", "", std::nullopt},               // one character: never carries the log
      {"ab", "a", "ab"},
      {"/caf\xc3\xa9", "/caf", "/caf\xc3\xa9"},  // a character is a code point, not a byte
      {"/caf", "/caf\xc3\xa9", "/caf"},
      {"/caf\xc3", "/caf\xc3\xa9", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.target + " | " + c.log);
    EXPECT_EQ(TargetFollowsLog(c.target, c.log), c.newLog);
  }
}

}  // namespace
}  // namespace qr
