#ifndef TESTS_E2E_SCENARIO_H_
#define TESTS_E2E_SCENARIO_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "tests/e2e/sim_process.h"

namespace morvane::ap {

// Every capability of the daemon once, through the simulator's commands:
// each command with the starts of the lines it must bring. Each step acts
// on the state the ones before left, from a daemon that is ready and has
// its configuration.
struct ScenarioStep {
  const char* command;
  std::vector<const char*> outcomes;
  // The step ends the daemon and starts the next: its outcomes take a
  // start-up's time.
  bool starts_daemon = false;
};
inline const ScenarioStep kScenario[] = {
    {"op start", {"operation started id=1", "light state 6"}},
    {"op succeed", {"operation succeeded id=1", "light transition 0 0"}},
    {"op start", {"operation started id=2", "light state 6"}},
    {"op fail", {"operation failed id=2", "light state 0"}},
    // The largest duration reaches the daemon, which refuses the name.
    {"led wan_failure x 4294967295", {"led error org.freedesktop.DBus.Error"}},
    {"wan online", {"light state 1", "upstart ap-wan-online"}},
    {"group failure", {"light state 2"}},
    {"group ok", {"light state 1"}},
    // The record holds a byte: 255 % is taken as it comes and wraps.
    {"intensity 255", {"brightness 138"}},
    {"intensity 100", {"brightness 255"}},
    {"setup reset", {"light state 3"}},
    // An operation outranks setup, and setup shows again once it ends.
    {"op start", {"operation started id=3", "light state 6"}},
    {"op fail", {"operation failed id=3", "light state 3"}},
    {"setup completed",
     {"light transition 1 0", "sound network_creation frames="}},
    {"wave",
     {"metric AccessPoint.PrioritizeEvent 1 3",
      "config set prioritized_device { mac_address: \"02:00:00:5e:00:01\" "
      "expiration_time: ",
      "light transition 1 0"}},
    {"press",
     {"sound touch_feedback frames=960 format=2 rate=48000 channels=1 "
      "device=0 bytes=1920 -> 0"}},
    // Started over, the daemon claims its name again.
    {"restart avd", {"avd exited status=0", "light init 1", "ready"}, true},
};

// Runs kScenario on |sim|, failing the test at the first line that does
// not come within |timeout_ms| of its command (|start_timeout_ms| for a
// step that starts the daemon).
inline void RunScenario(SimProcess& sim, int64_t timeout_ms,
                        int64_t start_timeout_ms) {
  for (const ScenarioStep& step : kScenario) {
    SCOPED_TRACE(step.command);
    const size_t from = sim.lines().size();
    sim.Send(step.command);
    for (const char* outcome : step.outcomes) {
      sim.ExpectPrefix(outcome, from,
                       step.starts_daemon ? start_timeout_ms : timeout_ms);
    }
  }
}

}  // namespace morvane::ap

#endif  // TESTS_E2E_SCENARIO_H_
