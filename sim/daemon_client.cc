#include "sim/daemon_client.h"

#include <utility>

namespace morvane::ap {
namespace {

constexpr char kAvdService[] = "org.tessaly.ap.AudioVisual";
constexpr char kManagerPath[] = "/org/tessaly/ap/AudioVisual/Manager";
constexpr char kManagerInterface[] = "org.tessaly.ap.AudioVisual.Manager";

std::string IdText(uint32_t id) { return "id=" + std::to_string(id); }

}  // namespace

DaemonClient::DaemonClient(EventLoop* loop, std::string bus_address,
                           Reporter report, ReadyCallback on_ready,
                           OperationCallback on_operation_started)
    : loop_(loop),
      bus_address_(std::move(bus_address)),
      report_(std::move(report)),
      on_ready_(std::move(on_ready)),
      on_operation_started_(std::move(on_operation_started)) {}

// Calls still pending go first, so their callbacks never run.
DaemonClient::~DaemonClient() { calls_.clear(); }

bool DaemonClient::Connect(ErrorPtr* error) {
  bus_ = Bus::Connect(loop_, bus_address_, error);
  if (!bus_) return false;
  manager_ = std::make_unique<ObjectProxy>(bus_, kAvdService,
                                           ObjectPath{kManagerPath});
  manager_->SetNameOwnerChangedCallback(
      [this](const std::string&, const std::string& new_owner) {
        const bool ready = !new_owner.empty();
        report_(ready ? "ready" : "avd left the bus");
        on_ready_(ready);
      });
  return true;
}

void DaemonClient::SetOperationInProgress() {
  report_("inject op start");
  CallManager(
      "operation started", "SetOperationInProgress",
      [this](Message* reply) {
        uint32_t id = 0;
        ErrorPtr error;
        if (!ExtractMethodCallResults(reply, &error, &id)) {
          report_("operation started error: " + error->message());
          return;
        }
        report_("operation started " + IdText(id));
        on_operation_started_(id);
      },
      uint32_t{0});
}

void DaemonClient::SetOperationSucceeded(uint32_t id) {
  report_("inject op succeed " + IdText(id));
  CallManager("operation succeeded " + IdText(id), "SetOperationSucceeded",
              nullptr, id);
}

void DaemonClient::SetOperationFailed(uint32_t id) {
  report_("inject op fail " + IdText(id));
  CallManager("operation failed " + IdText(id), "SetOperationFailed", nullptr,
              id);
}

void DaemonClient::SetLedState(const std::string& name,
                               const std::string& value, uint32_t seconds) {
  report_("inject led " + name + " " + value + " " + std::to_string(seconds));
  CallManager(
      "led", "SetLedState", [this](Message*) { report_("led ok"); }, name,
      value, seconds);
}

void DaemonClient::Flood(int calls) {
  report_("inject flood " + std::to_string(calls));
  ErrorPtr error;
  std::shared_ptr<Bus> bus = Bus::Connect(loop_, bus_address_, &error);
  if (!bus) {
    report_("flood error " + error->message());
    return;
  }
  ObjectProxy manager(bus, kAvdService, ObjectPath{kManagerPath});
  auto ignore = [](Message*) {};
  auto ignore_error = [](const Error*) {};
  std::vector<BusSlot> slots;
  // In turn: a wrong type, a wrong type, one argument too many, no such
  // method.
  for (int i = 0; i < calls; ++i) {
    const char* in = kManagerInterface;
    slots.push_back(
        i % 4 == 0   ? manager.CallMethod(in, "SetLedState", ignore,
                                          ignore_error, uint32_t{1})
        : i % 4 == 1 ? manager.CallMethod(in, "SetOperationInProgress", ignore,
                                          ignore_error, std::string("x"))
        : i % 4 == 2 ? manager.CallMethod(in, "SetOperationFailed", ignore,
                                          ignore_error, uint32_t{1}, uint32_t{2})
                     : manager.CallMethod(in, "Nope", ignore, ignore_error));
  }
  // Leaving: the bus is flushed, then closed, before any reply is read.
  slots.clear();
}

template <typename... Args>
void DaemonClient::CallManager(const std::string& label, const char* method,
                               std::function<void(Message*)> on_reply,
                               const Args&... args) {
  const uint64_t call = next_call_++;
  // Each callback drops its own slot last.
  calls_[call] = manager_->CallMethod(
      kManagerInterface, method,
      [this, call, label, on_reply](Message* reply) {
        on_reply ? on_reply(reply) : report_(label);
        calls_.erase(call);
      },
      [this, call, label](const Error* error) {
        report_(label + " error " + error->code() + ": " + error->message());
        calls_.erase(call);
      },
      args...);
}

}  // namespace morvane::ap
