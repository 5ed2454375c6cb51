#ifndef LIGHTCONTROL_SYSFS_LIGHT_CONFIG_H_
#define LIGHTCONTROL_SYSFS_LIGHT_CONFIG_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace morvane::ap {

struct Rgb {
  uint8_t r = 0;
  uint8_t g = 0;
  uint8_t b = 0;
  bool operator==(const Rgb&) const = default;
};

// One step of the kernel's pattern trigger: the LED goes to |level| (0..255,
// relative to the LED's top level at the time it is written) and holds it,
// or ramps to the next step's level, for |duration_ms|.
struct PatternStep {
  int level = 0;
  int duration_ms = 0;
  bool operator==(const PatternStep&) const = default;
};

// What one light state looks like. An empty pattern is a steady colour.
struct StateLook {
  Rgb colour;
  std::vector<PatternStep> pattern;
};

// A finite pattern played |repeat| times in the new state's colour before a
// steady state; the LED then holds the level of the pattern's last step.
struct Transition {
  int repeat = 1;
  std::vector<PatternStep> pattern;
};

// A board's light configuration: which LEDs form the ring and how each light
// state and transition is shown. See lightcontrol-sysfs.conf for the format.
struct LightConfig {
  // LED class device names in ring order; empty means every multicolour LED.
  std::vector<std::string> ring;
  std::map<int, StateLook> states;
  std::map<int, Transition> transitions;
  // The illuminance in lux that reads as ambient level 255.
  double ambient_full_scale_lux = 500;
};

// The built-in configuration: the ring is every multicolour LED, and each
// light state has its own colour and pattern, so that one RGB LED tells them
// apart (and one single-colour LED mostly does, by pattern alone).
LightConfig DefaultLightConfig();

// Applies the "key = value" lines of |text| over |config|. A line that does
// not parse leaves its key as it was and adds "line N: <why>" to |problems|;
// every valid line still applies.
void ParseLightConfig(const std::string& text, LightConfig* config,
                      std::vector<std::string>* problems);

}  // namespace morvane::ap

#endif  // LIGHTCONTROL_SYSFS_LIGHT_CONFIG_H_
