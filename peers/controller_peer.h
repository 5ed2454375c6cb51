#ifndef PEERS_CONTROLLER_PEER_H_
#define PEERS_CONTROLLER_PEER_H_

#include <systemd/sd-bus.h>

#include <functional>
#include <string>

#include "common/runtime_state.pb.h"
#include "common/storage.pb.h"
#include "platform/error.h"


namespace morvane::ap {

// The simulated controller: service "org.tessaly.ap.Controller" with its
// object manager and the configuration object, whose properties
// "DeviceConfiguration" and "RuntimeState" hold serialized records. Set()
// from the bus stores the record and publishes it, as the real controller
// does; its owner changes the configuration through the same path.
class ControllerPeer {
 public:
  // Receives one line per event worth showing ("config set ...").
  using Reporter = std::function<void(const std::string& line)>;

  // |event| must outlive this object.
  ControllerPeer(sd_event* event, std::string bus_address, Reporter report);
  ControllerPeer(const ControllerPeer&) = delete;
  ControllerPeer& operator=(const ControllerPeer&) = delete;
  ~ControllerPeer();

  // Joins the bus (leaving it first if joined), exports the objects and
  // claims the service name. The stored records survive a Stop() and
  // Start(). Returns false and adds to |error| on failure.
  bool Start(ErrorPtr* error);
  // Leaves the bus.
  void Stop();
  bool running() const { return bus_ != nullptr; }

  // The stored configuration; a record that does not parse reads as empty.
  DeviceConfiguration configuration() const;
  // Stores |config| and publishes it as a property change.
  void SetConfiguration(const DeviceConfiguration& config);

  // Stores |state| and publishes it as a property change.
  void SetRuntimeState(const RuntimeState& state);

  // Publishes DeviceConfiguration as a string, as a broken controller
  // might; the record held does not change.
  void PublishWrongType();

  bool setup_completed() const { return setup_completed_; }
  // Changes what GetSetupCompleted answers and publishes the configuration
  // again so that its followers ask.
  void SetSetupCompleted(bool completed);

 private:
  static int OnGetProperty(sd_bus* bus, const char* path,
                           const char* interface, const char* property,
                           sd_bus_message* reply, void* userdata,
                           sd_bus_error* error);
  static int OnGet(sd_bus_message* call, void* userdata, sd_bus_error* error);
  static int OnSet(sd_bus_message* call, void* userdata, sd_bus_error* error);
  static int OnGetSetupCompleted(sd_bus_message* call, void* userdata,
                                 sd_bus_error* error);
  void Publish(const char* property);

  sd_event* const event_;
  const std::string bus_address_;
  const Reporter report_;
  sd_bus* bus_ = nullptr;
  std::string device_configuration_;
  std::string runtime_state_;
  bool setup_completed_ = true;
};

}  // namespace morvane::ap

#endif  // PEERS_CONTROLLER_PEER_H_
