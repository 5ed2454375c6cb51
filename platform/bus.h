#ifndef PLATFORM_BUS_H_
#define PLATFORM_BUS_H_

#include <functional>
#include <memory>
#include <string>

#include "platform/error.h"

typedef struct sd_bus sd_bus;

namespace morvane::ap {

class EventLoop;
class TaskLoop;

// A connection to the system bus, attached to the event loop, so that
// incoming calls, replies and signals arrive as callbacks on that loop.
// Shared: every object exported or called on the bus holds a reference.
class Bus {
 public:
  // Called once with the outcome of a name request. |error| is null on
  // success and only valid during the call.
  using RequestNameCallback =
      std::function<void(bool success, const Error* error)>;

  // Connects to the system bus (DBUS_SYSTEM_BUS_ADDRESS when set) and
  // attaches the connection to |loop|, which must outlive the bus. Returns
  // null and adds to |error| a message that says why when the bus cannot be
  // reached.
  static std::shared_ptr<Bus> ConnectSystemBus(EventLoop* loop,
                                               ErrorPtr* error);

  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;
  // Sends what is still queued, then detaches from the loop and closes the
  // connection. Pending name requests are dropped without a callback. (The
  // connection also closes itself when the loop ends.)
  ~Bus();

  // Asks the bus for |name| without queueing: the request fails when
  // another connection owns the name. |done| runs later, on the loop, never
  // inside this call; it is dropped if the bus is destroyed before the
  // reply arrives.
  void RequestNameAsync(const std::string& name, RequestNameCallback done);

  // The loop the bus is attached to.
  TaskLoop* loop() const;

  // For the D-Bus helpers inside platform/ only.
  sd_bus* raw() const { return bus_; }

 private:
  Bus(EventLoop* loop, sd_bus* bus);

  EventLoop* const loop_;
  sd_bus* const bus_;
};

}  // namespace morvane::ap

#endif  // PLATFORM_BUS_H_
