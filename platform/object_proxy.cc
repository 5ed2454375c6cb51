#include "platform/object_proxy.h"

#include <systemd/sd-bus.h>

#include <cstring>
#include <utility>

#include "platform/log_text.h"

namespace morvane::ap {
namespace {

constexpr char kFailed[] = "org.freedesktop.DBus.Error.Failed";

// What the bus holds for a call in flight or a match. Freed by the bus when
// the slot goes: after the callback when the callback itself dropped it.
struct ReplyHandler {
  ObjectProxy::ResponseCallback on_success;
  ObjectProxy::ErrorCallback on_error;
};

struct MatchHandler {
  std::function<void(Message*)> callback;
};

template <typename Handler>
void DeleteHandler(void* userdata) {
  delete static_cast<Handler*>(userdata);
}

int OnReply(sd_bus_message* message, void* userdata, sd_bus_error*) {
  auto* handler = static_cast<ReplyHandler*>(userdata);
  std::unique_ptr<Message> reply = Message::Ref(message);
  if (reply->IsError()) {
    ErrorPtr error;
    Error::AddTo(&error, FROM_HERE, kDbusErrorDomain, reply->error_name(),
                 reply->error_message());
    handler->on_error(error.get());
  } else {
    handler->on_success(reply.get());
  }
  return 0;
}

int OnMatch(sd_bus_message* message, void* userdata, sd_bus_error*) {
  std::unique_ptr<Message> signal = Message::Ref(message);
  static_cast<MatchHandler*>(userdata)->callback(signal.get());
  return 0;
}

}  // namespace

ObjectProxy::ObjectProxy(std::shared_ptr<Bus> bus, std::string service,
                         ObjectPath path)
    : bus_(std::move(bus)), service_(std::move(service)), path_(std::move(path)) {}

ObjectProxy::~ObjectProxy() = default;

void ObjectProxy::AddCallFailed(const std::string& interface,
                                const std::string& method, ErrorPtr* error) {
  Error::AddToPrintf(error, FROM_HERE, kDbusErrorDomain, kFailed,
                     "Failed to call D-Bus method: %s.%s", interface.c_str(),
                     method.c_str());
}

std::unique_ptr<Message> ObjectProxy::SendAndBlock(Message* call,
                                                   int timeout_ms,
                                                   ErrorPtr* error) {
  // sd-bus takes 0 for its default.
  const uint64_t timeout_us =
      timeout_ms < 0 ? 0 : static_cast<uint64_t>(timeout_ms) * 1000;
  sd_bus_error bus_error = SD_BUS_ERROR_NULL;
  sd_bus_message* reply = nullptr;
  const int r =
      sd_bus_call(bus_->raw(), call->raw(), timeout_us, &bus_error, &reply);
  std::unique_ptr<Message> result;
  if (r >= 0) {
    result = Message::Adopt(reply);
  } else if (sd_bus_error_is_set(&bus_error)) {
    Error::AddTo(error, FROM_HERE, kDbusErrorDomain, bus_error.name,
                 bus_error.message ? bus_error.message : "");
  } else {
    const char* interface = sd_bus_message_get_interface(call->raw());
    const char* member = sd_bus_message_get_member(call->raw());
    AddCallFailed(interface ? interface : "", member ? member : "", error);
  }
  sd_bus_error_free(&bus_error);
  return result;
}

BusSlot ObjectProxy::Send(Message* call, ResponseCallback on_success,
                          ErrorCallback on_error, ErrorPtr build_error) {
  TaskLoop* loop = bus_->loop();
  CHECK(loop) << "An asynchronous call needs a bus attached to the loop";
  if (call) {
    auto* handler = new ReplyHandler{std::move(on_success), on_error};
    sd_bus_slot* slot = nullptr;
    const int r = sd_bus_call_async(bus_->raw(), &slot, call->raw(), &OnReply,
                                    handler, 0);
    if (r >= 0) {
      sd_bus_slot_set_destroy_callback(slot, &DeleteHandler<ReplyHandler>);
      return BusSlot(slot);
    }
    delete handler;
    const char* interface = sd_bus_message_get_interface(call->raw());
    const char* member = sd_bus_message_get_member(call->raw());
    AddCallFailed(interface ? interface : "", member ? member : "",
                  &build_error);
  }
  // Reported later, as a reply would be.
  auto error = std::make_shared<ErrorPtr>(std::move(build_error));
  const TaskId task = loop->PostTask(
      [on_error = std::move(on_error), error] { on_error(error->get()); });
  return BusSlot(loop, task);
}

BusSlot ObjectProxy::AddMatch(const std::string& rule,
                              std::function<void(Message*)> callback) {
  auto* handler = new MatchHandler{std::move(callback)};
  sd_bus_slot* slot = nullptr;
  const int r =
      sd_bus_add_match(bus_->raw(), &slot, rule.c_str(), &OnMatch, handler);
  if (r < 0) {
    delete handler;
    LOG(ERROR) << "Failed to add the match " << rule << ": " << strerror(-r);
    return BusSlot();
  }
  sd_bus_slot_set_destroy_callback(slot, &DeleteHandler<MatchHandler>);
  return BusSlot(slot);
}

BusSlot ObjectProxy::ConnectToSignal(const std::string& interface,
                                     const std::string& member,
                                     SignalCallback callback) {
  return AddMatch("type='signal',sender='" + service_ + "',path='" +
                      path_.value + "',interface='" + interface +
                      "',member='" + member + "'",
                  std::move(callback));
}

BusSlot ObjectProxy::ConnectToNameOwnerChanged(
    NameOwnerChangedCallback callback) {
  return AddMatch(
      "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/"
      "DBus',interface='org.freedesktop.DBus',member='NameOwnerChanged',"
      "arg0='" + service_ + "'",
      [callback = std::move(callback)](Message* signal) {
        std::string name;
        std::string old_owner;
        std::string new_owner;
        MessageReader reader(signal);
        ErrorPtr error;
        if (!ReadArgs(reader, &error, &name, &old_owner, &new_owner)) {
          LOG(WARNING) << "Failed to read NameOwnerChanged: "
                       << LogText(error->message()) << ", ignoring";
          return;
        }
        callback(old_owner, new_owner);
      });
}

bool IsServiceUnknown(const Error* error) {
  return error->HasError(kDbusErrorDomain,
                         "org.freedesktop.DBus.Error.ServiceUnknown");
}

void ObjectProxy::SetNameOwnerChangedCallback(
    NameOwnerChangedCallback callback) {
  name_owner_changed_slot_ = ConnectToNameOwnerChanged(std::move(callback));
}

}  // namespace morvane::ap
