#include "peers/upstart_peer.h"

#include <systemd/sd-bus.h>

#include <cstdlib>

#include "peers/peer_bus.h"

namespace morvane::ap {
namespace {

constexpr char kService[] = "com.ubuntu.Upstart";
constexpr char kPath[] = "/com/ubuntu/Upstart";
constexpr char kInterface[] = "com.ubuntu.Upstart0_6";

}  // namespace

UpstartPeer::UpstartPeer(sd_event* event, std::string bus_address,
                         Reporter report)
    : event_(event),
      bus_address_(std::move(bus_address)),
      report_(std::move(report)) {}

UpstartPeer::~UpstartPeer() { Stop(); }

bool UpstartPeer::Start(ErrorPtr* error) {
  static const sd_bus_vtable kVtable[] = {
      SD_BUS_VTABLE_START(0),
      SD_BUS_METHOD("EmitEvent", "sasb", "", &UpstartPeer::OnEmitEvent,
                    SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_VTABLE_END};

  Stop();
  bus_ = StartPeer(bus_address_, event_,
                   {kService, kPath, kInterface, kVtable, this}, error);
  return bus_ != nullptr;
}

void UpstartPeer::Stop() { bus_ = sd_bus_flush_close_unref(bus_); }

int UpstartPeer::OnEmitEvent(sd_bus_message* call, void* userdata,
                             sd_bus_error*) {
  auto* self = static_cast<UpstartPeer*>(userdata);
  const char* name = nullptr;
  char** env = nullptr;
  int wait = 0;
  int r = sd_bus_message_read(call, "s", &name);
  if (r >= 0) r = sd_bus_message_read_strv(call, &env);
  if (r >= 0) r = sd_bus_message_read(call, "b", &wait);
  std::string line = std::string("upstart ") + (name ? name : "");
  for (char** e = env; e && *e; ++e) {
    line += std::string(" ") + *e;
    free(*e);
  }
  free(env);
  if (r < 0) return r;
  if (wait) line += " wait";
  if (!self->answering_) {
    self->report_(line + " unanswered");
    return 1;
  }
  self->report_(line);
  return sd_bus_reply_method_return(call, "");
}

}  // namespace morvane::ap
