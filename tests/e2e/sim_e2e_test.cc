// The production avd under the simulator, driven through script mode.

#include <signal.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "tests/e2e/scenario.h"

namespace morvane::ap {
namespace {

TEST(SimE2eTest, EveryCapabilityReachesTheDevice) {
  SimProcess sim;
  // Captured, not played: silent and the same on every machine.
  ASSERT_TRUE(sim.Start(AP_SIM_BINARY, AVD_BINARY));
  sim.Expect("ready");
  sim.Expect("sysfs in_proximity_calibbias 123");
  sim.Expect("brightness 76");  // The configuration has arrived.

  RunScenario(sim, SimProcess::kDefaultTimeoutMs,
              SimProcess::kDefaultTimeoutMs);
  // The restart flushed what the first daemon said: one press, one click.
  EXPECT_EQ(sim.Count("sound touch_feedback "), 1u) << sim.Transcript();
}

// Each way of ending the simulator stops the daemon cleanly and leaves no
// process and no directory behind; so does a quit after the daemon
// crashed, which makes the exit status 3.
TEST(SimShutdownTest, LeavesNothingBehind) {
  // 0: the quit command; -1: end of input; SIGKILL: to the daemon, then the
  // quit command; else a signal to the simulator.
  for (const int how : {0, -1, SIGTERM, SIGINT, SIGKILL}) {
    SCOPED_TRACE(how);
    SimProcess sim;
    ASSERT_TRUE(sim.Start(AP_SIM_BINARY, AVD_BINARY));
    sim.Expect("ready");
    const std::string dir = sim.After("sim dir ");
    const pid_t pids[] = {std::atoi(sim.After("bus started pid=").c_str()),
                          std::atoi(sim.After("avd started pid=").c_str())};
    for (const pid_t pid : pids) ASSERT_GT(pid, 0);

    if (how == SIGKILL) {
      kill(pids[1], SIGKILL);
      sim.Expect("avd exited signal=9, unasked");
    }
    if (how == 0 || how == SIGKILL) sim.Send("quit");
    if (how == -1) sim.CloseInput();
    if (how == SIGTERM || how == SIGINT) kill(sim.pid(), how);

    EXPECT_EQ(sim.WaitForExit(), std::optional<int>(how == SIGKILL ? 3 : 0))
        << sim.Transcript();
    if (how != SIGKILL) sim.Expect("avd exited status=0");
    sim.Expect("bye");
    // Both were the simulator's children and were reaped by it.
    for (const pid_t pid : pids) EXPECT_TRUE(kill(pid, 0) == -1 && errno == ESRCH) << pid;
    EXPECT_FALSE(std::filesystem::exists(dir)) << dir << " is still there";
  }
}

// With liblightcontrol-sysfs swapped in, under the simulated LED class,
// light states arrive as LED attributes.
TEST(SimSysfsLightsTest, LightStatesReachTheLedAttributes) {
  SimProcess sim;
  ASSERT_TRUE(sim.Start(AP_SIM_BINARY, AVD_BINARY, {"--sysfs_lights"}));
  sim.ExpectPrefix("avd: lightcontrol-sysfs: ring of 12 LEDs: ");
  // Start-up: white breathing, at the configured intensity's 76 of 255.
  sim.Expect("ring rgb 255 255 255 pattern 0 1500 76 1500");
  sim.Expect("ready");
  sim.Send("op start");
  // Operation in progress: purple, breathing faster.
  sim.Expect("ring rgb 160 0 255 pattern 0 400 76 400");
}

}  // namespace
}  // namespace morvane::ap
