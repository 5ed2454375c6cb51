#include "platform/timer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "platform/fake_task_loop.h"

namespace morvane::ap {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TimerTest : public testing::Test {
 protected:
  Task Record(int tag) {
    return [this, tag] { fired_.push_back(tag); };
  }

  FakeTaskLoop loop_;
  std::vector<int> fired_;
};

TEST_F(TimerTest, OneShotRunsOnceAtTheLatestDeadlineUnlessStoppedOrDestroyed) {
  OneShotTimer timer(&loop_);
  timer.Start(60'000'000, Record(1));
  loop_.FastForwardBy(50'000'000);

  timer.Start(5'000'000, Record(2));  // shorter than what was left
  loop_.FastForwardBy(4'999'999);
  EXPECT_THAT(fired_, IsEmpty());
  EXPECT_TRUE(timer.IsRunning());
  loop_.FastForwardBy(1);
  EXPECT_THAT(fired_, ElementsAre(2));
  EXPECT_FALSE(timer.IsRunning());

  timer.Start(1'000'000, Record(3));
  loop_.FastForwardBy(500'000);
  timer.Start(2'000'000, Record(4));  // longer: the first deadline is gone
  loop_.FastForwardBy(1'999'999);
  EXPECT_THAT(fired_, ElementsAre(2));
  loop_.FastForwardBy(1);
  EXPECT_THAT(fired_, ElementsAre(2, 4));

  timer.Start(1000, Record(5));
  timer.Stop();
  EXPECT_FALSE(timer.IsRunning());
  {
    OneShotTimer destroyed(&loop_);
    destroyed.Start(1000, Record(6));
  }
  // The task may start its own timer again.
  int runs = 0;
  Task again = [&] {
    if (++runs < 3) timer.Start(100, again);
  };
  timer.Start(100, again);
  loop_.FastForwardBy(10'000'000);

  EXPECT_THAT(fired_, ElementsAre(2, 4));
  EXPECT_EQ(runs, 3);
  EXPECT_FALSE(timer.IsRunning());
  EXPECT_EQ(loop_.PendingTaskCount(), 0u);
}

TEST_F(TimerTest, RepeatingRunsEveryPeriodUntilItsTaskStopsIt) {
  RepeatingTimer timer(&loop_);
  timer.Start(2'000'000, Record(1));

  loop_.FastForwardBy(6'000'000);
  EXPECT_THAT(fired_, ElementsAre(1, 1, 1));
  EXPECT_TRUE(timer.IsRunning());

  // Restarted with a new period and a task that stops the timer itself.
  timer.Start(1'000'000, [&] {
    fired_.push_back(2);
    if (fired_.size() == 5) timer.Stop();
  });
  loop_.FastForwardBy(1'000'000);
  EXPECT_THAT(fired_, ElementsAre(1, 1, 1, 2));
  loop_.FastForwardBy(10'000'000);

  EXPECT_THAT(fired_, ElementsAre(1, 1, 1, 2, 2));
  EXPECT_FALSE(timer.IsRunning());
  EXPECT_EQ(loop_.PendingTaskCount(), 0u);
}

}  // namespace
}  // namespace morvane::ap
