#ifndef SIM_LIBRARY_LOG_H_
#define SIM_LIBRARY_LOG_H_

#include <cstddef>
#include <optional>
#include <string>

namespace morvane::ap {

// One line of a stand-in library's log, as the simulator reports it.
struct LibraryOutcome {
  // The simulator's output line, e.g. "light state 6".
  std::string line;
  // Set when the line shows the light ring a new state.
  std::optional<int> light_state;
  // Set when the line sets the master brightness (0..255).
  std::optional<int> brightness;
};

// Light-control log: "light_set_state 6" -> "light state 6",
// "light_set_state_with_transition 1 0" -> "light transition 1 0",
// "light_init 1" -> "light init 1", "light_set_master_brightness 76" ->
// "brightness 76", "light_get_ambient_brightness 42" -> "ambient read 42",
// "light_get_proximity_device_path P" -> "proximity path P". Anything else
// becomes "light " plus the raw line.
LibraryOutcome TranslateLightControlLine(const std::string& raw);

// Audio log: "play frames=..." -> "sound <clip> frames=...", where the clip
// is told by the played byte count ("network_creation", "touch_feedback" or
// "unknown"); other lines become "audio " plus the raw line.
LibraryOutcome TranslatePavoLine(const std::string& raw,
                                 size_t network_creation_bytes,
                                 size_t touch_feedback_bytes);

// Metrics log: "enum AccessPoint.PrioritizeEvent 1 3" ->
// "metric AccessPoint.PrioritizeEvent 1 3".
LibraryOutcome TranslateMetricsLine(const std::string& raw);

}  // namespace morvane::ap

#endif  // SIM_LIBRARY_LOG_H_
