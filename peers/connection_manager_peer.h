#ifndef PEERS_CONNECTION_MANAGER_PEER_H_
#define PEERS_CONNECTION_MANAGER_PEER_H_

#include <systemd/sd-bus.h>

#include <string>

#include "platform/error.h"


namespace morvane::ap {

// The simulated connection manager: service "org.tessaly.quorrel", object
// "/", interface "org.tessaly.quorrel.Manager" with GetProperties (which
// includes "ConnectionState") and the PropertyChanged signal.
class ConnectionManagerPeer {
 public:
  // |event| must outlive this object.
  ConnectionManagerPeer(sd_event* event, std::string bus_address);
  ConnectionManagerPeer(const ConnectionManagerPeer&) = delete;
  ConnectionManagerPeer& operator=(const ConnectionManagerPeer&) = delete;
  ~ConnectionManagerPeer();

  // Joins the bus (leaving it first if joined) and claims the name. Returns
  // false and adds to |error| on failure.
  bool Start(ErrorPtr* error);
  void Stop();

  const std::string& connection_state() const { return connection_state_; }
  // Stores |state| ("online", "offline", ...) and signals the change when it
  // differs.
  void SetConnectionState(const std::string& state);
  // Signals a ConnectionState that is a number, as a broken connection
  // manager might; the state held does not change.
  void SignalWrongType();

 private:
  static int OnGetProperties(sd_bus_message* call, void* userdata,
                             sd_bus_error* error);

  sd_event* const event_;
  const std::string bus_address_;
  sd_bus* bus_ = nullptr;
  std::string connection_state_ = "offline";
};

}  // namespace morvane::ap

#endif  // PEERS_CONNECTION_MANAGER_PEER_H_
