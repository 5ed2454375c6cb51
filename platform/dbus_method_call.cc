#include "platform/dbus_method_call.h"

#include <systemd/sd-bus.h>

namespace morvane::ap {

std::unique_ptr<Message> SendAndBlock(Bus* bus, Message* call,
                                      uint64_t timeout_us, ErrorPtr* error) {
  sd_bus_error bus_error = SD_BUS_ERROR_NULL;
  sd_bus_message* reply = nullptr;
  const int r =
      sd_bus_call(bus->raw(), call->raw(), timeout_us, &bus_error, &reply);
  if (r >= 0) {
    sd_bus_error_free(&bus_error);
    return Message::Adopt(reply);
  }
  if (sd_bus_error_is_set(&bus_error)) {
    Error::AddTo(error, FROM_HERE, kDbusErrorDomain, bus_error.name,
                 bus_error.message ? bus_error.message : "");
  } else {
    const char* interface = sd_bus_message_get_interface(call->raw());
    const char* member = sd_bus_message_get_member(call->raw());
    Error::AddToPrintf(error, FROM_HERE, kDbusErrorDomain,
                       "org.freedesktop.DBus.Error.Failed",
                       "Failed to call D-Bus method: %s.%s",
                       interface ? interface : "", member ? member : "");
  }
  sd_bus_error_free(&bus_error);
  return nullptr;
}

}  // namespace morvane::ap
