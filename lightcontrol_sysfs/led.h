#ifndef LIGHTCONTROL_SYSFS_LED_H_
#define LIGHTCONTROL_SYSFS_LED_H_

#include <memory>
#include <string>
#include <vector>

#include "lightcontrol_sysfs/light_config.h"
#include "lightcontrol_sysfs/sysfs.h"

namespace morvane::ap {

// One device of the kernel's LED class, /sys/class/leds/<name>: a
// multicolour LED (its colour through multi_intensity in the order of
// multi_index) or a single-colour one (the colour part of its name,
// "device:colour:function", picks its component of a colour). Animation goes
// through the pattern trigger when the LED offers it; otherwise, or when the
// trigger cannot be set, the LED shows the colour steadily.
class Led {
 public:
  // Reads the LED's attributes. Returns null and reports when the LED does
  // not exist. |sysfs| must outlive the LED.
  static std::unique_ptr<Led> Probe(Sysfs* sysfs, const std::string& name);

  // True when /sys/class/leds/<name> is a multicolour LED.
  static bool IsMulticolour(const Sysfs& sysfs, const std::string& name);

  // Shows |colour| dimmed by |master| (0..255). With a non-empty |pattern|
  // the LED runs it |repeat| times (-1: endlessly), its levels scaled to the
  // colour's level. Returns false when a write failed (reported); the other
  // attributes are still written.
  bool Show(Rgb colour, int master, const std::vector<PatternStep>& pattern,
            int repeat);

  const std::string& name() const { return name_; }
  bool multicolour() const { return !multi_index_.empty(); }
  bool has_pattern_trigger() const { return has_pattern_trigger_; }

 private:
  Led(Sysfs* sysfs, std::string name, std::string dir)
      : sysfs_(sysfs), name_(std::move(name)), dir_(std::move(dir)) {}

  bool Write(const char* attribute, const std::string& value);

  Sysfs* const sysfs_;
  const std::string name_;
  const std::string dir_;
  int max_brightness_ = 255;
  std::vector<std::string> multi_index_;
  std::string colour_;  // Of a single-colour LED, from its name.
  bool has_trigger_ = false;
  bool has_pattern_trigger_ = false;
  bool pattern_active_ = false;  // The trigger is "pattern" and stays so.
};

}  // namespace morvane::ap

#endif  // LIGHTCONTROL_SYSFS_LED_H_
