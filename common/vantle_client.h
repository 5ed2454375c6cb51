#ifndef COMMON_VANTLE_CLIENT_H_
#define COMMON_VANTLE_CLIENT_H_

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/bus.h"
#include "platform/object_proxy.h"

namespace morvane::ap {

// The connection manager's client, as far as this daemon needs it: the
// WAN connection state, the manager's "ConnectionState" property ("online",
// "offline", ...). The state is "offline" until a value arrives and again
// whenever the connection manager is off the bus; it is read when the
// client starts and whenever the connection manager (re)appears, and
// followed through its PropertyChanged signal.
class VantleClient {
 public:
  using ConnectionStateCallback = std::function<void(const std::string& state)>;

  static constexpr char kServiceName[] = "org.tessaly.quorrel";
  static constexpr char kManagerPath[] = "/";
  static constexpr char kManagerInterface[] = "org.tessaly.quorrel.Manager";
  static constexpr char kOffline[] = "offline";

  // Starts reading the state. |bus| must be attached to the loop.
  explicit VantleClient(std::shared_ptr<Bus> bus);
  VantleClient(const VantleClient&) = delete;
  VantleClient& operator=(const VantleClient&) = delete;
  // No callback runs afterwards.
  ~VantleClient();

  // Calls |callback| at once with the current state, then with each new
  // state, from the loop.
  void RegisterConnectionStateCallback(ConnectionStateCallback callback);

  const std::string& connection_state() const { return connection_state_; }

 private:
  void GetProperties();
  void OnGetProperties(Message* reply);
  void OnPropertyChanged(Message* signal);
  void SetConnectionState(const std::string& state);

  ObjectProxy manager_proxy_;
  std::string connection_state_ = kOffline;
  std::vector<ConnectionStateCallback> callbacks_;
  BusSlot property_changed_slot_;
  BusSlot owner_changed_slot_;
  BusSlot get_properties_call_;
};

}  // namespace morvane::ap

#endif  // COMMON_VANTLE_CLIENT_H_
