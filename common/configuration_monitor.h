#ifndef COMMON_CONFIGURATION_MONITOR_H_
#define COMMON_CONFIGURATION_MONITOR_H_

#include <functional>
#include <memory>

#include "common/runtime_state.pb.h"
#include "common/storage.pb.h"
#include "dbus/configuration_proxy.h"

namespace morvane::ap {

class Bus;

// Keeps this daemon's copy of the access point's device configuration and
// runtime state in step with the controller, which publishes both as
// serialized records on its configuration object. Each record is parsed
// whenever the controller's object is reported (at start, and again after
// the controller restarts) and whenever its property changes, and the new
// record goes to the owner's callback. A record that does not parse ends
// the process: the controller and this daemon disagree on the schema, and
// the init system restarts the daemon. The records are kept when the
// controller leaves.
class ConfigurationMonitor {
 public:
  using DeviceConfigurationChangedCallback =
      std::function<void(const DeviceConfiguration& config)>;
  using RuntimeStateChangedCallback =
      std::function<void(const RuntimeState& state)>;

  // |bus| must be attached to the loop. Nothing is read until the
  // controller's object manager reports the configuration object.
  explicit ConfigurationMonitor(std::shared_ptr<Bus> bus);
  ConfigurationMonitor(const ConfigurationMonitor&) = delete;
  ConfigurationMonitor& operator=(const ConfigurationMonitor&) = delete;
  virtual ~ConfigurationMonitor();

  // Each replaces the earlier callback and, when a record is held, calls the
  // new one with it at once.
  virtual void SetRuntimeStateChangedCallback(
      RuntimeStateChangedCallback callback);
  virtual void SetDeviceConfigurationChangedCallback(
      DeviceConfigurationChangedCallback callback);

  // The held records, null until the first read. A record is replaced on
  // each change: never keep the pointer across one.
  virtual const DeviceConfiguration* device_configuration() const;
  virtual const RuntimeState* runtime_state() const;

  // The first configuration object the controller reports, for blocking
  // calls; null while the controller reports none.
  virtual org::tessaly::ap::Controller::ConfigurationProxyInterface*
  GetConfigurationProxy() const;

  // The free WriteDeviceConfiguration() below, on this monitor's bus.
  virtual bool WriteDeviceConfiguration(const DeviceConfiguration& config);

 private:
  void OnConfigurationAdded(
      org::tessaly::ap::Controller::ConfigurationProxyInterface* proxy);
  void OnPropertyChanged(
      org::tessaly::ap::Controller::ConfigurationProxyInterface* proxy,
      const std::string& name);
  void ParseDeviceConfiguration(const std::vector<uint8_t>& value);
  void ParseRuntimeState(const std::vector<uint8_t>& value);

  const std::shared_ptr<Bus> bus_;
  DeviceConfigurationChangedCallback device_configuration_changed_callback_;
  RuntimeStateChangedCallback runtime_state_changed_callback_;
  std::unique_ptr<org::tessaly::ap::Controller::ObjectManagerProxy>
      object_manager_proxy_;
  std::unique_ptr<DeviceConfiguration> configuration_;
  std::unique_ptr<RuntimeState> runtime_state_;
};

// Writes |config| with the controller's Set, over a proxy made for this one
// call, blocking until the controller answers or the default time-out
// passes. True when the controller accepted it.
bool WriteDeviceConfiguration(std::shared_ptr<Bus> bus,
                              const DeviceConfiguration& config);

}  // namespace morvane::ap

#endif  // COMMON_CONFIGURATION_MONITOR_H_
