#include "avctl/properties.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace morvane::ap::avctl {
namespace {

using ::testing::HasSubstr;

constexpr int64_t kNowUs = 1'700'000'000'000'000;

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
    // The grace period and an operation, both ending |left_us| from now.
    Properties properties;
    properties["LightState"].number = 6;
    properties["DecidingInput"].text = "wan_failure";
    properties["TimedStates"].strings = {{"vox", "in_progress"}, {"wan_failure", ""}};
    const uint64_t deadline = kNowUs + c.left_us;
    properties["TimedStateDeadlines"].numbers = {{"vox", deadline}, {"wan_failure", deadline}};
    const std::string status = FormatStatus(properties, kNowUs);
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
