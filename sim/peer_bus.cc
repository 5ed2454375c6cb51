#include "sim/peer_bus.h"

#include <systemd/sd-bus.h>

#include <cstring>

namespace morvane::ap {
namespace {

constexpr char kDomain[] = "sim";

}  // namespace

sd_bus* ConnectToBus(const std::string& address, sd_event* event,
                     ErrorPtr* error) {
  sd_bus* bus = nullptr;
  int r = sd_bus_new(&bus);
  if (r >= 0) r = sd_bus_set_address(bus, address.c_str());
  if (r >= 0) r = sd_bus_set_bus_client(bus, 1);
  if (r >= 0) r = sd_bus_start(bus);
  if (r >= 0) r = sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL);
  if (r < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "dbus",
                       "Failed to connect to %s: %s", address.c_str(),
                       strerror(-r));
    sd_bus_flush_close_unref(bus);
    return nullptr;
  }
  return bus;
}

sd_bus* StartPeer(const std::string& address, sd_event* event,
                  const PeerExport& peer, ErrorPtr* error) {
  sd_bus* bus = ConnectToBus(address, event, error);
  if (!bus) return nullptr;
  int r = 0;
  if (peer.object_manager_path) {
    r = sd_bus_add_object_manager(bus, nullptr, peer.object_manager_path);
  }
  if (r >= 0) {
    r = sd_bus_add_object_vtable(bus, nullptr, peer.path, peer.interface,
                                 peer.vtable, peer.userdata);
  }
  if (r >= 0) r = sd_bus_request_name(bus, peer.service, 0);
  if (r < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "dbus",
                       "Failed to start %s: %s", peer.service, strerror(-r));
    sd_bus_flush_close_unref(bus);
    return nullptr;
  }
  return bus;
}

}  // namespace morvane::ap
