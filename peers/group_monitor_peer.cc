#include "peers/group_monitor_peer.h"

#include <systemd/sd-bus.h>

#include <cstring>

#include "peers/peer_bus.h"

namespace morvane::ap {
namespace {

constexpr char kService[] = "org.tessaly.ap.GroupMonitor";
constexpr char kPath[] = "/org/tessaly/ap/GroupMonitor";
constexpr char kInterface[] = "org.tessaly.ap.GroupMonitor";

}  // namespace

GroupMonitorPeer::GroupMonitorPeer(sd_event* event, std::string bus_address)
    : event_(event), bus_address_(std::move(bus_address)) {}

GroupMonitorPeer::~GroupMonitorPeer() { Leave(); }

bool GroupMonitorPeer::Join(ErrorPtr* error) {
  static const sd_bus_vtable kVtable[] = {
      SD_BUS_VTABLE_START(0),
      SD_BUS_PROPERTY("IsRoot", "b", &GroupMonitorPeer::OnGetProperty, 0,
                      SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
      SD_BUS_PROPERTY("ConnectedToRoot", "b", &GroupMonitorPeer::OnGetProperty,
                      0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
      SD_BUS_PROPERTY("Lost", "b", &GroupMonitorPeer::OnGetProperty, 0,
                      SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
      SD_BUS_PROPERTY("RootSoftwareVersion", "s",
                      &GroupMonitorPeer::OnGetProperty, 0,
                      SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
      SD_BUS_VTABLE_END};

  Leave();
  bus_ = StartPeer(bus_address_, event_,
                   {kService, kPath, kInterface, kVtable, this}, error);
  return bus_ != nullptr;
}

void GroupMonitorPeer::Leave() { bus_ = sd_bus_flush_close_unref(bus_); }

void GroupMonitorPeer::SetIsRoot(bool is_root) {
  SetFlag(&is_root_, is_root, "IsRoot");
}

void GroupMonitorPeer::SetConnectedToRoot(bool connected) {
  SetFlag(&connected_to_root_, connected, "ConnectedToRoot");
}

void GroupMonitorPeer::SetLost(bool lost) { SetFlag(&lost_, lost, "Lost"); }

void GroupMonitorPeer::PublishWrongTypes() {
  if (!bus_) return;
  sd_bus_emit_signal(bus_, kPath, "org.freedesktop.DBus.Properties",
                     "PropertiesChanged", "sa{sv}as", kInterface, 2, "IsRoot",
                     "s", "yes", "ConnectedToRoot", "u", 0, 0);
}

void GroupMonitorPeer::SetFlag(bool* flag, bool value, const char* property) {
  if (*flag == value) return;
  *flag = value;
  if (bus_) {
    sd_bus_emit_properties_changed(bus_, kPath, kInterface, property, nullptr);
  }
}

int GroupMonitorPeer::OnGetProperty(sd_bus*, const char*, const char*,
                                    const char* property,
                                    sd_bus_message* reply, void* userdata,
                                    sd_bus_error*) {
  auto* self = static_cast<GroupMonitorPeer*>(userdata);
  if (strcmp(property, "RootSoftwareVersion") == 0) {
    return sd_bus_message_append(reply, "s",
                                 self->root_software_version_.c_str());
  }
  bool value = self->lost_;
  if (strcmp(property, "IsRoot") == 0) value = self->is_root_;
  if (strcmp(property, "ConnectedToRoot") == 0) {
    value = self->connected_to_root_;
  }
  return sd_bus_message_append(reply, "b", value ? 1 : 0);
}

}  // namespace morvane::ap
