#ifndef DBUS_GROUP_MONITOR_PROXY_H_
#define DBUS_GROUP_MONITOR_PROXY_H_

#include <functional>
#include <memory>
#include <string>

#include "platform/dbus_message.h"
#include "platform/property_set.h"

namespace morvane::ap {
class Bus;
class ObjectProxy;
}  // namespace morvane::ap

namespace org::tessaly::ap {

using ::morvane::ap::ObjectPath;
using ::morvane::ap::ObjectProxy;

inline constexpr char kGroupMonitorServiceName[] =
    "org.tessaly.ap.GroupMonitor";
inline constexpr char kGroupMonitorPath[] = "/org/tessaly/ap/GroupMonitor";
inline constexpr char kGroupMonitorInterface[] = "org.tessaly.ap.GroupMonitor";

// The group monitor's view of this access point's place in the group of
// access points, as its D-Bus properties: whether it is the group's root,
// whether it reaches the root, whether it is lost, and the root's software
// version. Each is false or empty until its first value arrives.
class GroupMonitorProxyInterface {
 public:
  // |proxy| is the proxy whose property |name| got a value.
  using PropertyChangedCallback = std::function<void(
      GroupMonitorProxyInterface* proxy, const std::string& name)>;

  virtual ~GroupMonitorProxyInterface() = default;

  virtual bool is_root() const = 0;
  virtual bool connected_to_root() const = 0;
  virtual bool lost() const = 0;
  virtual const std::string& root_software_version() const = 0;

  virtual const ObjectPath& GetObjectPath() const = 0;
  virtual ObjectProxy* GetObjectProxy() const = 0;

  // Starts following the properties: |callback| runs with the name of each
  // value that arrives, from the loop. Replaces an earlier set-up.
  virtual void SetUpProperties(PropertyChangedCallback callback) = 0;
};

class GroupMonitorProxy : public GroupMonitorProxyInterface {
 public:
  // The properties of kGroupMonitorInterface.
  class PropertySet : public ::morvane::ap::PropertySet {
   public:
    PropertySet(ObjectProxy* proxy, PropertyChangedCallback callback);

    ::morvane::ap::Property<bool> is_root;
    ::morvane::ap::Property<bool> connected_to_root;
    ::morvane::ap::Property<bool> lost;
    ::morvane::ap::Property<std::string> root_software_version;
  };

  GroupMonitorProxy(std::shared_ptr<::morvane::ap::Bus> bus,
                    std::string service_name, ObjectPath object_path);
  GroupMonitorProxy(const GroupMonitorProxy&) = delete;
  GroupMonitorProxy& operator=(const GroupMonitorProxy&) = delete;
  ~GroupMonitorProxy() override;

  bool is_root() const override;
  bool connected_to_root() const override;
  bool lost() const override;
  const std::string& root_software_version() const override;

  const ObjectPath& GetObjectPath() const override { return object_path_; }
  ObjectProxy* GetObjectProxy() const override {
    return dbus_object_proxy_.get();
  }

  void SetUpProperties(PropertyChangedCallback callback) override;

 private:
  const std::shared_ptr<::morvane::ap::Bus> bus_;
  const std::string service_name_;
  const ObjectPath object_path_;
  const std::unique_ptr<ObjectProxy> dbus_object_proxy_;
  std::unique_ptr<PropertySet> property_set_;
};

}  // namespace org::tessaly::ap

#endif  // DBUS_GROUP_MONITOR_PROXY_H_
