// The production avd under the simulator when its peers and devices
// misbehave, one fault after another: each leaves the ring in the state the
// world calls for, and the daemon serving the Manager.

#include <stdlib.h>

#include <string>

#include <gtest/gtest.h>

#include "tests/e2e/sim_process.h"

namespace morvane::ap {
namespace {

TEST(SimFaultsTest, EachFaultLeavesTheRingRightAndTheDaemonServing) {
  // The library's default time-out, shortened for every process of the
  // run, so that a call Upstart never answers ends within the test.
  setenv("SYSTEMD_BUS_TIMEOUT", "2s", 1);
  SimProcess sim;
  ASSERT_TRUE(sim.Start(AP_SIM_BINARY, AVD_BINARY));
  unsetenv("SYSTEMD_BUS_TIMEOUT");
  sim.Expect("ready");
  sim.Expect("brightness 76");  // The configuration has arrived.
  sim.Send("wan online");
  const size_t online = sim.Expect("light state 1");

  // Peers restarted are followed again.
  sim.Send("restart connman");
  const size_t connman = sim.Expect("light state 2", online);
  sim.Expect("light state 1", connman);
  sim.Send("group failure");
  const size_t failure = sim.Expect("light state 2", connman);
  sim.Send("restart group");
  // Gone: the failure clears; back: read again, still failing.
  const size_t cleared = sim.Expect("light state 1", failure);
  const size_t group = sim.Expect("light state 2", cleared);
  sim.Send("group ok");
  const size_t ok = sim.Expect("light state 1", group);
  sim.Send("restart controller");
  sim.Send("intensity 100");
  sim.Expect("brightness 255", ok);

  // Upstart never answering stalls only until the call's time-out: then
  // the light and input again.
  sim.Send("upstart hang");
  sim.Send("wan offline");
  const size_t offline = sim.Expect("light state 2", ok);
  sim.Send("wan online");
  sim.Expect("upstart ap-wan-online unanswered", offline);
  sim.Send("press");
  sim.Expect("light state 1", offline);
  sim.ExpectPrefix("sound touch_feedback ", offline);

  // Devices gone are warned of once each (that their readers then stop,
  // with no busy loop, is the readers' own tests'). The warnings come on
  // the daemon's stderr, the ring's lines through the library's log:
  // nothing orders the two, so wait for the warnings.
  const size_t unplugged = sim.lines().size();
  sim.Send("unplug touch");
  sim.Send("unplug sensor");
  sim.ExpectPrefix("avd: W", sim.ExpectPrefix("avd: W", unplugged) + 1);
  // Values of the wrong types are warned of and ignored; a flood of
  // malformed calls from a vanishing client ends nothing.
  const size_t wrong = sim.lines().size();
  sim.Send("wrongtypes");
  sim.ExpectPrefix("avd: W", wrong);
  sim.Send("flood 5000");
  sim.Send("echo sent");
  const size_t sent = sim.Expect("echo sent", wrong);

  sim.Send("op start");
  const size_t started = sim.Expect("light state 6", sent);
  sim.Expect("operation started id=1", sent);
  sim.Send("op succeed");
  sim.Expect("light transition 1 0", started);
  size_t gone = 0;
  for (const std::string& line : sim.lines()) {
    gone += line.starts_with("avd: W") &&
            line.find("Failed to read event: end of stream") != std::string::npos;
  }
  EXPECT_EQ(gone, 2u) << sim.Transcript();
  EXPECT_EQ(sim.Count("light state 2", wrong), 0u) << sim.Transcript();
  EXPECT_EQ(sim.Count("avd exited"), 0u) << sim.Transcript();
}

}  // namespace
}  // namespace morvane::ap
