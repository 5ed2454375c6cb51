#ifndef PLATFORM_OBJECT_PROXY_H_
#define PLATFORM_OBJECT_PROXY_H_

#include <glog/logging.h>

#include <functional>
#include <memory>
#include <string>

#include "platform/bus.h"
#include "platform/dbus_message.h"
#include "platform/error.h"

namespace morvane::ap {

// The client side of one object of a service on the bus: method calls,
// blocking or not, its signals, and the service's arrivals and departures.
// The service need not be on the bus: calls then fail, and the owner
// callbacks tell when it arrives.
//
// Failures of a call are errors of domain "dbus" with the D-Bus error name
// as code: the error a peer replied with, one the bus library reports (a
// time-out, an unknown service, a lost connection), or, when there is none,
// "org.freedesktop.DBus.Error.Failed" with "Failed to call D-Bus method:
// <interface>.<method>".
class ObjectProxy {
 public:
  // |response| (a method return) and |error| are valid during the call
  // only.
  using ResponseCallback = std::function<void(Message* response)>;
  using ErrorCallback = std::function<void(const Error* error)>;
  using SignalCallback = std::function<void(Message* signal)>;
  // An empty owner means the service has no owner: it left, or was absent.
  using NameOwnerChangedCallback = std::function<void(
      const std::string& old_owner, const std::string& new_owner)>;

  // The bus library's default time-out of a method call: 25 s unless the
  // connection was configured otherwise.
  static constexpr int kTimeoutUseDefault = -1;

  ObjectProxy(std::shared_ptr<Bus> bus, std::string service, ObjectPath path);
  ObjectProxy(const ObjectProxy&) = delete;
  ObjectProxy& operator=(const ObjectProxy&) = delete;
  ~ObjectProxy();

  // Calls |interface|.|method| with |args| and blocks the calling thread,
  // and so the loop, until the reply arrives or |timeout_ms| passes
  // (kTimeoutUseDefault: the library's default). Returns the method return,
  // or null with a D-Bus error added (see above).
  template <typename... Args>
  std::unique_ptr<Message> CallMethodAndBlock(const std::string& interface,
                                              const std::string& method,
                                              int timeout_ms, ErrorPtr* error,
                                              const Args&... args) {
    std::unique_ptr<Message> call = NewCall(interface, method, error, args...);
    return call ? SendAndBlock(call.get(), timeout_ms, error) : nullptr;
  }

  // Calls |interface|.|method| with |args| without waiting, with the
  // default time-out. Exactly one of |on_success| and |on_error| runs later
  // on the loop, never inside this call, unless the returned slot is
  // dropped first. Needs a bus attached to a loop.
  template <typename... Args>
  [[nodiscard]] BusSlot CallMethod(const std::string& interface,
                                   const std::string& method,
                                   ResponseCallback on_success,
                                   ErrorCallback on_error,
                                   const Args&... args) {
    ErrorPtr error;
    std::unique_ptr<Message> call = NewCall(interface, method, &error, args...);
    return Send(call.get(), std::move(on_success), std::move(on_error),
                std::move(error));
  }

  // Calls |callback| with each signal |interface|.|member| this object
  // sends while the service owns its name, for as long as the slot lives.
  // Returns an empty slot, having logged why, when the bus refuses the match.
  [[nodiscard]] BusSlot ConnectToSignal(const std::string& interface,
                                        const std::string& member,
                                        SignalCallback callback);

  // Calls |callback| each time the service's name changes owner (it
  // arrives, leaves, or moves), for as long as the slot lives. Returns an
  // empty slot, having logged why, when the bus refuses the match.
  [[nodiscard]] BusSlot ConnectToNameOwnerChanged(
      NameOwnerChangedCallback callback);

  // The same, held by the proxy; a later call replaces the callback.
  void SetNameOwnerChangedCallback(NameOwnerChangedCallback callback);

  const std::shared_ptr<Bus>& bus() const { return bus_; }
  const std::string& service_name() const { return service_; }
  const ObjectPath& object_path() const { return path_; }

 private:
  // A method call carrying |args|; null with an error added when it cannot
  // be built.
  template <typename... Args>
  std::unique_ptr<Message> NewCall(const std::string& interface,
                                   const std::string& method, ErrorPtr* error,
                                   const Args&... args) {
    std::unique_ptr<Message> call = Message::NewMethodCall(
        bus_.get(), service_, path_.value, interface, method, error);
    if (!call) return nullptr;
    MessageWriter writer(call.get());
    if (!(writer.Append(args) && ...)) {
      AddCallFailed(interface, method, error);
      return nullptr;
    }
    return call;
  }

  static void AddCallFailed(const std::string& interface,
                            const std::string& method, ErrorPtr* error);
  std::unique_ptr<Message> SendAndBlock(Message* call, int timeout_ms,
                                        ErrorPtr* error);
  // Sends |call|; a null |call| reports |build_error| instead.
  BusSlot Send(Message* call, ResponseCallback on_success,
               ErrorCallback on_error, ErrorPtr build_error);
  BusSlot AddMatch(const std::string& rule,
                   std::function<void(Message*)> callback);

  const std::shared_ptr<Bus> bus_;
  const std::string service_;
  const ObjectPath path_;
  BusSlot name_owner_changed_slot_;
};

// True for the error of a call to a service that is not on the bus.
bool IsServiceUnknown(const Error* error);

// Reads the values of |reply| into |results| in order. A null |reply| is a
// broken invariant and ends the process. An error reply adds an error of
// domain "dbus" with its name and text; a reply that does not hold exactly
// the expected values adds an InvalidArgs error (see MessageReader).
template <typename... T>
bool ExtractMethodCallResults(Message* reply, ErrorPtr* error, T*... results) {
  CHECK(reply) << "Unable to extract parameters from a NULL message.";
  if (reply->IsError()) {
    Error::AddTo(error, FROM_HERE, kDbusErrorDomain, reply->error_name(),
                 reply->error_message());
    return false;
  }
  MessageReader reader(reply);
  return ReadArgs(reader, error, results...);
}

}  // namespace morvane::ap

#endif  // PLATFORM_OBJECT_PROXY_H_
