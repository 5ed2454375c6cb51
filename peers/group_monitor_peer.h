#ifndef PEERS_GROUP_MONITOR_PEER_H_
#define PEERS_GROUP_MONITOR_PEER_H_

#include <systemd/sd-bus.h>

#include <string>

#include "platform/error.h"


namespace morvane::ap {

// The simulated group monitor: service "org.tessaly.ap.GroupMonitor" with
// the properties IsRoot, ConnectedToRoot, Lost and RootSoftwareVersion, each
// published on change. Leaving and joining the bus makes the name owner
// change for real.
class GroupMonitorPeer {
 public:
  // |event| must outlive this object.
  GroupMonitorPeer(sd_event* event, std::string bus_address);
  GroupMonitorPeer(const GroupMonitorPeer&) = delete;
  GroupMonitorPeer& operator=(const GroupMonitorPeer&) = delete;
  ~GroupMonitorPeer();

  // Joins the bus (leaving it first if joined) and claims the name. Returns
  // false and adds to |error| on failure. The property values survive a
  // Leave() and Join().
  bool Join(ErrorPtr* error);
  void Leave();
  bool joined() const { return bus_ != nullptr; }

  bool is_root() const { return is_root_; }
  bool connected_to_root() const { return connected_to_root_; }
  // Each setter publishes the change when the value differs.
  void SetIsRoot(bool is_root);
  void SetConnectedToRoot(bool connected);
  void SetLost(bool lost);
  // Publishes IsRoot as a string and ConnectedToRoot as a number, as a
  // broken group monitor might; the values held do not change.
  void PublishWrongTypes();

 private:
  static int OnGetProperty(sd_bus* bus, const char* path,
                           const char* interface, const char* property,
                           sd_bus_message* reply, void* userdata,
                           sd_bus_error* error);
  void SetFlag(bool* flag, bool value, const char* property);

  sd_event* const event_;
  const std::string bus_address_;
  sd_bus* bus_ = nullptr;
  bool is_root_ = true;
  bool connected_to_root_ = true;
  bool lost_ = false;
  const std::string root_software_version_ = "1.0.0-sim";
};

}  // namespace morvane::ap

#endif  // PEERS_GROUP_MONITOR_PEER_H_
