// The production avd under the simulator when its peers misbehave: each
// fault leaves the daemon serving the Manager and the ring in the state the
// world calls for.

#include <stdlib.h>

#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "tests/e2e/sim_process.h"

namespace morvane::ap {
namespace {

class SimFaultsTest : public testing::Test {
 protected:
  void SetUp() override {
    // The library's default time-out, shortened for every process of the
    // run, so that a call Upstart never answers ends within the test.
    setenv("SYSTEMD_BUS_TIMEOUT", "2s", 1);
    ASSERT_TRUE(sim_.Start(AP_SIM_BINARY, AVD_BINARY));
    unsetenv("SYSTEMD_BUS_TIMEOUT");
    sim_.Expect("ready");
    sim_.Expect("brightness 76");  // The configuration has arrived.
    sim_.Send("wan online");
    online_ = sim_.Expect("light state 1");
  }

  // The daemon still answers the Manager and shows the operation.
  void ExpectServing(size_t from) {
    sim_.Send("op start");
    const size_t started = sim_.Expect("light state 6", from);
    sim_.Expect("operation started id=1", from);
    sim_.Send("op succeed");
    sim_.Expect("light transition 1 0", started);
  }

  SimProcess sim_;
  size_t online_ = 0;
};

TEST_F(SimFaultsTest, PeersRestartedAreFollowedAgain) {
  sim_.Send("restart connman");
  const size_t connman = sim_.Expect("light state 2", online_);
  sim_.Expect("light state 1", connman);
  sim_.Send("group failure");
  const size_t failure = sim_.Expect("light state 2", connman);
  sim_.Send("restart group");
  // Gone: the failure clears; back: read again, still failing.
  const size_t cleared = sim_.Expect("light state 1", failure);
  const size_t group = sim_.Expect("light state 2", cleared);
  sim_.Send("group ok");
  const size_t ok = sim_.Expect("light state 1", group);
  sim_.Send("restart controller");
  sim_.Send("intensity 100");

  sim_.Expect("brightness 255", ok);
  ExpectServing(ok);
}

TEST_F(SimFaultsTest, UpstartNeverAnsweringStallsOnlyUntilTheTimeOut) {
  sim_.Send("upstart hang");
  sim_.Send("wan offline");
  const size_t offline = sim_.Expect("light state 2", online_);
  sim_.Send("wan online");
  sim_.Expect("upstart ap-wan-online unanswered", offline);
  sim_.Send("press");

  // After the call's time-out, the light, input and the Manager again.
  sim_.Expect("light state 1", offline);
  sim_.ExpectPrefix("sound touch_feedback ", offline);
  ExpectServing(offline);
}

// Devices gone are warned of once each (that their readers then stop, with
// no busy loop, is the readers' own tests'); values of the wrong types are
// warned of and ignored; a flood of malformed calls from a vanishing client
// ends nothing.
TEST_F(SimFaultsTest, GoneDevicesWrongTypesAndAFloodLeaveItServing) {
  sim_.Send("unplug touch");
  sim_.Send("unplug sensor");
  // The warnings come on the daemon's stderr, the ring's lines through the
  // library's log: nothing orders the two, so wait for the warnings.
  sim_.ExpectPrefix("avd: W", sim_.ExpectPrefix("avd: W", online_) + 1);
  const size_t sent = sim_.lines().size();
  sim_.Send("wrongtypes");
  sim_.ExpectPrefix("avd: W", sent);
  sim_.Send("flood 5000");
  sim_.Send("echo sent");

  ExpectServing(sim_.Expect("echo sent", sent));
  size_t gone = 0;
  for (const std::string& line : sim_.lines()) {
    gone += line.starts_with("avd: W") &&
            line.find("Failed to read event: end of stream") != std::string::npos;
  }
  EXPECT_EQ(gone, 2u) << sim_.Transcript();
  EXPECT_EQ(sim_.Count("light state 2"), 0u) << sim_.Transcript();
  EXPECT_EQ(sim_.Count("avd exited"), 0u) << sim_.Transcript();
}

}  // namespace
}  // namespace morvane::ap
