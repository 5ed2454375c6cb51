#include "dbus/group_monitor_proxy.h"

#include <utility>

#include "platform/object_proxy.h"

namespace org::tessaly::ap {

GroupMonitorProxy::PropertySet::PropertySet(ObjectProxy* proxy,
                                            PropertyChangedCallback callback)
    : ::morvane::ap::PropertySet(proxy, kGroupMonitorInterface,
                                 std::move(callback)) {
  RegisterProperty("IsRoot", &is_root);
  RegisterProperty("ConnectedToRoot", &connected_to_root);
  RegisterProperty("Lost", &lost);
  RegisterProperty("RootSoftwareVersion", &root_software_version);
}

GroupMonitorProxy::GroupMonitorProxy(std::shared_ptr<::morvane::ap::Bus> bus,
                                     std::string service_name,
                                     ObjectPath object_path)
    : bus_(std::move(bus)),
      service_name_(std::move(service_name)),
      object_path_(std::move(object_path)),
      dbus_object_proxy_(
          std::make_unique<ObjectProxy>(bus_, service_name_, object_path_)) {}

GroupMonitorProxy::~GroupMonitorProxy() = default;

bool GroupMonitorProxy::is_root() const {
  return property_set_ && property_set_->is_root.value();
}

bool GroupMonitorProxy::connected_to_root() const {
  return property_set_ && property_set_->connected_to_root.value();
}

bool GroupMonitorProxy::lost() const {
  return property_set_ && property_set_->lost.value();
}

const std::string& GroupMonitorProxy::root_software_version() const {
  static const std::string kNone;
  return property_set_ ? property_set_->root_software_version.value() : kNone;
}

void GroupMonitorProxy::SetUpProperties(PropertyChangedCallback callback) {
  property_set_ = std::make_unique<PropertySet>(
      dbus_object_proxy_.get(),
      [this, callback = std::move(callback)](const std::string& name) {
        callback(this, name);
      });
  property_set_->ConnectSignals();
  property_set_->GetAll();
}

}  // namespace org::tessaly::ap
