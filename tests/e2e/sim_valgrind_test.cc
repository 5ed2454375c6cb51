// The end-to-end scenario with the daemon under valgrind's memcheck: every
// capability once, then a clean end with no memory error and no definite
// leak.

#include <stdlib.h>

#include <gtest/gtest.h>

#include "tests/e2e/scenario.h"
#include "tests/e2e/sim_process.h"

namespace morvane::ap {
namespace {

// Starting and ending the daemon is slow under valgrind (1.5 s on a
// workstation, far more under qemu).
constexpr int64_t kStartMs = 60'000;
// A reaction comes at once (32 ms at most on a workstation under
// valgrind). Well under the shortest timed state the scenario meets, an
// operation's 30 s, and the 60 s grace: a reaction that only comes when
// one of them runs out fails the test.
constexpr int64_t kReactionMs = 10'000;

TEST(SimValgrindTest, TheDaemonEndsCleanAfterEveryCapability) {
  setenv("AVD_UNDER_VALGRIND", AVD_BINARY, 1);
  setenv("AVD_VALGRIND_ROOT", VALGRIND_ROOT, 1);
  SimProcess sim;
  ASSERT_TRUE(sim.Start(AP_SIM_BINARY, VALGRIND_AVD));
  sim.Expect("ready", 0, kStartMs);
  sim.Expect("brightness 76", 0, kStartMs);

  // The restart at its end shows the first daemon ended clean.
  RunScenario(sim, kReactionMs, kStartMs);
  const size_t from = sim.lines().size();
  sim.Send("quit");

  sim.Expect("avd exited status=0", from, kStartMs);
}

}  // namespace
}  // namespace morvane::ap
