#ifndef COMMON_MOCK_CONFIGURATION_MONITOR_H_
#define COMMON_MOCK_CONFIGURATION_MONITOR_H_

#include <gmock/gmock.h>

#include <memory>

#include "common/configuration_monitor.h"

namespace morvane::ap {

// The monitor with what its owner asks of it mocked. The base still
// follows |bus|, which must be attached to a loop; with no controller on
// that bus it stays quiet.
class MockConfigurationMonitor : public ConfigurationMonitor {
 public:
  explicit MockConfigurationMonitor(std::shared_ptr<Bus> bus)
      : ConfigurationMonitor(std::move(bus)) {}

  MOCK_METHOD(const DeviceConfiguration*, device_configuration, (),
              (const, override));
  MOCK_METHOD(org::tessaly::ap::Controller::ConfigurationProxyInterface*,
              GetConfigurationProxy, (), (const, override));
  MOCK_METHOD(bool, WriteDeviceConfiguration, (const DeviceConfiguration&),
              (override));
};

}  // namespace morvane::ap

#endif  // COMMON_MOCK_CONFIGURATION_MONITOR_H_
