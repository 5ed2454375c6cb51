#include "lightcontrol_sysfs/iio_sensors.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace morvane::ap {
namespace {

constexpr char kIioDevices[] = "/sys/bus/iio/devices";
constexpr char kDevicePrefix[] = "iio:device";

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

bool EndsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// A decimal number as IIO prints it ("12", "-3", "0.250000").
std::optional<double> ParseDecimal(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  const char* start = text->c_str();
  char* end = nullptr;
  const double value = strtod(start, &end);
  if (end == start || !std::isfinite(value)) return std::nullopt;
  while (*end == ' ' || *end == '\n') ++end;
  if (*end != '\0') return std::nullopt;
  return value;
}

// The IIO devices, iio:device2 before iio:device10.
std::vector<std::string> Devices(const Sysfs& sysfs) {
  std::vector<std::string> devices;
  for (const std::string& name : sysfs.List(sysfs.Path(kIioDevices))) {
    if (StartsWith(name, kDevicePrefix)) devices.push_back(name);
  }
  std::stable_sort(devices.begin(), devices.end(),
                   [](const std::string& a, const std::string& b) {
                     return a.size() < b.size();
                   });
  return devices;
}

// "in_proximity_raw", "in_proximity2_input", ...
bool IsProximityChannel(const std::string& name) {
  if (!StartsWith(name, "in_proximity")) return false;
  const size_t digits = name.find_first_not_of("0123456789", 12);
  return digits != std::string::npos &&
         (name.substr(digits) == "_raw" || name.substr(digits) == "_input");
}

}  // namespace

IioSensors::IioSensors(Sysfs* sysfs, double full_scale_lux)
    : sysfs_(sysfs), full_scale_lux_(full_scale_lux) {}

std::optional<double> IioSensors::ReadLux(const std::string& device) {
  const std::string dir = sysfs_->Path(kIioDevices) + "/" + device + "/";
  if (std::optional<double> lux =
          ParseDecimal(sysfs_->Read(dir + "in_illuminance_input"))) {
    return lux;
  }
  const std::optional<double> raw =
      ParseDecimal(sysfs_->Read(dir + "in_illuminance_raw"));
  if (!raw) return std::nullopt;
  const double offset =
      ParseDecimal(sysfs_->Read(dir + "in_illuminance_offset")).value_or(0);
  const double scale =
      ParseDecimal(sysfs_->Read(dir + "in_illuminance_scale")).value_or(1);
  return (*raw + offset) * scale;
}

std::optional<uint8_t> IioSensors::ReadAmbient() {
  std::optional<double> lux;
  if (!device_.empty()) lux = ReadLux(device_);
  if (!lux) {
    device_.clear();
    for (const std::string& device : Devices(*sysfs_)) {
      if ((lux = ReadLux(device))) {
        device_ = device;
        break;
      }
    }
  }
  const std::string key = "ambient";
  if (!lux) {
    sysfs_->ReportOnce(key, "Failed to read the ambient light: no IIO device in " +
                                sysfs_->Path(kIioDevices) +
                                " has a readable in_illuminance_input or "
                                "in_illuminance_raw");
    return std::nullopt;
  }
  sysfs_->Clear(key);
  const double level = std::round(*lux * 255 / full_scale_lux_);
  return static_cast<uint8_t>(std::clamp(level, 0.0, 255.0));
}

std::optional<std::string> IioSensors::FindProximityDevice() const {
  for (const std::string& device : Devices(*sysfs_)) {
    const std::string dir = sysfs_->Path(kIioDevices) + "/" + device;
    const std::vector<std::string> channels = sysfs_->List(dir);
    if (std::none_of(channels.begin(), channels.end(), IsProximityChannel)) {
      continue;
    }
    for (const std::string& event : sysfs_->List(dir + "/events")) {
      if (StartsWith(event, "in_proximity") &&
          event.find("_thresh_") != std::string::npos && EndsWith(event, "_en")) {
        return sysfs_->Path("/dev/" + device);
      }
    }
  }
  return std::nullopt;
}

}  // namespace morvane::ap
