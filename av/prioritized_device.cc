#include "av/prioritized_device.h"

#include <algorithm>
#include <limits>

namespace morvane::ap {
namespace {

// Wall-clock time |duration_seconds| from |now_us|, in whole seconds since
// the epoch as the record's 32-bit field holds them. The sum saturates at
// that field's limits: a "forever" duration, or any time past 2038, must
// stay in the future rather than wrap into the past and end the
// prioritisation at once.
int32_t ExpirationTime(int64_t now_us, int32_t duration_seconds) {
  int64_t due_us = 0;
  if (__builtin_add_overflow(now_us, int64_t{duration_seconds} * 1'000'000,
                             &due_us)) {
    due_us = duration_seconds > 0 ? INT64_MAX : INT64_MIN;
  }
  return static_cast<int32_t>(std::clamp<int64_t>(
      due_us / 1'000'000, std::numeric_limits<int32_t>::min(),
      std::numeric_limits<int32_t>::max()));
}

}  // namespace

DeviceConfiguration PrioritizeDefaultDevice(const DeviceConfiguration& current,
                                            int64_t now_us) {
  DeviceConfiguration config = current;
  const DeviceConfiguration::PrioritizedDevice& chosen =
      current.default_prioritized_device();
  DeviceConfiguration::PrioritizedDevice* prioritized =
      config.mutable_prioritized_device();
  prioritized->set_mac_address(chosen.mac_address());
  prioritized->set_expiration_time(
      ExpirationTime(now_us, chosen.expiration_time()));
  return config;
}

}  // namespace morvane::ap
