#ifndef SIM_DAEMON_CLIENT_H_
#define SIM_DAEMON_CLIENT_H_

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <list>
#include <string>

#include "platform/error.h"

namespace morvane::ap {

// The simulator's own client of the daemon under test, on a connection of
// its own: calls the daemon's Manager methods without waiting, so that a hung
// daemon never stalls the simulator, and follows who owns the daemon's
// service name. Reports each call and its outcome as one line, e.g.
// "inject op start", "operation started id=1", "led ok", "ready".
class DaemonClient {
 public:
  using Reporter = std::function<void(const std::string& line)>;
  // |ready|: the daemon took (true) or gave up (false) its service name.
  using ReadyCallback = std::function<void(bool ready)>;
  // The daemon answered SetOperationInProgress with |id|.
  using OperationCallback = std::function<void(uint32_t id)>;

  // |event| must outlive this object. Each callback runs after the line that
  // reports its event, always from the loop; none may destroy this object.
  DaemonClient(sd_event* event, std::string bus_address, Reporter report,
               ReadyCallback on_ready, OperationCallback on_operation_started);
  DaemonClient(const DaemonClient&) = delete;
  DaemonClient& operator=(const DaemonClient&) = delete;
  // Closes the connection; calls still pending are never reported.
  ~DaemonClient();

  // Connects to the bus and starts following the daemon's name. Returns
  // false and adds to |error| on failure.
  bool Connect(ErrorPtr* error);

  // Each reports "inject ..." and sends the Manager method of the same name.
  // The reply is reported as "operation started id=N", "operation
  // succeeded id=N", "operation failed id=N" or "led ok"; a failed call as
  // that text followed by " error <name>: <message>".
  void SetOperationInProgress();
  void SetOperationSucceeded(uint32_t id);
  void SetOperationFailed(uint32_t id);
  void SetLedState(const std::string& name, const std::string& value,
                   uint32_t seconds);

 private:
  // One outstanding call to the daemon's Manager.
  struct ManagerCall {
    DaemonClient* client;
    std::string label;
    std::list<ManagerCall>::iterator self;
  };

  void CallManager(const char* method, const std::string& inject,
                   const std::string& label, uint32_t argument);
  // Calls |method| on the daemon's Manager without waiting; the reply is
  // reported as |label| plus the outcome.
  template <typename... Args>
  void SendManagerCall(const std::string& label, const char* method,
                       const char* signature, Args... args);
  void OnNameOwnerChanged(sd_bus_message* message);
  static int OnNameOwnerChangedThunk(sd_bus_message* message, void* userdata,
                                     sd_bus_error* error);
  static int OnManagerReply(sd_bus_message* reply, void* userdata,
                            sd_bus_error* error);

  sd_event* const event_;
  const std::string bus_address_;
  const Reporter report_;
  const ReadyCallback on_ready_;
  const OperationCallback on_operation_started_;
  sd_bus* bus_ = nullptr;
  std::list<ManagerCall> calls_;
};

}  // namespace morvane::ap

#endif  // SIM_DAEMON_CLIENT_H_
