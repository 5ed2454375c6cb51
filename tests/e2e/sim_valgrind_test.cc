// The end-to-end scenario with the daemon under valgrind's memcheck: every
// capability once, then a clean end with no memory error and no definite
// leak.

#include <stdlib.h>

#include <gtest/gtest.h>

#include "tests/e2e/scenario.h"
#include "tests/e2e/sim_process.h"

namespace morvane::ap {
namespace {

constexpr int64_t kSlowMs = 60'000;  // Everything is slower under valgrind.

TEST(SimValgrindTest, TheDaemonEndsCleanAfterEveryCapability) {
  setenv("AVD_UNDER_VALGRIND", AVD_BINARY, 1);
  setenv("AVD_VALGRIND_ROOT", VALGRIND_ROOT, 1);
  SimProcess sim;
  ASSERT_TRUE(sim.Start(AP_SIM_BINARY, VALGRIND_AVD));
  ASSERT_TRUE(sim.WaitForLine("ready", 0, kSlowMs)) << sim.Transcript();
  ASSERT_TRUE(sim.WaitForLine("brightness 76", 0, kSlowMs)) << sim.Transcript();

  // The restart at its end shows the first daemon ended clean.
  RunScenario(sim, kSlowMs);
  const size_t from = sim.lines().size();
  sim.Send("quit");

  EXPECT_TRUE(sim.WaitForLine("avd exited status=0", from, kSlowMs))
      << sim.Transcript();
}

}  // namespace
}  // namespace morvane::ap
