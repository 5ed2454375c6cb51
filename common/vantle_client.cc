#include "common/vantle_client.h"

#include <glog/logging.h>

#include <utility>

#include "platform/log_text.h"

namespace morvane::ap {
namespace {

constexpr char kConnectionState[] = "ConnectionState";

}  // namespace

VantleClient::VantleClient(std::shared_ptr<Bus> bus)
    : manager_proxy_(std::move(bus), kServiceName, ObjectPath{kManagerPath}) {
  property_changed_slot_ = manager_proxy_.ConnectToSignal(
      kManagerInterface, "PropertyChanged",
      [this](Message* signal) { OnPropertyChanged(signal); });
  owner_changed_slot_ = manager_proxy_.ConnectToNameOwnerChanged(
      [this](const std::string&, const std::string& new_owner) {
        if (new_owner.empty()) {
          get_properties_call_.reset();
          SetConnectionState(kOffline);
        } else {
          // A restarted connection manager signals nothing for the state
          // it starts in; without this read the ring would show "offline"
          // until its next change.
          GetProperties();
        }
      });
  GetProperties();
}

VantleClient::~VantleClient() = default;

void VantleClient::RegisterConnectionStateCallback(
    ConnectionStateCallback callback) {
  callbacks_.push_back(std::move(callback));
  callbacks_.back()(connection_state_);
}

void VantleClient::GetProperties() {
  get_properties_call_ = manager_proxy_.CallMethod(
      kManagerInterface, "GetProperties",
      [this](Message* reply) { OnGetProperties(reply); },
      [](const Error* error) {
        // An absent connection manager is read when it arrives.
        if (IsServiceUnknown(error)) return;
        LOG(WARNING) << "Failed to get the connection manager's properties: "
                     << LogText(error->message());
      });
}

void VantleClient::OnGetProperties(Message* reply) {
  MessageReader reader(reply);
  ErrorPtr error;
  std::string state;
  bool found = false;
  const bool read = reader.ReadDictionary<std::string>(
      "v",
      [&](const std::string& name, ErrorPtr* error) {
        if (name != kConnectionState) return reader.Skip(error);
        ErrorPtr value_error;
        found = reader.ReadVariant(&state, &value_error);
        if (!found) {
          LOG(WARNING) << "Failed to read ConnectionState: "
                       << LogText(value_error->message()) << ", ignoring it";
        }
        return true;
      },
      &error);
  if (!read || !reader.ReadEnd(&error)) {
    LOG(WARNING) << "Failed to read the connection manager's properties: "
                 << LogText(error->message()) << ", ignoring them";
    return;
  }
  if (found) SetConnectionState(state);
}

void VantleClient::OnPropertyChanged(Message* signal) {
  MessageReader reader(signal);
  ErrorPtr error;
  std::string name;
  if (!reader.Read(&name, &error)) {
    LOG(WARNING) << "Failed to read PropertyChanged: " << LogText(error->message())
                 << ", ignoring it";
    return;
  }
  if (name != kConnectionState) return;
  std::string state;
  if (!reader.ReadVariant(&state, &error) || !reader.ReadEnd(&error)) {
    LOG(WARNING) << "Failed to read ConnectionState: " << LogText(error->message())
                 << ", ignoring it";
    return;
  }
  SetConnectionState(state);
}

void VantleClient::SetConnectionState(const std::string& state) {
  // No connection manager names a state "": a peer that sends one is
  // broken, and the state held stays.
  if (state.empty()) {
    LOG(WARNING) << "Failed to read ConnectionState: empty, ignoring it";
    return;
  }
  if (state == connection_state_) return;
  connection_state_ = state;
  // A callback may register another.
  const std::vector<ConnectionStateCallback> callbacks = callbacks_;
  for (const ConnectionStateCallback& callback : callbacks) callback(state);
}

}  // namespace morvane::ap
