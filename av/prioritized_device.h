#ifndef AV_PRIORITIZED_DEVICE_H_
#define AV_PRIORITIZED_DEVICE_H_

#include <cstdint>

#include "common/storage.pb.h"

namespace morvane::ap {

// The configuration a wave writes back to the controller: |current| with
// prioritized_device set to its default_prioritized_device, expiring that
// device's expiration_time seconds after |now_us| (wall clock, microseconds
// since the epoch; the sum saturates to the record's 32-bit seconds).
// Everything else, fields this daemon does not know included, stays as it
// was.
DeviceConfiguration PrioritizeDefaultDevice(const DeviceConfiguration& current,
                                            int64_t now_us);

}  // namespace morvane::ap

#endif  // AV_PRIORITIZED_DEVICE_H_
