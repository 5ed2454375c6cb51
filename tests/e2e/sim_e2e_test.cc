// The production avd under the simulator, driven through script mode.

#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "tests/e2e/sim_process.h"

namespace morvane::ap {
namespace {

class SimE2eTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_STRNE(AVD_BINARY, "")
        << "the avd target does not exist in this build";
    // Captured, not played: silent and the same on every machine.
    ASSERT_TRUE(sim_.Start(AP_SIM_BINARY, AVD_BINARY));
  }

  size_t Expect(const std::string& line, size_t from = 0) {
    return sim_.Expect(line, from);
  }

  // The value after |prefix| on the first line that starts with it.
  std::string ValueAfter(const std::string& prefix) {
    const std::optional<size_t> at = sim_.WaitForPrefix(prefix);
    EXPECT_TRUE(at.has_value()) << "no line starting \"" << prefix
                                << "\"; output:\n" << sim_.Transcript();
    if (!at) return "";
    const std::string& line = sim_.lines()[*at];
    const std::string rest = line.substr(prefix.size());
    return rest.substr(0, rest.find(' '));
  }

  void WaitUntilReady() {
    Expect("ready");
    Expect("light state 0");
  }

  SimProcess sim_;
};

TEST_F(SimE2eTest, StartUpInitialisesTheLightThenShowsStartupState) {
  const size_t init = Expect("light init 1");
  const size_t brightness = Expect("brightness 30");
  const size_t state = Expect("light state 0");
  Expect("ready");

  EXPECT_LT(init, brightness) << sim_.Transcript();
  EXPECT_LT(brightness, state) << sim_.Transcript();
}

TEST(SimDeveloperModeTest, NonDeveloperDeviceInitialisesTheLightInVerifiedMode) {
  ASSERT_STRNE(AVD_BINARY, "") << "the avd target does not exist in this build";
  SimProcess verified;
  ASSERT_TRUE(verified.Start(AP_SIM_BINARY, AVD_BINARY, {"--developer=false"}));
  EXPECT_TRUE(verified.WaitForLine("light init 0"))
      << verified.Transcript();
}

TEST_F(SimE2eTest, OperationsOverTheBusDriveTheRing) {
  WaitUntilReady();

  sim_.Send("op start");
  const size_t first = Expect("operation started id=1");
  Expect("light state 6");
  sim_.Send("op start");
  Expect("operation started id=2", first);

  // Success shows the underlying state through the transition call.
  sim_.Send("op succeed");
  const size_t succeeded = Expect("operation succeeded id=2");
  Expect("light transition 0 0");

  // Failure goes back to it through the plain call.
  sim_.Send("op start");
  Expect("operation started id=3", succeeded);
  const size_t shown_again = Expect("light state 6", succeeded);
  sim_.Send("op fail");
  Expect("operation failed id=3");
  Expect("light state 0", shown_again);

  sim_.Send("echo done");
  Expect("echo done");
  // The second start while 6 was showing changed nothing on the ring.
  EXPECT_EQ(sim_.Count("light state 6"), 2u) << sim_.Transcript();
}

TEST_F(SimE2eTest, RejectedLedStateIsAnErrorReply) {
  WaitUntilReady();

  sim_.Send("led wan_failure x 10");

  EXPECT_TRUE(sim_.WaitForPrefix("led error org.freedesktop.DBus.Error"))
      << sim_.Transcript();
}

TEST_F(SimE2eTest, RestartedDaemonStartsOverAndClaimsItsNameAgain) {
  WaitUntilReady();
  const size_t before = sim_.lines().size();

  sim_.Send("restart avd");

  Expect("avd exited status=0", before);
  const size_t restarted = Expect("light init 1", before);
  Expect("ready", before);
  Expect("light state 0", restarted);
}

TEST_F(SimE2eTest, WanAndGroupStatusDriveTheRing) {
  WaitUntilReady();

  sim_.Send("wan online");
  const size_t online = Expect("light state 1");
  Expect("upstart ap-wan-online", online);
  sim_.Send("group failure");
  const size_t failure = Expect("light state 2", online);
  sim_.Send("group leave");
  const size_t left = Expect("light state 1", failure);
  sim_.Send("wan offline");
  const size_t offline = Expect("light state 2", left);
  sim_.Send("wan online");
  Expect("light state 1", offline);

  // Upstart hears each offline-to-online change once.
  Expect("upstart ap-wan-online", offline);
  EXPECT_EQ(sim_.Count("upstart ap-wan-online"), 2u) << sim_.Transcript();
}

