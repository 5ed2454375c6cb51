#ifndef AV_PROXIMITY_CALIBRATION_H_
#define AV_PROXIMITY_CALIBRATION_H_

#include <string>

namespace morvane::ap {

// Copies the proximity sensor's factory calibration from the VPD cache at
// |vpd_cache_path| into the sensor's attributes under |sysfs_dir| (ending
// in '/'): "ps_calibration" to in_proximity_calibbias, "plthres" and
// "phthres" to the falling and rising thresholds, in that order. The cache
// quotes keys and values; each value is written without its quotes. A
// missing key or attribute, a value not enclosed in double quotes (empty,
// one character, unquoted) and a failed write are logged as warnings and
// the next key is tried.
//
// Returns false, having written nothing, when the cache cannot be loaded.
bool CopyProximityCalibration(const std::string& vpd_cache_path,
                              const std::string& sysfs_dir);

// What calibration still waits for, for a log line: "the proximity device
// /dev/iio:device0", "the VPD cache /var/cache/vpd/full-v2.txt" or both
// joined with "and"; empty when both paths exist.
std::string DescribeMissingForCalibration(const std::string& device_path,
                                          const std::string& vpd_cache_path);

}  // namespace morvane::ap

#endif  // AV_PROXIMITY_CALIBRATION_H_
