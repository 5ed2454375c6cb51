#ifndef SIM_VIEW_FRAME_H_
#define SIM_VIEW_FRAME_H_

#include <deque>
#include <string>

#include "sim/simulator.h"

namespace morvane::ap {

// One frame of the terminal view for a |width| x |height| terminal: the
// header (the daemon's state, the bus address), the ring coloured by light
// state and dimmed by master brightness with the name of what decided it,
// the flags, the keys, and the last lines of |log|, or with |show_keys|
// every key and what it does. Starts at the cursor home and overwrites
// every row, so that a redraw never flickers.
std::string RenderFrame(const SimState& state,
                        const std::deque<std::string>& log, bool show_keys,
                        int width, int height);

// A daemon line as the view shows it: "avd: I1123 10:00:01.123 42
// file.cc:9] text" becomes "avd 10:00:01 I text"; other lines are kept.
std::string ShortenDaemonLine(const std::string& line);

}  // namespace morvane::ap

#endif  // SIM_VIEW_FRAME_H_
