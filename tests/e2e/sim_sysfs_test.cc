// The production avd with liblightcontrol-sysfs swapped in, under ap-sim's
// simulated LED class: light states arrive as LED attributes.

#include <gtest/gtest.h>

#include "tests/e2e/sim_process.h"

namespace morvane::ap {
namespace {

TEST(SimSysfsLightsTest, LightStatesReachTheLedAttributes) {
  SimProcess sim;
  ASSERT_TRUE(sim.Start(AP_SIM_BINARY, AVD_BINARY, {"--sysfs_lights"}));

  // Start-up: white breathing, at the configured intensity's 76 of 255.
  EXPECT_TRUE(sim.WaitForPrefix("avd: lightcontrol-sysfs: ring of 12 LEDs: "))
      << sim.Transcript();
  EXPECT_TRUE(sim.WaitForLine("ring rgb 255 255 255 pattern 0 1500 76 1500"))
      << sim.Transcript();
  ASSERT_TRUE(sim.WaitForLine("ready")) << sim.Transcript();

  sim.Send("op start");

  // Operation in progress: purple, breathing faster.
  EXPECT_TRUE(sim.WaitForLine("ring rgb 160 0 255 pattern 0 400 76 400"))
      << sim.Transcript();
}

}  // namespace
}  // namespace morvane::ap