TEST_F(SimE2eTest, ConfigurationSetsBrightnessAndCompletedSetupChimesOnce) {
  WaitUntilReady();
  const size_t first = Expect("brightness 76");

  sim_.Send("intensity 100");
  const size_t brighter = Expect("brightness 255", first);
  sim_.Send("setup reset");
  const size_t setup = Expect("light state 3", brighter);
  sim_.Send("setup completed");
  Expect("light transition 1 0", setup);

  EXPECT_TRUE(sim_.WaitForPrefix("sound network_creation frames=", setup))
      << sim_.Transcript();
  EXPECT_EQ(sim_.Count("audio connect 0"), 1u) << sim_.Transcript();
}

TEST_F(SimE2eTest, WavePrioritisesTheDefaultDeviceThroughTheController) {
  WaitUntilReady();
  Expect("sysfs in_proximity_calibbias 123");
  Expect("brightness 76");  // The configuration has arrived.

  sim_.Send("wave");

  const size_t wave = Expect("inject wave");
  Expect("metric AccessPoint.PrioritizeEvent 1 3", wave);
  EXPECT_TRUE(sim_.WaitForPrefix(
      "config set prioritized_device { mac_address: \"02:00:00:5e:00:01\" "
      "expiration_time: ",
      wave))
      << sim_.Transcript();
  Expect("light transition 0 0", wave);
}

// Both programs print their own usage and flags, none of their libraries'.
TEST(HelpTest, PrintsTheProgramsOwnUsageAndExitsZero) {
  ASSERT_STRNE(AVD_BINARY, "") << "the avd target does not exist in this build";
  for (const std::string binary : {AVD_BINARY, AP_SIM_BINARY}) {
    SCOPED_TRACE(binary);
    FILE* out = popen(("timeout 10 " + binary + " --help").c_str(), "r");
    ASSERT_NE(out, nullptr);
    std::string text;
    char buffer[4096];
    while (size_t n = fread(buffer, 1, sizeof(buffer), out)) text.append(buffer, n);

    EXPECT_EQ(pclose(out), 0);
    EXPECT_EQ(text.find("log_dir"), std::string::npos) << text;
    if (binary == AVD_BINARY) {
      EXPECT_EQ(text, "avd: AV Daemon\n");
    } else {
      EXPECT_NE(text.find("--script:"), std::string::npos) << text;
    }
  }
}

TEST_F(SimE2eTest, PressPlaysTheClickOnce) {
  const std::string kClick =
      "sound touch_feedback frames=960 format=2 rate=48000 channels=1 "
      "device=0 bytes=1920 -> 0";
  WaitUntilReady();

  sim_.Send("press");
  Expect(kClick);
  // The daemon's exit flushes everything it said to the audio library.
  sim_.Send("quit");
  Expect("bye");

  EXPECT_EQ(sim_.Count(kClick), 1u) << sim_.Transcript();
}

// Each way of ending the simulator stops the daemon cleanly and leaves no
// process and no directory behind.
TEST(SimShutdownTest, LeavesNothingBehind) {
  ASSERT_STRNE(AVD_BINARY, "") << "the avd target does not exist in this build";
  for (const char* how : {"quit", "end of input", "SIGTERM", "SIGINT"}) {
    SCOPED_TRACE(how);
    SimProcess sim;
    ASSERT_TRUE(sim.Start(AP_SIM_BINARY, AVD_BINARY));
    ASSERT_TRUE(sim.WaitForLine("ready")) << sim.Transcript();
    auto value = [&](const std::string& prefix) {
      const std::string line = sim.lines()[*sim.WaitForPrefix(prefix)];
      const std::string rest = line.substr(prefix.size());
      return rest.substr(0, rest.find(' '));
    };
    const std::string dir = value("sim dir ");
    const pid_t bus_pid = std::atoi(value("bus started pid=").c_str());
    const pid_t avd_pid = std::atoi(value("avd started pid=").c_str());
    ASSERT_GT(bus_pid, 0);
    ASSERT_GT(avd_pid, 0);

    const std::string h = how;
    if (h == "quit") {
      sim.Send("quit");
    } else if (h == "end of input") {
      sim.CloseInput();
    } else {
      kill(sim.pid(), h == "SIGTERM" ? SIGTERM : SIGINT);
    }

    EXPECT_EQ(sim.WaitForExit(), std::optional<int>(0)) << sim.Transcript();
    EXPECT_TRUE(sim.WaitForLine("avd exited status=0")) << sim.Transcript();
    EXPECT_TRUE(sim.WaitForLine("bye")) << sim.Transcript();
    // Both were the simulator's children and were reaped by it.
    EXPECT_EQ(kill(bus_pid, 0), -1);
    EXPECT_EQ(errno, ESRCH);
    EXPECT_EQ(kill(avd_pid, 0), -1);
    EXPECT_EQ(errno, ESRCH);
    struct stat st {};
    EXPECT_NE(stat(dir.c_str(), &st), 0) << dir << " is still there";
  }
}

}  // namespace
}  // namespace morvane::ap
