#ifndef DBUS_CONFIGURATION_PROXY_H_
#define DBUS_CONFIGURATION_PROXY_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/dbus_message.h"
#include "platform/error.h"
#include "platform/object_manager_proxy.h"
#include "platform/property_set.h"

namespace morvane::ap {
class Bus;
class ObjectProxy;
}  // namespace morvane::ap

namespace org::tessaly::ap::Controller {

using ::morvane::ap::ErrorPtr;
using ::morvane::ap::ObjectPath;
using ::morvane::ap::ObjectProxy;

inline constexpr char kServiceName[] = "org.tessaly.ap.Controller";
inline constexpr char kObjectManagerPath[] = "/org/tessaly/ap/Controller";
inline constexpr char kConfigurationPath[] =
    "/org/tessaly/ap/Controller/Configuration";
inline constexpr char kConfigurationInterface[] =
    "org.tessaly.ap.Controller.Configuration";

// The controller's configuration object: the device configuration and the
// runtime state as serialized records (byte-array properties), and the
// methods Get, Set and GetSetupCompleted. Each method blocks until the
// controller answers or |timeout_ms| passes (-1: the bus's default, 25 s)
// and returns false with a D-Bus error added to |error| (which may be null)
// when no answer of the right shape came.
class ConfigurationProxyInterface {
 public:
  // |proxy| is the proxy whose property |name| got a value.
  using PropertyChangedCallback = std::function<void(
      ConfigurationProxyInterface* proxy, const std::string& name)>;

  virtual ~ConfigurationProxyInterface() = default;

  virtual bool Get(std::vector<uint8_t>* out_configuration, ErrorPtr* error,
                   int timeout_ms) = 0;
  virtual bool Set(const std::vector<uint8_t>& in_configuration,
                   ErrorPtr* error, int timeout_ms) = 0;
  virtual bool GetSetupCompleted(bool* out_completed, ErrorPtr* error,
                                 int timeout_ms) = 0;

  // The properties' last values; empty until they arrive.
  virtual const std::vector<uint8_t>& device_configuration() const = 0;
  virtual const std::vector<uint8_t>& runtime_state() const = 0;

  virtual const ObjectPath& GetObjectPath() const = 0;
  virtual ObjectProxy* GetObjectProxy() const = 0;

  // |callback| runs with the name of each property value that arrives.
  virtual void SetPropertyChangedCallback(PropertyChangedCallback callback) = 0;
};

class ConfigurationProxy : public ConfigurationProxyInterface {
 public:
  class PropertySet : public ::morvane::ap::PropertySet {
   public:
    PropertySet(ObjectProxy* object_proxy,
                ::morvane::ap::PropertySet::PropertyChangedCallback callback);

    ::morvane::ap::Property<std::vector<uint8_t>> device_configuration;
    ::morvane::ap::Property<std::vector<uint8_t>> runtime_state;
  };

  // A proxy of the object at |object_path| of the controller. Its
  // properties come from |property_set|, which must outlive the proxy (the
  // object manager keeps it); without one they stay empty.
  ConfigurationProxy(std::shared_ptr<::morvane::ap::Bus> bus,
                     ObjectPath object_path, PropertySet* property_set);
  ConfigurationProxy(const ConfigurationProxy&) = delete;
  ConfigurationProxy& operator=(const ConfigurationProxy&) = delete;
  ~ConfigurationProxy() override;

  bool Get(std::vector<uint8_t>* out_configuration, ErrorPtr* error,
           int timeout_ms) override;
  bool Set(const std::vector<uint8_t>& in_configuration, ErrorPtr* error,
           int timeout_ms) override;
  bool GetSetupCompleted(bool* out_completed, ErrorPtr* error,
                         int timeout_ms) override;

  const std::vector<uint8_t>& device_configuration() const override;
  const std::vector<uint8_t>& runtime_state() const override;

  const ObjectPath& GetObjectPath() const override { return object_path_; }
  ObjectProxy* GetObjectProxy() const override {
    return dbus_object_proxy_.get();
  }

  void SetPropertyChangedCallback(PropertyChangedCallback callback) override;

  // Called by the object manager's proxy when a property value arrives.
  void OnPropertyChanged(const std::string& name);

 private:
  const std::shared_ptr<::morvane::ap::Bus> bus_;
  const std::string service_name_;
  const ObjectPath object_path_;
  PropertyChangedCallback on_property_changed_;
  const std::unique_ptr<ObjectProxy> dbus_object_proxy_;
  PropertySet* const property_set_;
};

// The controller's object manager, as far as its configuration objects go:
// a ConfigurationProxy for each object that has the configuration interface,
// announced to the added and removed callbacks.
class ObjectManagerProxy
    : public ::morvane::ap::ObjectManagerProxy::Interface {
 public:
  using ConfigurationAddedCallback =
      std::function<void(ConfigurationProxyInterface* proxy)>;
  using ConfigurationRemovedCallback =
      std::function<void(const ObjectPath& path)>;

  // |bus| must be attached to the loop.
  explicit ObjectManagerProxy(std::shared_ptr<::morvane::ap::Bus> bus);
  ObjectManagerProxy(const ObjectManagerProxy&) = delete;
  ObjectManagerProxy& operator=(const ObjectManagerProxy&) = delete;
  ~ObjectManagerProxy() override;

  void SetConfigurationAddedCallback(ConfigurationAddedCallback callback);
  void SetConfigurationRemovedCallback(ConfigurationRemovedCallback callback);

  // The configuration objects, by path.
  std::vector<ConfigurationProxyInterface*> GetConfigurationInstances() const;

 private:
  // The object-manager hooks. Properties of another interface than the
  // configuration's are a broken invariant: only it is registered.
  std::unique_ptr<::morvane::ap::PropertySet> CreateProperties(
      ObjectProxy* object_proxy, const ObjectPath& path,
      const std::string& interface) override;
  void ObjectAdded(const ObjectPath& path,
                   const std::string& interface) override;
  void ObjectRemoved(const ObjectPath& path,
                     const std::string& interface) override;

  const std::shared_ptr<::morvane::ap::Bus> bus_;
  ::morvane::ap::ObjectManagerProxy dbus_object_manager_;
  ConfigurationAddedCallback on_configuration_added_;
  ConfigurationRemovedCallback on_configuration_removed_;
  // By path. Destroyed before the manager, which owns their properties.
  std::map<std::string, std::unique_ptr<ConfigurationProxy>>
      configuration_instances_;
};

}  // namespace org::tessaly::ap::Controller

#endif  // DBUS_CONFIGURATION_PROXY_H_
