// The VPD cache: arbitrary text loaded as the cache and copied into a
// sensor's attributes by the daemon's own calibration step.
//
// An empty calibration value throws std::out_of_range by design: the cache
// is broken and the daemon ends, to be restarted by the init system. That
// exact end is expected here, not a finding; any other exception, or that
// one for a cache without an empty calibration value, is.

#include <glog/logging.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <string>

#include "av/proximity_calibration.h"
#include "fuzz/fuzz_support.h"
#include "platform/file_util.h"
#include "platform/key_value_store.h"

namespace morvane::ap {
namespace {

constexpr const char* kKeys[] = {"\"ps_calibration\"", "\"plthres\"",
                                 "\"phthres\""};
constexpr const char* kAttributes[] = {
    "in_proximity_calibbias", "events/in_proximity_thresh_falling_value",
    "events/in_proximity_thresh_rising_value"};

// The sensor's directory, made once: every attribute exists.
const std::string& SysfsDir() {
  static const TempDir dir;
  static const std::string path = [] {
    std::filesystem::create_directories(dir.path() + "/events");
    return dir.path() + "/";
  }();
  return path;
}

// True when a calibration value in |vpd| is empty: the one case where the
// copy must throw.
bool HasEmptyValue(const KeyValueStore& vpd) {
  for (const char* key : kKeys) {
    std::string value;
    if (vpd.GetString(key, &value) && value.empty()) return true;
  }
  return false;
}

}  // namespace
}  // namespace morvane::ap

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  morvane::ap::QuietLogging();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace morvane::ap;
  const MemoryFile cache(data, size);
  const std::string& sysfs = SysfsDir();
  for (const char* attribute : kAttributes) {
    CHECK_EQ(WriteFile(sysfs + attribute, "-", 1), 1);
  }

  KeyValueStore vpd;
  const bool loadable = vpd.Load(cache.path(), nullptr);
  bool copied = false;
  try {
    copied = CopyProximityCalibration(cache.path(), sysfs);
  } catch (const std::out_of_range&) {
    CHECK(loadable && HasEmptyValue(vpd))
        << "out_of_range without an empty calibration value";
    return 0;
  }
  CHECK_EQ(copied, loadable);
  if (!copied) return 0;
  CHECK(!HasEmptyValue(vpd));
  // Each attribute holds its value without the first and last character,
  // or is untouched when the key is absent.
  for (size_t i = 0; i < std::size(kKeys); ++i) {
    std::string value, written;
    CHECK(ReadFileToString(sysfs + kAttributes[i], &written));
    if (!vpd.GetString(kKeys[i], &value)) {
      CHECK_EQ(written, "-");
    } else {
      CHECK_EQ(written, value.substr(1, value.size() - 2)) << kKeys[i];
    }
  }
  return 0;
}
