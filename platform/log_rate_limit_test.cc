#include "platform/log_rate_limit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/fake_task_loop.h"
#include "tests/fixtures/log_capture.h"

namespace morvane::ap {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class LogRateLimitTest : public testing::Test {
 protected:
  // Asks |times| times; returns how many were let through.
  int Ask(int times) {
    int allowed = 0;
    for (int i = 0; i < times; ++i) allowed += limit_.Allow();
    return allowed;
  }
  std::vector<std::string> Warnings() const {
    return log_.Messages(google::GLOG_WARNING);
  }

  FakeTaskLoop loop_;
  LogCapture log_;
  LogRateLimit limit_{&loop_, "Unexpected led state", 3, 10'000'000};
};

TEST_F(LogRateLimitTest, LetsABurstThroughThenSaysHowManyItHeldBackAtTheEnd) {
  constexpr char kSummary[] = " similar messages suppressed (Unexpected led state)";
  loop_.FastForwardBy(1'000'000);
  EXPECT_EQ(Ask(3), 3);
  EXPECT_EQ(loop_.PendingTaskCount(), 0u) << "a timer while nothing is held";
  loop_.FastForwardBy(4'000'000);
  EXPECT_EQ(Ask(10'000), 0);

  loop_.FastForwardBy(5'999'999);  // the interval began with the first line
  EXPECT_THAT(Warnings(), IsEmpty());
  loop_.FastForwardBy(1);
  EXPECT_THAT(Warnings(), ElementsAre(std::string("10000") + kSummary));

  // A new interval, a new burst; said at its end, then nothing is left.
  EXPECT_EQ(Ask(4), 3);
  loop_.FastForwardBy(10'000'000);
  EXPECT_EQ(Warnings().back(), std::string("1") + kSummary);
  EXPECT_EQ(Ask(3), 3);
  loop_.FastForwardBy(60'000'000);
  EXPECT_EQ(Warnings().size(), 2u);
  EXPECT_EQ(loop_.PendingTaskCount(), 0u);
}

}  // namespace
}  // namespace morvane::ap
