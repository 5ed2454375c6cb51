// The production avd under the simulator, driven through script mode.

#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "tests/e2e/scenario.h"
#include "tests/e2e/sim_process.h"

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
  EXPECT_EQ(sim.Count("sound touch_feedback frames=960 format=2 rate=48000 "
                      "channels=1 device=0 bytes=1920 -> 0"),
            1u)
      << sim.Transcript();
}

// Both programs print their own usage and flags, none of their libraries'.
TEST(HelpTest, PrintsTheProgramsOwnUsageAndExitsZero) {
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
      EXPECT_EQ(text.rfind("avd: AV Daemon\n\nUsage: avd ", 0), 0u) << text;
      EXPECT_NE(text.find("\n  AVD_SYSROOT "), std::string::npos) << text;
    } else {
      EXPECT_NE(text.find("--script:"), std::string::npos) << text;
    }
  }
}

// Each way of ending the simulator stops the daemon cleanly and leaves no
// process and no directory behind.
TEST(SimShutdownTest, LeavesNothingBehind) {
  // 0: the quit command; -1: end of input; else a signal.
  for (const int how : {0, -1, SIGTERM, SIGINT}) {
    SCOPED_TRACE(how);
    SimProcess sim;
    ASSERT_TRUE(sim.Start(AP_SIM_BINARY, AVD_BINARY));
    ASSERT_TRUE(sim.WaitForLine("ready")) << sim.Transcript();
    auto value = [&](const std::string& prefix) {
      const std::string line = sim.lines()[*sim.WaitForPrefix(prefix)];
      return line.substr(prefix.size(), line.find(' ', prefix.size()) - prefix.size());
    };
    const std::string dir = value("sim dir ");
    const pid_t pids[] = {std::atoi(value("bus started pid=").c_str()),
                          std::atoi(value("avd started pid=").c_str())};

    if (how == 0) sim.Send("quit");
    if (how == -1) sim.CloseInput();
    if (how > 0) kill(sim.pid(), how);

    EXPECT_EQ(sim.WaitForExit(), std::optional<int>(0)) << sim.Transcript();
    EXPECT_TRUE(sim.WaitForLine("avd exited status=0")) << sim.Transcript();
    EXPECT_TRUE(sim.WaitForLine("bye")) << sim.Transcript();
    // Both were the simulator's children and were reaped by it.
    for (const pid_t pid : pids) {
      ASSERT_GT(pid, 0);
      EXPECT_TRUE(kill(pid, 0) == -1 && errno == ESRCH) << pid;
    }
    EXPECT_FALSE(std::filesystem::exists(dir)) << dir << " is still there";
  }
}

}  // namespace
}  // namespace morvane::ap
