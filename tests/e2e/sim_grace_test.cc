// The start-up grace period in real time: the one slow end-to-end test
// (label "slow").

#include <string>

#include <gtest/gtest.h>

#include "tests/e2e/sim_process.h"

namespace morvane::ap {
namespace {

TEST(SimGraceTest, RingShowsWanFailureAfterTheSixtySecondGrace) {
  SimProcess sim;
  ASSERT_TRUE(sim.Start(AP_SIM_BINARY, AVD_BINARY));
  const std::optional<size_t> startup = sim.WaitForLine("light state 0");
  ASSERT_TRUE(startup) << sim.Transcript();

  // The grace is 60 s; allow start-up and a loaded machine on top.
  const std::optional<size_t> failure =
      sim.WaitForLine("light state 2", *startup, 90'000);

  EXPECT_TRUE(failure) << sim.Transcript();
  sim.Send("quit");
  EXPECT_EQ(sim.WaitForExit(), std::optional<int>(0)) << sim.Transcript();
}

}  // namespace
}  // namespace morvane::ap
