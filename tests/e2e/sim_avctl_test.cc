// avctl against the production avd under the simulator: what it prints
// follows what the daemon does.

#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/e2e/sim_process.h"

namespace morvane::ap {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// Runs |program| with |args| (cut after 10 s); returns its exit status, and
// what it printed in |output|.
int RunProgram(const std::string& program, const std::string& args, std::string* output) {
  FILE* out = popen(("timeout 10 " + program + " " + args + " 2>&1").c_str(), "r");
  char buffer[4096];
  output->clear();
  while (size_t n = fread(buffer, 1, sizeof(buffer), out)) output->append(buffer, n);
  const int status = pclose(out);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// What avctl, avd and ap-sim say of their command lines, before any bus:
// usage errors exit 64, a valid request without a bus says where to find
// one. Each prints its own usage and flags, none of its libraries'.
TEST(AvctlCommandLineTest, RefusesWhatItCannotDoAndSaysWhatToTry) {
  const struct {
    const char* program;
    const char* args;
    int status;
    const char* says;
    bool first = false;  // What it says comes first.
  } kCases[] = {
      {AVD_BINARY, "-h", 0, "avd: AV Daemon\n\nUsage: avd ", true},
      {AVD_BINARY, "--help", 0, "\n  AVD_SYSROOT "},
      {AP_SIM_BINARY, "--help", 0, "--script:"},
      {AVD_BINARY, "help", 0, "Usage: avd"},
      {AVD_BINARY, "--bogus", 64, "avd: unknown option '--bogus'"},
      {AVD_BINARY, "--v 1 stray", 64, "avd: unexpected argument 'stray'"},
      {AVD_BINARY, "-- --version", 64, "unexpected argument '--version'"},
      {AVD_BINARY, "--nologtostderr --v=1 --version", 0, "avd 1"},
      {AP_SIM_BINARY, "--script one two", 64, "unexpected argument 'two'"},
      {AP_SIM_BINARY, "--script /nonexistent/script", 1,
       "Failed to open the script /nonexistent/script"},
      {AVCTL_BINARY, "help", 0, "Usage: avctl"},
      {AVCTL_BINARY, "--help", 0, "Usage: avctl"},
      {AVCTL_BINARY, "", 64, "missing command"},
      {AVCTL_BINARY, "bogus", 64, "unknown command bogus"},
      {AVCTL_BINARY, "--bogus status", 64, "unknown option --bogus"},
      {AVCTL_BINARY, "status now", 64, "status takes no arguments"},
      {AVCTL_BINARY, "op succeed -1", 64, "invalid operation ID -1: a number from 0 to"},
      {AVCTL_BINARY, "op succeed 4294967296", 64, "invalid operation ID 4294967296"},
      {AVCTL_BINARY, "led vox x 4294967296", 64, "invalid number of seconds 4294967296"},
      // strtoull negates what follows a minus: this one would come out as 1.
      {AVCTL_BINARY, "led vox x -18446744073709551615", 64, "invalid number of seconds"},
      {AVCTL_BINARY, "led vox x", 64, "led takes NAME VALUE SECONDS"},
      {AVCTL_BINARY, "op succeed 4294967295", 1, "or set DBUS_SYSTEM_BUS_ADDRESS"},
      {AVCTL_BINARY, "led vox x 4294967295", 1, "Run it inside the simulator"},
  };
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.args);
    std::string output;
    EXPECT_EQ(RunProgram(c.program, c.args, &output), c.status) << output;
    EXPECT_THAT(output, HasSubstr(c.says));
    EXPECT_TRUE(!c.first || output.starts_with(c.says)) << output;
    EXPECT_THAT(output, Not(HasSubstr("log_dir")));
  }
  unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  // A machine without a system bus, as most workstations are.
  if (access("/run/dbus/system_bus_socket", F_OK) != 0) {
    std::string output;
    EXPECT_EQ(RunProgram(AVD_BINARY, "", &output), 69) << output;
    EXPECT_THAT(output, HasSubstr("Run the daemon inside the simulator "
                                  "(scripts/sim), or set DBUS_SYSTEM_BUS_ADDRESS"));
  }
}

TEST(SimAvctlTest, StatusAndMonitorFollowTheDaemonAndCallsReachIt) {
  SimProcess sim;
  ASSERT_TRUE(sim.Start(AP_SIM_BINARY, AVD_BINARY));
  sim.Expect("ready");
  sim.Expect("brightness 76");  // The configuration has arrived.
  const std::string bus = sim.After("bus started ");
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.substr(bus.find("address=") + 8).c_str(), 1);
  // The monitor is on the bus once its first status is there.
  SimProcess monitor;
  ASSERT_TRUE(monitor.Run({AVCTL_BINARY, "monitor"}));
  monitor.ExpectPrefix("    Audio server: ");
  std::string output;
  // avctl status says each of |parts|.
  auto status_says = [&](std::initializer_list<const char*> parts) {
    EXPECT_EQ(RunProgram(AVCTL_BINARY, "status", &output), 0) << output;
    for (const char* part : parts) EXPECT_THAT(output, HasSubstr(part));
  };

  status_says({"avd: light state 0, start-up (decided by the start-up grace period, ",
               "      Brightness: 76 of 255, configured\n", "  Last operation: none\n",
               "Proximity sensor: in use\n", "    Touch device: in use\n"});
  EXPECT_EQ(RunProgram(AVCTL_BINARY, "op start", &output), 0);
  EXPECT_EQ(output, "1\n");
  sim.Expect("light state 6");
  sim.Send("wan online");
  sim.Expect("upstart ap-wan-online");
  status_says({"light state 6, operation in progress (decided by vox)\n",
               "       Connected: yes (WAN online, no group failure)\n",
               "    Timed states: vox \"in_progress\", ", "  Last operation: 1\n"});
  EXPECT_EQ(RunProgram(AVCTL_BINARY, "op succeed", &output), 0) << output;
  sim.Expect("light transition 1 0");
  sim.Send("group failure");
  sim.Expect("light state 2");
  status_says({"light state 2, WAN failure (decided by not_connected)\n",
               "Connected: no (WAN online, group failure)\n", "    Timed states: none\n"});
  EXPECT_EQ(RunProgram(AVCTL_BINARY, "led bogus x 1", &output), 1);
  EXPECT_THAT(output, HasSubstr("avctl: Failed to call SetLedState: "));
  EXPECT_THAT(output, HasSubstr("avd accepts the names \"vox\" and \"setup_activity\""));

  // Each change of the status on a line of its own, in order.
  monitor.Expect("Connected=no DecidingInput=not_connected GroupFailure=yes LightState=2");
  std::string changes;
  for (const std::string& line : monitor.lines()) changes += line + "\n";
  EXPECT_THAT(changes, HasSubstr("\nDecidingInput=vox LightState=6 "
                                 "TimedStates=vox:in_progress,wan_failure:\n"
                                 "Connected=yes TimedStates=vox:in_progress WanOnline=yes\n"
                                 "DecidingInput=connected LightState=1 TimedStates=\n"
                                 "Connected=no DecidingInput=not_connected "
                                 "GroupFailure=yes LightState=2\n"));
  kill(monitor.pid(), SIGTERM);
  EXPECT_EQ(monitor.WaitForExit(), std::optional<int>(0)) << monitor.Transcript();
}

}  // namespace
}  // namespace morvane::ap
