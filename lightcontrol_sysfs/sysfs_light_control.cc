#include "lightcontrol_sysfs/sysfs_light_control.h"

#include <syslog.h>

#include <cerrno>
#include <cstring>

namespace morvane::ap {
namespace {

// The configuration as |path| leaves it, and a note on where it came from.
LightConfig LoadConfig(Sysfs* sysfs, const std::string& path, std::string* note) {
  LightConfig config = DefaultLightConfig();
  int error = 0;
  const std::optional<std::string> text = sysfs->Read(path, &error);
  if (!text) {
    *note = path + (error == ENOENT ? " absent" : " unreadable") +
            ", built-in defaults";
    if (error != ENOENT) {
      ReportLine("Failed to read " + path + ": " + strerror(error) +
                 "; using the built-in configuration");
    }
    return config;
  }
  std::vector<std::string> problems;
  ParseLightConfig(*text, &config, &problems);
  for (const std::string& problem : problems) {
    ReportLine("Failed to parse " + path + " " + problem + "; ignoring the line");
  }
  *note = path;
  return config;
}

}  // namespace

SysfsLightControl::SysfsLightControl(const std::string& root,
                                     const std::string& config_path)
    : sysfs_(root),
      config_(LoadConfig(&sysfs_, config_path, &config_note_)),
      sensors_(&sysfs_, config_.ambient_full_scale_lux) {
  std::vector<std::string> names = config_.ring;
  if (names.empty()) {
    for (const std::string& name : sysfs_.List(sysfs_.Path("/sys/class/leds"))) {
      if (Led::IsMulticolour(sysfs_, name)) names.push_back(name);
    }
  }
  std::string found;
  int multicolour = 0;
  int patterns = 0;
  for (const std::string& name : names) {
    std::unique_ptr<Led> led = Led::Probe(&sysfs_, name);
    if (!led) continue;
    found += (found.empty() ? "" : ", ") + name;
    multicolour += led->multicolour();
    patterns += led->has_pattern_trigger();
    ring_.push_back(std::move(led));
  }
  if (ring_.empty()) {
    ReportLine("Failed to find an LED of the ring in " +
               sysfs_.Path("/sys/class/leds") +
               (config_.ring.empty() ? " (no multicolour LED, no ring = in the "
                                       "configuration)"
                                     : "") +
               "; light states are not shown");
  }
  ReportLine("ring of " + std::to_string(ring_.size()) + " LEDs: " + found + " (" +
                 std::to_string(multicolour) + " multicolour, " +
                 std::to_string(patterns) + " with the pattern trigger); "
                 "configuration: " + config_note_,
             LOG_INFO);
}

int SysfsLightControl::SetState(int state, std::optional<int> transition) {
  const auto look = config_.states.find(state);
  if (look == config_.states.end()) {
    sysfs_.ReportOnce("state " + std::to_string(state),
                      "Failed to show light state " + std::to_string(state) +
                          ": the configuration has no state." +
                          std::to_string(state) + "; the ring stays as it was");
    return -1;
  }
  state_ = state;
  const std::vector<PatternStep>* pattern = &look->second.pattern;
  int repeat = -1;
  if (transition && pattern->empty()) {
    const auto entry = config_.transitions.find(*transition);
    if (entry != config_.transitions.end()) {
      pattern = &entry->second.pattern;
      repeat = entry->second.repeat;
    }
  }
  bool ok = true;
  for (const std::unique_ptr<Led>& led : ring_) {
    ok = led->Show(look->second.colour, master_, *pattern, repeat) && ok;
  }
  return ok ? 0 : -1;
}

int SysfsLightControl::SetMasterBrightness(uint8_t level) {
  if (level == master_) return 0;
  master_ = level;
  return state_ < 0 ? 0 : SetState(state_, std::nullopt);
}

const char* SysfsLightControl::ProximityDevicePath() {
  const std::optional<std::string> path = sensors_.FindProximityDevice();
  proximity_path_ = path.value_or("");
  return path ? proximity_path_.c_str() : nullptr;
}

}  // namespace morvane::ap
