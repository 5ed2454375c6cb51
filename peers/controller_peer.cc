#include "peers/controller_peer.h"

#include <systemd/sd-bus.h>

#include <cstring>

#include "peers/peer_bus.h"

namespace morvane::ap {
namespace {

constexpr char kService[] = "org.tessaly.ap.Controller";
constexpr char kObjectManagerPath[] = "/org/tessaly/ap/Controller";
constexpr char kPath[] = "/org/tessaly/ap/Controller/Configuration";
constexpr char kInterface[] = "org.tessaly.ap.Controller.Configuration";

}  // namespace

ControllerPeer::ControllerPeer(sd_event* event, std::string bus_address,
                               Reporter report)
    : event_(event),
      bus_address_(std::move(bus_address)),
      report_(std::move(report)) {}

ControllerPeer::~ControllerPeer() { Stop(); }

bool ControllerPeer::Start(ErrorPtr* error) {
  static const sd_bus_vtable kVtable[] = {
      SD_BUS_VTABLE_START(0),
      SD_BUS_PROPERTY("DeviceConfiguration", "ay",
                      &ControllerPeer::OnGetProperty, 0,
                      SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
      SD_BUS_PROPERTY("RuntimeState", "ay", &ControllerPeer::OnGetProperty, 0,
                      SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
      SD_BUS_METHOD("Get", "", "ay", &ControllerPeer::OnGet,
                    SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD("Set", "ay", "", &ControllerPeer::OnSet,
                    SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD("GetSetupCompleted", "", "b",
                    &ControllerPeer::OnGetSetupCompleted,
                    SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_VTABLE_END};

  Stop();
  bus_ = StartPeer(bus_address_, event_,
                   {kService, kPath, kInterface, kVtable, this, kObjectManagerPath}, error);
  return bus_ != nullptr;
}

void ControllerPeer::Stop() { bus_ = sd_bus_flush_close_unref(bus_); }

DeviceConfiguration ControllerPeer::configuration() const {
  DeviceConfiguration config;
  if (!config.ParseFromString(device_configuration_)) config.Clear();
  return config;
}

void ControllerPeer::SetConfiguration(const DeviceConfiguration& config) {
  config.SerializeToString(&device_configuration_);
  Publish("DeviceConfiguration");
}

void ControllerPeer::SetRuntimeState(const RuntimeState& state) {
  state.SerializeToString(&runtime_state_);
  Publish("RuntimeState");
}

void ControllerPeer::SetSetupCompleted(bool completed) {
  setup_completed_ = completed;
  Publish("DeviceConfiguration");
}

void ControllerPeer::PublishWrongType() {
  if (!bus_) return;
  sd_bus_emit_signal(bus_, kPath, "org.freedesktop.DBus.Properties",
                     "PropertiesChanged", "sa{sv}as", kInterface, 1,
                     "DeviceConfiguration", "s", "not a record", 0);
}

void ControllerPeer::Publish(const char* property) {
  if (!bus_) return;
  sd_bus_emit_properties_changed(bus_, kPath, kInterface, property, nullptr);
}

int ControllerPeer::OnGetProperty(sd_bus*, const char*, const char*,
                                  const char* property, sd_bus_message* reply,
                                  void* userdata, sd_bus_error*) {
  auto* self = static_cast<ControllerPeer*>(userdata);
  const std::string& value = strcmp(property, "RuntimeState") == 0
                                 ? self->runtime_state_
                                 : self->device_configuration_;
  return sd_bus_message_append_array(reply, 'y', value.data(), value.size());
}

int ControllerPeer::OnGet(sd_bus_message* call, void* userdata,
                          sd_bus_error*) {
  auto* self = static_cast<ControllerPeer*>(userdata);
  sd_bus_message* reply = nullptr;
  const std::string& bytes = self->device_configuration_;
  int r = sd_bus_message_new_method_return(call, &reply);
  if (r >= 0) r = sd_bus_message_append_array(reply, 'y', bytes.data(), bytes.size());
  if (r >= 0) r = sd_bus_send(nullptr, reply, nullptr);
  sd_bus_message_unref(reply);
  return r;
}

int ControllerPeer::OnSet(sd_bus_message* call, void* userdata,
                          sd_bus_error* error) {
  auto* self = static_cast<ControllerPeer*>(userdata);
  const void* data = nullptr;
  size_t size = 0;
  const int r = sd_bus_message_read_array(call, 'y', &data, &size);
  if (r < 0) return r;
  const std::string bytes(static_cast<const char*>(data), size);
  DeviceConfiguration config;
  if (!config.ParseFromString(bytes)) {
    self->report_("config set rejected: not a DeviceConfiguration");
    return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS,
                            "Not a serialized DeviceConfiguration");
  }
  self->device_configuration_ = bytes;
  self->report_("config set " + config.ShortDebugString());
  self->Publish("DeviceConfiguration");
  return sd_bus_reply_method_return(call, "");
}

int ControllerPeer::OnGetSetupCompleted(sd_bus_message* call, void* userdata,
                                        sd_bus_error*) {
  auto* self = static_cast<ControllerPeer*>(userdata);
  return sd_bus_reply_method_return(call, "b", self->setup_completed_ ? 1 : 0);
}

}  // namespace morvane::ap
