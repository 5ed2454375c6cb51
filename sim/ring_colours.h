#ifndef SIM_RING_COLOURS_H_
#define SIM_RING_COLOURS_H_

namespace morvane::ap {

struct Rgb {
  int r, g, b;
};

// What the ring looks like in each light state on this simulated device,
// for the terminal view and the timeline alike.
inline Rgb StateColour(int state) {
  switch (state) {
    case 0: return {225, 225, 225};  // start-up: white
    case 1: return {40, 200, 90};    // online: green
    case 2: return {235, 100, 20};   // WAN or group failure: amber
    case 3: return {40, 110, 240};   // setup: blue
    case 4: return {40, 210, 230};   // setup activity: cyan
    case 6: return {170, 70, 230};   // operation in progress: purple
    default: return {90, 90, 90};    // none yet, or unexpected
  }
}

// The state's name; state 2 by the input that decided it.
inline const char* StateName(int state, bool group_failure = false) {
  switch (state) {
    case -1: return "(none yet)";
    case 0: return "start-up";
    case 1: return "online";
    case 2: return group_failure ? "group failure" : "WAN failure";
    case 3: return "setup";
    case 4: return "setup activity";
    case 6: return "operation";
    default: return "unexpected";
  }
}

}  // namespace morvane::ap

#endif  // SIM_RING_COLOURS_H_
