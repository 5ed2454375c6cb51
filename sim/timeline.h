#ifndef SIM_TIMELINE_H_
#define SIM_TIMELINE_H_

#include <cstdint>
#include <string>
#include <vector>

namespace morvane::ap {

// What the simulated device showed and how its world was set just after a
// line was reported.
struct DeviceSnapshot {
  int light_state = -1;  // -1: none yet.
  int brightness = -1;   // 0..255; -1: none yet.
  bool wan_online = false;
  bool group_failure = false;  // A non-root access point without its root.
  bool in_setup = false;
};

// One reported line, |ms| after the session started.
struct TimelineEntry {
  int64_t ms = 0;
  std::string line;
  DeviceSnapshot device;
};

// The picture's layout, which a reader of the rendered picture relies on:
// the session, from its start to its end so far, runs from x =
// kTimelineLeft over kTimelineWidth pixels, and the light state fills the
// band from kStateBandTop, kStateBandHeight high, in the ring's colours.
constexpr int kTimelineLeft = 140;
constexpr int kTimelineWidth = 1000;
constexpr int kStateBandTop = 40;
constexpr int kStateBandHeight = 36;

// A plain SVG picture of a session that ended (so far) at |end_ms|: the
// light-state band, each stretch named (inside the band, or in a lane
// under it when it is too narrow) with its transitions marked; the master
// brightness as a curve; a row each for the WAN, the group, setup, the
// start-up grace period, operations, the timed LED states, presses, waves
// and the controller's Set, every sound (the touch click among them),
// and each run of the daemon; then a legend of the colours and marks.
// No two texts overlap: a label with no room is left out (a state's name
// falls back to its number first).
std::string RenderTimeline(const std::vector<TimelineEntry>& entries,
                           int64_t end_ms);

}  // namespace morvane::ap

#endif  // SIM_TIMELINE_H_
