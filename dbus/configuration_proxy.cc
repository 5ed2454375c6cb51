#include "dbus/configuration_proxy.h"

#include <glog/logging.h>

#include <utility>

#include "platform/object_proxy.h"

namespace org::tessaly::ap::Controller {

ConfigurationProxy::PropertySet::PropertySet(
    ObjectProxy* object_proxy,
    ::morvane::ap::PropertySet::PropertyChangedCallback callback)
    : ::morvane::ap::PropertySet(object_proxy, kConfigurationInterface,
                                 std::move(callback)) {
  RegisterProperty("DeviceConfiguration", &device_configuration);
  RegisterProperty("RuntimeState", &runtime_state);
}

ConfigurationProxy::ConfigurationProxy(std::shared_ptr<::morvane::ap::Bus> bus,
                                       ObjectPath object_path,
                                       PropertySet* property_set)
    : bus_(std::move(bus)),
      service_name_(kServiceName),
      object_path_(std::move(object_path)),
      dbus_object_proxy_(
          std::make_unique<ObjectProxy>(bus_, service_name_, object_path_)),
      property_set_(property_set) {}

ConfigurationProxy::~ConfigurationProxy() = default;

bool ConfigurationProxy::Get(std::vector<uint8_t>* out_configuration,
                             ErrorPtr* error, int timeout_ms) {
  std::unique_ptr<::morvane::ap::Message> reply =
      dbus_object_proxy_->CallMethodAndBlock(kConfigurationInterface, "Get",
                                             timeout_ms, error);
  return reply && ::morvane::ap::ExtractMethodCallResults(reply.get(), error,
                                                          out_configuration);
}

bool ConfigurationProxy::Set(const std::vector<uint8_t>& in_configuration,
                             ErrorPtr* error, int timeout_ms) {
  std::unique_ptr<::morvane::ap::Message> reply =
      dbus_object_proxy_->CallMethodAndBlock(kConfigurationInterface, "Set",
                                             timeout_ms, error,
                                             in_configuration);
  return reply && ::morvane::ap::ExtractMethodCallResults(reply.get(), error);
}

bool ConfigurationProxy::GetSetupCompleted(bool* out_completed,
                                           ErrorPtr* error, int timeout_ms) {
  std::unique_ptr<::morvane::ap::Message> reply =
      dbus_object_proxy_->CallMethodAndBlock(
          kConfigurationInterface, "GetSetupCompleted", timeout_ms, error);
  return reply && ::morvane::ap::ExtractMethodCallResults(reply.get(), error,
                                                          out_completed);
}

const std::vector<uint8_t>& ConfigurationProxy::device_configuration() const {
  static const std::vector<uint8_t> kNone;
  return property_set_ ? property_set_->device_configuration.value() : kNone;
}

const std::vector<uint8_t>& ConfigurationProxy::runtime_state() const {
  static const std::vector<uint8_t> kNone;
  return property_set_ ? property_set_->runtime_state.value() : kNone;
}

void ConfigurationProxy::SetPropertyChangedCallback(
    PropertyChangedCallback callback) {
  on_property_changed_ = std::move(callback);
}

void ConfigurationProxy::OnPropertyChanged(const std::string& name) {
  if (on_property_changed_) on_property_changed_(this, name);
}

ObjectManagerProxy::ObjectManagerProxy(std::shared_ptr<::morvane::ap::Bus> bus)
    : bus_(bus),
      dbus_object_manager_(std::move(bus), kServiceName,
                           ObjectPath{kObjectManagerPath}) {
  dbus_object_manager_.RegisterInterface(kConfigurationInterface, this);
}

ObjectManagerProxy::~ObjectManagerProxy() = default;

void ObjectManagerProxy::SetConfigurationAddedCallback(
    ConfigurationAddedCallback callback) {
  on_configuration_added_ = std::move(callback);
}

void ObjectManagerProxy::SetConfigurationRemovedCallback(
    ConfigurationRemovedCallback callback) {
  on_configuration_removed_ = std::move(callback);
}

std::vector<ConfigurationProxyInterface*>
ObjectManagerProxy::GetConfigurationInstances() const {
  std::vector<ConfigurationProxyInterface*> instances;
  for (const auto& [path, proxy] : configuration_instances_) {
    instances.push_back(proxy.get());
  }
  return instances;
}

std::unique_ptr<::morvane::ap::PropertySet>
ObjectManagerProxy::CreateProperties(ObjectProxy* object_proxy,
                                     const ObjectPath& path,
                                     const std::string& interface) {
  if (interface != kConfigurationInterface) {
    LOG(FATAL) << "Creating properties for unsupported interface "
               << interface;
  }
  // Values that arrive before the object is announced find no proxy yet:
  // the proxy reads them when it is made.
  return std::make_unique<ConfigurationProxy::PropertySet>(
      object_proxy, [this, path](const std::string& name) {
        auto it = configuration_instances_.find(path.value);
        if (it != configuration_instances_.end()) {
          it->second->OnPropertyChanged(name);
        }
      });
}

void ObjectManagerProxy::ObjectAdded(const ObjectPath& path,
                                     const std::string& interface) {
  auto* properties = static_cast<ConfigurationProxy::PropertySet*>(
      dbus_object_manager_.GetProperties(path, interface));
  std::unique_ptr<ConfigurationProxy>& proxy =
      configuration_instances_[path.value];
  proxy = std::make_unique<ConfigurationProxy>(bus_, path, properties);
  if (on_configuration_added_) on_configuration_added_(proxy.get());
}

void ObjectManagerProxy::ObjectRemoved(const ObjectPath& path,
                                       const std::string&) {
  configuration_instances_.erase(path.value);
  if (on_configuration_removed_) on_configuration_removed_(path);
}

}  // namespace org::tessaly::ap::Controller
