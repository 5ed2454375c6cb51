#ifndef LIGHTCONTROL_SYSFS_SYSFS_LIGHT_CONTROL_H_
#define LIGHTCONTROL_SYSFS_SYSFS_LIGHT_CONTROL_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lightcontrol_sysfs/iio_sensors.h"
#include "lightcontrol_sysfs/led.h"
#include "lightcontrol_sysfs/light_config.h"
#include "lightcontrol_sysfs/sysfs.h"

namespace morvane::ap {

// The light-control library over the kernel's LED class and IIO: the ring's
// LEDs and the board's configuration, behind the six C functions. It starts
// no thread and no timer; every call is a few attribute reads or writes.
class SysfsLightControl {
 public:
  // Reads the configuration file |config_path| (missing: built-in defaults;
  // malformed lines: reported and skipped) and finds the ring's LEDs under
  // |root|. Reports one line saying what it found.
  SysfsLightControl(const std::string& root, const std::string& config_path);
  SysfsLightControl(const SysfsLightControl&) = delete;
  SysfsLightControl& operator=(const SysfsLightControl&) = delete;

  // Shows light state |state|; with |transition| (a configured transition
  // id) a steady state is entered through that transition's pattern. An
  // animated state starts its own pattern at once: without a timer the
  // library cannot hand over from a finite pattern to an endless one.
  // Returns 0, or -1 when the state is not configured (the ring keeps what
  // it showed) or a write failed.
  int SetState(int state, std::optional<int> transition);

  // Scales every LED's level by |level| (0..255) and shows the current
  // state again at the new level; the same level again changes nothing, so
  // a running pattern is not restarted.
  int SetMasterBrightness(uint8_t level);

  std::optional<uint8_t> ReadAmbient() { return sensors_.ReadAmbient(); }

  // The proximity device path, or null; valid until the next call.
  const char* ProximityDevicePath();

 private:
  Sysfs sysfs_;
  std::string config_note_;  // Where the configuration came from.
  LightConfig config_;
  std::vector<std::unique_ptr<Led>> ring_;
  IioSensors sensors_;
  int master_ = 255;
  int state_ = -1;
  std::string proximity_path_;
};

}  // namespace morvane::ap

#endif  // LIGHTCONTROL_SYSFS_SYSFS_LIGHT_CONTROL_H_
