#include "av/proximity_calibration.h"

#include <glog/logging.h>

#include <utility>

#include "platform/file_util.h"
#include "platform/key_value_store.h"
#include "platform/log_text.h"

namespace morvane::ap {
namespace {

// VPD key (quoted in the cache) -> sensor attribute, written in this order.
constexpr std::pair<const char*, const char*> kCalibration[] = {
    {"ps_calibration", "in_proximity_calibbias"},
    {"plthres", "events/in_proximity_thresh_falling_value"},
    {"phthres", "events/in_proximity_thresh_rising_value"},
};

}  // namespace

bool CopyProximityCalibration(const std::string& vpd_cache_path,
                              const std::string& sysfs_dir) {
  KeyValueStore vpd;
  if (!vpd.Load(vpd_cache_path, nullptr)) return false;
  for (const auto& [key, attribute] : kCalibration) {
    std::string value;
    if (!vpd.GetString("\"" + std::string(key) + "\"", &value)) {
      LOG(WARNING) << "VPD cache does not contain value for " << key;
      continue;
    }
    // A value must be enclosed in double quotes. Anything else is a
    // factory's slip: writing it would be a silent miscalibration, and
    // ending the daemon would end it at every start, as the file stays.
    if (value.size() < 2 || value.front() != '"' || value.back() != '"') {
      LOG(WARNING) << "Failed to read the VPD value of " << key << " ("
                   << LogText(value) << "): not enclosed in double quotes, "
                   << "skipping it";
      continue;
    }
    value = value.substr(1, value.size() - 2);
    const std::string path = sysfs_dir + attribute;
    if (!PathExists(path)) {
      LOG(WARNING) << "Destination path does not exist: " << path;
      continue;
    }
    if (WriteFile(path, value.data(), static_cast<int>(value.size())) == -1) {
      LOG(WARNING) << "Incomplete write when writing " << path;
    }
  }
  return true;
}

std::string DescribeMissingForCalibration(const std::string& device_path,
                                          const std::string& vpd_cache_path) {
  std::string missing;
  if (!PathExists(device_path)) missing = "the proximity device " + device_path;
  if (!PathExists(vpd_cache_path)) {
    if (!missing.empty()) missing += " and ";
    missing += "the VPD cache " + vpd_cache_path;
  }
  return missing;
}

}  // namespace morvane::ap
