#include "avctl/properties.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace morvane::ap::avctl {
namespace {

using ::testing::HasSubstr;

constexpr int64_t kNowUs = 1'700'000'000'000'000;

// The status with the grace period's and an operation's deadlines |grace_us|
// and |vox_us| from now.
std::string StatusWithDeadlines(int64_t grace_us, int64_t vox_us) {
  Properties properties;
  properties["LightState"].number = 6;
  properties["DecidingInput"].text = "wan_failure";
  properties["TimedStates"].strings = {{"vox", "in_progress"},
                                       {"wan_failure", ""}};
  properties["TimedStateDeadlines"].numbers = {
      {"vox", static_cast<uint64_t>(kNowUs + vox_us)},
      {"wan_failure", static_cast<uint64_t>(kNowUs + grace_us)}};
  return FormatStatus(properties, kNowUs);
}

TEST(FormatStatusTest, TimeLeftIsRoundedUpToWholeSeconds) {
  const struct {
    int64_t left_us;
    const char* shown;
  } kCases[] = {
      {1, "1 s left"},         {1'000'000, "1 s left"}, {1'000'001, "2 s left"},
      {59'999'999, "60 s left"}, {0, "0 s left"},      {-3'000'000, "0 s left"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.left_us);
    const std::string status = StatusWithDeadlines(c.left_us, c.left_us);
    EXPECT_THAT(status, HasSubstr(std::string("vox \"in_progress\", ") + c.shown));
    EXPECT_THAT(status, HasSubstr(std::string("start-up grace period (wan_failure), ") +
                                  c.shown));
    EXPECT_THAT(status, HasSubstr(std::string("(decided by the start-up grace "
                                              "period, ") + c.shown +
                                  ", wan_failure)\n"));
  }
}

}  // namespace
}  // namespace morvane::ap::avctl
