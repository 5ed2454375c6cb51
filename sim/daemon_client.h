#ifndef SIM_DAEMON_CLIENT_H_
#define SIM_DAEMON_CLIENT_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/bus.h"
#include "platform/error.h"
#include "platform/object_proxy.h"

namespace morvane::ap {

class EventLoop;

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

  // |loop| must outlive this object. Each callback runs after the line that
  // reports its event, always from the loop; none may destroy this object.
  DaemonClient(EventLoop* loop, std::string bus_address, Reporter report,
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

  // Reports "inject flood |calls|" and sends that many malformed calls to
  // the Manager (wrong argument types, too many, an unknown method) from a
  // connection of their own, which leaves the bus before any reply.
  void Flood(int calls);

 private:
  // Calls |method| on the daemon's Manager without waiting. A successful
  // reply is reported as |label|, or by |on_reply| when there is one; an
  // error reply as |label| and the error.
  template <typename... Args>
  void CallManager(const std::string& label, const char* method,
                   std::function<void(Message*)> on_reply,
                   const Args&... args);

  EventLoop* const loop_;
  const std::string bus_address_;
  const Reporter report_;
  const ReadyCallback on_ready_;
  const OperationCallback on_operation_started_;
  std::shared_ptr<Bus> bus_;
  std::unique_ptr<ObjectProxy> manager_;
  // Calls in flight, by a number of our own.
  std::map<uint64_t, BusSlot> calls_;
  uint64_t next_call_ = 0;
};

}  // namespace morvane::ap

#endif  // SIM_DAEMON_CLIENT_H_
