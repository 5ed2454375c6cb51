#ifndef PLATFORM_DBUS_METHOD_CALL_H_
#define PLATFORM_DBUS_METHOD_CALL_H_

#include <glog/logging.h>

#include <cstdint>
#include <memory>
#include <string>

#include "platform/bus.h"
#include "platform/dbus_message.h"
#include "platform/error.h"

namespace morvane::ap {

// The time-out that leaves the choice to the bus library: its method-call
// default, 25 s unless the connection was configured otherwise.
inline constexpr uint64_t kDefaultCallTimeoutUs = 0;

// Sends |call| and blocks the calling thread (and so the loop) until the
// reply arrives or |timeout_us| passes. Returns the method return, or null
// with an error added: domain "dbus" with the D-Bus error name and text when
// the bus library reports one (an error reply, a time-out, a lost
// connection), otherwise "org.freedesktop.DBus.Error.Failed" with "Failed to
// call D-Bus method: <interface>.<method>".
std::unique_ptr<Message> SendAndBlock(Bus* bus, Message* call,
                                      uint64_t timeout_us, ErrorPtr* error);

// Calls |interface|.|method| of the object |path| of |service| with |args|
// and blocks until the reply (see SendAndBlock for the failure result).
template <typename... Args>
std::unique_ptr<Message> CallMethodAndBlockWithTimeout(
    uint64_t timeout_us, Bus* bus, const std::string& service,
    const std::string& path, const std::string& interface,
    const std::string& method, ErrorPtr* error, const Args&... args) {
  std::unique_ptr<Message> call =
      Message::NewMethodCall(bus, service, path, interface, method, error);
  if (!call) return nullptr;
  MessageWriter writer(call.get());
  if (!(writer.Append(args) && ...)) {
    Error::AddToPrintf(error, FROM_HERE, kDbusErrorDomain,
                       "org.freedesktop.DBus.Error.Failed",
                       "Failed to call D-Bus method: %s.%s", interface.c_str(),
                       method.c_str());
    return nullptr;
  }
  return SendAndBlock(bus, call.get(), timeout_us, error);
}

// As above, with the library's default time-out.
template <typename... Args>
std::unique_ptr<Message> CallMethodAndBlock(
    Bus* bus, const std::string& service, const std::string& path,
    const std::string& interface, const std::string& method, ErrorPtr* error,
    const Args&... args) {
  return CallMethodAndBlockWithTimeout(kDefaultCallTimeoutUs, bus, service,
                                       path, interface, method, error, args...);
}

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

#endif  // PLATFORM_DBUS_METHOD_CALL_H_
