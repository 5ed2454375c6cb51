// The end-to-end scenario with the daemon under valgrind's memcheck: every
// capability once, then a clean end with no memory error and no definite
// leak.

#include <stdlib.h>

#include <gtest/gtest.h>

#include "tests/e2e/sim_process.h"

namespace morvane::ap {
namespace {

constexpr int64_t kSlowMs = 60'000;  // Everything is slower under valgrind.

TEST(SimValgrindTest, TheDaemonEndsCleanAfterEveryCapability) {
  ASSERT_STRNE(AVD_BINARY, "") << "the avd target does not exist in this build";
  setenv("AVD_UNDER_VALGRIND", AVD_BINARY, 1);
  setenv("AVD_VALGRIND_ROOT", VALGRIND_ROOT, 1);
  SimProcess sim;
  ASSERT_TRUE(sim.Start(AP_SIM_BINARY, VALGRIND_AVD));
  ASSERT_TRUE(sim.WaitForLine("ready", 0, kSlowMs)) << sim.Transcript();
  ASSERT_TRUE(sim.WaitForLine("brightness 76", 0, kSlowMs)) << sim.Transcript();

  // One step at a time: the daemon is slow here, and each step's outcome
  // depends on the state the ones before left.
  const struct {
    const char* command;
    const char* outcome;
  } kSteps[] = {
      {"wave", "light transition 0 0"},
      {"press", "audio connect 0"},
      {"wan online", "upstart ap-wan-online"},
      {"intensity 100", "brightness 255"},
      {"setup reset", "light state 3"},
      {"setup completed", "light transition 1 0"},
      {"op start", "operation started id=1"},
      {"op succeed", "operation succeeded id=1"},
  };
  for (const auto& step : kSteps) {
    const size_t from = sim.lines().size();
    sim.Send(step.command);
    ASSERT_TRUE(sim.WaitForLine(step.outcome, from, kSlowMs))
        << step.command << "\n" << sim.Transcript();
  }
  EXPECT_TRUE(sim.WaitForPrefix("sound network_creation", 0, kSlowMs))
      << sim.Transcript();
  sim.Send("quit");

  EXPECT_TRUE(sim.WaitForLine("avd exited status=0", 0, kSlowMs))
      << sim.Transcript();
}

}  // namespace
}  // namespace morvane::ap
