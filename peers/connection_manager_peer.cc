#include "peers/connection_manager_peer.h"

#include <systemd/sd-bus.h>

#include "peers/peer_bus.h"

namespace morvane::ap {
namespace {

constexpr char kService[] = "org.tessaly.quorrel";
constexpr char kPath[] = "/";
constexpr char kInterface[] = "org.tessaly.quorrel.Manager";

}  // namespace

ConnectionManagerPeer::ConnectionManagerPeer(sd_event* event,
                                             std::string bus_address)
    : event_(event), bus_address_(std::move(bus_address)) {}

ConnectionManagerPeer::~ConnectionManagerPeer() { Stop(); }

bool ConnectionManagerPeer::Start(ErrorPtr* error) {
  static const sd_bus_vtable kVtable[] = {
      SD_BUS_VTABLE_START(0),
      SD_BUS_METHOD("GetProperties", "", "a{sv}",
                    &ConnectionManagerPeer::OnGetProperties,
                    SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_SIGNAL("PropertyChanged", "sv", 0),
      SD_BUS_VTABLE_END};

  Stop();
  bus_ = StartPeer(bus_address_, event_,
                   {kService, kPath, kInterface, kVtable, this}, error);
  return bus_ != nullptr;
}

void ConnectionManagerPeer::Stop() { bus_ = sd_bus_flush_close_unref(bus_); }

void ConnectionManagerPeer::SetConnectionState(const std::string& state) {
  if (state == connection_state_) return;
  connection_state_ = state;
  if (bus_) {
    sd_bus_emit_signal(bus_, kPath, kInterface, "PropertyChanged", "sv",
                       "ConnectionState", "s", state.c_str());
  }
}

void ConnectionManagerPeer::SignalWrongType() {
  if (!bus_) return;
  sd_bus_emit_signal(bus_, kPath, kInterface, "PropertyChanged", "sv",
                     "ConnectionState", "u", 1);
}

int ConnectionManagerPeer::OnGetProperties(sd_bus_message* call,
                                           void* userdata, sd_bus_error*) {
  auto* self = static_cast<ConnectionManagerPeer*>(userdata);
  return sd_bus_reply_method_return(call, "a{sv}", 1, "ConnectionState", "s",
                                    self->connection_state_.c_str());
}

}  // namespace morvane::ap
