#ifndef DBUS_MOCK_CONFIGURATION_PROXY_H_
#define DBUS_MOCK_CONFIGURATION_PROXY_H_

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "dbus/configuration_proxy.h"

namespace org::tessaly::ap::Controller {

class MockConfigurationProxy : public ConfigurationProxyInterface {
 public:
  MOCK_METHOD(bool, Get, (std::vector<uint8_t>*, ErrorPtr*, int), (override));
  MOCK_METHOD(bool, Set, (const std::vector<uint8_t>&, ErrorPtr*, int),
              (override));
  MOCK_METHOD(bool, GetSetupCompleted, (bool*, ErrorPtr*, int), (override));
  MOCK_METHOD(const std::vector<uint8_t>&, device_configuration, (),
              (const, override));
  MOCK_METHOD(const std::vector<uint8_t>&, runtime_state, (),
              (const, override));
  MOCK_METHOD(const ObjectPath&, GetObjectPath, (), (const, override));
  MOCK_METHOD(ObjectProxy*, GetObjectProxy, (), (const, override));
  MOCK_METHOD(void, SetPropertyChangedCallback, (PropertyChangedCallback),
              (override));
};

}  // namespace org::tessaly::ap::Controller

#endif  // DBUS_MOCK_CONFIGURATION_PROXY_H_
