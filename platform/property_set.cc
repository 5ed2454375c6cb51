#include "platform/property_set.h"

#include <glog/logging.h>

#include <vector>

#include "platform/log_text.h"
#include "platform/object_proxy.h"

namespace morvane::ap {
namespace {

constexpr char kPropertiesInterface[] = "org.freedesktop.DBus.Properties";

}  // namespace

PropertySet::PropertySet(ObjectProxy* proxy, std::string interface,
                         PropertyChangedCallback callback)
    : proxy_(proxy),
      interface_(std::move(interface)),
      callback_(std::move(callback)) {}

PropertySet::~PropertySet() = default;

void PropertySet::RegisterProperty(const std::string& name,
                                   PropertyBase* property) {
  properties_[name] = property;
}

void PropertySet::ConnectSignals() {
  properties_changed_slot_ = proxy_->ConnectToSignal(
      kPropertiesInterface, "PropertiesChanged",
      [this](Message* signal) { OnPropertiesChanged(signal); });
  // A restarted service sends no PropertiesChanged for the values it
  // starts with: read them when it arrives, so its owner sees them at once
  // rather than at the service's next change.
  owner_changed_slot_ = proxy_->ConnectToNameOwnerChanged(
      [this](const std::string&, const std::string& new_owner) {
        if (!new_owner.empty()) GetAll();
      });
}

void PropertySet::GetAll() {
  get_all_call_ = proxy_->CallMethod(
      kPropertiesInterface, "GetAll",
      [this](Message* reply) { OnGetAll(reply); },
      [this](const Error* error) {
        // An absent service is read when it arrives.
        if (IsServiceUnknown(error)) return;
        LOG(WARNING) << "Failed to get the properties of " << interface_
                     << ": " << LogText(error->message());
      },
      interface_);
}

void PropertySet::Get(const std::string& name) {
  get_calls_[name] = proxy_->CallMethod(
      kPropertiesInterface, "Get",
      [this, name](Message* reply) { OnGet(name, reply); },
      [this, name](const Error* error) {
        // A service that left is read again when it comes back.
        if (IsServiceUnknown(error)) return;
        LOG(WARNING) << "Failed to get property " << interface_ << "." << LogText(name)
                     << ": " << LogText(error->message());
      },
      interface_, name);
}

void PropertySet::OnGet(const std::string& name, Message* reply) {
  MessageReader reader(reply);
  ErrorPtr error;
  PropertyBase* property = properties_.at(name);
  if (!property->ReadValue(reader, &error)) {
    LOG(WARNING) << "Failed to read property " << interface_ << "." << LogText(name)
                 << ": " << LogText(error->message()) << ", keeping the old value";
    return;
  }
  property->is_valid_ = true;
  if (!reader.ReadEnd(&error)) {
    LOG(WARNING) << "Failed to read property " << interface_ << "." << LogText(name)
                 << ": " << LogText(error->message()) << ", ignoring the rest";
  }
  Notify({name});
}

bool PropertySet::ReadAll(MessageReader& reader, ErrorPtr* error) {
  std::vector<std::string> arrived;
  const bool read = ReadProperties(reader, &arrived, error);
  Notify(arrived);
  return read;
}

void PropertySet::OnGetAll(Message* reply) {
  MessageReader reader(reply);
  ErrorPtr error;
  std::vector<std::string> arrived;
  if (!ReadProperties(reader, &arrived, &error) || !reader.ReadEnd(&error)) {
    LOG(WARNING) << "Failed to read the properties of " << interface_ << ": "
                 << LogText(error->message()) << ", ignoring the rest";
  }
  Notify(arrived);
}

void PropertySet::OnPropertiesChanged(Message* signal) {
  MessageReader reader(signal);
  ErrorPtr error;
  std::string interface;
  if (!reader.Read(&interface, &error)) {
    LOG(WARNING) << "Failed to read PropertiesChanged: " << LogText(error->message())
                 << ", ignoring it";
    return;
  }
  if (interface != interface_) return;
  std::vector<std::string> arrived;
  std::vector<std::string> invalidated;
  if (!ReadProperties(reader, &arrived, &error) ||
      !reader.Read(&invalidated, &error) || !reader.ReadEnd(&error)) {
    LOG(WARNING) << "Failed to read PropertiesChanged of " << interface_
                 << ": " << LogText(error->message()) << ", ignoring the rest";
    invalidated.clear();
  }
  // A peer that only names what changed gets asked for those values alone:
  // reading all of them would report the others as changed too.
  for (const std::string& name : invalidated) {
    if (properties_.count(name)) Get(name);
  }
  Notify(arrived);
}

bool PropertySet::ReadProperties(MessageReader& reader,
                                 std::vector<std::string>* arrived,
                                 ErrorPtr* error) {
  return reader.ReadDictionary<std::string>(
      "v",
      [&](const std::string& name, ErrorPtr* error) {
        auto it = properties_.find(name);
        if (it == properties_.end()) return reader.Skip(error);
        ErrorPtr value_error;
        if (!it->second->ReadValue(reader, &value_error)) {
          LOG(WARNING) << "Failed to read property " << interface_ << "."
                       << LogText(name) << ": " << LogText(value_error->message())
                       << ", keeping the old value";
          return true;
        }
        it->second->is_valid_ = true;
        arrived->push_back(name);
        return true;
      },
      error);
}

void PropertySet::Notify(const std::vector<std::string>& arrived) {
  // A callback may destroy this set: nothing of it is used after the first.
  const PropertyChangedCallback callback = callback_;
  for (const std::string& name : arrived) callback(name);
}

}  // namespace morvane::ap
