// The VPD cache: arbitrary text loaded as the cache and copied into a
// sensor's attributes by the daemon's own calibration step. Nothing in the
// cache may end the process: a value not enclosed in double quotes leaves
// its attribute untouched.

#include <glog/logging.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
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

bool IsQuoted(const std::string& value) {
  return value.size() >= 2 && value.front() == '"' && value.back() == '"';
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
  const bool copied = CopyProximityCalibration(cache.path(), sysfs);
  CHECK_EQ(copied, loadable);
  if (!copied) return 0;
  // Each attribute holds its value without the quotes, or is untouched when
  // the key is absent or its value is not quoted.
  for (size_t i = 0; i < std::size(kKeys); ++i) {
    std::string value, written;
    CHECK(ReadFileToString(sysfs + kAttributes[i], &written));
    if (!vpd.GetString(kKeys[i], &value) || !IsQuoted(value)) {
      CHECK_EQ(written, "-");
    } else {
      CHECK_EQ(written, value.substr(1, value.size() - 2)) << kKeys[i];
    }
  }
  return 0;
}
