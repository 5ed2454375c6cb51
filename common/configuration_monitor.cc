#include "common/configuration_monitor.h"

#include <glog/logging.h>

#include <string>
#include <utility>

#include "platform/object_proxy.h"

namespace morvane::ap {

namespace Controller = org::tessaly::ap::Controller;

ConfigurationMonitor::ConfigurationMonitor(std::shared_ptr<Bus> bus)
    : bus_(bus),
      object_manager_proxy_(
          std::make_unique<Controller::ObjectManagerProxy>(std::move(bus))) {
  object_manager_proxy_->SetConfigurationAddedCallback(
      [this](Controller::ConfigurationProxyInterface* proxy) {
        OnConfigurationAdded(proxy);
      });
}

ConfigurationMonitor::~ConfigurationMonitor() = default;

void ConfigurationMonitor::SetRuntimeStateChangedCallback(
    RuntimeStateChangedCallback callback) {
  runtime_state_changed_callback_ = std::move(callback);
  if (runtime_state_) runtime_state_changed_callback_(*runtime_state_);
}

void ConfigurationMonitor::SetDeviceConfigurationChangedCallback(
    DeviceConfigurationChangedCallback callback) {
  device_configuration_changed_callback_ = std::move(callback);
  if (configuration_) device_configuration_changed_callback_(*configuration_);
}

const DeviceConfiguration* ConfigurationMonitor::device_configuration() const {
  return configuration_.get();
}

const RuntimeState* ConfigurationMonitor::runtime_state() const {
  return runtime_state_.get();
}

Controller::ConfigurationProxyInterface*
ConfigurationMonitor::GetConfigurationProxy() const {
  const std::vector<Controller::ConfigurationProxyInterface*> instances =
      object_manager_proxy_->GetConfigurationInstances();
  return instances.empty() ? nullptr : instances.front();
}

bool ConfigurationMonitor::WriteDeviceConfiguration(
    const DeviceConfiguration& config) {
  return ::morvane::ap::WriteDeviceConfiguration(bus_, config);
}

void ConfigurationMonitor::OnConfigurationAdded(
    Controller::ConfigurationProxyInterface* proxy) {
  proxy->SetPropertyChangedCallback(
      [this](Controller::ConfigurationProxyInterface* proxy,
             const std::string& name) { OnPropertyChanged(proxy, name); });
  ParseDeviceConfiguration(proxy->device_configuration());
  ParseRuntimeState(proxy->runtime_state());
}

void ConfigurationMonitor::OnPropertyChanged(
    Controller::ConfigurationProxyInterface* proxy, const std::string& name) {
  if (name == "DeviceConfiguration") {
    ParseDeviceConfiguration(proxy->device_configuration());
  } else if (name == "RuntimeState") {
    ParseRuntimeState(proxy->runtime_state());
  }
}

void ConfigurationMonitor::ParseDeviceConfiguration(
    const std::vector<uint8_t>& value) {
  configuration_ = std::make_unique<DeviceConfiguration>();
  CHECK(configuration_->ParseFromString(
      std::string(value.begin(), value.end())));
  if (device_configuration_changed_callback_) {
    device_configuration_changed_callback_(*configuration_);
  }
}

void ConfigurationMonitor::ParseRuntimeState(
    const std::vector<uint8_t>& value) {
  runtime_state_ = std::make_unique<RuntimeState>();
  CHECK(runtime_state_->ParseFromString(
      std::string(value.begin(), value.end())));
  if (runtime_state_changed_callback_) {
    runtime_state_changed_callback_(*runtime_state_);
  }
}

bool WriteDeviceConfiguration(std::shared_ptr<Bus> bus,
                              const DeviceConfiguration& config) {
  std::string serialized;
  config.SerializeToString(&serialized);
  Controller::ConfigurationProxy proxy(
      std::move(bus), ObjectPath{Controller::kConfigurationPath}, nullptr);
  return proxy.Set(std::vector<uint8_t>(serialized.begin(), serialized.end()),
                   nullptr, ObjectProxy::kTimeoutUseDefault);
}

}  // namespace morvane::ap
