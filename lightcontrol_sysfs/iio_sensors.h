#ifndef LIGHTCONTROL_SYSFS_IIO_SENSORS_H_
#define LIGHTCONTROL_SYSFS_IIO_SENSORS_H_

#include <cstdint>
#include <optional>
#include <string>

#include "lightcontrol_sysfs/sysfs.h"

namespace morvane::ap {

// The light and proximity sensors among the IIO devices in
// /sys/bus/iio/devices, taken in device number order.
class IioSensors {
 public:
  // |sysfs| must outlive this object. |full_scale_lux| reads as level 255.
  IioSensors(Sysfs* sysfs, double full_scale_lux);

  // The ambient light on the master brightness scale (0..255): the
  // illuminance of the first device with in_illuminance_input (lux) or
  // in_illuminance_raw (lux after its _offset and _scale), linear up to the
  // full scale. Returns nullopt and reports (once) when there is none or it
  // cannot be read. The attribute found is kept; when it stops reading, the
  // devices are searched again.
  std::optional<uint8_t> ReadAmbient();

  // "/dev/iio:deviceN" (under the root) of the first device with a
  // proximity channel and proximity threshold events; nullopt when none.
  std::optional<std::string> FindProximityDevice() const;

 private:
  std::optional<double> ReadLux(const std::string& device);

  Sysfs* const sysfs_;
  const double full_scale_lux_;
  std::string device_;  // The last device that gave a reading.
};

}  // namespace morvane::ap

#endif  // LIGHTCONTROL_SYSFS_IIO_SENSORS_H_
