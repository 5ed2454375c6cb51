#ifndef FUZZ_DBUS_WIRE_H_
#define FUZZ_DBUS_WIRE_H_

#include <cstddef>
#include <cstdint>
#include <functional>

typedef struct sd_bus_message sd_bus_message;

namespace morvane::ap {

// Hands |wire|, the bytes a peer sends after authentication, to a real
// sd-bus peer-to-peer connection over a socket pair, and calls |on_message|
// with each message sd-bus makes of them, in order, until the bytes run
// out or sd-bus gives up on them. Returns the number of messages.
size_t ReceiveMessages(const uint8_t* wire, size_t size,
                       const std::function<void(sd_bus_message*)>& on_message);

}  // namespace morvane::ap

#endif  // FUZZ_DBUS_WIRE_H_
