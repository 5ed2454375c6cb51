#ifndef PLATFORM_BUS_H_
#define PLATFORM_BUS_H_

#include <functional>
#include <memory>
#include <string>

#include "platform/error.h"
#include "platform/task_loop.h"

typedef struct sd_bus sd_bus;
typedef struct sd_bus_slot sd_bus_slot;

namespace morvane::ap {

class EventLoop;

// A connection to a bus. Attached to the event loop, incoming calls, replies
// and signals arrive as callbacks on that loop. Shared: every object
// exported or called on the bus holds a reference.
class Bus {
 public:
  // Called once with the outcome of a name request. |error| is null on
  // success and only valid during the call.
  using RequestNameCallback =
      std::function<void(bool success, const Error* error)>;

  // Connects to the system bus (DBUS_SYSTEM_BUS_ADDRESS when set) and
  // attaches the connection to |loop|, which must outlive the bus. With a
  // null |loop| the connection is not attached and serves blocking calls
  // only: a connection of one's own for a short exchange. Returns null and
  // adds to |error| a message that says why when the bus cannot be reached.
  static std::shared_ptr<Bus> ConnectSystemBus(EventLoop* loop,
                                               ErrorPtr* error);

  // The same for the bus at |address| ("unix:path=..."), as a client that
  // registers with the bus daemon.
  static std::shared_ptr<Bus> Connect(EventLoop* loop,
                                      const std::string& address,
                                      ErrorPtr* error);

  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;
  // Sends what is still queued (blocking), then detaches from the loop and
  // closes the connection. Pending name requests are dropped without a
  // callback. (The connection also closes itself when the loop ends.)
  ~Bus();

  // Asks the bus for |name| without queueing: the request fails when
  // another connection owns the name. |done| runs later, on the loop, never
  // inside this call; it is dropped if the bus is destroyed before the
  // reply arrives.
  void RequestNameAsync(const std::string& name, RequestNameCallback done);

  // The loop the bus is attached to; null for a connection of one's own.
  TaskLoop* loop() const;

  // For the D-Bus helpers inside platform/ only.
  sd_bus* raw() const { return bus_; }

 private:
  Bus(EventLoop* loop, sd_bus* bus);
  // Attaches |bus| (already started) to |loop| when there is one and wraps
  // it; on failure closes it.
  static std::shared_ptr<Bus> Wrap(EventLoop* loop, sd_bus* bus, int r,
                                   const std::string& what, ErrorPtr* error);

  EventLoop* const loop_;
  sd_bus* const bus_;
};

// Owns one registration with the bus made for a callback: a signal match
// or a method call in flight. While it lives the callback may run, always
// from the loop; once it is reset or destroyed the callback never runs
// again. The callback itself may destroy its slot.
class BusSlot {
 public:
  BusSlot() = default;
  BusSlot(BusSlot&& other) noexcept;
  BusSlot& operator=(BusSlot&& other) noexcept;
  ~BusSlot() { reset(); }

  void reset();
  explicit operator bool() const { return slot_ || task_; }

  // For the D-Bus helpers inside platform/ only: takes over the reference
  // to |slot|, or owns |task| posted on |loop| (a failure reported later).
  explicit BusSlot(sd_bus_slot* slot) : slot_(slot) {}
  BusSlot(TaskLoop* loop, TaskId task) : loop_(loop), task_(task) {}

 private:
  sd_bus_slot* slot_ = nullptr;
  TaskLoop* loop_ = nullptr;
  TaskId task_ = 0;
};

}  // namespace morvane::ap

#endif  // PLATFORM_BUS_H_
