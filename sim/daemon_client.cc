#include "sim/daemon_client.h"

#include <cstring>
#include <iterator>
#include <utility>

#include "sim/peer_bus.h"

namespace morvane::ap {
namespace {

constexpr char kDomain[] = "sim";
constexpr char kAvdService[] = "org.tessaly.ap.AudioVisual";
constexpr char kManagerPath[] = "/org/tessaly/ap/AudioVisual/Manager";
constexpr char kManagerInterface[] = "org.tessaly.ap.AudioVisual.Manager";
constexpr char kOperationStarted[] = "operation started";
constexpr char kLed[] = "led";

}  // namespace

DaemonClient::DaemonClient(sd_event* event, std::string bus_address,
                           Reporter report, ReadyCallback on_ready,
                           OperationCallback on_operation_started)
    : event_(event),
      bus_address_(std::move(bus_address)),
      report_(std::move(report)),
      on_ready_(std::move(on_ready)),
      on_operation_started_(std::move(on_operation_started)) {}

DaemonClient::~DaemonClient() {
  // Calls still pending get no reply once the connection is gone.
  bus_ = sd_bus_flush_close_unref(bus_);
  calls_.clear();
}

bool DaemonClient::Connect(ErrorPtr* error) {
  bus_ = ConnectToBus(bus_address_, event_, error);
  if (!bus_) return false;
  const int r = sd_bus_match_signal(
      bus_, nullptr, "org.freedesktop.DBus", "/org/freedesktop/DBus",
      "org.freedesktop.DBus", "NameOwnerChanged",
      &DaemonClient::OnNameOwnerChangedThunk, this);
  if (r < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "dbus",
                       "Failed to watch name owners: %s", strerror(-r));
    return false;
  }
  return true;
}

void DaemonClient::SetOperationInProgress() {
  CallManager("SetOperationInProgress", "inject op start", kOperationStarted,
              0);
}

void DaemonClient::SetOperationSucceeded(uint32_t id) {
  const std::string id_text = "id=" + std::to_string(id);
  CallManager("SetOperationSucceeded", "inject op succeed " + id_text,
              "operation succeeded " + id_text, id);
}

void DaemonClient::SetOperationFailed(uint32_t id) {
  const std::string id_text = "id=" + std::to_string(id);
  CallManager("SetOperationFailed", "inject op fail " + id_text,
              "operation failed " + id_text, id);
}

void DaemonClient::SetLedState(const std::string& name,
                               const std::string& value, uint32_t seconds) {
  report_("inject led " + name + " " + value + " " + std::to_string(seconds));
  SendManagerCall(kLed, "SetLedState", "ssu", name.c_str(), value.c_str(),
                  seconds);
}

void DaemonClient::CallManager(const char* method, const std::string& inject,
                               const std::string& label, uint32_t argument) {
  report_(inject);
  SendManagerCall(label, method, "u", argument);
}

template <typename... Args>
void DaemonClient::SendManagerCall(const std::string& label, const char* method,
                                   const char* signature, Args... args) {
  calls_.push_back({this, label, {}});
  auto it = std::prev(calls_.end());
  it->self = it;
  const int r = sd_bus_call_method_async(
      bus_, nullptr, kAvdService, kManagerPath, kManagerInterface, method,
      &DaemonClient::OnManagerReply, &*it, signature, args...);
  if (r < 0) {
    report_(label + " error " + strerror(-r));
    calls_.erase(it);
  }
}

int DaemonClient::OnManagerReply(sd_bus_message* reply, void* userdata,
                                 sd_bus_error*) {
  auto* call = static_cast<ManagerCall*>(userdata);
  DaemonClient* self = call->client;
  const std::string label = call->label;
  self->calls_.erase(call->self);

  const sd_bus_error* error = sd_bus_message_get_error(reply);
  if (error) {
    self->report_(label + " error " + (error->name ? error->name : "") + ": " +
                  (error->message ? error->message : ""));
    return 0;
  }
  if (label == kOperationStarted) {
    uint32_t id = 0;
    if (sd_bus_message_read(reply, "u", &id) < 0) {
      self->report_("operation started error: reply without an id");
      return 0;
    }
    self->report_("operation started id=" + std::to_string(id));
    self->on_operation_started_(id);
  } else {
    self->report_(label == kLed ? "led ok" : label);
  }
  return 0;
}

int DaemonClient::OnNameOwnerChangedThunk(sd_bus_message* message,
                                          void* userdata, sd_bus_error*) {
  static_cast<DaemonClient*>(userdata)->OnNameOwnerChanged(message);
  return 0;
}

void DaemonClient::OnNameOwnerChanged(sd_bus_message* message) {
  const char* name = nullptr;
  const char* old_owner = nullptr;
  const char* new_owner = nullptr;
  if (sd_bus_message_read(message, "sss", &name, &old_owner, &new_owner) < 0 ||
      strcmp(name, kAvdService) != 0) {
    return;
  }
  const bool ready = new_owner && *new_owner;
  report_(ready ? "ready" : "avd left the bus");
  on_ready_(ready);
}

}  // namespace morvane::ap
