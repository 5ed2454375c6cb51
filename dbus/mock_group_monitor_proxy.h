#ifndef DBUS_MOCK_GROUP_MONITOR_PROXY_H_
#define DBUS_MOCK_GROUP_MONITOR_PROXY_H_

#include <gmock/gmock.h>

#include <string>

#include "dbus/group_monitor_proxy.h"

namespace org::tessaly::ap {

class MockGroupMonitorProxy : public GroupMonitorProxyInterface {
 public:
  MOCK_METHOD(bool, is_root, (), (const, override));
  MOCK_METHOD(bool, connected_to_root, (), (const, override));
  MOCK_METHOD(bool, lost, (), (const, override));
  MOCK_METHOD(const std::string&, root_software_version, (),
              (const, override));
  MOCK_METHOD(const ObjectPath&, GetObjectPath, (), (const, override));
  MOCK_METHOD(ObjectProxy*, GetObjectProxy, (), (const, override));
  MOCK_METHOD(void, SetUpProperties, (PropertyChangedCallback callback),
              (override));
};

}  // namespace org::tessaly::ap

#endif  // DBUS_MOCK_GROUP_MONITOR_PROXY_H_
